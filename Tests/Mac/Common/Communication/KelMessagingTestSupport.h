// Test support for the messaging tests: output capture, packets as bytes, transit records
// built field by field.
#pragma once

#include "Common/CEventPacket.h"
#include "Mac/Common/Communication/TransitRecord.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace messaging_test
{
struct Output
{
    std::string out; // standard output: assertion lines
    std::string err; // standard error, and the system log when opened with LOG_PERROR
};

template <typename F> Output Capture(F&& action)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    action();
    std::fflush(stdout);
    std::fflush(stderr);
    Output output;
    output.out = testing::internal::GetCapturedStdout();
    output.err = testing::internal::GetCapturedStderr();
    return output;
}

using Bytes = std::vector<std::uint8_t>;

inline Bytes BytesOf(CFDataRef data)
{
    if (data == nullptr)
    {
        return {};
    }
    const UInt8* p = CFDataGetBytePtr(data);
    return Bytes(p, p + CFDataGetLength(data));
}

inline Bytes BytesOf(const std::string& text)
{
    return Bytes(text.begin(), text.end());
}

// Owns one CFData made from bytes.
class Data
{
public:
    explicit Data(const Bytes& bytes)
        : mData(CFDataCreate(kCFAllocatorDefault, bytes.data(), static_cast<CFIndex>(bytes.size())))
    {
    }
    ~Data() { CFRelease(mData); }
    Data(const Data&) = delete;
    Data& operator=(const Data&) = delete;
    CFDataRef get() const { return mData; }

private:
    CFDataRef mData;
};

inline Bytes Serialize(const CEventPacket& packet)
{
    Bytes block(packet.GetSerializedSize(nullptr));
    EXPECT_TRUE(packet.SerializeToBuffer(block.data(), block.size(), nullptr));
    return block;
}

inline KELSTATUS Deserialize(const Bytes& block, CEventPacket& packet)
{
    Bytes copy = block;
    return packet.DeserializeFromBuffer(copy.data(), copy.size(), nullptr);
}

inline std::string DataOf(const CEventPacket& packet)
{
    if (packet.Buffer() == nullptr)
    {
        return {};
    }
    return std::string(static_cast<const char*>(packet.Buffer()), packet.SizeOfData());
}

// A transit record request, every field in the order given by `reversed`.
struct RecordBuilder
{
    bool reversed = false;
    std::vector<TransitKeyRecord> keys;
    std::uint32_t command = 0;
    std::uint32_t source = 0;
    Bytes data;
    // When set, the header announces this size instead of the data's.
    bool announce = false;
    std::uint32_t announcedSize = 0;

    std::uint32_t U32(std::uint32_t v) const { return reversed ? __builtin_bswap32(v) : v; }
    std::uint16_t U16(std::uint16_t v) const { return reversed ? __builtin_bswap16(v) : v; }

    Bytes Build() const
    {
        TransitRecord record;
        std::memset(&record, 0, sizeof(record));
        for (std::size_t i = 0; i < keys.size() && i < kTransitRecordKeyCount; ++i)
        {
            record.keys[i].mode = U32(keys[i].mode);
            record.keys[i].identifier = U16(keys[i].identifier);
            record.keys[i].reference = U32(keys[i].reference);
        }
        record.sizeOfData = U32(announce ? announcedSize : static_cast<std::uint32_t>(data.size()));
        record.sourceOfRequest = U32(source);
        record.command = U32(command);
        const auto* p = reinterpret_cast<const std::uint8_t*>(&record);
        Bytes bytes(p, p + kTransitRecordHeaderSize);
        bytes.insert(bytes.end(), data.begin(), data.end());
        return bytes;
    }
};

inline TransitKeyRecord Key(std::uint16_t identifier, std::uint32_t reference,
                            std::uint32_t mode = 0)
{
    TransitKeyRecord key{};
    key.mode = mode;
    key.identifier = identifier;
    key.reference = reference;
    return key;
}

// The return record at the start of a transit reply, in our order.
inline TransitRecordReturn ReturnOf(const Bytes& reply)
{
    TransitRecordReturn returnRec{};
    if (reply.size() >= sizeof(returnRec))
    {
        std::memcpy(&returnRec, reply.data(), sizeof(returnRec));
    }
    return returnRec;
}
} // namespace messaging_test
