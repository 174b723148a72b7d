#include "Mac/Common/Communication/CMacMessagingServer.h"

#include "Mac/Common/Communication/CMacMessagingClient.h"
#include "Mac/Common/Communication/KelMessagingTestSupport.h"
#include "Mac/Common/Communication/MessageIDs.h"
#include "Tests/Support/SimulatedDriverProcess.h"
#include "Tools/SimulatedDriver/SimPacketWire.h"

#include <gtest/gtest.h>

#include <chrono>

using namespace messaging_test;

namespace
{
const std::string kServerPort = "com.kelto.CoordinatorMessageServer";

// What the callback saw: command, key identifiers, [data].
std::string Summary(const CEventPacket& packet)
{
    std::string text = std::to_string(packet.Command());
    for (unsigned i = 0; packet.ObjectKey(i)->Identifier() != EObjectIDNothing; ++i)
    {
        text += " " + std::to_string(packet.ObjectKey(i)->Identifier());
    }
    return text + " [" + DataOf(packet) + "]";
}

// The port callback as the coordinator's input source installs it: `info` is the server.
CFDataRef ServeThroughServer(CFMessagePortRef, SInt32 msgid, CFDataRef data, void* info)
{
    return static_cast<CMacMessagingServer*>(info)->ProcessRequest(data, msgid);
}

Bytes RequestBlock()
{
    CEventPacket packet;
    packet.SetCommand(ECommandSet);
    packet.AddKeyInt(EObjectIDTablet, 2, EAddrModeByIndex);
    packet.AddKeyString(EParameterIDName, "pen", false);
    packet.PackData(4, "\x01\x02\x03\x04");
    return Serialize(packet);
}

class CMacMessagingServerTests : public ::testing::Test
{
protected:
    CMacMessagingServerTests() : mName(MakeString(kServerPort)) {}
    ~CMacMessagingServerTests() override { CFRelease(mName); }

    // The reply to one request handed straight to the server, decoded.
    CEventPacket Answer(const Bytes& request)
    {
        CFDataRef data = MakeData(request);
        const Bytes reply = Take(mServer.ProcessRequest(data, kMessageIDEventPacket));
        EXPECT_EQ(Take(data), request); // decoded from a copy, never in place
        CEventPacket answer;
        EXPECT_EQ(Deserialize(reply, answer), KELSTATUS_SUCCESS);
        return answer;
    }

    ScopedPortDirectory mPortDirectory;
    CFStringRef mName;
    CMacMessagingServer mServer;
    Answerer mAnswerer;
};

TEST_F(CMacMessagingServerTests, AnswersPacketsInPlaceOverItsPortAndOtherIdsWithNothing)
{
    ASSERT_EQ(mServer.Init(mName, ServeThroughServer, &mServer), KELSTATUS_SUCCESS);
    EXPECT_EQ(mServer.GetRunLoop(), CFRunLoopGetCurrent());
    CFDataRef request = MakeData(RequestBlock());
    CFDataRef reply = nullptr;
    CMacMessagingClient client;
    client.Init(mName, 5.0, 5.0);

    // Before the callback is set every request is refused.
    Output output = Capture([&] { client.SendRawRequest(kMessageIDEventPacket, request, &reply); });
    EXPECT_EQ(output.err, "pTaaInterface is NULL!\n");
    EXPECT_EQ(reply, nullptr);

    mServer.SetProcessEventCallback(Answerer::Callback, &mAnswerer);
    mAnswerer.status = KELSTATUS_METHOD_NOT_IMPLEMENTED;
    mAnswerer.answer = "answered";
    ASSERT_EQ(client.SendRawRequest(kMessageIDEventPacket, request, &reply), KELSTATUS_SUCCESS);
    EXPECT_EQ(Summary(*mAnswerer.seen), "2 2 29 [\x01\x02\x03\x04]");
    CEventPacket answer;
    ASSERT_EQ(Deserialize(Take(reply), answer), KELSTATUS_SUCCESS);
    EXPECT_EQ(answer.Status(), KELSTATUS_METHOD_NOT_IMPLEMENTED);
    EXPECT_EQ(DataOf(answer), "answered");
    EXPECT_STREQ(answer.ObjectKey(1)->String(), "pen");

    reply = nullptr;
    ASSERT_EQ(client.SendRawRequest('ABCD', request, &reply), KELSTATUS_SUCCESS);
    EXPECT_EQ(reply, nullptr);
    EXPECT_EQ(mAnswerer.calls, 1);
    output = Capture([&] { reply = mServer.ProcessRequest(nullptr, kMessageIDEventPacket); });
    EXPECT_EQ(output.err, "pTaaInterface is NULL!\n");
    EXPECT_EQ(reply, nullptr);
    CFRelease(request);
}

TEST_F(CMacMessagingServerTests, ReadsEitherByteOrderAndAnswersMalformedBlocksWithTheEmptyPacket)
{
    mServer.SetProcessEventCallback(Answerer::Callback, &mAnswerer);
    mAnswerer.status = KELSTATUS_RESOURCE_BAD;
    Bytes reversed = RequestBlock();
    ReverseSimPacketBlock(reversed);
    EXPECT_EQ(Answer(reversed).ObjectKey(0)->Identifier(), EObjectIDTablet);
    EXPECT_EQ(Summary(*mAnswerer.seen), "2 2 29 [\x01\x02\x03\x04]");

    const Bytes whole = RequestBlock();
    Bytes wrongVersion = whole;
    wrongVersion[4] = 2;
    Bytes reversedWrongVersion = reversed;
    reversedWrongVersion[7] = 2;
    for (const Bytes& input :
         {Bytes(), Bytes(10, 0xAB), Bytes(whole.begin(), whole.begin() + 147),
          Bytes(whole.begin(), whole.end() - 1), wrongVersion, reversedWrongVersion})
    {
        SCOPED_TRACE(input.size());
        CEventPacket answer;
        Capture([&] { answer = Answer(input); });
        EXPECT_EQ(Summary(*mAnswerer.seen), "0 []");
        EXPECT_EQ(answer.Status(), KELSTATUS_RESOURCE_BAD);
        EXPECT_EQ(answer.ObjectKey(0)->Identifier(), EObjectIDNothing);
    }
    EXPECT_EQ(mAnswerer.calls, 7);
}

TEST_F(CMacMessagingServerTests, NameServedElsewhereFailsThreeTimesOneSecondApart)
{
    SimulatedDriverProcess other(mPortDirectory.Path(),
                                 R"({"PortName": ")" + kServerPort + R"(", "Version": "6.3.0"})");
    ASSERT_TRUE(other.WaitUntilServed()) << other.Log();
    KELSTATUS status = 0;
    const auto start = std::chrono::steady_clock::now();
    const Output output =
        Capture([&] { status = mServer.Init(mName, ServeThroughServer, &mServer); });
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_EQ(status, KELSTATUS_FAILURE);
    const std::string line = "Mac/Common/Communication/CMacMessagingServer:143: failed assertion: "
                             "!(bool)\"Message Port already Exists?\\n\"\n";
    EXPECT_EQ(output.out, line + line + line);
    EXPECT_GE(seconds, 2.9);
    EXPECT_LT(seconds, 5.0);
    EXPECT_EQ(mServer.GetRunLoop(), nullptr);

    other.Stop();
    EXPECT_EQ(mServer.Init(mName, ServeThroughServer, &mServer), KELSTATUS_SUCCESS);
}

TEST_F(CMacMessagingServerTests, MissingPortCallbackEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    std::unique_ptr<CMacMessagingServer> server;
    EXPECT_DEATH(CMacMessagingServer::AllocateAndInitInstance(mName, nullptr, server, nullptr),
                 "CMacMessagingServer:[0-9]+: failed assertion: callBackFunction");
}
} // namespace
