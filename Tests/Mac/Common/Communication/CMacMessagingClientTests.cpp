#include "Mac/Common/Communication/CMacMessagingClient.h"
#include "Mac/Common/Communication/CMacMessagingServer.h"
#include "Mac/Common/Communication/KelTestDriverProcess.h"
#include "Mac/Common/Communication/MessageIDs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

namespace
{
const std::string kDriverPort = "com.kelto.KeltoTabletDriverMessageServer";

double SecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

class CMacMessagingClientTests : public ::testing::Test
{
protected:
    std::unique_ptr<CMacMessagingClient> MakeClient(bool connect, KELSTATUS expected,
                                                    double receiveTimeout = 10.0)
    {
        std::unique_ptr<CMacMessagingClient> client;
        CFStringRef name = KelTestMakeString(kDriverPort);
        EXPECT_EQ(CMacMessagingClient::AllocateAndInitInstance(client, name, 10.0, receiveTimeout,
                                                               connect),
                  expected);
        CFRelease(name);
        return client;
    }

    // The driver's one-byte answer to 'ENDI', or -1 when the send failed, -2 for no reply.
    static int AskEndianness(CMacMessagingClient& client, KELSTATUS* status = nullptr)
    {
        CFDataRef reply = nullptr;
        const KELSTATUS result = client.SendRawRequest(kMessageIDEndianness, nullptr, &reply);
        if (status != nullptr)
        {
            *status = result;
        }
        if (result != KELSTATUS_SUCCESS)
        {
            return -1;
        }
        if (reply == nullptr)
        {
            return -2;
        }
        const int code = CFDataGetLength(reply) > 0 ? CFDataGetBytePtr(reply)[0] : -3;
        CFRelease(reply);
        return code;
    }

    KelTestPortDirectory mPortDirectory;
    KelTestDriverProcess mDriver;
};

TEST_F(CMacMessagingClientTests, ConnectsLazilyReconnectsAfterRestartAndKeepsAnOpenPort)
{
    // Nobody serves the name: the connection fails, and so does a send, at once.
    auto client = MakeClient(true, KELSTATUS_FAILURE);
    ASSERT_NE(client, nullptr);
    EXPECT_FALSE(client->IsValid());
    CFDataRef untouched = reinterpret_cast<CFDataRef>(&untouched);
    CFDataRef reply = untouched;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(client->SendRawRequest(kMessageIDEndianness, nullptr, &reply), KELSTATUS_FAILURE);
    EXPECT_LT(SecondsSince(start), 1.0);
    EXPECT_EQ(reply, untouched);

    // The driver comes up: the next send connects by itself.
    ASSERT_TRUE(mDriver.Serve(kDriverPort, {"--endi", "5"}));
    EXPECT_EQ(AskEndianness(*client), 5);
    EXPECT_TRUE(client->IsValid());

    // Connecting again keeps the open port.
    testing::internal::CaptureStdout();
    EXPECT_EQ(client->Connect(), KELSTATUS_DEVICE_ALREADY_OPEN);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Mac/Common/Communication/CMacMessagingClient:170: failed assertion: "
              "!mMessagePortRef\n");
    EXPECT_EQ(AskEndianness(*client), 5);

    // The driver restarts with another answer: reached again without a Connect().
    mDriver.Stop();
    ASSERT_TRUE(mDriver.Serve(kDriverPort, {"--endi", "7"}));
    EXPECT_EQ(AskEndianness(*client), 7);

    client->Disconnect();
    EXPECT_FALSE(client->IsValid());
    EXPECT_EQ(AskEndianness(*client), 7);
}

TEST_F(CMacMessagingClientTests, CreatedWithoutConnectingHoldsItsSettings)
{
    auto client = MakeClient(false, KELSTATUS_SUCCESS, 20.0);
    EXPECT_FALSE(client->IsValid());
    double send = 0, receive = 0;
    client->GetSendReceiveTimeouts(send, receive);
    EXPECT_EQ(send, 10.0);
    EXPECT_EQ(receive, 20.0);
    ASSERT_NE(client->GetRunLoopMode(), nullptr);
    EXPECT_TRUE(CFEqual(client->GetRunLoopMode(), CFSTR("CMacMessagingClientMode")));

    // Setting the mode it holds is safe; a new mode is retained, the old one let go.
    CFStringRef mode = KelTestMakeString("SomeMode");
    client->SetRunLoopMode(mode);
    const CFIndex held = CFGetRetainCount(mode);
    client->SetRunLoopMode(mode);
    EXPECT_EQ(CFGetRetainCount(mode), held);
    client->SetRunLoopMode(nullptr);
    EXPECT_EQ(CFGetRetainCount(mode), held - 1);
    CFRelease(mode);
}

TEST_F(CMacMessagingClientTests, EmptyAnswerAndNoAnswerStayDistinct)
{
    ASSERT_TRUE(mDriver.Serve(kDriverPort, {"--endi", "empty"}));
    auto client = MakeClient(true, KELSTATUS_SUCCESS);
    EXPECT_EQ(AskEndianness(*client), -3);

    mDriver.Stop();
    ASSERT_TRUE(mDriver.Serve(kDriverPort, {"--endi", "none"}));
    EXPECT_EQ(AskEndianness(*client), -2);
}

TEST_F(CMacMessagingClientTests, FailuresMapToStatusesWithTheTwoTimeOutsApart)
{
    // A receive time-out is a plain failure.
    ASSERT_TRUE(mDriver.Serve(kDriverPort, {"--delay-ms", "1500"}));
    auto client = MakeClient(true, KELSTATUS_SUCCESS, 0.3);
    KELSTATUS status = 0;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(AskEndianness(*client, &status), -1);
    EXPECT_EQ(status, KELSTATUS_FAILURE);
    EXPECT_LT(SecondsSince(start), 1.4);

    // A driver that dies while it has the request is a failure too.
    mDriver.Stop();
    ASSERT_TRUE(mDriver.Serve(kDriverPort, {"--exit-on", "1"}));
    client->SetSendReceiveTimeouts(10.0, 10.0);
    EXPECT_EQ(AskEndianness(*client, &status), -1);
    EXPECT_EQ(status, KELSTATUS_FAILURE);

    // The results a live transport cannot be made to produce on demand.
    EXPECT_EQ(CMacMessagingClient::StatusForPortResult(kCFMessagePortSuccess), KELSTATUS_SUCCESS);
    EXPECT_EQ(CMacMessagingClient::StatusForPortResult(kCFMessagePortSendTimeout),
              KELSTATUS_OS_BAD_RESOURCE);
    EXPECT_EQ(CMacMessagingClient::StatusForPortResult(kCFMessagePortIsInvalid),
              KELSTATUS_OS_BAD_RESOURCE);
    EXPECT_EQ(CMacMessagingClient::StatusForPortResult(kCFMessagePortReceiveTimeout),
              KELSTATUS_FAILURE);
    EXPECT_EQ(CMacMessagingClient::StatusForPortResult(kCFMessagePortTransportError),
              KELSTATUS_FAILURE);
    EXPECT_EQ(CMacMessagingClient::StatusForPortResult(kCFMessagePortBecameInvalidError),
              KELSTATUS_FAILURE);
    EXPECT_EQ(CMacMessagingClient::StatusForPortResult(-77), KELSTATUS_FAILURE);
}

// A client that waits for replies in a mode of the test's choosing.
class ModeClient : public CMacMessagingClient
{
public:
    CFStringRef mMode = nullptr;
    CFStringRef GetRunLoopMode() const override { return mMode; }
};

CFDataRef AnswerOne(CFMessagePortRef, SInt32, CFDataRef, void*)
{
    const UInt8 one = 1;
    return CFDataCreate(kCFAllocatorDefault, &one, 1);
}

TEST_F(CMacMessagingClientTests, WaitsInTheModeItsSubclassNamesWhereOnlyThePrivateModeServes)
{
    // A server on this very thread: only a wait in a mode that serves its port can answer.
    CFStringRef serverName = KelTestMakeString("com.kelto.CoordinatorMessageServer");
    CMacMessagingServer server;
    ASSERT_EQ(server.Init(serverName, AnswerOne, nullptr), KELSTATUS_SUCCESS);

    ModeClient client;
    client.Init(serverName, 2.0, 0.3);
    CFRelease(serverName);

    client.mMode = CFSTR("CMacMessagingClientMode");
    CFDataRef reply = nullptr;
    ASSERT_EQ(client.SendRawRequest(kMessageIDEndianness, nullptr, &reply), KELSTATUS_SUCCESS);
    ASSERT_NE(reply, nullptr);
    EXPECT_EQ(CFDataGetBytePtr(reply)[0], 1);
    CFRelease(reply);

    client.mMode = CFSTR("SomeOtherMode");
    reply = nullptr;
    EXPECT_EQ(client.SendRawRequest(kMessageIDEndianness, nullptr, &reply), KELSTATUS_FAILURE);
    EXPECT_EQ(reply, nullptr);
}
} // namespace
