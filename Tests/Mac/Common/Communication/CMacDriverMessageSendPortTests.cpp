#include "Mac/Common/Communication/CMacDriverMessageSendPort.h"

#include "Common/CEventPacket.h"
#include "Common/CNotFlipper.h"
#include "Mac/Common/Communication/KelMessagingTestSupport.h"
#include "Mac/Common/Communication/KelTestDriverProcess.h"
#include "Mac/Common/Communication/MessageIDs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>
#include <typeinfo>

using namespace messaging_test;

namespace
{
const std::string kDriverPort = "com.kelto.PenTabletDriverMessageServer";
const std::string kSourcePath = "Mac/Common/Communication/CMacDriverMessageSendPort";

std::uint32_t Read32(const Bytes& bytes, std::size_t offset)
{
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + offset, 4);
    return value;
}

std::uint16_t Read16(const Bytes& bytes, std::size_t offset)
{
    std::uint16_t value = 0;
    std::memcpy(&value, bytes.data() + offset, 2);
    return value;
}

CEventPacket PacketWithData(const std::string& data)
{
    CEventPacket packet;
    packet.SetCommand(ECommandGet);
    packet.AddKeyInt(EObjectIDTablet, 3, EAddrModeByIndex);
    packet.AddKeyInt(EObjectIDTransducer, 0x11223344, EAddrModeByID);
    packet.AddKeyString(EParameterIDName, "pen", false);
    packet.PackData(static_cast<unsigned>(data.size()), data.data());
    return packet;
}

class CMacDriverMessageSendPortTests : public ::testing::Test
{
protected:
    void SetUp() override { mName = KelTestMakeString(kDriverPort); }
    void TearDown() override { CFRelease(mName); }

    bool Serve(std::vector<std::string> arguments)
    {
        mDriver.Stop();
        arguments.insert(arguments.end(), {"--journal", mJournal});
        return mDriver.Serve(kDriverPort, arguments);
    }

    std::vector<KelTestJournalEntry> Journal() const { return KelTestReadJournal(mJournal); }
    std::size_t CountOf(std::uint32_t msgid) const
    {
        std::size_t count = 0;
        for (const auto& entry : Journal())
        {
            count += entry.msgid == msgid;
        }
        return count;
    }

    KelTestPortDirectory mPortDirectory;
    std::string mJournal = mPortDirectory.File("journal");
    KelTestDriverProcess mDriver;
    CFStringRef mName = nullptr;
};

TEST_F(CMacDriverMessageSendPortTests, PacketsComeBackIntoTheSamePacketInEitherByteOrder)
{
    for (const std::string order : {"host", "reversed"})
    {
        SCOPED_TRACE(order);
        std::remove(mJournal.c_str());
        ASSERT_TRUE(Serve({"--byte-order", order, "--status", "1539", "--answer", "6869"}));
        CMacDriverMessageSendPort port;
        ASSERT_EQ(port.Init(mName, false), KELSTATUS_SUCCESS);

        const std::uint32_t word = 0x01020304;
        CEventPacket packet = PacketWithData(std::string(reinterpret_cast<const char*>(&word), 4));
        EXPECT_EQ(port.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);
        EXPECT_EQ(packet.Status(), KELSTATUS_METHOD_NOT_IMPLEMENTED);
        EXPECT_EQ(DataOf(packet), "hi");
        EXPECT_EQ(packet.Command(), ECommandGet);
        EXPECT_EQ(packet.ObjectKey(1)->mReference, reinterpret_cast<void*>(0x11223344));
        EXPECT_STREQ(packet.ObjectKey(2)->String(), "pen");

        // What the driver got is the packet as it was sent, and nothing else: a packet
        // carries its own byte order, so no probe was needed.
        const auto journal = Journal();
        ASSERT_EQ(journal.size(), 1u);
        EXPECT_EQ(journal[0].msgid, static_cast<std::uint32_t>(kMessageIDEventPacket));
        CEventPacket received;
        ASSERT_EQ(Deserialize(journal[0].bytes, received), KELSTATUS_SUCCESS);
        EXPECT_EQ(DataOf(received), std::string(reinterpret_cast<const char*>(&word), 4));
        EXPECT_EQ(received.ObjectKey(0)->mReference, reinterpret_cast<void*>(3));
    }
}

TEST_F(CMacDriverMessageSendPortTests, EmptyReplyLeavesThePacketAndNoReplyMeansDone)
{
    ASSERT_TRUE(Serve({"--packet-reply", "empty", "--answer", "6869"}));
    CMacDriverMessageSendPort port;
    ASSERT_EQ(port.Init(mName, true), KELSTATUS_SUCCESS);
    CEventPacket packet = PacketWithData("abc");
    packet.SetStatus(0x1234);
    EXPECT_EQ(port.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(packet.Status(), 0x1234);
    EXPECT_EQ(DataOf(packet), "abc");

    ASSERT_TRUE(Serve({"--packet-reply", "none", "--answer", "6869"}));
    EXPECT_EQ(port.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(packet.Status(), KELSTATUS_SUCCESS);
    EXPECT_EQ(DataOf(packet), "abc");
}

TEST_F(CMacDriverMessageSendPortTests, FailedSendsMarkThePacketOnlyWhenTheyWereTried)
{
    CEventPacket packet = PacketWithData("abc");
    packet.SetStatus(0x1234);

    CMacDriverMessageSendPort unready;
    EXPECT_EQ(unready.GetMessagingClient(), nullptr);
    EXPECT_FALSE(unready.IsValid());
    EXPECT_EQ(unready.SendKeltoEvent(&packet), KELSTATUS_FAILURE);
    EXPECT_EQ(packet.Status(), 0x1234);

    CMacDriverMessageSendPort port;
    ASSERT_EQ(port.Init(mName, false), KELSTATUS_SUCCESS);
    ASSERT_NE(port.GetMessagingClient(), nullptr);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(port.SendKeltoEvent(&packet), KELSTATUS_FAILURE);
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 1.0);
    EXPECT_EQ(packet.Status(), KELSTATUS_FAILURE);
    EXPECT_EQ(DataOf(packet), "abc");
}

TEST_F(CMacDriverMessageSendPortTests, ByteOrderIsAskedEachTimeAndPicksTheFlipper)
{
    ASSERT_TRUE(Serve({"--endi", "1"}));
    CMacDriverMessageSendPort port;
    ASSERT_EQ(port.Init(mName, true), KELSTATUS_SUCCESS);
    EXPECT_EQ(port.GetRemoteEndianness(), 1);
    EXPECT_EQ(port.GetRemoteEndianness(), 1);
    EXPECT_EQ(CountOf(kMessageIDEndianness), 2u);
    EXPECT_EQ(port.SetupHostFlipper(), KELSTATUS_SUCCESS);
    ASSERT_NE(port.GetFlipper(), nullptr);
    EXPECT_EQ(port.GetFlipper()->FlipPrivate(0x01020304u), 0x01020304u);

    ASSERT_TRUE(Serve({"--endi", "2"}));
    EXPECT_EQ(port.SetupHostFlipper(), KELSTATUS_SUCCESS);
    ASSERT_NE(port.GetFlipper(), nullptr);
    EXPECT_EQ(typeid(*port.GetFlipper()), typeid(CFlipper));
    EXPECT_EQ(port.GetFlipper()->FlipPrivate(0x01020304u), 0x04030201u);

    // Switching the automatic choice off sets the flipper up again: no reversal, said so.
    const std::string assumed =
        kSourcePath + ":220: failed assertion: \"assuming no flip needed\"\n";
    Output output = Capture([&] { port.SetAutoFlipsData(false); });
    EXPECT_EQ(output.out, assumed);
    EXPECT_EQ(typeid(*port.GetFlipper()), typeid(CNotFlipper));
    port.SetAutoFlipsData(true);
    EXPECT_EQ(typeid(*port.GetFlipper()), typeid(CFlipper));

    // A driver that does not say is taken to be of our order while its port is valid.
    for (const std::string answer : {"none", "empty", "0"})
    {
        SCOPED_TRACE(answer);
        ASSERT_TRUE(Serve({"--endi", answer}));
        EXPECT_EQ(port.GetRemoteEndianness(), 0);
        KELSTATUS status = KELSTATUS_FAILURE;
        output = Capture([&] { status = port.SetupHostFlipper(); });
        EXPECT_EQ(status, KELSTATUS_SUCCESS);
        EXPECT_EQ(output.out, assumed);
        ASSERT_NE(port.GetFlipper(), nullptr);
        EXPECT_EQ(typeid(*port.GetFlipper()), typeid(CNotFlipper));
    }

    // Nobody there: no flipper at all.
    mDriver.Stop();
    EXPECT_EQ(port.SetupHostFlipper(), KELSTATUS_FAILURE);
    EXPECT_EQ(port.GetFlipper(), nullptr);
    // Without a flipper, switching the choice asks nothing.
    port.SetAutoFlipsData(false);
    EXPECT_EQ(port.GetFlipper(), nullptr);
}

TEST_F(CMacDriverMessageSendPortTests, NewAlwaysConnects)
{
    ASSERT_TRUE(Serve({}));
    const auto port = CDriverMessageSendPort::New(kDriverPort, false);
    ASSERT_NE(port, nullptr);
    auto* macPort = dynamic_cast<CMacDriverMessageSendPort*>(port.get());
    ASSERT_NE(macPort, nullptr);
    EXPECT_TRUE(macPort->IsValid());
    double send = 0, receive = 0;
    macPort->GetMessagingClient()->GetSendReceiveTimeouts(send, receive);
    EXPECT_EQ(send, 500.0);
    EXPECT_EQ(receive, 500.0);

    EXPECT_EQ(CDriverMessageSendPort::New("com.kelto.NobodyServesThis", true), nullptr);
}

TEST_F(CMacDriverMessageSendPortTests, TransitRecordsReverseEveryFieldButNeverTheData)
{
    for (const std::string order : {"host", "reversed"})
    {
        SCOPED_TRACE(order);
        const bool reversed = order == "reversed";
        auto u32 = [&](std::uint32_t v) { return reversed ? __builtin_bswap32(v) : v; };
        auto u16 = [&](std::uint16_t v) { return reversed ? __builtin_bswap16(v) : v; };
        std::remove(mJournal.c_str());
        ASSERT_TRUE(Serve({"--byte-order", order, "--answer", "41424344"}));
        CMacDriverMessageSendPort port;
        ASSERT_EQ(port.Init(mName, false), KELSTATUS_SUCCESS);

        CEventPacket packet = PacketWithData("WXYZ");
        TransitRecordReturn receipt{7, 7};
        EXPECT_EQ(port.SendLegacyKeltoEvent(&packet, &receipt), KELSTATUS_SUCCESS);
        EXPECT_EQ(receipt.wStatus, 0u);
        EXPECT_EQ(receipt.returnDataSize, 4u);
        // The answer is written over the packet's data, as it came.
        EXPECT_EQ(DataOf(packet), "ABCD");

        // A second send asks the byte order no more.
        EXPECT_EQ(port.SendLegacyKeltoEvent(&packet, nullptr), KELSTATUS_SUCCESS);
        const auto journal = Journal();
        ASSERT_EQ(journal.size(), 3u);
        EXPECT_EQ(journal[0].msgid, static_cast<std::uint32_t>(kMessageIDEndianness));
        const Bytes& record = journal[1].bytes;
        EXPECT_EQ(journal[1].msgid, 0u);
        ASSERT_EQ(record.size(), 136u + 4u);
        EXPECT_EQ(Read32(record, 0), u32(EAddrModeByIndex));
        EXPECT_EQ(Read16(record, 4), u16(EObjectIDTablet));
        EXPECT_EQ(Read32(record, 8), u32(3));
        EXPECT_EQ(Read32(record, 12), u32(EAddrModeByID));
        EXPECT_EQ(Read16(record, 16), u16(EObjectIDTransducer));
        EXPECT_EQ(Read32(record, 20), u32(0x11223344));
        EXPECT_EQ(Read32(record, 24), u32(EAddrModeByString));
        EXPECT_EQ(Read16(record, 28), u16(EParameterIDName));
        for (std::size_t offset = 36; offset < 120; ++offset)
        {
            EXPECT_EQ(record[offset], 0) << offset;
        }
        EXPECT_EQ(Read32(record, 120), u32(4));
        EXPECT_EQ(Read32(record, 124), 0u);
        EXPECT_EQ(Read32(record, 128), u32(ECommandGet));
        EXPECT_EQ(std::string(record.begin() + 136, record.end()), "WXYZ");
    }
}

TEST_F(CMacDriverMessageSendPortTests, LegacyAnswersAreReadWithinTheBytesReceived)
{
    CMacDriverMessageSendPort port;
    ASSERT_EQ(port.Init(mName, false), KELSTATUS_SUCCESS);
    CEventPacket packet = PacketWithData("WXYZ");
    TransitRecordReturn receipt{};

    // No reply: the send went through, the return status stays unset, and that is said.
    ASSERT_TRUE(Serve({"--transit-reply", "none", "--endi", "1"}));
    Output output = Capture([&] { EXPECT_EQ(port.SendLegacyKeltoEvent(&packet, &receipt), 0); });
    EXPECT_EQ(receipt.wStatus, 0xFFFFu);
    EXPECT_EQ(output.out,
              kSourcePath + ":475: failed assertion: status == returnReceipt_O->wStatus\n");

    // Too short to hold a return record.
    ASSERT_TRUE(Serve({"--transit-reply", "short"}));
    EXPECT_EQ(port.SendLegacyKeltoEvent(&packet, &receipt), KELSTATUS_FAILURE);
    EXPECT_EQ(receipt.wStatus, 0xFFFFu);

    // A return size beyond the request is reported; only the bytes that came are copied.
    ASSERT_TRUE(Serve({"--answer", "5a5a", "--return-size", "40"}));
    output = Capture([&] { EXPECT_EQ(port.SendLegacyKeltoEvent(&packet, &receipt), 0); });
    EXPECT_EQ(output.out,
              kSourcePath + ":575: failed assertion: returnRec.returnDataSize <= dataSize\n");
    EXPECT_EQ(receipt.returnDataSize, 40u);
    EXPECT_EQ(DataOf(packet), "ZZYZ");

    // A failure status copies nothing.
    ASSERT_TRUE(Serve({"--answer", "41424344", "--status", "1542"}));
    EXPECT_EQ(port.SendLegacyKeltoEvent(&packet, &receipt), KELSTATUS_OBJECT_NOT_FOUND);
    EXPECT_EQ(receipt.wStatus, KELSTATUS_OBJECT_NOT_FOUND);
    EXPECT_EQ(DataOf(packet), "ZZYZ");

    // Driver gone: the send's own failure, the return status left at 0xFFFF.
    mDriver.Stop();
    EXPECT_EQ(port.SendLegacyKeltoEvent(&packet, &receipt), KELSTATUS_FAILURE);
    EXPECT_EQ(receipt.wStatus, 0xFFFFu);

    output =
        Capture([&] { EXPECT_EQ(port.SendLegacyRequest(nullptr, nullptr), KELSTATUS_FAILURE); });
    EXPECT_EQ(output.out, kSourcePath + ":504: failed assertion: pTransitRec\n");
}

TEST_F(CMacDriverMessageSendPortTests, LegacySendToADriverThatIsDownFailsAtTheByteOrderProbe)
{
    CMacDriverMessageSendPort port;
    ASSERT_EQ(port.Init(mName, false), KELSTATUS_SUCCESS);
    CEventPacket packet = PacketWithData("WXYZ");
    TransitRecordReturn receipt{};
    EXPECT_EQ(port.SendLegacyKeltoEvent(&packet, &receipt), KELSTATUS_FAILURE);
    EXPECT_EQ(receipt.wStatus, KELSTATUS_FAILURE);
    EXPECT_EQ(port.GetFlipper(), nullptr);

    CMacDriverMessageSendPort unready;
    TransitRecord record{};
    EXPECT_EQ(unready.SendLegacyRequest(&record, nullptr), KELSTATUS_FAILURE);
}
} // namespace
