// The wire form of an event packet: one flat, self-contained block that crosses a process
// boundary as the body of a 'KEPK' message.
//
// Block layout (packed, no padding; offsets from the start of the block; every integer in
// the byte order of the process that wrote the block):
//
// | Offset | Size            | Field               | Content                                  |
// |--------|-----------------|---------------------|------------------------------------------|
// | 0      | 4               | mMagic              | 0x4B54534D ('KTSM'), a host integer      |
// | 4      | 4               | mVersion            | 1                                        |
// | 8      | 4               | mSize               | block size given to SerializeToBuffer    |
// | 12     | 2               | mStatus             | the packet's KELSTATUS                   |
// | 14     | 4               | mCommand            | ECommand                                 |
// | 18     | 110             | mObjectKey          | 11 key records of 10 bytes (below)       |
// | 128    | 4               | mSizeOfData         | data size; 0 when there is no buffer     |
// | 132    | 4               | mSourceOfRequest    | ESourceOfRequest                         |
// | 136    | 4               | mRequestWord        | the packet's request word                |
// | 140    | 4               | mFixupCount         | number of fixup entries                  |
// | 144    | 4               | mStringSize         | total bytes of the strings area          |
// | 148    | 16 x mFixupCount| fixups              | FixupEntry records (below)               |
// | then   | mStringSize     | strings area        | each string key's text and its 0, in key |
// |        |                 |                     | order                                    |
// | then   | mSizeOfData     | data area           | the packet's data bytes                  |
// | then   | variable        | special area        | written by the serialization handler     |
//
// Key record (10 bytes), one per place of the packet's key array; places after the last
// key are all zero:
//
// | Offset | Size | Field           | Content                                              |
// |--------|------|-----------------|------------------------------------------------------|
// | 0      | 4    | mAddressingMode | EAddressingMode                                      |
// | 4      | 2    | mIdentifier     | EEventIdentifier, low 16 bits                        |
// | 6      | 4    | mReference      | low 32 bits of the reference; 0 for a string key     |
//
// FixupEntry (16 bytes, four unsigned 32-bit fields; the offset counts from the start of
// the block):
//
// | mFixupType        | mIndex    | mSize              | mOffset                         |
// |-------------------|-----------|--------------------|---------------------------------|
// | eFixupString      | key place | string length + 1  | of the string in strings area   |
// | eFixupEventBuffer | 0         | data size          | of the data area                |
// | eFixupSpecial     | 0         | set by the handler | set by the handler              |
//
// Fixups are written in that order: one eFixupString per string key in key order, then the
// eFixupEventBuffer entry when the packet has a buffer, then the eFixupSpecial entry when
// there is a special payload.
//
// A reader that finds the magic byte-swapped swaps the header, the key records and the
// fixups to its own order (CEventPacket::FlipToHost). Strings, data and the special area are
// never swapped: the data is opaque here and its byte order belongs to whoever packed it.
#pragma once

#include <cstddef>
#include <cstdint>

enum EFixupEntryIDs : std::uint32_t
{
    eFixupString = 0,
    eFixupEventBuffer = 1,
    eFixupSpecial = 2
};

// 'KTSM' as a multi-character constant, stored as a host integer.
constexpr std::uint32_t kSerializedPacketMagic = 'KTSM';
constexpr std::uint32_t kSerializedPacketVersion = 1;
// The key array of a packet holds MAX_KEY + 1 keys, and every one of them has a record.
constexpr std::size_t kSerializedKeyRecords = 11;

struct __attribute__((packed)) SerializedObjectKey
{
    std::uint32_t mAddressingMode;
    std::uint16_t mIdentifier;
    std::uint32_t mReference;
};

struct __attribute__((packed)) FixupEntry
{
    std::uint32_t mFixupType; // an EFixupEntryIDs, as read from the block
    std::uint32_t mIndex;
    std::uint32_t mSize;
    std::uint32_t mOffset;
};

struct __attribute__((packed)) SerializedEventPacketHeader
{
    std::uint32_t mMagic;
    std::uint32_t mVersion;
    std::uint32_t mSize;
    std::uint16_t mStatus;
    std::uint32_t mCommand;
    SerializedObjectKey mObjectKey[kSerializedKeyRecords];
    std::uint32_t mSizeOfData;
    std::uint32_t mSourceOfRequest;
    std::uint32_t mRequestWord;
    std::uint32_t mFixupCount;
    std::uint32_t mStringSize;
};

// The header followed by its fixups. Everything is packed (alignment 1), so a block may
// start at any address.
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wpedantic"
#pragma clang diagnostic ignored "-Wc99-extensions"
#pragma clang diagnostic ignored "-Wflexible-array-extensions"
#else
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"
#endif
struct __attribute__((packed)) SerializedEventPacket
{
    SerializedEventPacketHeader header;
    FixupEntry fixups[];
};
#if defined(__clang__)
#pragma clang diagnostic pop
#else
#pragma GCC diagnostic pop
#endif

static_assert(sizeof(SerializedObjectKey) == 10);
static_assert(sizeof(FixupEntry) == 16);
static_assert(sizeof(SerializedEventPacketHeader) == 148);
static_assert(offsetof(SerializedEventPacketHeader, mStatus) == 12);
static_assert(offsetof(SerializedEventPacketHeader, mCommand) == 14);
static_assert(offsetof(SerializedEventPacketHeader, mObjectKey) == 18);
static_assert(offsetof(SerializedEventPacketHeader, mSizeOfData) == 128);
static_assert(offsetof(SerializedEventPacketHeader, mFixupCount) == 140);
static_assert(offsetof(SerializedEventPacket, fixups) == 148);
