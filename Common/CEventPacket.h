// The request and reply record of the system: a command, a chain of object keys that says
// what the command applies to, a current position in that chain, and a data buffer that
// carries the argument or the result. The receiver answers in the same packet: it sets the
// status, moves the current key while walking the chain, and replaces the data.
//
// Buffer ownership: a buffer the packet allocated (PackData) is freed by the packet when it
// is replaced or the packet is destroyed; a buffer handed in through the constructor or
// SetNewBuffer belongs to the caller and is never freed here. PackData writes into an
// adopted buffer in place when it is large enough; that is deliberate.
//
// Failed preconditions print the non-fatal assertion line (source "Common/param") and go on.
// Only a full key chain throws (CKelException, in AddKey and RemoveKey).
//
// The wire form (SerializeToBuffer, DeserializeFromBuffer and their helpers) is implemented
// in SerializedEventPacket.cpp; its byte layout is in SerializedEventPacket.h.
#pragma once

#include "Common/ECommand.h"
#include "Common/ESourceOfRequest.h"
#include "Common/KelAssert.h"
#include "Common/KelStatus.h"
#include "Common/OBJECT_KEY.h"
#include "Common/SerializedEventPacket.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

class CSettingsObject;
class CSettingsMap;
class CSettingsArray;
class CSettingsInteger;
class CSettingsBool;

// Index of the last place of the key array; the array holds MAX_KEY + 1 keys.
constexpr unsigned int MAX_KEY = 10;

// The special payload handlers of the wire form (see SerializedEventPacket.h and
// EventQueuePayload.h). Plain function pointers; null means "none".
using SerializedSizeHandler = unsigned int (*)(const void* data);
using SerializeHandler = bool (*)(const void* data, FixupEntry* entry, unsigned int offset,
                                  void* writePosition);
using DeserializeCopyHandler = bool (*)(const void* data, FixupEntry* entry, void* specialData);

class CEventPacket
{
public:
    // The status an UnPackData_ of a packet without a buffer leaves behind. The code has no
    // name among the KELSTATUS codes; it is kept as it has always been.
    static constexpr KELSTATUS kStatusNoDataBuffer = 0x0210;
    static constexpr std::uint16_t kPacketVersion = 0x0100;

    CEventPacket();
    CEventPacket(unsigned int sizeOfBuffer_I, void* pBuffer_I);
    CEventPacket(const CEventPacket& source_I);
    CEventPacket& operator=(const CEventPacket& source_I);
    virtual ~CEventPacket();

    void Init();
    // Forgets status, command, keys, data size, source and request word; keeps the buffer.
    void ClearEvent();
    KELSTATUS IsValid() const;
    // Adopts the caller's buffer (not owned) with the given capacity; no data.
    void SetNewBuffer(unsigned int sizeOfBuffer_I, void* pBuffer_I);

    // Plain fields.
    KELSTATUS Status() const { return mStatus; }
    void SetStatus(KELSTATUS status_I) { mStatus = status_I; }
    std::uint16_t Version() const { return mVersion; }
    ECommand Command() const { return mCommand; }
    void SetCommand(ECommand command_I) { mCommand = command_I; }
    ESourceOfRequest SourceOfRequest() const { return mSourceOfRequest; }
    void SetSourceOfRequest(ESourceOfRequest source_I) { mSourceOfRequest = source_I; }
    std::uint32_t RequestWord() const { return mRequestWord; }
    void SetRequestWord(std::uint32_t word_I) { mRequestWord = word_I; }
    unsigned int SizeOfBuffer() const { return mSizeOfBuffer; }
    unsigned int SizeOfData() const { return mSizeOfData; }
    const void* Buffer() const { return mpBuffer; }
    void* Buffer() { return mpBuffer; }
    bool OwnsBuffer() const { return mBufferOwned; }

    // Keys. AddKey throws CKelException ("AddKey full") when places 0 to 8 are taken: a
    // packet holds at most nine keys and place 9 stays a sentinel.
    void AddKey(EEventIdentifier nIdentifier_I, void* reference_I, EAddressingMode mode_I,
                bool allSubordinate_I);
    void AddKeyInt(EEventIdentifier nIdentifier_I, unsigned int value_I, EAddressingMode mode_I);
    void AddKeyString(EEventIdentifier nIdentifier_I, const char* text_I, bool allSubordinate_I);
    void AddKeyString(EEventIdentifier nIdentifier_I, const std::string& text_I,
                      bool allSubordinate_I);
    // Removes the last key; throws CKelException ("RemoveKey full") when places 1 to 9 are
    // all set. Does not move the current key.
    void RemoveKey();
    void SetObjectKeys(const OBJECT_KEY* pObjectKey_I);
    const OBJECT_KEY* ObjectKey(unsigned int keyIndex_I) const;
    OBJECT_KEY* CurrentKey() { return mpCurrentKey; }
    const OBJECT_KEY* CurrentKey() const { return mpCurrentKey; }
    void SetCurrentKey(OBJECT_KEY* pObjectKey_I);
    void AdvanceCurrentKey();
    void RetreatCurrentKey();
    void ResetCurrentKey() { mpCurrentKey = &mObjectKey[0]; }
    // KELSTATUS_OBJECT_NOT_FOUND at the sentinel; otherwise advances.
    KELSTATUS NextObjectKey();
    // The last key before the sentinel; the first key of an empty chain.
    const OBJECT_KEY* LastObjectKey() const;

    // Data.
    void PackData(unsigned int sizeOfData_I, const void* pData_I);
    void SetDataSize(unsigned int size_I);
    // size_IO: in, the room at pData_O; out, the data size. Copies nothing when the room is
    // too small (one line on standard error), and leaves the status at 0 in every case.
    void UnPackData(unsigned int& size_IO, void* pData_O);
    void PackEvent(ECommand command_I, const OBJECT_KEY* pObjectKey_I, unsigned int sizeOfData_I,
                   const void* pData_I, ESourceOfRequest source_I);

    // The typed family. Scalars travel as sizeof(T) bytes in host order; the
    // specializations below cover bool, strings, byte vectors and settings objects.
    // UnPackData_ returns the default whenever there is nothing usable.
    template <typename T> void PackData_(const T& value_I);
    template <typename T> T UnPackData_(const T& defaultValue_I);

    // One line on standard error naming the command and the current and last keys.
    void TRACEEVENT(const std::string& label_I, bool enabled_I) const;

    // The wire form; byte layout in SerializedEventPacket.h.
    //
    // Bytes SerializeToBuffer will need. sizeHandler sizes the special payload.
    unsigned int GetSerializedSize(SerializedSizeHandler queueEventSizeHandler_I) const;
    // Writes the packet into [pBuffer_I, pBuffer_I + size_I); false (with an assertion line)
    // when it does not fit, or (silently) when the special handler refuses.
    bool SerializeToBuffer(void* pBuffer_I, unsigned long size_I,
                           SerializeHandler queueEventHandler_I) const;
    // Decodes a block that the caller trusts to be whole and well formed (the size of the
    // block is not known here, so nothing is bounded). Swaps a block of the other byte
    // order in place first. KELSTATUS_FAILURE for a null, foreign or wrong-version block.
    // Never use it on bytes received from another process: use the overload below.
    KELSTATUS DeserializeFromBuffer(void* pBuffer_I,
                                    DeserializeCopyHandler queueEventCopyHandler_I);
    // The entry point for bytes received from another process.
    //
    // Decodes the block [pBuffer_I, pBuffer_I + receivedSize_I) exactly as the overload
    // above decodes a well-formed block, but never reads or writes outside those bytes and
    // never throws. Before the packet is touched, the block must hold: the 148-byte header;
    // the magic in either byte order and version 1; mFixupCount fixups; for every string
    // key, its eFixupString entry and its terminated string; the data area when there is an
    // eFixupEventBuffer entry; the special area (offset and mSize of the entry) when there
    // is an eFixupSpecial entry; and at most nine keys. A block that fails any of these
    // gives KELSTATUS_FAILURE with the packet unchanged (a block of the other byte order
    // may already have been swapped in place). The copy handler, when called, may read
    // entry->mSize bytes at specialData.
    KELSTATUS DeserializeFromBuffer(void* pBuffer_I, std::size_t receivedSize_I,
                                    DeserializeCopyHandler queueEventCopyHandler_I = nullptr);

    // Whether the block's magic (in either byte order) and version match; the size is not
    // checked.
    static bool ValidSerializedBuffer(const void* pBuffer_I,
                                      unsigned int version_I = kSerializedPacketVersion);
    // Header version and size in host order; 0 for a null block.
    static unsigned int SerializedBufferVersion(const void* pBuffer_I);
    static unsigned int SerializedBufferSize(const void* pBuffer_I);
    // The first of the block's mFixupCount fixups with that type and index, or null.
    static FixupEntry* GetFixup(EFixupEntryIDs type_I, unsigned int index_I,
                                SerializedEventPacket* pSerializedPacket_I);
    // Swaps the header, the key records and the fixups of a block in place.
    static void FlipToHost(SerializedEventPacket* pSerializedPacket_IO);

private:
    // Whether this packet carries the event-queue special payload (given a handler).
    bool HasQueuePayload() const;
    // The decoding shared by both DeserializeFromBuffer overloads, on a block in host
    // order whose magic and version have been checked.
    KELSTATUS DecodeHostBlock(SerializedEventPacket* pSerializedPacket_I,
                              DeserializeCopyHandler queueEventCopyHandler_I);
    void FreeOwnedBuffer();

    KELSTATUS mStatus;
    std::uint16_t mVersion;
    char mPacketID[2];
    ECommand mCommand;
    OBJECT_KEY* mpCurrentKey;
    OBJECT_KEY mObjectKey[MAX_KEY + 1];
    unsigned int mSizeOfBuffer;
    unsigned int mSizeOfData;
    void* mpBuffer;
    bool mBufferOwned;
    ESourceOfRequest mSourceOfRequest;
    std::uint32_t mRequestWord;
};

static_assert(MAX_KEY + 1 == kSerializedKeyRecords);

// The scalar members of the typed family; the reports of their checks name
// "Common/param" like the rest of the layer.
template <typename T> void CEventPacket::PackData_(const T& value_I)
{
    static_assert(std::is_scalar_v<T>, "no PackData_ for this type");
    PackData(sizeof(T), &value_I);
}

template <typename T> T CEventPacket::UnPackData_(const T& defaultValue_I)
{
    static_assert(std::is_scalar_v<T>, "no UnPackData_ for this type");
    if (mpBuffer == nullptr)
    {
        mStatus = kStatusNoDataBuffer;
        std::fprintf(stderr, "CEventPacket::UnPackData - Data buffer is not present\n");
        return defaultValue_I;
    }
    if (mSizeOfData != sizeof(T))
    {
        std::fprintf(stderr,
                     "CEventPacket::UnPackData - Data request size mismatch for type:%s; "
                     "expected %li, got %i\n",
                     typeid(T).name(), static_cast<long>(sizeof(T)), static_cast<int>(mSizeOfData));
        return defaultValue_I;
    }
    T value{};
    unsigned int dataSize = sizeof(T);
    UnPackData(dataSize, &value);
    KelAssertAt("Common/param", __LINE__, dataSize == sizeof(T));
    return value;
}

template <> void CEventPacket::PackData_<bool>(const bool& value_I);
template <> bool CEventPacket::UnPackData_<bool>(const bool& defaultValue_I);
template <> void CEventPacket::PackData_<std::string>(const std::string& value_I);
template <> std::string CEventPacket::UnPackData_<std::string>(const std::string& defaultValue_I);
template <>
void CEventPacket::PackData_<std::vector<unsigned char>>(const std::vector<unsigned char>& value_I);
template <>
std::vector<unsigned char> CEventPacket::UnPackData_<std::vector<unsigned char>>(
    const std::vector<unsigned char>& defaultValue_I);

// Settings objects travel as their ASN.1 archive (CEventPacketSettings.cpp); a null pointer
// drops the buffer. The typed forms unpack a CSettingsObject and cast it, giving the default
// when that is null.
template <>
void CEventPacket::PackData_<std::shared_ptr<CSettingsObject>>(
    const std::shared_ptr<CSettingsObject>& value_I);
template <>
std::shared_ptr<CSettingsObject> CEventPacket::UnPackData_<std::shared_ptr<CSettingsObject>>(
    const std::shared_ptr<CSettingsObject>& defaultValue_I);
template <>
void CEventPacket::PackData_<std::shared_ptr<CSettingsMap>>(
    const std::shared_ptr<CSettingsMap>& value_I);
template <>
std::shared_ptr<CSettingsMap> CEventPacket::UnPackData_<std::shared_ptr<CSettingsMap>>(
    const std::shared_ptr<CSettingsMap>& defaultValue_I);
template <>
void CEventPacket::PackData_<std::shared_ptr<CSettingsArray>>(
    const std::shared_ptr<CSettingsArray>& value_I);
template <>
std::shared_ptr<CSettingsArray> CEventPacket::UnPackData_<std::shared_ptr<CSettingsArray>>(
    const std::shared_ptr<CSettingsArray>& defaultValue_I);
template <>
void CEventPacket::PackData_<std::shared_ptr<CSettingsInteger>>(
    const std::shared_ptr<CSettingsInteger>& value_I);
template <>
std::shared_ptr<CSettingsInteger> CEventPacket::UnPackData_<std::shared_ptr<CSettingsInteger>>(
    const std::shared_ptr<CSettingsInteger>& defaultValue_I);
template <>
void CEventPacket::PackData_<std::shared_ptr<CSettingsBool>>(
    const std::shared_ptr<CSettingsBool>& value_I);
template <>
std::shared_ptr<CSettingsBool> CEventPacket::UnPackData_<std::shared_ptr<CSettingsBool>>(
    const std::shared_ptr<CSettingsBool>& defaultValue_I);
