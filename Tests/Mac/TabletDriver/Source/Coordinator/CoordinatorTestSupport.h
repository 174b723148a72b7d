// Test doubles of the coordinator's platform side: a driver interface that answers packets
// and Apple Events as the test says and records what it was sent, and output capture for
// the assertion lines.
#pragma once

#include "Common/CEventPacket.h"
#include "Mac/TabletDriver/Source/Coordinator/CMacDriverInterface.h"
#include "Tests/Support/CapturedOutput.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace coordinator_test
{
using test_support::Capture;
using test_support::Output;

// The assertion line of `source` for `line` and `condition`.
inline std::string Report(const std::string& source, unsigned line, const std::string& condition)
{
    return source + ":" + std::to_string(line) + ": failed assertion: " + condition + "\n";
}

inline const std::string kInputsSource = "Mac/TabletDriver/Source/Coordinator/CMacInputs";

// The first two key identifiers of a packet (EObjectIDNothing when absent).
inline std::pair<EEventIdentifier, EEventIdentifier> FirstKeys(const CEventPacket& packet)
{
    return {packet.ObjectKey(0)->Identifier(), packet.ObjectKey(1)->Identifier()};
}

// A driver as the inputs see it. Packets: a last-tablet-used timestamp request is answered
// with mTimestamp; a tablet count request with mTabletCount; everything else with
// mPacketStatus and no data. Apple Events: answered with mAppleEventResult; on success with
// a reply event whose direct object holds mReplyValue.
class FakeDriver : public CMacDriverInterface
{
public:
    explicit FakeDriver(OSStatus appleEventResult = noErr) : mAppleEventResult(appleEventResult) {}

    KELSTATUS SendKeltoEvent(CEventPacket* packet) override
    {
        const auto keys = FirstKeys(*packet);
        mPackets.push_back({packet->Command(), keys.first, keys.second});
        if (keys.second == EParameterIDLastTabletUsedTimestamp)
        {
            packet->PackData_<std::uint32_t>(mTimestamp);
            return KELSTATUS_SUCCESS;
        }
        if (keys.second == EParameterIDCount)
        {
            packet->PackData_<unsigned short>(mTabletCount);
            return KELSTATUS_SUCCESS;
        }
        return mPacketStatus;
    }

    OSStatus ForwardAppleEvent(AEDesc*, AEDesc* reply) override
    {
        if (mCallLog != nullptr)
        {
            mCallLog->push_back(mTag);
        }
        // Like the real interface, a driver that takes the event hands over a reply event of
        // its own, which the caller then owns.
        if (mAppleEventResult == noErr && reply != nullptr)
        {
            AECreateAppleEvent(kCoreEventClass, kAEAnswer, nullptr, 0, 0, reply);
            AEPutParamPtr(reply, keyDirectObject, typeSInt32, &mReplyValue, sizeof mReplyValue);
        }
        return mAppleEventResult;
    }

    struct SPacket
    {
        ECommand mCommand;
        EEventIdentifier mFirst;
        EEventIdentifier mSecond;
    };

    // Whether a sync reached this driver last: a sync ends with the tablet block set.
    bool SentTabletBlock() const
    {
        return !mPackets.empty() && mPackets.back().mCommand == ECommandSet &&
               mPackets.back().mSecond == EParameterIDTabletBlock;
    }

    OSStatus mAppleEventResult;
    SInt32 mReplyValue = 0;
    std::uint32_t mTimestamp = 0;
    unsigned short mTabletCount = 0;
    KELSTATUS mPacketStatus = KELSTATUS_FAILURE;
    // Shared by several drivers, to see the order in which they were asked.
    std::vector<int>* mCallLog = nullptr;
    int mTag = 0;
    std::vector<SPacket> mPackets;
};

// An Apple Event of the given class and ID with no target, disposed of with the object.
class TestEvent
{
public:
    TestEvent(AEEventClass eventClass, AEEventID eventID)
    {
        AECreateAppleEvent(eventClass, eventID, nullptr, kAutoGenerateReturnID, kAnyTransactionID,
                           &mEvent);
        AECreateAppleEvent(kCoreEventClass, kAEAnswer, nullptr, 0, 0, &mReply);
    }
    ~TestEvent()
    {
        AEDisposeDesc(&mEvent);
        AEDisposeDesc(&mReply);
    }
    TestEvent(const TestEvent&) = delete;
    TestEvent& operator=(const TestEvent&) = delete;

    AppleEvent mEvent{};
    AppleEvent mReply{};

    // A count event asks for a class of objects.
    void SetObjectClass(DescType objectClass)
    {
        AEPutParamPtr(&mEvent, keyAEObjectClass, typeType, &objectClass, sizeof objectClass);
    }

    // The reply's direct object as a 32-bit integer; `fallback` when it has none.
    SInt32 ReplyValue(SInt32 fallback) const
    {
        SInt32 value = fallback;
        AEGetParamPtr(&mReply, keyDirectObject, typeSInt32, nullptr, &value, sizeof value, nullptr);
        return value;
    }
};
} // namespace coordinator_test
