// The wire form of CEventPacket: sizing, writing, reading and byte-swapping the block whose
// layout SerializedEventPacket.h gives.
#include "Common/CEventPacket.h"
#include "Common/CFlipper.h"
#include "Common/ParamAssert.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace
{
using UINT8 = std::uint8_t;

constexpr std::size_t kHeaderSize = sizeof(SerializedEventPacketHeader);

// Reports one of the layer's fixed assertion texts.
#define ParamReport(text) KelAssertReport(KEL_PARAM_SOURCE, __LINE__, text)

// The text printed whenever the write position has passed the end of the block.
constexpr const char* kPositionText = "(size_t)(dataRef - bufferRef) <= size_I";

SerializedEventPacket* AsPacket(void* pBuffer)
{
    return static_cast<SerializedEventPacket*>(pBuffer);
}

void FlipHeader(SerializedEventPacketHeader& header)
{
    const CFlipper flipper;
    header.mMagic = flipper.FlipPrivate(static_cast<unsigned int>(header.mMagic));
    header.mVersion = flipper.FlipPrivate(static_cast<unsigned int>(header.mVersion));
    header.mSize = flipper.FlipPrivate(static_cast<unsigned int>(header.mSize));
    header.mStatus = flipper.FlipPrivate(static_cast<unsigned short>(header.mStatus));
    header.mCommand = flipper.FlipPrivate(static_cast<unsigned int>(header.mCommand));
    for (SerializedObjectKey& record : header.mObjectKey)
    {
        record.mAddressingMode =
            flipper.FlipPrivate(static_cast<unsigned int>(record.mAddressingMode));
        record.mIdentifier = flipper.FlipPrivate(static_cast<unsigned short>(record.mIdentifier));
        record.mReference = flipper.FlipPrivate(static_cast<unsigned int>(record.mReference));
    }
    header.mSizeOfData = flipper.FlipPrivate(static_cast<unsigned int>(header.mSizeOfData));
    header.mSourceOfRequest =
        flipper.FlipPrivate(static_cast<unsigned int>(header.mSourceOfRequest));
    header.mRequestWord = flipper.FlipPrivate(static_cast<unsigned int>(header.mRequestWord));
    header.mFixupCount = flipper.FlipPrivate(static_cast<unsigned int>(header.mFixupCount));
    header.mStringSize = flipper.FlipPrivate(static_cast<unsigned int>(header.mStringSize));
}

void FlipFixups(SerializedEventPacket* pSerializedPacket, std::uint32_t count)
{
    const CFlipper flipper;
    for (std::uint32_t i = 0; i < count; ++i)
    {
        FixupEntry& entry = pSerializedPacket->fixups[i];
        entry.mFixupType = flipper.FlipPrivate(static_cast<unsigned int>(entry.mFixupType));
        entry.mIndex = flipper.FlipPrivate(static_cast<unsigned int>(entry.mIndex));
        entry.mSize = flipper.FlipPrivate(static_cast<unsigned int>(entry.mSize));
        entry.mOffset = flipper.FlipPrivate(static_cast<unsigned int>(entry.mOffset));
    }
}

bool IsFlipped(const SerializedEventPacketHeader& header)
{
    return header.mMagic == __builtin_bswap32(kSerializedPacketMagic);
}

bool IsHostBlock(const SerializedEventPacketHeader& header)
{
    return header.mMagic == kSerializedPacketMagic && header.mVersion == kSerializedPacketVersion;
}

// The key's string fixup: the first eFixupString entry with that place, searched for
// without a bound on mFixupCount (a block that lacks it is not caught). `entryLimit` bounds
// the search by the bytes there are, for blocks that came from outside.
const FixupEntry* FindStringFixup(const SerializedEventPacket* pSerializedPacket,
                                  unsigned int place, std::uint64_t entryLimit = UINT64_MAX)
{
    for (std::uint64_t i = 0; i < entryLimit; ++i)
    {
        const FixupEntry& entry = pSerializedPacket->fixups[i];
        if (entry.mFixupType == eFixupString && entry.mIndex == place)
        {
            return &entry;
        }
    }
    return nullptr;
}

// Whether a host-order block of receivedSize bytes can be decoded without reading outside
// it or throwing; see the checked DeserializeFromBuffer.
bool IsDecodable(SerializedEventPacket* pSerializedPacket, std::size_t receivedSize,
                 bool withCopyHandler)
{
    const SerializedEventPacketHeader& header = pSerializedPacket->header;
    const UINT8* block = reinterpret_cast<const UINT8*>(pSerializedPacket);
    const std::uint64_t entriesThere = (receivedSize - kHeaderSize) / sizeof(FixupEntry);
    if (header.mFixupCount > entriesThere)
    {
        return false;
    }
    auto within = [receivedSize](std::uint64_t offset, std::uint64_t size)
    { return offset <= receivedSize && size <= receivedSize - offset; };

    unsigned int keys = 0;
    for (unsigned int place = 0; place < kSerializedKeyRecords; ++place)
    {
        const SerializedObjectKey& record = header.mObjectKey[place];
        if (record.mIdentifier == 0)
        {
            break;
        }
        // A tenth key would throw from AddKey.
        if (++keys > MAX_KEY - 1)
        {
            return false;
        }
        if (record.mAddressingMode == EAddrModeByString)
        {
            const FixupEntry* entry = FindStringFixup(pSerializedPacket, place, entriesThere);
            if (entry == nullptr || !within(entry->mOffset, 1) ||
                std::memchr(block + entry->mOffset, 0, receivedSize - entry->mOffset) == nullptr)
            {
                return false;
            }
        }
    }
    const FixupEntry* data = CEventPacket::GetFixup(eFixupEventBuffer, 0, pSerializedPacket);
    if (data != nullptr && !within(data->mOffset, header.mSizeOfData))
    {
        return false;
    }
    const FixupEntry* special = CEventPacket::GetFixup(eFixupSpecial, 0, pSerializedPacket);
    if (withCopyHandler && special != nullptr && !within(special->mOffset, special->mSize))
    {
        return false;
    }
    return true;
}
} // namespace

bool CEventPacket::HasQueuePayload() const
{
    return mCommand == ECommandGet && LastObjectKey()->Identifier() == EParameterIDQueue &&
           mpBuffer != nullptr;
}

unsigned int CEventPacket::GetSerializedSize(SerializedSizeHandler queueEventSizeHandler_I) const
{
    unsigned int stringKeys = 0;
    unsigned int stringBytes = 0;
    for (unsigned int place = 0;
         place <= MAX_KEY && mObjectKey[place].Identifier() != EObjectIDNothing; ++place)
    {
        const OBJECT_KEY& key = mObjectKey[place];
        if (key.mAddressingMode == EAddrModeByString)
        {
            ++stringKeys;
            stringBytes += static_cast<unsigned int>(std::strlen(key.String()) + 1);
        }
    }
    unsigned int fixups = stringKeys;
    unsigned int data = stringBytes;
    if (mpBuffer != nullptr)
    {
        fixups += 1;
        data += mSizeOfData;
        if (HasQueuePayload())
        {
            ParamAssert(queueEventSizeHandler_I);
            if (queueEventSizeHandler_I != nullptr)
            {
                fixups += 1;
                data += queueEventSizeHandler_I(mpBuffer);
            }
        }
    }
    return static_cast<unsigned int>(kHeaderSize + sizeof(FixupEntry) * fixups + data);
}

bool CEventPacket::SerializeToBuffer(void* pBuffer_I, unsigned long size_I,
                                     SerializeHandler queueEventHandler_I) const
{
    if (pBuffer_I == nullptr)
    {
        return false;
    }
    // Not even the header fits: nothing is written.
    if (size_I < kHeaderSize)
    {
        ParamReport(kPositionText);
        return false;
    }
    UINT8* const bufferRef = static_cast<UINT8*>(pBuffer_I);
    SerializedEventPacket* const pSerializedPacket = AsPacket(pBuffer_I);
    SerializedEventPacketHeader* const pHeader = &pSerializedPacket->header;
    // Whether `bytes` more fit behind the write position.
    auto fits = [&](const UINT8* dataRef, std::uint64_t bytes)
    { return bytes <= size_I - static_cast<std::size_t>(dataRef - bufferRef); };

    std::memset(pHeader, 0, kHeaderSize);
    pHeader->mMagic = kSerializedPacketMagic;
    pHeader->mVersion = kSerializedPacketVersion;
    pHeader->mSize = static_cast<std::uint32_t>(size_I);
    pHeader->mStatus = mStatus;
    pHeader->mCommand = static_cast<std::uint32_t>(mCommand);
    pHeader->mSizeOfData = mpBuffer ? mSizeOfData : 0;
    pHeader->mSourceOfRequest = static_cast<std::uint32_t>(mSourceOfRequest);
    pHeader->mRequestWord = mRequestWord;

    UINT8* dataRef = reinterpret_cast<UINT8*>(pSerializedPacket->fixups);
    for (unsigned int idx = 0; idx <= MAX_KEY && mObjectKey[idx].Identifier() != EObjectIDNothing;
         ++idx)
    {
        ParamAssert(idx < MAX_KEY);
        const OBJECT_KEY& key = mObjectKey[idx];
        SerializedObjectKey& record = pHeader->mObjectKey[idx];
        record.mAddressingMode = static_cast<std::uint32_t>(key.mAddressingMode);
        record.mIdentifier = static_cast<std::uint16_t>(key.mIdentifier);
        record.mReference =
            static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(key.mReference));
        if (key.mAddressingMode == EAddrModeByString)
        {
            if (!fits(dataRef, sizeof(FixupEntry)))
            {
                ParamFail("Data to large for buffer");
                return false;
            }
            const std::uint32_t length = static_cast<std::uint32_t>(std::strlen(key.String()));
            const FixupEntry entry{eFixupString, idx, length + 1, 0};
            std::memcpy(dataRef, &entry, sizeof(entry));
            dataRef += sizeof(FixupEntry);
            ++pHeader->mFixupCount;
            record.mReference = 0;
        }
    }
    if (!fits(dataRef, 0))
    {
        ParamReport(kPositionText);
        return false;
    }

    if (mpBuffer != nullptr)
    {
        if (!fits(dataRef, sizeof(FixupEntry)))
        {
            // Spelt right here and only here.
            ParamFail("Data too large for buffer");
            return false;
        }
        const FixupEntry entry{eFixupEventBuffer, 0, mSizeOfData, 0};
        std::memcpy(dataRef, &entry, sizeof(entry));
        dataRef += sizeof(FixupEntry);
        ++pHeader->mFixupCount;

        if (HasQueuePayload())
        {
            ParamAssert(queueEventHandler_I);
            if (queueEventHandler_I != nullptr)
            {
                if (!fits(dataRef, sizeof(FixupEntry)))
                {
                    ParamFail("Data to large for buffer");
                    return false;
                }
                // The handler claims the entry now and fills it once the data is in place.
                std::memset(dataRef, 0, sizeof(FixupEntry));
                queueEventHandler_I(mpBuffer, reinterpret_cast<FixupEntry*>(dataRef), 0, nullptr);
                ParamAssert(((FixupEntry*)dataRef)->mFixupType == eFixupSpecial);
                dataRef += sizeof(FixupEntry);
                ++pHeader->mFixupCount;
            }
        }
    }

    // clang-format off
    ParamAssert(( (UINT8*)pSerializedPacket->fixups + (sizeof(FixupEntry) * pHeader->mFixupCount)) == dataRef);
    // clang-format on
    pHeader->mStringSize = 0;

    for (unsigned int place = 0; place < MAX_KEY; ++place)
    {
        // Only the string keys were given a string entry above; the search for the others is
        // skipped, unless a payload handler wrote an entry of its own that it might match.
        if (queueEventHandler_I == nullptr &&
            mObjectKey[place].mAddressingMode != EAddrModeByString)
        {
            continue;
        }
        FixupEntry* entry = GetFixup(eFixupString, place, pSerializedPacket);
        if (entry == nullptr)
        {
            continue;
        }
        if (!fits(dataRef, entry->mSize))
        {
            ParamFail("Data to large for buffer");
            return false;
        }
        std::memcpy(dataRef, mObjectKey[place].String(), entry->mSize);
        entry->mOffset = static_cast<std::uint32_t>(dataRef - bufferRef);
        pHeader->mStringSize += entry->mSize;
        dataRef += entry->mSize;
    }
    if (!fits(dataRef, 0))
    {
        ParamReport(kPositionText);
        return false;
    }
    // clang-format off
    ParamAssert(( (UINT8*)pSerializedPacket->fixups + (sizeof(FixupEntry) * pHeader->mFixupCount) + pHeader->mStringSize) == dataRef);
    // clang-format on

    UINT8* dataInBlock = nullptr;
    if (FixupEntry* entry = GetFixup(eFixupEventBuffer, 0, pSerializedPacket))
    {
        if (!fits(dataRef, mSizeOfData))
        {
            ParamFail("Data to large for buffer");
            return false;
        }
        ParamAssert(mpBuffer);
        if (mSizeOfData != 0)
        {
            std::memcpy(dataRef, mpBuffer, mSizeOfData);
        }
        dataInBlock = dataRef;
        entry->mOffset = static_cast<std::uint32_t>(dataRef - bufferRef);
        dataRef += mSizeOfData;
    }
    else
    {
        ParamAssert(!mpBuffer);
        pHeader->mSizeOfData = 0;
    }
    if (!fits(dataRef, 0))
    {
        ParamReport(kPositionText);
        return false;
    }
    // clang-format off
    ParamAssert(( (UINT8*)pSerializedPacket->fixups + (sizeof(FixupEntry) * pHeader->mFixupCount) + pHeader->mStringSize + mSizeOfData) == dataRef);
    // clang-format on

    if (FixupEntry* entry = GetFixup(eFixupSpecial, 0, pSerializedPacket))
    {
        entry->mSize = static_cast<std::uint32_t>(size_I);
        ParamAssert(queueEventHandler_I);
        if (queueEventHandler_I != nullptr)
        {
            if (!queueEventHandler_I(dataInBlock, entry,
                                     static_cast<unsigned int>(dataRef - bufferRef), dataRef))
            {
                return false;
            }
            // Moved on only when the handler kept within the block; otherwise the check
            // below stops here.
            if (!fits(dataRef, entry->mSize))
            {
                ParamReport(kPositionText);
                return false;
            }
            dataRef += entry->mSize;
        }
    }
    if (!fits(dataRef, 0))
    {
        ParamReport(kPositionText);
        return false;
    }

    if (mpBuffer)
    {
        ParamAssert(GetFixup(eFixupEventBuffer, 0, pSerializedPacket));
    }
    else if (pHeader->mFixupCount != 0)
    {
        ParamAssert(GetFixup(eFixupEventBuffer, 0, pSerializedPacket) == NULL);
    }
    else
    {
        ParamAssert(pHeader->mStringSize == 0);
    }
    return true;
}

KELSTATUS CEventPacket::DeserializeFromBuffer(void* pBuffer_I,
                                              DeserializeCopyHandler queueEventCopyHandler_I)
{
    if (pBuffer_I == nullptr)
    {
        return KELSTATUS_FAILURE;
    }
    SerializedEventPacket* pSerializedPacket = AsPacket(pBuffer_I);
    if (IsFlipped(pSerializedPacket->header))
    {
        FlipToHost(pSerializedPacket);
    }
    ParamAssert(ValidSerializedBuffer(pBuffer_I));
    if (!IsHostBlock(pSerializedPacket->header))
    {
        return KELSTATUS_FAILURE;
    }
    return DecodeHostBlock(pSerializedPacket, queueEventCopyHandler_I);
}

KELSTATUS CEventPacket::DeserializeFromBuffer(void* pBuffer_I, std::size_t receivedSize_I,
                                              DeserializeCopyHandler queueEventCopyHandler_I)
{
    if (pBuffer_I == nullptr)
    {
        return KELSTATUS_FAILURE;
    }
    if (receivedSize_I < kHeaderSize)
    {
        std::fprintf(stderr, "CEventPacket::DeserializeFromBuffer: block too short\n");
        return KELSTATUS_FAILURE;
    }
    SerializedEventPacket* pSerializedPacket = AsPacket(pBuffer_I);
    SerializedEventPacketHeader& header = pSerializedPacket->header;
    if (IsFlipped(header))
    {
        FlipHeader(header);
        if (header.mFixupCount > (receivedSize_I - kHeaderSize) / sizeof(FixupEntry))
        {
            std::fprintf(stderr, "CEventPacket::DeserializeFromBuffer: malformed block\n");
            return KELSTATUS_FAILURE;
        }
        FlipFixups(pSerializedPacket, header.mFixupCount);
    }
    ParamAssert(ValidSerializedBuffer(pBuffer_I));
    if (!IsHostBlock(header))
    {
        return KELSTATUS_FAILURE;
    }
    if (!IsDecodable(pSerializedPacket, receivedSize_I, queueEventCopyHandler_I != nullptr))
    {
        std::fprintf(stderr, "CEventPacket::DeserializeFromBuffer: malformed block\n");
        return KELSTATUS_FAILURE;
    }
    return DecodeHostBlock(pSerializedPacket, queueEventCopyHandler_I);
}

KELSTATUS CEventPacket::DecodeHostBlock(SerializedEventPacket* pSerializedPacket_I,
                                        DeserializeCopyHandler queueEventCopyHandler_I)
{
    const SerializedEventPacketHeader& header = pSerializedPacket_I->header;
    UINT8* const block = reinterpret_cast<UINT8*>(pSerializedPacket_I);

    ClearEvent();
    mCommand = static_cast<ECommand>(header.mCommand);
    mSourceOfRequest = static_cast<ESourceOfRequest>(header.mSourceOfRequest);
    mRequestWord = header.mRequestWord;

    for (unsigned int place = 0; place < kSerializedKeyRecords; ++place)
    {
        const SerializedObjectKey& record = header.mObjectKey[place];
        if (record.mIdentifier == 0)
        {
            break;
        }
        const auto identifier = static_cast<EEventIdentifier>(record.mIdentifier);
        const auto mode = static_cast<EAddressingMode>(record.mAddressingMode);
        if (mode != EAddrModeByString)
        {
            AddKey(identifier,
                   reinterpret_cast<void*>(static_cast<std::uintptr_t>(record.mReference)), mode,
                   false);
        }
        else
        {
            const FixupEntry* entry = FindStringFixup(pSerializedPacket_I, place);
            AddKey(identifier, block + entry->mOffset, mode, false);
        }
    }

    if (const FixupEntry* entry = GetFixup(eFixupEventBuffer, 0, pSerializedPacket_I))
    {
        PackData(header.mSizeOfData, block + entry->mOffset);
    }

    if (FixupEntry* entry = GetFixup(eFixupSpecial, 0, pSerializedPacket_I))
    {
        ParamAssert(queueEventCopyHandler_I);
        if (queueEventCopyHandler_I != nullptr)
        {
            queueEventCopyHandler_I(mpBuffer, entry, block + entry->mOffset);
        }
    }

    mStatus = header.mStatus;
    ParamAssert(IsValid() == KELSTATUS_SUCCESS);
    return KELSTATUS_SUCCESS;
}

bool CEventPacket::ValidSerializedBuffer(const void* pBuffer_I, unsigned int version_I)
{
    if (pBuffer_I == nullptr)
    {
        return false;
    }
    const auto& header = static_cast<const SerializedEventPacket*>(pBuffer_I)->header;
    if (IsFlipped(header))
    {
        return __builtin_bswap32(header.mVersion) == version_I;
    }
    return header.mMagic == kSerializedPacketMagic && header.mVersion == version_I;
}

unsigned int CEventPacket::SerializedBufferVersion(const void* pBuffer_I)
{
    if (pBuffer_I == nullptr)
    {
        return 0;
    }
    ParamAssert(ValidSerializedBuffer(pBuffer_I));
    const auto& header = static_cast<const SerializedEventPacket*>(pBuffer_I)->header;
    return IsFlipped(header) ? __builtin_bswap32(header.mVersion) : header.mVersion;
}

unsigned int CEventPacket::SerializedBufferSize(const void* pBuffer_I)
{
    if (pBuffer_I == nullptr)
    {
        return 0;
    }
    ParamAssert(ValidSerializedBuffer(pBuffer_I));
    const auto& header = static_cast<const SerializedEventPacket*>(pBuffer_I)->header;
    return IsFlipped(header) ? __builtin_bswap32(header.mSize) : header.mSize;
}

FixupEntry* CEventPacket::GetFixup(EFixupEntryIDs type_I, unsigned int index_I,
                                   SerializedEventPacket* pSerializedPacket_I)
{
    if (pSerializedPacket_I == nullptr)
    {
        return nullptr;
    }
    const std::uint32_t count = pSerializedPacket_I->header.mFixupCount;
    for (std::uint32_t i = 0; i < count; ++i)
    {
        FixupEntry& entry = pSerializedPacket_I->fixups[i];
        if (entry.mFixupType == type_I && entry.mIndex == index_I)
        {
            return &entry;
        }
    }
    return nullptr;
}

void CEventPacket::FlipToHost(SerializedEventPacket* pSerializedPacket_IO)
{
    FlipHeader(pSerializedPacket_IO->header);
    // The count is read after its own swap.
    FlipFixups(pSerializedPacket_IO, pSerializedPacket_IO->header.mFixupCount);
}
