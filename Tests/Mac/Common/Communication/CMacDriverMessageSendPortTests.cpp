#include "Mac/Common/Communication/CMacDriverMessageSendPort.h"

#include "Common/CNotFlipper.h"
#include "Mac/Common/Communication/KelMessagingTestSupport.h"
#include "Mac/Common/Communication/MessageIDs.h"
#include "Tests/Support/ScopedPortDirectory.h"
#include "Tools/SimulatedDriver/SimPacketWire.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <typeinfo>

using namespace messaging_test;

namespace
{
const std::string kDriverPort = "com.kelto.PenTabletDriverMessageServer";
const std::string kSource = "Mac/Common/Communication/CMacDriverMessageSendPort:";

std::string FlipperKind(const CFlipper* flipper)
{
    if (flipper == nullptr)
    {
        return "none";
    }
    return typeid(*flipper) == typeid(CNotFlipper) ? "CNotFlipper"
           : typeid(*flipper) == typeid(CFlipper)  ? "CFlipper"
                                                   : "other";
}

CEventPacket Packet(const std::string& data)
{
    CEventPacket packet;
    packet.SetCommand(ECommandGet);
    packet.AddKeyInt(EObjectIDTablet, 3, EAddrModeByIndex);
    packet.AddKeyInt(EObjectIDTransducer, 0x11223344, EAddrModeByID);
    packet.AddKeyString(EParameterIDName, "pen", false);
    packet.PackData(static_cast<unsigned>(data.size()), data.data());
    return packet;
}

// A legacy driver's answer: the return record (status, size) in its order, then the data.
Bytes ReturnRecord(std::uint32_t status, std::uint32_t size, const std::string& data,
                   bool reversed = false)
{
    const std::uint32_t words[2] = {Swap(status, reversed), Swap(size, reversed)};
    Bytes bytes(sizeof(words) + data.size());
    std::memcpy(bytes.data(), words, sizeof(words));
    std::memcpy(bytes.data() + sizeof(words), data.data(), data.size());
    return bytes;
}

// Answers 'ENDI' with `code` (1: our order, 2: reversed) and a transit record with `reply`.
ScriptedPeer::Answer LegacyDriver(std::uint8_t code, std::optional<Bytes> reply)
{
    return [=](SInt32 msgid, const Bytes&) -> std::optional<Bytes>
    { return msgid == kMessageIDEndianness ? Bytes{code} : reply; };
}

class CMacDriverMessageSendPortTests : public ::testing::Test
{
protected:
    CMacDriverMessageSendPortTests() : mName(MakeString(kDriverPort)) {}
    ~CMacDriverMessageSendPortTests() override { CFRelease(mName); }

    ScriptedPeer& Serve(ScriptedPeer::Answer answer)
    {
        mPeer.reset();
        mPeer.emplace(kDriverPort, std::move(answer));
        return *mPeer;
    }

    ScopedPortDirectory mPortDirectory;
    std::optional<ScriptedPeer> mPeer;
    CFStringRef mName;
};

TEST_F(CMacDriverMessageSendPortTests, EmptyReplyLeavesThePacketNoReplyMeansDoneFailureMarksIt)
{
    CEventPacket packet = Packet("abc");
    packet.SetStatus(0x1234);
    CMacDriverMessageSendPort port;
    EXPECT_EQ(port.SendKeltoEvent(&packet), KELSTATUS_FAILURE); // no messaging client yet
    EXPECT_EQ(packet.Status(), 0x1234);

    ASSERT_EQ(port.Init(mName, false), KELSTATUS_SUCCESS);
    Serve([](SInt32, const Bytes&) -> std::optional<Bytes> { return Bytes(); });
    EXPECT_EQ(port.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(packet.Status(), 0x1234);
    EXPECT_EQ(DataOf(packet), "abc");
    Serve([](SInt32, const Bytes&) { return std::optional<Bytes>(); });
    EXPECT_EQ(port.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(packet.Status(), KELSTATUS_SUCCESS);
    EXPECT_EQ(DataOf(packet), "abc");

    mPeer.reset();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(port.SendKeltoEvent(&packet), KELSTATUS_FAILURE);
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 1.0);
    EXPECT_EQ(packet.Status(), KELSTATUS_FAILURE);
    EXPECT_EQ(DataOf(packet), "abc");
}

TEST_F(CMacDriverMessageSendPortTests, ByteOrderIsAskedEachTimeAndPicksTheFlipper)
{
    ScriptedPeer* peer = &Serve(LegacyDriver(2, std::nullopt));
    CMacDriverMessageSendPort port;
    ASSERT_EQ(port.Init(mName, true), KELSTATUS_SUCCESS);
    EXPECT_EQ(port.GetRemoteEndianness(), 2);
    EXPECT_EQ(port.SetupHostFlipper(), KELSTATUS_SUCCESS);
    EXPECT_EQ(FlipperKind(port.GetFlipper()), "CFlipper");
    EXPECT_EQ(peer->mRequests.size(), 2u);

    // Switching the automatic choice off sets the flipper up again: no reversal, said so.
    const std::string assumed = kSource + "220: failed assertion: \"assuming no flip needed\"\n";
    EXPECT_EQ(Capture([&] { port.SetAutoFlipsData(false); }).out, assumed);
    EXPECT_EQ(FlipperKind(port.GetFlipper()), "CNotFlipper");
    port.SetAutoFlipsData(true);
    EXPECT_EQ(FlipperKind(port.GetFlipper()), "CFlipper");

    Serve(LegacyDriver(1, std::nullopt));
    EXPECT_EQ(port.SetupHostFlipper(), KELSTATUS_SUCCESS);
    EXPECT_EQ(FlipperKind(port.GetFlipper()), "CNotFlipper");

    // A driver that does not say is taken to be of our order while its port is valid.
    const std::optional<Bytes> silent[] = {std::nullopt, Bytes(), Bytes{0}};
    for (const std::optional<Bytes>& answer : silent)
    {
        Serve([=](SInt32, const Bytes&) { return answer; });
        EXPECT_EQ(port.GetRemoteEndianness(), 0);
        EXPECT_EQ(Capture([&] { EXPECT_EQ(port.SetupHostFlipper(), KELSTATUS_SUCCESS); }).out,
                  assumed);
        EXPECT_EQ(FlipperKind(port.GetFlipper()), "CNotFlipper");
    }
    mPeer.reset();
    EXPECT_EQ(port.SetupHostFlipper(), KELSTATUS_FAILURE);
    EXPECT_EQ(FlipperKind(port.GetFlipper()), "none");
}

TEST_F(CMacDriverMessageSendPortTests, NewAlwaysConnects)
{
    Serve(LegacyDriver(1, std::nullopt));
    const auto port = std::dynamic_pointer_cast<CMacDriverMessageSendPort>(
        CDriverMessageSendPort::New(kDriverPort, false));
    ASSERT_NE(port, nullptr);
    EXPECT_TRUE(port->IsValid());
    EXPECT_EQ(CDriverMessageSendPort::New("com.kelto.NobodyServesThis", true), nullptr);
}

TEST_F(CMacDriverMessageSendPortTests, LegacyAnswersAreReadWithinTheBytesReceived)
{
    CMacDriverMessageSendPort port;
    ASSERT_EQ(port.Init(mName, false), KELSTATUS_SUCCESS);
    CEventPacket packet = Packet("WXYZ");
    TransitRecordReturn receipt{};
    // Down: the byte-order probe fails first and no flipper is left.
    EXPECT_EQ(port.SendLegacyKeltoEvent(&packet, &receipt), KELSTATUS_FAILURE);
    EXPECT_EQ(receipt.wStatus, KELSTATUS_FAILURE);
    EXPECT_EQ(port.GetFlipper(), nullptr);

    // No reply: the send went through, the return status stays unset, and that is said.
    Serve(LegacyDriver(1, std::nullopt));
    Output output = Capture([&] { EXPECT_EQ(port.SendLegacyKeltoEvent(&packet, &receipt), 0); });
    EXPECT_EQ(receipt.wStatus, 0xFFFFu);
    EXPECT_EQ(output.out, kSource + "475: failed assertion: status == returnReceipt_O->wStatus\n");

    // Too short for a return record.
    Serve(LegacyDriver(1, Bytes(4, 0)));
    EXPECT_EQ(port.SendLegacyKeltoEvent(&packet, &receipt), KELSTATUS_FAILURE);

    // A return size beyond the request is reported; only the bytes that came are copied.
    Serve(LegacyDriver(1, ReturnRecord(0, 40, "ZZ")));
    output = Capture([&] { EXPECT_EQ(port.SendLegacyKeltoEvent(&packet, &receipt), 0); });
    EXPECT_EQ(output.out,
              kSource + "575: failed assertion: returnRec.returnDataSize <= dataSize\n");
    EXPECT_EQ(receipt.returnDataSize, 40u);
    EXPECT_EQ(DataOf(packet), "ZZYZ");

    // A failure status copies nothing.
    Serve(LegacyDriver(1, ReturnRecord(KELSTATUS_OBJECT_NOT_FOUND, 4, "ABCD")));
    EXPECT_EQ(port.SendLegacyKeltoEvent(&packet, &receipt), KELSTATUS_OBJECT_NOT_FOUND);
    EXPECT_EQ(receipt.wStatus, KELSTATUS_OBJECT_NOT_FOUND);
    EXPECT_EQ(DataOf(packet), "ZZYZ");

    output =
        Capture([&] { EXPECT_EQ(port.SendLegacyRequest(nullptr, nullptr), KELSTATUS_FAILURE); });
    EXPECT_EQ(output.out, kSource + "504: failed assertion: pTransitRec\n");
}
} // namespace
