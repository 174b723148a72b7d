#include "Common/CEventPacket.h"

#include "Common/CKelException.h"
#include "Common/CStringifyEnums.h"
#include "Common/ParamAssert.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

CEventPacket::CEventPacket()
{
    Init();
    ParamAssert(IsValid() == KELSTATUS_SUCCESS);
}

CEventPacket::CEventPacket(unsigned int sizeOfBuffer_I, void* pBuffer_I)
{
    Init();
    ParamAssert(IsValid() == KELSTATUS_SUCCESS);
    SetNewBuffer(sizeOfBuffer_I, pBuffer_I);
}

CEventPacket::CEventPacket(const CEventPacket& source_I)
{
    Init();
    *this = source_I;
    mpCurrentKey = &mObjectKey[0];
}

CEventPacket& CEventPacket::operator=(const CEventPacket& source_I)
{
    if (this == &source_I)
    {
        return *this;
    }
    ClearEvent();
    SetNewBuffer(0, nullptr);
    mVersion = source_I.mVersion;
    mCommand = source_I.mCommand;
    mSourceOfRequest = source_I.mSourceOfRequest;
    mRequestWord = source_I.mRequestWord;
    CopyObjectKey(mObjectKey, source_I.mObjectKey);
    // The source's position in the chain is not copied.
    mpCurrentKey = &mObjectKey[0];
    // The copy owns a buffer of the source's full capacity.
    PackData(source_I.mSizeOfBuffer, source_I.mpBuffer);
    SetDataSize(source_I.mSizeOfData);
    mStatus = source_I.mStatus;
    return *this;
}

CEventPacket::~CEventPacket()
{
    FreeOwnedBuffer();
}

void CEventPacket::FreeOwnedBuffer()
{
    if (mBufferOwned)
    {
        std::free(mpBuffer);
    }
    mpBuffer = nullptr;
    mBufferOwned = false;
}

void CEventPacket::Init()
{
    mSizeOfBuffer = 0;
    mpBuffer = nullptr;
    mBufferOwned = false;
    mVersion = kPacketVersion;
    mPacketID[0] = 'K';
    mPacketID[1] = 'E';
    mStatus = KELSTATUS_SUCCESS;
    mCommand = static_cast<ECommand>(0);
    mpCurrentKey = &mObjectKey[0];
    mSizeOfData = 0;
    mSourceOfRequest = static_cast<ESourceOfRequest>(0);
    mRequestWord = 0;
    ResetObjectKey(mObjectKey, MAX_KEY + 1);
    ParamAssert(IsValid() == KELSTATUS_SUCCESS);
}

void CEventPacket::ClearEvent()
{
    mStatus = KELSTATUS_SUCCESS;
    mCommand = static_cast<ECommand>(0);
    mpCurrentKey = &mObjectKey[0];
    mSizeOfData = 0;
    mSourceOfRequest = static_cast<ESourceOfRequest>(0);
    mRequestWord = 0;
    ResetObjectKey(mObjectKey, MAX_KEY + 1);
}

KELSTATUS CEventPacket::IsValid() const
{
    if (mPacketID[0] != 'K' || mPacketID[1] != 'E')
    {
        std::fprintf(stderr, "CEventPacket::IsValid: Missing packet ID\n");
        return KELSTATUS_RESOURCE_BAD;
    }
    if (mpCurrentKey == nullptr)
    {
        std::fprintf(stderr, "CEventPacket::IsValid: Null object key pointer\n");
        return KELSTATUS_MEMORY_NULL_PTR;
    }
    // A valid chain has its sentinel within the first ten places; the walk that checks the
    // keys finds it.
    unsigned int sentinel = 0;
    const KELSTATUS keyStatus = IsObjectKeyValid(mObjectKey, sentinel);
    if (keyStatus != KELSTATUS_SUCCESS)
    {
        std::fprintf(stderr, "CEventPacket::IsValid: Object key invalid\n");
        return keyStatus;
    }
    // Compared as addresses: a stray pointer is what this check is for.
    const auto current = reinterpret_cast<std::uintptr_t>(mpCurrentKey);
    if (current < reinterpret_cast<std::uintptr_t>(&mObjectKey[0]))
    {
        std::fprintf(stderr, "CEventPacket::IsValid: bad object key pointer (low)\n");
        return KELSTATUS_RESOURCE_BAD;
    }
    if (current > reinterpret_cast<std::uintptr_t>(&mObjectKey[sentinel]))
    {
        std::fprintf(stderr, "CEventPacket::IsValid: bad object key pointer (high)\n");
        return KELSTATUS_RESOURCE_BAD;
    }
    // Against 10, not MAX_COMMAND: MAX_COMMAND itself passes, as it always has.
    if (static_cast<std::uint32_t>(mCommand) >= 10)
    {
        std::fprintf(stderr, "CEventPacket::IsValid: bad command\n");
        return KELSTATUS_RESOURCE_BAD;
    }
    if ((mSizeOfBuffer == 0 && mpBuffer != nullptr) || (mSizeOfBuffer != 0 && mpBuffer == nullptr))
    {
        std::fprintf(stderr, "CEventPacket::IsValid: bad buffer\n");
        return KELSTATUS_RESOURCE_BAD;
    }
    if (mSizeOfData > mSizeOfBuffer)
    {
        std::fprintf(stderr, "CEventPacket::IsValid: Buffer size\n");
        return KELSTATUS_RESOURCE_BAD;
    }
    return KELSTATUS_SUCCESS;
}

void CEventPacket::SetNewBuffer(unsigned int sizeOfBuffer_I, void* pBuffer_I)
{
    ParamAssert((sizeOfBuffer_I && pBuffer_I) || (!sizeOfBuffer_I && !pBuffer_I));
    FreeOwnedBuffer();
    mpBuffer = pBuffer_I;
    mBufferOwned = false;
    mSizeOfBuffer = sizeOfBuffer_I;
    mSizeOfData = 0;
    mStatus = KELSTATUS_SUCCESS;
    ParamAssert(IsValid() == KELSTATUS_SUCCESS);
}

void CEventPacket::AddKey(EEventIdentifier nIdentifier_I, void* reference_I, EAddressingMode mode_I,
                          bool allSubordinate_I)
{
    ParamAssert(nIdentifier_I);
    // Place MAX_KEY - 1 is never handed out: it stays a sentinel, whatever the array's size.
    for (unsigned int place = 0; place < MAX_KEY - 1; ++place)
    {
        OBJECT_KEY& key = mObjectKey[place];
        if (key.Identifier() == EObjectIDNothing)
        {
            key.Set(nIdentifier_I, reference_I, mode_I);
            if (allSubordinate_I)
            {
                key.SetToAllSubordinate();
            }
            return;
        }
    }
    std::fprintf(stderr,
                 "CEventPacket::AddKey: key chain full; can not set the last key in the chain\n");
    mStatus = KELSTATUS_MEMORY_BAD;
    throw CKelException(nullptr, 0, "AddKey full", KELSTATUS_MEMORY_BAD);
}

void CEventPacket::AddKeyInt(EEventIdentifier nIdentifier_I, unsigned int value_I,
                             EAddressingMode mode_I)
{
    AddKey(nIdentifier_I, reinterpret_cast<void*>(static_cast<std::uintptr_t>(value_I)), mode_I,
           false);
}

void CEventPacket::AddKeyString(EEventIdentifier nIdentifier_I, const char* text_I,
                                bool allSubordinate_I)
{
    AddKey(nIdentifier_I, const_cast<char*>(text_I), EAddrModeByString, allSubordinate_I);
}

void CEventPacket::AddKeyString(EEventIdentifier nIdentifier_I, const std::string& text_I,
                                bool allSubordinate_I)
{
    AddKeyString(nIdentifier_I, text_I.c_str(), allSubordinate_I);
}

void CEventPacket::RemoveKey()
{
    for (unsigned int index = 0; index < MAX_KEY - 1; ++index)
    {
        if (mObjectKey[index + 1].Identifier() == EObjectIDNothing)
        {
            ParamAssert(mObjectKey[index].Identifier() != EObjectIDNothing);
            mObjectKey[index].ResetObjectKey();
            return;
        }
    }
    std::fprintf(stderr,
                 "CEventPacket::RemoveKey: key chain full; last key was set in the chain\n");
    mStatus = KELSTATUS_MEMORY_BAD;
    throw CKelException(nullptr, 0, "RemoveKey full", KELSTATUS_MEMORY_BAD);
}

void CEventPacket::SetObjectKeys(const OBJECT_KEY* pObjectKey_I)
{
    CopyObjectKey(mObjectKey, pObjectKey_I);
    mpCurrentKey = &mObjectKey[0];
}

const OBJECT_KEY* CEventPacket::ObjectKey(unsigned int keyIndex_I) const
{
    ParamAssert(keyIndex_I <= MAX_KEY);
    return &mObjectKey[keyIndex_I <= MAX_KEY ? keyIndex_I : MAX_KEY];
}

void CEventPacket::SetCurrentKey(OBJECT_KEY* pObjectKey_I)
{
    ParamAssert(pObjectKey_I);
    ParamAssert(pObjectKey_I >= &mObjectKey[0]);
    ParamAssert(pObjectKey_I <= &mObjectKey[MAX_KEY]);
    mpCurrentKey = pObjectKey_I;
    ParamAssert(IsValid() == KELSTATUS_SUCCESS);
}

void CEventPacket::AdvanceCurrentKey()
{
    // The last place is a bound as well: a chain copied without a sentinel ends there.
    if (mpCurrentKey->Identifier() != EObjectIDNothing && mpCurrentKey < &mObjectKey[MAX_KEY])
    {
        ++mpCurrentKey;
    }
}

void CEventPacket::RetreatCurrentKey()
{
    if (mpCurrentKey > &mObjectKey[0])
    {
        --mpCurrentKey;
    }
}

KELSTATUS CEventPacket::NextObjectKey()
{
    if (mpCurrentKey->Identifier() == EObjectIDNothing)
    {
        return KELSTATUS_OBJECT_NOT_FOUND;
    }
    AdvanceCurrentKey();
    return KELSTATUS_SUCCESS;
}

const OBJECT_KEY* CEventPacket::LastObjectKey() const
{
    unsigned int last = 0;
    while (last < MAX_KEY && mObjectKey[last + 1].Identifier() != EObjectIDNothing &&
           mObjectKey[last].Identifier() != EObjectIDNothing)
    {
        ++last;
    }
    return &mObjectKey[last];
}

void CEventPacket::PackData(unsigned int sizeOfData_I, const void* pData_I)
{
    ParamAssert(IsValid() == KELSTATUS_SUCCESS);
    if (pData_I != nullptr && sizeOfData_I != 0)
    {
        if (mSizeOfBuffer < sizeOfData_I || mpBuffer == nullptr)
        {
            // The new buffer is filled before the old one goes, so data that lies in the
            // old buffer is still readable.
            void* grown = std::malloc(sizeOfData_I);
            std::memcpy(grown, pData_I, sizeOfData_I);
            FreeOwnedBuffer();
            mpBuffer = grown;
            mSizeOfBuffer = sizeOfData_I;
            mBufferOwned = true;
            SetDataSize(sizeOfData_I);
        }
        else
        {
            SetDataSize(sizeOfData_I);
            if (pData_I != mpBuffer)
            {
                std::memmove(mpBuffer, pData_I, sizeOfData_I);
            }
        }
    }
    else
    {
        SetNewBuffer(0, nullptr);
    }
    ParamAssert(IsValid() == KELSTATUS_SUCCESS);
    mStatus = KELSTATUS_SUCCESS;
}

void CEventPacket::SetDataSize(unsigned int size_I)
{
    ParamAssert(size_I <= mSizeOfBuffer);
    mSizeOfData = size_I < mSizeOfBuffer ? size_I : mSizeOfBuffer;
}

void CEventPacket::UnPackData(unsigned int& size_IO, void* pData_O)
{
    ParamAssert(IsValid() == KELSTATUS_SUCCESS);
    if (size_IO != 0 && pData_O != nullptr && mpBuffer != nullptr)
    {
        if (size_IO >= mSizeOfData)
        {
            if (pData_O != mpBuffer)
            {
                std::memmove(pData_O, mpBuffer, mSizeOfData);
            }
        }
        else
        {
            std::fprintf(stderr, "CEventPacket::UnPackData: Buffer not big enough\n");
            // Overwritten at once below: the line above is the only sign, as it always was.
            mStatus = KELSTATUS_MEMORY_OVERRUN;
        }
    }
    size_IO = mSizeOfData;
    mStatus = KELSTATUS_SUCCESS;
}

void CEventPacket::PackEvent(ECommand command_I, const OBJECT_KEY* pObjectKey_I,
                             unsigned int sizeOfData_I, const void* pData_I,
                             ESourceOfRequest source_I)
{
    ParamAssert(IsValid() == KELSTATUS_SUCCESS);
    ParamAssert(IsObjectKeyValid(pObjectKey_I) == KELSTATUS_SUCCESS);
    ClearEvent();
    mCommand = command_I;
    mSourceOfRequest = source_I;
    CopyObjectKey(mObjectKey, pObjectKey_I);
    mpCurrentKey = &mObjectKey[0];
    PackData(sizeOfData_I, pData_I);
}

template <> void CEventPacket::PackData_<bool>(const bool& value_I)
{
    const unsigned char byte = value_I ? 1 : 0;
    PackData(1, &byte);
}

template <> bool CEventPacket::UnPackData_<bool>(const bool& defaultValue_I)
{
    return UnPackData_<unsigned char>(static_cast<unsigned char>(defaultValue_I)) != 0;
}

template <> void CEventPacket::PackData_<std::string>(const std::string& value_I)
{
    PackData(static_cast<unsigned int>(value_I.size() + 1), value_I.c_str());
}

template <> std::string CEventPacket::UnPackData_<std::string>(const std::string& defaultValue_I)
{
    if (mpBuffer == nullptr)
    {
        mStatus = kStatusNoDataBuffer;
        return defaultValue_I;
    }
    if (mSizeOfData == 0)
    {
        return defaultValue_I;
    }
    ParamAssert(((char*)mpBuffer)[mSizeOfData - 1] == 0);
    return std::string(static_cast<const char*>(mpBuffer), mSizeOfData - 1);
}

template <>
void CEventPacket::PackData_<std::vector<unsigned char>>(const std::vector<unsigned char>& value_I)
{
    PackData(static_cast<unsigned int>(value_I.size()), value_I.data());
}

template <>
std::vector<unsigned char> CEventPacket::UnPackData_<std::vector<unsigned char>>(
    const std::vector<unsigned char>& defaultValue_I)
{
    if (mpBuffer == nullptr)
    {
        mStatus = kStatusNoDataBuffer;
        return defaultValue_I;
    }
    if (mSizeOfData == 0)
    {
        return defaultValue_I;
    }
    std::vector<unsigned char> bytes(mSizeOfData);
    unsigned int dataSize = mSizeOfData;
    UnPackData(dataSize, bytes.data());
    ParamAssert(dataSize == mSizeOfData);
    return bytes;
}

void CEventPacket::TRACEEVENT(const std::string& label_I, bool enabled_I) const
{
    if (!enabled_I)
    {
        return;
    }
    const std::string command =
        CStringifyEnums<ECommand>::GetInstance(false)->GetString(mCommand, true);
    const std::string current = CStringifyEnums<EEventIdentifier>::GetInstance(false)->GetString(
        mpCurrentKey->Identifier(), true);
    const std::string mode = CStringifyEnums<EAddressingMode>::GetInstance(false)->GetString(
        mpCurrentKey->mAddressingMode, true);
    const std::string last = CStringifyEnums<EEventIdentifier>::GetInstance(false)->GetString(
        LastObjectKey()->Identifier(), true);
    std::fprintf(stderr, "%s: Command:%s CurrentKey:%s %s %i LastKey:%s\n", label_I.c_str(),
                 command.c_str(), current.c_str(), mode.c_str(),
                 static_cast<int>(reinterpret_cast<std::intptr_t>(mpCurrentKey->mReference)),
                 last.c_str());
}
