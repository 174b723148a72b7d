#include "Mac/Common/Communication/CMacMessagingClient.h"
#include "Mac/Common/Communication/CMacMessagingServer.h"
#include "Mac/Common/Communication/KelMessagingTestSupport.h"
#include "Mac/Common/Communication/MessageIDs.h"
#include "Tests/Support/SimulatedDriverProcess.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>

using namespace messaging_test;

namespace
{
const std::string kDriverPort = "com.kelto.KeltoTabletDriverMessageServer";

double SecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The answer to 'ENDI' as text: "failed <status>", "none", or the bytes.
std::string Ask(CMacMessagingClient& client)
{
    CFDataRef reply = nullptr;
    const KELSTATUS status = client.SendRawRequest(kMessageIDEndianness, nullptr, &reply);
    if (status != KELSTATUS_SUCCESS)
    {
        return "failed " + std::to_string(status);
    }
    if (reply == nullptr)
    {
        return "none";
    }
    const Bytes bytes = Take(reply);
    return "[" + std::string(bytes.begin(), bytes.end()) + "]";
}

class CMacMessagingClientTests : public ::testing::Test
{
protected:
    std::unique_ptr<CMacMessagingClient> MakeClient(bool connect, KELSTATUS expected,
                                                    double receiveTimeout)
    {
        std::unique_ptr<CMacMessagingClient> client;
        CFStringRef name = MakeString(kDriverPort);
        EXPECT_EQ(CMacMessagingClient::AllocateAndInitInstance(client, name, 10.0, receiveTimeout,
                                                               connect),
                  expected);
        CFRelease(name);
        return client;
    }

    // A driver answering 'ENDI' with `answer` (nothing: no reply).
    void Serve(std::optional<Bytes> answer)
    {
        mPeer.reset();
        mPeer.emplace(kDriverPort, [=](SInt32, const Bytes&) { return answer; });
    }

    ScopedPortDirectory mPortDirectory;
    std::optional<ScriptedPeer> mPeer;
};

TEST_F(CMacMessagingClientTests, ReconnectsByItselfOnceAndKeepsAnOpenPort)
{
    // Nobody serves the name: connecting fails, and a send fails at once, reply untouched.
    auto client = MakeClient(true, KELSTATUS_FAILURE, 10.0);
    CFDataRef reply = reinterpret_cast<CFDataRef>(&client); // any value to see it kept
    const CFDataRef untouched = reply;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(client->SendRawRequest(kMessageIDEndianness, nullptr, &reply), KELSTATUS_FAILURE);
    EXPECT_LT(SecondsSince(start), 1.0);
    EXPECT_EQ(reply, untouched);
    EXPECT_FALSE(client->IsValid());

    // The driver comes up; the next send connects, with no Connect() from the caller.
    Serve(Bytes{'A'});
    EXPECT_EQ(Ask(*client), "[A]");
    const Output output =
        Capture([&] { EXPECT_EQ(client->Connect(), KELSTATUS_DEVICE_ALREADY_OPEN); });
    EXPECT_EQ(
        output.out,
        "Mac/Common/Communication/CMacMessagingClient:170: failed assertion: !mMessagePortRef\n");
    EXPECT_EQ(Ask(*client), "[A]");

    // Restarted drivers are reached again; an empty answer and no answer stay apart.
    Serve(Bytes());
    EXPECT_EQ(Ask(*client), "[]");
    Serve(std::nullopt);
    EXPECT_EQ(Ask(*client), "none");

    client->Disconnect();
    EXPECT_FALSE(client->IsValid());
    EXPECT_EQ(Ask(*client), "none");
}

TEST_F(CMacMessagingClientTests, FailuresMapToStatusesWithTheTwoTimeOutsApart)
{
    // A driver that ends holding the request.
    SimulatedDriverProcess driver(mPortDirectory.Path(),
                                  R"({"PortName": ")" + kDriverPort +
                                      R"(", "Version": "6.3.0", "Faults": [{"Request":
                                      "byte-order", "Action": "exit"}]})");
    ASSERT_TRUE(driver.WaitUntilServed()) << driver.Log();
    auto client = MakeClient(false, KELSTATUS_SUCCESS, 0.3);
    double send = 0, receive = 0;
    client->GetSendReceiveTimeouts(send, receive);
    EXPECT_EQ(send, 10.0);
    EXPECT_EQ(receive, 0.3);
    EXPECT_EQ(Ask(*client), "failed 65535");

    // The results a live transport cannot be made to give on demand.
    EXPECT_EQ(CMacMessagingClient::StatusForPortResult(kCFMessagePortSuccess), KELSTATUS_SUCCESS);
    EXPECT_EQ(CMacMessagingClient::StatusForPortResult(kCFMessagePortSendTimeout),
              KELSTATUS_OS_BAD_RESOURCE);
    EXPECT_EQ(CMacMessagingClient::StatusForPortResult(kCFMessagePortIsInvalid),
              KELSTATUS_OS_BAD_RESOURCE);
    const SInt32 failures[] = {kCFMessagePortReceiveTimeout, kCFMessagePortTransportError,
                               kCFMessagePortBecameInvalidError, -77};
    for (SInt32 result : failures)
    {
        EXPECT_EQ(CMacMessagingClient::StatusForPortResult(result), KELSTATUS_FAILURE) << result;
    }
}

// A client that waits for replies in a mode of the test's choosing.
class ModeClient : public CMacMessagingClient
{
public:
    CFStringRef mMode = nullptr;
    CFStringRef GetRunLoopMode() const override { return mMode; }
};

} // namespace
