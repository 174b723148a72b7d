#include "Mac/TabletDriver/Source/Coordinator/CMacDriverInterface.h"

#include "Common/CEventPacket.h"
#include "Mac/Common/Communication/KelMessagingTestSupport.h"
#include "Mac/Common/Communication/KelTestDriverProcess.h"
#include "Mac/Common/Communication/MessageIDs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using namespace messaging_test;
using testing::HasSubstr;

namespace
{
const std::string kDriverPort = "com.kelto.KeltoTabletDriverMessageServer";

CEventPacket CountRequest(const std::string& data)
{
    CEventPacket packet;
    packet.SetCommand(ECommandGet);
    packet.AddKeyInt(EObjectIDDriver, 0, EAddrModeByIndex);
    packet.AddKeyInt(EParameterIDCount, EObjectIDTablet, EAddrModeByIndex);
    packet.PackData(static_cast<unsigned>(data.size()), data.data());
    return packet;
}

std::vector<std::uint32_t> MessageIDs(const std::vector<KelTestJournalEntry>& journal)
{
    std::vector<std::uint32_t> ids;
    for (const auto& entry : journal)
    {
        ids.push_back(entry.msgid);
    }
    return ids;
}

class CMacDriverInterfaceTests : public ::testing::Test
{
protected:
    void SetUp() override { mName = KelTestMakeString(kDriverPort); }
    void TearDown() override { CFRelease(mName); }

    bool Serve(std::vector<std::string> arguments)
    {
        mDriver.Stop();
        std::remove(mJournal.c_str());
        arguments.insert(arguments.end(), {"--journal", mJournal});
        return mDriver.Serve(kDriverPort, arguments);
    }

    std::vector<KelTestJournalEntry> Journal() const { return KelTestReadJournal(mJournal); }

    KelTestPortDirectory mPortDirectory;
    std::string mJournal = mPortDirectory.File("journal");
    KelTestDriverProcess mDriver;
    CFStringRef mName = nullptr;
};

constexpr std::uint32_t kTransit = 0;
constexpr std::uint32_t kPacket = kMessageIDEventPacket;
constexpr std::uint32_t kEndianness = kMessageIDEndianness;

TEST_F(CMacDriverInterfaceTests, MessagingTypeFollowsTheVersionThresholdOfEachDriver)
{
    struct Case
    {
        std::uint32_t driverID;
        const char* version;
        std::uint32_t type;
    };
    const Case cases[] = {
        {'KlKT', "6.1.1", CMacDriverInterface::kMessagingTypeLegacy},
        {'KlKT', "6.1.2", CMacDriverInterface::kMessagingTypeEventPacket},
        {'KlKT', "6.1.2a3", CMacDriverInterface::kMessagingTypeEventPacket},
        {'KlKT', "6.2.0", CMacDriverInterface::kMessagingTypeEventPacket},
        {'KlKT', "5.9.9", CMacDriverInterface::kMessagingTypeLegacy},
        {'KlPT', "5.1.9", CMacDriverInterface::kMessagingTypeLegacy},
        {'KlPT', "5.2.0", CMacDriverInterface::kMessagingTypeEventPacket},
        {'KlPT', "6.1.1", CMacDriverInterface::kMessagingTypeEventPacket},
        {'????', "9.9.9", CMacDriverInterface::kMessagingTypeLegacy},
        {'ABCD', "9.9.9", CMacDriverInterface::kMessagingTypeLegacy},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(std::string(c.version) + " for " + std::to_string(c.driverID));
        ASSERT_TRUE(Serve({"--version", c.version, "--answer", "0700"}));
        CMacDriverInterface driver;
        EXPECT_EQ(driver.GetMessagingType(), CMacDriverInterface::kMessagingTypeUnknown);
        ASSERT_EQ(driver.Init(c.driverID, mName, false), KELSTATUS_SUCCESS);
        EXPECT_EQ(driver.GetDriverID(), c.driverID);

        CEventPacket packet = CountRequest("xx");
        EXPECT_EQ(driver.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);
        EXPECT_EQ(driver.GetMessagingType(), c.type);
        EXPECT_EQ(DataOf(packet), std::string("\x07\x00", 2));

        // The byte order, the probe as a transit record, then the packet in its form.
        const auto journal = Journal();
        EXPECT_EQ(MessageIDs(journal),
                  (std::vector<std::uint32_t>{kEndianness, kTransit, c.type ? kPacket : kTransit}));
        ASSERT_GE(journal.size(), 2u);
        const Bytes& probe = journal[1].bytes;
        ASSERT_EQ(probe.size(), 136u + 5u);
        std::uint16_t first = 0, second = 0;
        std::uint32_t size = 0, command = 0;
        std::memcpy(&first, probe.data() + 4, 2);
        std::memcpy(&second, probe.data() + 16, 2);
        std::memcpy(&size, probe.data() + 120, 4);
        std::memcpy(&command, probe.data() + 128, 4);
        EXPECT_EQ(first, EObjectIDDriver);
        EXPECT_EQ(second, EParameterIDFileVersion);
        EXPECT_EQ(size, 5u);
        EXPECT_EQ(command, static_cast<std::uint32_t>(ECommandGet));
        EXPECT_EQ(Bytes(probe.begin() + 136, probe.end()), Bytes(5, 0));
    }
}

TEST_F(CMacDriverInterfaceTests, FailedProbeLeavesThePacketAndIsTriedAgain)
{
    CMacDriverInterface driver;
    ASSERT_EQ(driver.Init('KlKT', mName, false), KELSTATUS_SUCCESS);
    CEventPacket packet = CountRequest("xx");
    packet.SetStatus(0x1234);

    // Nobody serves the port yet.
    EXPECT_EQ(driver.SendKeltoEvent(&packet), KELSTATUS_FAILURE);
    EXPECT_EQ(driver.GetMessagingType(), CMacDriverInterface::kMessagingTypeUnknown);
    EXPECT_EQ(packet.Status(), 0x1234);
    EXPECT_EQ(DataOf(packet), "xx");

    // The driver answers the first probe with a failure, the second one with its version.
    ASSERT_TRUE(Serve({"--version", "6.1.2", "--probe-failures", "1", "--answer", "6869"}));
    EXPECT_EQ(driver.SendKeltoEvent(&packet), KELSTATUS_FAILURE);
    EXPECT_EQ(driver.GetMessagingType(), CMacDriverInterface::kMessagingTypeUnknown);
    EXPECT_EQ(packet.Status(), 0x1234);
    EXPECT_EQ(DataOf(packet), "xx");

    EXPECT_EQ(driver.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(driver.GetMessagingType(), CMacDriverInterface::kMessagingTypeEventPacket);
    EXPECT_EQ(DataOf(packet), "hi");
    EXPECT_EQ(MessageIDs(Journal()),
              (std::vector<std::uint32_t>{kEndianness, kTransit, kTransit, kPacket}));
}

TEST_F(CMacDriverInterfaceTests, RestartedDriverIsReachedAgainWithoutANewProbe)
{
    ASSERT_TRUE(Serve({"--version", "6.1.2"}));
    CMacDriverInterface driver;
    ASSERT_EQ(driver.Init('KlKT', mName, false), KELSTATUS_SUCCESS);
    CEventPacket packet = CountRequest("xx");
    ASSERT_EQ(driver.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);

    ASSERT_TRUE(Serve({"--version", "1.0.0", "--answer", "6869"}));
    EXPECT_EQ(driver.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(DataOf(packet), "hi");
    EXPECT_EQ(driver.GetMessagingType(), CMacDriverInterface::kMessagingTypeEventPacket);
    EXPECT_EQ(MessageIDs(Journal()), (std::vector<std::uint32_t>{kPacket}));
}

TEST_F(CMacDriverInterfaceTests, DriversOfTheOtherByteOrderAreServedInTheirOrder)
{
    // A legacy driver: its records are reversed, its data is not.
    ASSERT_TRUE(Serve(
        {"--byte-order", "reversed", "--version", "6.0.0", "--answer", "0102", "--status", "512"}));
    CMacDriverInterface legacy;
    ASSERT_EQ(legacy.Init('KlKT', mName, false), KELSTATUS_SUCCESS);
    CEventPacket packet = CountRequest("xx");
    EXPECT_EQ(legacy.SendKeltoEvent(&packet), KELSTATUS_RESOURCE_MISSING);
    EXPECT_EQ(legacy.GetMessagingType(), CMacDriverInterface::kMessagingTypeLegacy);
    EXPECT_EQ(packet.Status(), KELSTATUS_RESOURCE_MISSING);
    const auto journal = Journal();
    ASSERT_EQ(journal.size(), 3u);
    std::uint32_t size = 0;
    std::memcpy(&size, journal[2].bytes.data() + 120, 4);
    EXPECT_EQ(size, __builtin_bswap32(2u));
    EXPECT_EQ(std::string(journal[2].bytes.begin() + 136, journal[2].bytes.end()), "xx");

    // A packet driver: its answers come back reversed and are read all the same.
    ASSERT_TRUE(Serve({"--byte-order", "reversed", "--version", "6.1.2", "--answer", "0102",
                       "--status", "1539"}));
    CMacDriverInterface modern;
    ASSERT_EQ(modern.Init('KlKT', mName, false), KELSTATUS_SUCCESS);
    EXPECT_EQ(modern.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(modern.GetMessagingType(), CMacDriverInterface::kMessagingTypeEventPacket);
    EXPECT_EQ(packet.Status(), KELSTATUS_METHOD_NOT_IMPLEMENTED);
    EXPECT_EQ(DataOf(packet), std::string("\x01\x02", 2));
}

TEST_F(CMacDriverInterfaceTests, LegacySendWithoutAReplyIsDoneButSaysItsReceiptDisagrees)
{
    ASSERT_TRUE(Serve({"--version", "6.0.0"}));
    CMacDriverInterface driver;
    ASSERT_EQ(driver.Init('KlKT', mName, false), KELSTATUS_SUCCESS);
    CEventPacket packet = CountRequest("xx");
    ASSERT_EQ(driver.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);
    ASSERT_EQ(driver.GetMessagingType(), CMacDriverInterface::kMessagingTypeLegacy);

    ASSERT_TRUE(Serve({"--transit-reply", "none"}));
    packet.SetStatus(0x1234);
    KELSTATUS status = KELSTATUS_FAILURE;
    const Output output = Capture([&] { status = driver.SendKeltoEvent(&packet); });
    EXPECT_EQ(status, KELSTATUS_SUCCESS);
    EXPECT_EQ(packet.Status(), KELSTATUS_SUCCESS);
    EXPECT_THAT(output.out, HasSubstr("Mac/TabletDriver/Source/Coordinator/CMacDriverInterface:81: "
                                      "failed assertion: status == returnReceipt.wStatus\n"));
}

TEST_F(CMacDriverInterfaceTests, ForwardedAppleEventsAnswerWithTheReplyOrItsErrorNumber)
{
    AppleEvent event;
    ASSERT_EQ(AECreateAppleEvent('core', 'getd', nullptr, kAutoGenerateReturnID, kAnyTransactionID,
                                 &event),
              noErr);
    ASSERT_EQ(AEPutParamPtr(&event, keyDirectObject, typeChar, "hello", 5), noErr);

    CMacDriverInterface driver;
    AEDesc reply;
    AEInitializeDesc(&reply);
    EXPECT_EQ(driver.ForwardAppleEvent(&event, &reply), 513);
    ASSERT_EQ(driver.Init('KlKT', mName, false), KELSTATUS_SUCCESS);
    EXPECT_EQ(driver.ForwardAppleEvent(&event, &reply), paramErr);
    EXPECT_EQ(reply.descriptorType, static_cast<DescType>(typeNull));

    ASSERT_TRUE(Serve({}));
    ASSERT_EQ(driver.ForwardAppleEvent(&event, &reply), noErr);
    EXPECT_EQ(reply.descriptorType, static_cast<DescType>(typeAppleEvent));
    char text[16] = {};
    Size actual = 0;
    DescType type = 0;
    EXPECT_EQ(AEGetParamPtr(&reply, keyDirectObject, typeChar, &type, text, sizeof(text), &actual),
              noErr);
    EXPECT_EQ(std::string(text, static_cast<std::size_t>(actual)), "hello");
    AEDisposeDesc(&reply);
    // The driver got the event as it was flattened.
    const auto journal = Journal();
    ASSERT_EQ(journal.size(), 1u);
    EXPECT_EQ(journal[0].msgid, static_cast<std::uint32_t>(kMessageIDAppleEvent));
    AppleEvent received;
    ASSERT_EQ(AEUnflattenDescFromBytes(journal[0].bytes.data(), journal[0].bytes.size(), &received),
              noErr);
    AEEventID id = 0;
    EXPECT_EQ(
        AEGetAttributePtr(&received, keyEventIDAttr, typeType, &type, &id, sizeof(id), &actual),
        noErr);
    EXPECT_EQ(id, static_cast<AEEventID>('getd'));
    AEDisposeDesc(&received);

    // An 'errn' first item is the answer, and no reply is handed over.
    ASSERT_TRUE(Serve({"--aevt-reply", "errn", "--errn", "-1700"}));
    EXPECT_EQ(driver.ForwardAppleEvent(&event, &reply), -1700);
    EXPECT_EQ(reply.descriptorType, static_cast<DescType>(typeNull));

    // An 'errn' of 0 is success with an empty reply.
    ASSERT_TRUE(Serve({"--aevt-reply", "errn", "--errn", "0"}));
    EXPECT_EQ(driver.ForwardAppleEvent(&event, &reply), noErr);
    EXPECT_EQ(reply.descriptorType, static_cast<DescType>(typeNull));

    // Bytes that are no descriptor; and no reply at all.
    ASSERT_TRUE(Serve({"--aevt-reply", "garbage"}));
    EXPECT_EQ(driver.ForwardAppleEvent(&event, &reply), errAECorruptData);
    EXPECT_EQ(reply.descriptorType, static_cast<DescType>(typeNull));
    ASSERT_TRUE(Serve({"--aevt-reply", "none"}));
    EXPECT_EQ(driver.ForwardAppleEvent(&event, &reply), noErr);
    EXPECT_EQ(reply.descriptorType, static_cast<DescType>(typeNull));

    AEDisposeDesc(&event);
}
} // namespace
