// Test support for the messaging tests: output capture, packets as bytes, transit records
// built field by field, and a peer port whose answers the test scripts.
#pragma once

#include "Common/CEventPacket.h"
#include "Mac/Common/Communication/CMacMessagingClient.h"
#include "Mac/Common/Communication/TransitRecord.h"
#include "Tests/Support/CapturedOutput.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace messaging_test
{
using Bytes = std::vector<std::uint8_t>;

using test_support::Capture;
using test_support::Output;

// The bytes of a CFData, which is released: every reply is handed over owned.
inline Bytes Take(CFDataRef data)
{
    Bytes bytes;
    if (data != nullptr)
    {
        bytes.assign(CFDataGetBytePtr(data), CFDataGetBytePtr(data) + CFDataGetLength(data));
        CFRelease(data);
    }
    return bytes;
}

inline CFDataRef MakeData(const Bytes& bytes)
{
    return CFDataCreate(kCFAllocatorDefault, bytes.data(), static_cast<CFIndex>(bytes.size()));
}

inline CFStringRef MakeString(const std::string& text)
{
    return CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8);
}

// A port served by this thread, in the messaging client's mode: a sender of this thread that
// waits for its reply runs the loop in that mode, so the peer answers it. The test scripts
// the answers and sees every request; ending the peer ends the port, as a driver's exit does.
class ScriptedPeer
{
public:
    struct Request
    {
        SInt32 msgid;
        Bytes bytes;
    };
    // The reply's bytes, or nothing for no reply at all.
    using Answer = std::function<std::optional<Bytes>(SInt32 msgid, const Bytes& request)>;

    ScriptedPeer(const std::string& name, Answer answer) : mAnswer(std::move(answer))
    {
        CFStringRef cfName = MakeString(name);
        CFMessagePortContext context = {0, this, nullptr, nullptr, nullptr};
        mPort = CFMessagePortCreateLocal(nullptr, cfName, &Serve, &context, nullptr);
        CFRelease(cfName);
        EXPECT_NE(mPort, nullptr) << name;
        if (mPort != nullptr)
        {
            mSource = CFMessagePortCreateRunLoopSource(nullptr, mPort, 0);
            CFRunLoopAddSource(CFRunLoopGetCurrent(), mSource, kMacMessagingClientRunLoopMode);
        }
    }
    ~ScriptedPeer()
    {
        if (mPort != nullptr)
        {
            CFRunLoopRemoveSource(CFRunLoopGetCurrent(), mSource, kMacMessagingClientRunLoopMode);
            CFRelease(mSource);
            CFMessagePortInvalidate(mPort);
            CFRelease(mPort);
        }
    }
    ScriptedPeer(const ScriptedPeer&) = delete;
    ScriptedPeer& operator=(const ScriptedPeer&) = delete;

    std::vector<Request> mRequests;

private:
    static CFDataRef Serve(CFMessagePortRef, SInt32 msgid, CFDataRef data, void* info)
    {
        auto* self = static_cast<ScriptedPeer*>(info);
        Bytes request;
        if (data != nullptr)
        {
            request.assign(CFDataGetBytePtr(data), CFDataGetBytePtr(data) + CFDataGetLength(data));
        }
        self->mRequests.push_back({msgid, request});
        const std::optional<Bytes> reply = self->mAnswer(msgid, request);
        return reply ? MakeData(*reply) : nullptr;
    }

    Answer mAnswer;
    CFMessagePortRef mPort = nullptr;
    CFRunLoopSourceRef mSource = nullptr;
};

// The process-event callback of a server under test: it keeps a copy of each packet it gets
// and answers with `answer` (when not empty) and `status`, in the packet and as its result.
struct Answerer
{
    int calls = 0;
    std::unique_ptr<CEventPacket> seen;
    KELSTATUS status = KELSTATUS_SUCCESS;
    std::string answer;

    static KELSTATUS Callback(CEventPacket* packet, void* context)
    {
        auto* self = static_cast<Answerer*>(context);
        ++self->calls;
        self->seen = std::make_unique<CEventPacket>(*packet);
        if (!self->answer.empty())
        {
            packet->PackData(static_cast<unsigned>(self->answer.size()), self->answer.data());
        }
        packet->SetStatus(self->status);
        return self->status;
    }
};

inline Bytes Serialize(const CEventPacket& packet)
{
    Bytes block(packet.GetSerializedSize(nullptr));
    EXPECT_TRUE(packet.SerializeToBuffer(block.data(), block.size(), nullptr));
    return block;
}

inline std::string DataOf(const CEventPacket& packet)
{
    return packet.Buffer()
               ? std::string(static_cast<const char*>(packet.Buffer()), packet.SizeOfData())
               : std::string();
}

inline std::uint32_t Swap(std::uint32_t v, bool reversed)
{
    return reversed ? __builtin_bswap32(v) : v;
}

inline std::uint16_t Swap(std::uint16_t v, bool reversed)
{
    return reversed ? __builtin_bswap16(v) : v;
}

template <typename T> T Read(const Bytes& bytes, std::size_t offset)
{
    T value{};
    std::memcpy(&value, bytes.data() + offset, sizeof(T));
    return value;
}

// A transit record request: keys {identifier, reference, mode}, then the data; the header
// announces `announced` bytes when it is given, else the data's size.
inline Bytes Record(std::vector<TransitKeyRecord> keys, std::uint32_t command,
                    const std::string& data, long long announced = -1)
{
    TransitRecord record;
    std::memset(&record, 0, sizeof(record));
    for (std::size_t i = 0; i < keys.size(); ++i)
    {
        record.keys[i] = keys[i];
    }
    record.sizeOfData = static_cast<std::uint32_t>(announced >= 0 ? announced : data.size());
    record.sourceOfRequest = 3;
    record.command = command;
    Bytes bytes(kTransitRecordHeaderSize + data.size());
    std::memcpy(bytes.data(), &record, kTransitRecordHeaderSize);
    std::memcpy(bytes.data() + kTransitRecordHeaderSize, data.data(), data.size());
    return bytes;
}
} // namespace messaging_test
