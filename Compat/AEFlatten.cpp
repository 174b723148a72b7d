// The flattened form of a descriptor (layout in AE/AEDataModel.h).
#include "Compat/AEDescStorage.h"

#include <cstring>
#include <limits>
#include <new>

namespace
{
constexpr uint32_t kMagic = 'AEfl';
constexpr size_t kNodeHeader = 8;
constexpr int kMaxDepth = 64;

// --- Writing ------------------------------------------------------------------------------

size_t BodySize(const AEDesc& desc);

size_t NodeSize(const AEDesc& desc)
{
    return kNodeHeader + BodySize(desc);
}

size_t ItemsSize(const std::vector<std::pair<AEKeyword, AEDesc>>& items, bool keyed)
{
    size_t size = 4;
    for (const auto& item : items)
    {
        size += (keyed ? 4 : 0) + NodeSize(item.second);
    }
    return size;
}

size_t BodySize(const AEDesc& desc)
{
    const OpaqueAEDataStorageType* s = desc.dataHandle;
    if (!s)
    {
        return desc.descriptorType == typeAEList || desc.descriptorType == typeAERecord ? 4 : 0;
    }
    switch (desc.descriptorType)
    {
    case typeAEList:
        return ItemsSize(s->items, false);
    case typeAERecord:
        return ItemsSize(s->items, true);
    case typeAppleEvent:
        return 16 + NodeSize(s->address) + ItemsSize(s->items, true);
    default:
        return s->bytes.size();
    }
}

class CWriter
{
public:
    explicit CWriter(uint8_t* out) : mOut(out) {}

    void Put32(uint32_t value)
    {
        mOut[0] = static_cast<uint8_t>(value >> 24);
        mOut[1] = static_cast<uint8_t>(value >> 16);
        mOut[2] = static_cast<uint8_t>(value >> 8);
        mOut[3] = static_cast<uint8_t>(value);
        mOut += 4;
    }

    void PutBytes(const std::vector<uint8_t>& bytes)
    {
        if (!bytes.empty())
        {
            std::memcpy(mOut, bytes.data(), bytes.size());
        }
        mOut += bytes.size();
    }

    void PutItems(const std::vector<std::pair<AEKeyword, AEDesc>>& items, bool keyed)
    {
        Put32(static_cast<uint32_t>(items.size()));
        for (const auto& item : items)
        {
            if (keyed)
            {
                Put32(item.first);
            }
            PutNode(item.second);
        }
    }

    void PutNode(const AEDesc& desc)
    {
        Put32(desc.descriptorType);
        Put32(static_cast<uint32_t>(BodySize(desc)));
        const OpaqueAEDataStorageType* s = desc.dataHandle;
        if (!s)
        {
            if (desc.descriptorType == typeAEList || desc.descriptorType == typeAERecord)
            {
                Put32(0);
            }
            return;
        }
        switch (desc.descriptorType)
        {
        case typeAEList:
            PutItems(s->items, false);
            break;
        case typeAERecord:
            PutItems(s->items, true);
            break;
        case typeAppleEvent:
            Put32(s->eventClass);
            Put32(s->eventID);
            Put32(static_cast<uint32_t>(s->returnID));
            Put32(static_cast<uint32_t>(s->transactionID));
            PutNode(s->address);
            PutItems(s->items, true);
            break;
        default:
            PutBytes(s->bytes);
            break;
        }
    }

private:
    uint8_t* mOut;
};

// --- Reading ------------------------------------------------------------------------------

// Reads one node's worth of bytes; every read is checked against the end of its range.
class CReader
{
public:
    CReader(const uint8_t* begin, const uint8_t* end) : mPos(begin), mEnd(end) {}

    size_t Left() const { return static_cast<size_t>(mEnd - mPos); }

    bool Get32(uint32_t& value)
    {
        if (Left() < 4)
        {
            return false;
        }
        value = (uint32_t(mPos[0]) << 24) | (uint32_t(mPos[1]) << 16) | (uint32_t(mPos[2]) << 8) |
                uint32_t(mPos[3]);
        mPos += 4;
        return true;
    }

    // Reads a node into `result` (which the caller disposes of, also on failure).
    OSErr GetNode(AEDesc* result, int depth)
    {
        AEInitializeDesc(result);
        uint32_t type = 0;
        uint32_t length = 0;
        if (depth > kMaxDepth || !Get32(type) || !Get32(length) || Left() < length)
        {
            return errAECorruptData;
        }
        CReader body(mPos, mPos + length);
        mPos += length;
        OSErr err = body.GetBody(type, result, depth);
        if (err == noErr && body.Left() != 0)
        {
            err = errAECorruptData;
        }
        return err;
    }

private:
    OSErr GetBody(DescType type, AEDesc* result, int depth)
    {
        switch (type)
        {
        case typeNull:
            return Left() == 0 ? OSErr(noErr) : OSErr(errAECorruptData);
        case typeAEList:
        case typeAERecord:
        {
            OSErr err = AEDescStorage::CreateComposite(type, result);
            return err == noErr ? GetItems(*result->dataHandle, type == typeAERecord, depth) : err;
        }
        case typeAppleEvent:
        {
            OSErr err = AEDescStorage::CreateComposite(type, result);
            if (err != noErr)
            {
                return err;
            }
            OpaqueAEDataStorageType& s = *result->dataHandle;
            uint32_t returnID = 0;
            uint32_t transactionID = 0;
            if (!Get32(s.eventClass) || !Get32(s.eventID) || !Get32(returnID) ||
                !Get32(transactionID))
            {
                return errAECorruptData;
            }
            s.returnID = static_cast<SInt32>(returnID);
            s.transactionID = static_cast<SInt32>(transactionID);
            err = GetNode(&s.address, depth + 1);
            return err == noErr ? GetItems(s, true, depth) : err;
        }
        default:
        {
            OSErr err = AECreateDesc(type, mPos, static_cast<Size>(Left()), result);
            mPos = mEnd;
            return err;
        }
        }
    }

    OSErr GetItems(OpaqueAEDataStorageType& s, bool keyed, int depth)
    {
        uint32_t count = 0;
        if (!Get32(count))
        {
            return errAECorruptData;
        }
        // Each item takes at least a node header: a count beyond that is a lie, and refusing
        // it here keeps a few bytes from reserving gigabytes.
        if (count > Left() / (kNodeHeader + (keyed ? 4 : 0)))
        {
            return errAECorruptData;
        }
        s.items.reserve(count);
        for (uint32_t i = 0; i < count; ++i)
        {
            uint32_t key = typeWildCard;
            if (keyed && !Get32(key))
            {
                return errAECorruptData;
            }
            s.items.emplace_back(key, AEDesc{typeNull, nullptr});
            OSErr err = GetNode(&s.items.back().second, depth + 1);
            if (err != noErr)
            {
                return err;
            }
        }
        return noErr;
    }

    const uint8_t* mPos;
    const uint8_t* mEnd;
};
} // namespace

Size AESizeOfFlattenedDesc(const AEDesc* theAEDesc)
{
    if (!theAEDesc)
    {
        return 0;
    }
    return static_cast<Size>(4 + NodeSize(*theAEDesc));
}

OSStatus AEFlattenDesc(const AEDesc* theAEDesc, Ptr buffer, Size bufferSize, Size* actualSize)
{
    if (!theAEDesc || bufferSize < 0 || (!buffer && bufferSize > 0))
    {
        return paramErr;
    }
    Size size = AESizeOfFlattenedDesc(theAEDesc);
    if (actualSize)
    {
        *actualSize = size;
    }
    // Lengths are 32-bit on the wire.
    if (static_cast<size_t>(size) > std::numeric_limits<uint32_t>::max())
    {
        return memFullErr;
    }
    if (bufferSize < size)
    {
        return errAEBufferTooSmall;
    }
    CWriter writer(reinterpret_cast<uint8_t*>(buffer));
    writer.Put32(kMagic);
    writer.PutNode(*theAEDesc);
    return noErr;
}

OSStatus AEUnflattenDescFromBytes(const void* buffer, size_t bufferLen, AEDesc* result)
{
    if (!result)
    {
        return paramErr;
    }
    AEInitializeDesc(result);
    if (!buffer && bufferLen > 0)
    {
        return paramErr;
    }
    const auto* bytes = static_cast<const uint8_t*>(buffer);
    CReader reader(bytes, bytes + bufferLen);
    uint32_t magic = 0;
    if (!reader.Get32(magic) || magic != kMagic)
    {
        return errAECorruptData;
    }
    OSErr err = reader.GetNode(result, 0);
    if (err == noErr && reader.Left() != 0)
    {
        err = errAECorruptData;
    }
    if (err != noErr)
    {
        AEDisposeDesc(result);
    }
    return err;
}
