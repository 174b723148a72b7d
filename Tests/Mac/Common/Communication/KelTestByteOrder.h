// Test support: writes a serialized event packet block in the other byte order, as a driver
// of the other byte order would have written it. Written here independently of the
// packet's own swapping, so that a test of one checks the other.
#pragma once

#include "Common/SerializedEventPacket.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

// Rewrites a block written in our order into the other order. The fixup count is read
// before it is swapped.
inline void KelTestReverseSerializedBlock(std::uint8_t* block, std::size_t size)
{
    if (size < sizeof(SerializedEventPacketHeader))
    {
        return;
    }
    SerializedEventPacketHeader header;
    std::memcpy(&header, block, sizeof(header));
    const std::uint32_t fixupCount = header.mFixupCount;
    header.mMagic = __builtin_bswap32(header.mMagic);
    header.mVersion = __builtin_bswap32(header.mVersion);
    header.mSize = __builtin_bswap32(header.mSize);
    header.mStatus = __builtin_bswap16(header.mStatus);
    header.mCommand = __builtin_bswap32(header.mCommand);
    for (auto& key : header.mObjectKey)
    {
        key.mAddressingMode = __builtin_bswap32(key.mAddressingMode);
        key.mIdentifier = __builtin_bswap16(key.mIdentifier);
        key.mReference = __builtin_bswap32(key.mReference);
    }
    header.mSizeOfData = __builtin_bswap32(header.mSizeOfData);
    header.mSourceOfRequest = __builtin_bswap32(header.mSourceOfRequest);
    header.mRequestWord = __builtin_bswap32(header.mRequestWord);
    header.mFixupCount = __builtin_bswap32(header.mFixupCount);
    header.mStringSize = __builtin_bswap32(header.mStringSize);
    std::memcpy(block, &header, sizeof(header));
    for (std::uint32_t i = 0; i < fixupCount; ++i)
    {
        const std::size_t offset = sizeof(header) + i * sizeof(FixupEntry);
        if (offset + sizeof(FixupEntry) > size)
        {
            break;
        }
        FixupEntry entry;
        std::memcpy(&entry, block + offset, sizeof(entry));
        entry.mFixupType = __builtin_bswap32(entry.mFixupType);
        entry.mIndex = __builtin_bswap32(entry.mIndex);
        entry.mSize = __builtin_bswap32(entry.mSize);
        entry.mOffset = __builtin_bswap32(entry.mOffset);
        std::memcpy(block + offset, &entry, sizeof(entry));
    }
}
