#include "Mac/TabletDriver/Source/Coordinator/CMacDriverInterface.h"

#include "Mac/Common/Communication/KelMessagingTestSupport.h"
#include "Mac/Common/Communication/KelTestDriverProcess.h"
#include "Mac/Common/Communication/MessageIDs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace messaging_test;

namespace
{
const std::string kDriverPort = "com.kelto.KeltoTabletDriverMessageServer";
constexpr std::uint32_t kLegacy = CMacDriverInterface::kMessagingTypeLegacy;
constexpr std::uint32_t kPacket = CMacDriverInterface::kMessagingTypeEventPacket;
constexpr std::uint32_t kUnknown = CMacDriverInterface::kMessagingTypeUnknown;
constexpr std::uint32_t kEndianness = kMessageIDEndianness;

CEventPacket CountRequest()
{
    CEventPacket packet;
    packet.SetCommand(ECommandGet);
    packet.AddKeyInt(EObjectIDDriver, 0, EAddrModeByIndex);
    packet.AddKeyInt(EParameterIDCount, EObjectIDTablet, EAddrModeByIndex);
    packet.PackData(2, "xx");
    return packet;
}

class CMacDriverInterfaceTests : public ::testing::Test
{
protected:
    CMacDriverInterfaceTests() : mName(KelTestMakeString(kDriverPort)) {}
    ~CMacDriverInterfaceTests() override { CFRelease(mName); }

    bool Serve(std::vector<std::string> arguments)
    {
        std::remove(mJournal.c_str());
        arguments.insert(arguments.end(), {"--journal", mJournal});
        return mDriver.Serve(kDriverPort, arguments);
    }

    KelTestPortDirectory mPortDirectory;
    std::string mJournal = mPortDirectory.File("journal");
    KelTestDriverProcess mDriver;
    CFStringRef mName;
};

TEST_F(CMacDriverInterfaceTests, MessagingTypeFollowsTheVersionThresholdOfEachDriver)
{
    const struct
    {
        std::uint32_t driverID;
        const char* version;
        std::uint32_t type;
    } cases[] = {
        {'KlKT', "6.1.1", kLegacy}, {'KlKT', "6.1.2", kPacket},     {'KlKT', "6.1.2a3", kPacket},
        {'KlKT', "5.9.9", kLegacy}, {'KlPT', "5.1.9", kLegacy},     {'KlPT', "5.2.0", kPacket},
        {'KlPT', "6.1.1", kPacket}, {0x3F3F3F3F, "9.9.9", kLegacy}, {'ABCD', "9.9.9", kLegacy},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.version + (" for " + std::to_string(c.driverID)));
        ASSERT_TRUE(Serve({"--version", c.version, "--answer", "0700"}));
        CMacDriverInterface driver;
        EXPECT_EQ(driver.GetMessagingType(), kUnknown);
        ASSERT_EQ(driver.Init(c.driverID, mName, false), KELSTATUS_SUCCESS);
        EXPECT_EQ(driver.GetDriverID(), c.driverID);
        CEventPacket packet = CountRequest();
        EXPECT_EQ(driver.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);
        EXPECT_EQ(driver.GetMessagingType(), c.type);
        EXPECT_EQ(DataOf(packet), std::string("\x07\x00", 2));

        // The byte order, the probe as a transit record, then the packet in its form.
        const auto journal = KelTestReadJournal(mJournal);
        EXPECT_EQ(KelTestJournalIDs(mJournal),
                  (std::vector<std::uint32_t>{kEndianness, 0, c.type}));
        ASSERT_GE(journal.size(), 2u);
        const Bytes& probe = journal[1].bytes;
        ASSERT_EQ(probe.size(), 136u + 5u);
        EXPECT_EQ(Read<std::uint16_t>(probe, 4), EObjectIDDriver);
        EXPECT_EQ(Read<std::uint16_t>(probe, 16), EParameterIDFileVersion);
        EXPECT_EQ(Read<std::uint32_t>(probe, 128), std::uint32_t(ECommandGet));
        EXPECT_EQ(Bytes(probe.begin() + 136, probe.end()), Bytes(5, 0));
    }
}

TEST_F(CMacDriverInterfaceTests, FailedProbeLeavesThePacketAndIsTriedAgainUntilOneAnswers)
{
    CMacDriverInterface driver;
    ASSERT_EQ(driver.Init('KlKT', mName, false), KELSTATUS_SUCCESS);
    CEventPacket packet = CountRequest();
    packet.SetStatus(0x1234);
    EXPECT_EQ(driver.SendKeltoEvent(&packet), KELSTATUS_FAILURE); // nobody there
    EXPECT_EQ(driver.GetMessagingType(), kUnknown);

    // The driver refuses the first probe, answers the second.
    ASSERT_TRUE(Serve({"--version", "6.1.2", "--probe-failures", "1", "--answer", "6869"}));
    EXPECT_EQ(driver.SendKeltoEvent(&packet), KELSTATUS_FAILURE);
    EXPECT_EQ(driver.GetMessagingType(), kUnknown);
    EXPECT_EQ(packet.Status(), 0x1234);
    EXPECT_EQ(DataOf(packet), "xx");
    EXPECT_EQ(driver.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(DataOf(packet), "hi");
    EXPECT_EQ(KelTestJournalIDs(mJournal),
              (std::vector<std::uint32_t>{kEndianness, 0, 0, kPacket}));

    // A restarted driver is reached again; what it speaks is not asked anew.
    ASSERT_TRUE(Serve({"--version", "1.0.0", "--answer", "6f6b"}));
    EXPECT_EQ(driver.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(DataOf(packet), "ok");
    EXPECT_EQ(KelTestJournalIDs(mJournal), (std::vector<std::uint32_t>{kPacket}));
}

TEST_F(CMacDriverInterfaceTests, DriversOfTheOtherByteOrderAreServedInTheirOrder)
{
    // A legacy driver: its records and return records are reversed, its data is not.
    ASSERT_TRUE(Serve({"--byte-order", "reversed", "--version", "6.0.0", "--status", "512"}));
    CMacDriverInterface legacy;
    ASSERT_EQ(legacy.Init('KlKT', mName, false), KELSTATUS_SUCCESS);
    CEventPacket packet = CountRequest();
    EXPECT_EQ(legacy.SendKeltoEvent(&packet), KELSTATUS_RESOURCE_MISSING);
    EXPECT_EQ(legacy.GetMessagingType(), kLegacy);
    EXPECT_EQ(packet.Status(), KELSTATUS_RESOURCE_MISSING);
    const auto journal = KelTestReadJournal(mJournal);
    ASSERT_EQ(journal.size(), 3u);
    EXPECT_EQ(Read<std::uint32_t>(journal[2].bytes, 120), __builtin_bswap32(2u));
    EXPECT_EQ(std::string(journal[2].bytes.begin() + 136, journal[2].bytes.end()), "xx");

    // A packet driver: its answers arrive reversed and are read all the same.
    ASSERT_TRUE(Serve({"--byte-order", "reversed", "--answer", "0102", "--status", "1539"}));
    CMacDriverInterface modern;
    ASSERT_EQ(modern.Init('KlKT', mName, false), KELSTATUS_SUCCESS);
    EXPECT_EQ(modern.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(modern.GetMessagingType(), kPacket);
    EXPECT_EQ(packet.Status(), KELSTATUS_METHOD_NOT_IMPLEMENTED);
    EXPECT_EQ(DataOf(packet), "\x01\x02");

    // A legacy send that gets no reply is done, and says its receipt disagrees.
    ASSERT_TRUE(Serve({"--transit-reply", "none"}));
    const Output output =
        Capture([&] { EXPECT_EQ(legacy.SendKeltoEvent(&packet), KELSTATUS_SUCCESS); });
    EXPECT_EQ(packet.Status(), KELSTATUS_SUCCESS);
    EXPECT_THAT(output.out,
                testing::HasSubstr("Mac/TabletDriver/Source/Coordinator/CMacDriverInterface:81: "
                                   "failed assertion: status == returnReceipt.wStatus\n"));
}

TEST_F(CMacDriverInterfaceTests, ForwardedAppleEventsAnswerWithTheReplyOrItsErrorNumber)
{
    AppleEvent event;
    ASSERT_EQ(AECreateAppleEvent('core', 'getd', nullptr, kAutoGenerateReturnID, kAnyTransactionID,
                                 &event),
              noErr);
    ASSERT_EQ(AEPutParamPtr(&event, keyDirectObject, typeChar, "hello", 5), noErr);
    AEDesc reply;
    AEInitializeDesc(&reply);
    CMacDriverInterface driver;
    EXPECT_EQ(driver.ForwardAppleEvent(&event, &reply), 513);
    ASSERT_EQ(driver.Init('KlKT', mName, false), KELSTATUS_SUCCESS);
    EXPECT_EQ(driver.ForwardAppleEvent(&event, &reply), paramErr);

    // The driver's reply event is handed over; its direct object is the request's.
    ASSERT_TRUE(Serve({}));
    ASSERT_EQ(driver.ForwardAppleEvent(&event, &reply), noErr);
    EXPECT_EQ(reply.descriptorType, DescType(typeAppleEvent));
    char text[8] = {};
    Size size = 0;
    DescType type = 0;
    EXPECT_EQ(AEGetParamPtr(&reply, keyDirectObject, typeChar, &type, text, sizeof(text), &size),
              noErr);
    EXPECT_EQ(std::string(text, static_cast<std::size_t>(size)), "hello");
    AEDisposeDesc(&reply);
    EXPECT_EQ(KelTestJournalIDs(mJournal),
              (std::vector<std::uint32_t>{std::uint32_t(kMessageIDAppleEvent)}));

    // An 'errn' first item is the result and nothing is handed over; so are bad replies.
    const struct
    {
        std::vector<std::string> script;
        OSStatus result;
    } cases[] = {
        {{"--aevt-reply", "errn", "--errn", "-1700"}, -1700},
        {{"--aevt-reply", "errn", "--errn", "0"}, noErr},
        {{"--aevt-reply", "garbage"}, errAECorruptData},
        {{"--aevt-reply", "none"}, noErr},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.script.back());
        ASSERT_TRUE(Serve(c.script));
        EXPECT_EQ(driver.ForwardAppleEvent(&event, &reply), c.result);
        EXPECT_EQ(reply.descriptorType, DescType(typeNull));
    }
    AEDisposeDesc(&event);
}
} // namespace
