#include "Mac/Common/Communication/CMacMessagingServer.h"

#include "Common/CEventPacket.h"
#include "Mac/Common/Communication/CMacMessagingClient.h"
#include "Mac/Common/Communication/KelMessagingTestSupport.h"
#include "Mac/Common/Communication/KelTestByteOrder.h"
#include "Mac/Common/Communication/KelTestDriverProcess.h"
#include "Mac/Common/Communication/MessageIDs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <string>
#include <vector>

using namespace messaging_test;

namespace
{
const std::string kServerPort = "com.kelto.CoordinatorMessageServer";

// What the process-event callback saw, and what it answers.
struct Recorder
{
    int calls = 0;
    ECommand command = ECommandDoNothing;
    std::vector<int> identifiers;
    std::vector<std::string> strings;
    std::string data;
    KELSTATUS answerStatus = KELSTATUS_SUCCESS;
    std::string answerData;

    static KELSTATUS Callback(CEventPacket* packet, void* context)
    {
        auto* self = static_cast<Recorder*>(context);
        ++self->calls;
        self->command = packet->Command();
        self->identifiers.clear();
        self->strings.clear();
        for (unsigned i = 0; packet->ObjectKey(i)->Identifier() != EObjectIDNothing; ++i)
        {
            self->identifiers.push_back(packet->ObjectKey(i)->Identifier());
            self->strings.push_back(packet->ObjectKey(i)->String());
        }
        self->data = DataOf(*packet);
        if (!self->answerData.empty())
        {
            packet->PackData(static_cast<unsigned>(self->answerData.size()),
                             self->answerData.data());
        }
        packet->SetStatus(self->answerStatus);
        return self->answerStatus;
    }
};

// The port callback as the coordinator's input source installs it: `info` is the server.
CFDataRef ServeThroughServer(CFMessagePortRef, SInt32 msgid, CFDataRef data, void* info)
{
    return static_cast<CMacMessagingServer*>(info)->ProcessRequest(data, msgid);
}

CEventPacket RequestPacket()
{
    CEventPacket packet;
    packet.SetCommand(ECommandSet);
    packet.AddKeyInt(EObjectIDTablet, 2, EAddrModeByIndex);
    packet.AddKeyString(EParameterIDName, "pen", false);
    packet.PackData(4, "data");
    return packet;
}

class CMacMessagingServerTests : public ::testing::Test
{
protected:
    void SetUp() override { mName = KelTestMakeString(kServerPort); }
    void TearDown() override { CFRelease(mName); }

    KelTestPortDirectory mPortDirectory;
    CFStringRef mName = nullptr;
    Recorder mRecorder;
};

TEST_F(CMacMessagingServerTests, AnswersPacketsInPlaceAndOtherIdsWithNothing)
{
    CMacMessagingServer server;
    ASSERT_EQ(server.Init(mName, ServeThroughServer, &server), KELSTATUS_SUCCESS);
    EXPECT_EQ(server.GetRunLoop(), CFRunLoopGetCurrent());
    server.SetProcessEventCallback(Recorder::Callback, &mRecorder);
    mRecorder.answerStatus = KELSTATUS_METHOD_NOT_IMPLEMENTED;
    mRecorder.answerData = "answered";

    // A client on the same thread is served while it waits in the private mode.
    CMacMessagingClient client;
    client.Init(mName, 5.0, 5.0);
    Data request(Serialize(RequestPacket()));
    CFDataRef reply = nullptr;
    ASSERT_EQ(client.SendRawRequest(kMessageIDEventPacket, request.get(), &reply),
              KELSTATUS_SUCCESS);
    ASSERT_NE(reply, nullptr);
    EXPECT_EQ(mRecorder.calls, 1);
    EXPECT_EQ(mRecorder.command, ECommandSet);
    EXPECT_EQ(mRecorder.identifiers, (std::vector<int>{EObjectIDTablet, EParameterIDName}));
    EXPECT_EQ(mRecorder.strings[1], "pen");
    EXPECT_EQ(mRecorder.data, "data");

    CEventPacket answer;
    EXPECT_EQ(Deserialize(BytesOf(reply), answer), KELSTATUS_SUCCESS);
    CFRelease(reply);
    EXPECT_EQ(answer.Status(), KELSTATUS_METHOD_NOT_IMPLEMENTED);
    EXPECT_EQ(answer.Command(), ECommandSet);
    EXPECT_EQ(DataOf(answer), "answered");
    EXPECT_EQ(answer.ObjectKey(1)->Identifier(), EParameterIDName);

    // Any other id is answered with nothing, without the callback.
    reply = nullptr;
    ASSERT_EQ(client.SendRawRequest('ABCD', request.get(), &reply), KELSTATUS_SUCCESS);
    EXPECT_EQ(reply, nullptr);
    EXPECT_EQ(mRecorder.calls, 1);
}

TEST_F(CMacMessagingServerTests, RequestsBeforeTheCallbackIsSetAreRefused)
{
    CMacMessagingServer server;
    Data request(Serialize(RequestPacket()));
    CFDataRef reply = reinterpret_cast<CFDataRef>(1);
    const Output output = Capture([&] { reply = server.ProcessRequest(request.get(), 'KEPK'); });
    EXPECT_EQ(reply, nullptr);
    EXPECT_EQ(output.err, "pTaaInterface is NULL!\n");

    server.SetProcessEventCallback(Recorder::Callback, &mRecorder);
    const Output nullData = Capture([&] { reply = server.ProcessRequest(nullptr, 'KEPK'); });
    EXPECT_EQ(reply, nullptr);
    EXPECT_EQ(nullData.err, "pTaaInterface is NULL!\n");
    EXPECT_EQ(mRecorder.calls, 0);
}

TEST_F(CMacMessagingServerTests, MalformedPacketsGetTheEmptyPacketAnsweredAndAreNeverWritten)
{
    CMacMessagingServer server;
    server.SetProcessEventCallback(Recorder::Callback, &mRecorder);
    mRecorder.answerStatus = KELSTATUS_RESOURCE_BAD;

    const Bytes whole = Serialize(RequestPacket());
    Bytes wrongVersion = whole;
    wrongVersion[4] = 2;
    Bytes reversedWrongVersion = whole;
    KelTestReverseSerializedBlock(reversedWrongVersion.data(), reversedWrongVersion.size());
    reversedWrongVersion[7] = 2;
    const std::vector<Bytes> inputs = {
        Bytes(),
        Bytes(10, 0xAB),
        Bytes(whole.begin(), whole.begin() + 147),
        Bytes(whole.begin(), whole.end() - 1), // cut inside the data area
        wrongVersion,
        reversedWrongVersion,
    };
    for (const Bytes& input : inputs)
    {
        SCOPED_TRACE(input.size());
        Data request(input);
        mRecorder.identifiers = {-1};
        CFDataRef reply = server.ProcessRequest(request.get(), kMessageIDEventPacket);
        ASSERT_NE(reply, nullptr);
        EXPECT_EQ(BytesOf(request.get()), input);
        EXPECT_TRUE(mRecorder.identifiers.empty());

        CEventPacket answer;
        EXPECT_EQ(Deserialize(BytesOf(reply), answer), KELSTATUS_SUCCESS);
        CFRelease(reply);
        EXPECT_EQ(answer.Status(), KELSTATUS_RESOURCE_BAD);
        EXPECT_EQ(answer.ObjectKey(0)->Identifier(), EObjectIDNothing);
    }
    EXPECT_EQ(mRecorder.calls, static_cast<int>(inputs.size()));
}

TEST_F(CMacMessagingServerTests, PacketOfTheOtherByteOrderIsReadWithItsDataAsSent)
{
    CMacMessagingServer server;
    server.SetProcessEventCallback(Recorder::Callback, &mRecorder);
    CEventPacket packet = RequestPacket();
    const std::uint32_t word = 0x01020304;
    packet.PackData(4, &word);
    Bytes block = Serialize(packet);
    KelTestReverseSerializedBlock(block.data(), block.size());

    Data request(block);
    CFDataRef reply = server.ProcessRequest(request.get(), kMessageIDEventPacket);
    ASSERT_NE(reply, nullptr);
    CFRelease(reply);
    EXPECT_EQ(mRecorder.command, ECommandSet);
    EXPECT_EQ(mRecorder.identifiers, (std::vector<int>{EObjectIDTablet, EParameterIDName}));
    EXPECT_EQ(mRecorder.strings[1], "pen");
    EXPECT_EQ(mRecorder.data, std::string(reinterpret_cast<const char*>(&word), 4));
    EXPECT_EQ(BytesOf(request.get()), block);
}

TEST_F(CMacMessagingServerTests, AnotherProcessIsServedOnTheMainRunLoop)
{
    CMacMessagingServer server;
    ASSERT_EQ(server.Init(mName, ServeThroughServer, &server), KELSTATUS_SUCCESS);
    server.SetProcessEventCallback(Recorder::Callback, &mRecorder);
    mRecorder.answerData = "from the server";

    const Bytes block = Serialize(RequestPacket());
    std::string hex;
    for (std::uint8_t byte : block)
    {
        static const char kDigits[] = "0123456789abcdef";
        hex += kDigits[byte >> 4];
        hex += kDigits[byte & 15];
    }
    const std::string replyFile = mPortDirectory.File("reply");
    KelTestDriverProcess client;
    ASSERT_TRUE(client.Start(
        {"--send", kServerPort, "--msgid", "KEPK", "--body", hex, "--reply-out", replyFile}));
    int exitStatus = -1;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (exitStatus < 0 && std::chrono::steady_clock::now() < deadline)
    {
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.05, true);
        exitStatus = client.WaitForExit(0.0);
    }
    ASSERT_EQ(exitStatus, 0);

    std::ifstream in(replyFile);
    std::string kind, replyHex;
    in >> kind >> replyHex;
    ASSERT_EQ(kind, "data");
    Bytes replyBytes;
    for (std::size_t i = 0; i + 1 < replyHex.size(); i += 2)
    {
        replyBytes.push_back(
            static_cast<std::uint8_t>(std::stoul(replyHex.substr(i, 2), nullptr, 16)));
    }
    CEventPacket answer;
    ASSERT_EQ(Deserialize(replyBytes, answer), KELSTATUS_SUCCESS);
    EXPECT_EQ(DataOf(answer), "from the server");
    EXPECT_EQ(mRecorder.calls, 1);
}

TEST_F(CMacMessagingServerTests, NameServedElsewhereFailsThreeTimesOneSecondApart)
{
    KelTestDriverProcess other;
    ASSERT_TRUE(other.Serve(kServerPort, {}));

    CMacMessagingServer server;
    KELSTATUS status = 0;
    const auto start = std::chrono::steady_clock::now();
    const Output output =
        Capture([&] { status = server.Init(mName, ServeThroughServer, &server); });
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_EQ(status, KELSTATUS_FAILURE);
    const std::string line = "Mac/Common/Communication/CMacMessagingServer:143: failed assertion: "
                             "!(bool)\"Message Port already Exists?\\n\"\n";
    EXPECT_EQ(output.out, line + line + line);
    EXPECT_GE(seconds, 2.9);
    EXPECT_LT(seconds, 5.0);
    EXPECT_EQ(server.GetRunLoop(), nullptr);

    // Once the other process is gone the name is free.
    other.Stop();
    EXPECT_EQ(server.Init(mName, ServeThroughServer, &server), KELSTATUS_SUCCESS);
}

TEST_F(CMacMessagingServerTests, MissingPortCallbackEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            std::unique_ptr<CMacMessagingServer> server;
            CMacMessagingServer::AllocateAndInitInstance(mName, nullptr, server, nullptr);
        },
        "failed assertion: callBackFunction");
}
} // namespace
