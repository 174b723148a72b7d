#include "Mac/TabletDriver/Source/Coordinator/CMacDriverInterface.h"

#include "Mac/Common/Communication/KelMessagingTestSupport.h"
#include "Mac/Common/Communication/MessageIDs.h"
#include "Tests/Support/SimulatedDriverProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <sstream>

using namespace messaging_test;

namespace
{
const std::string kDriverPort = "com.kelto.KeltoTabletDriverMessageServer";
constexpr std::uint32_t kLegacy = CMacDriverInterface::kMessagingTypeLegacy;
constexpr std::uint32_t kPacket = CMacDriverInterface::kMessagingTypeEventPacket;
constexpr std::uint32_t kUnknown = CMacDriverInterface::kMessagingTypeUnknown;
// A count the simulated driver answers with its one tablet, in our byte order.
const std::string kOneTablet("\x01\x00", 2);

CEventPacket CountRequest()
{
    CEventPacket packet;
    packet.SetCommand(ECommandGet);
    packet.AddKeyInt(EObjectIDDriver, 0, EAddrModeByIndex);
    packet.AddKeyInt(EParameterIDCount, EObjectIDTablet, EAddrModeByIndex);
    packet.PackData(2, "xx");
    return packet;
}

// A request about a tablet the driver does not have: answered KELSTATUS_OBJECT_NOT_FOUND.
CEventPacket MissingTabletRequest()
{
    CEventPacket packet;
    packet.SetCommand(ECommandGet);
    packet.AddKeyInt(EObjectIDTablet, 5, EAddrModeByID);
    packet.AddKeyInt(EParameterIDName, 0, EAddrModeByIndex);
    packet.PackData(2, "xx");
    return packet;
}

class CMacDriverInterfaceTests : public ::testing::Test
{
protected:
    CMacDriverInterfaceTests() : mName(MakeString(kDriverPort)) {}
    ~CMacDriverInterfaceTests() override { CFRelease(mName); }

    // A simulated driver with one tablet on the Kelto port; `members` are added to its
    // configuration.
    void Serve(const std::string& members)
    {
        mDriver.reset();
        mDriver.emplace(mPorts.Path(), R"({"Name": "Kelto", "PortName": ")" + kDriverPort +
                                           R"(", "Tablets": [{}], )" + members + "}");
        ASSERT_TRUE(mDriver->WaitUntilServed()) << mDriver->Log();
    }

    // The message IDs of the requests the driver served, as its trace names them.
    std::vector<std::string> Requests() const
    {
        std::vector<std::string> ids;
        std::istringstream log(mDriver->Log());
        for (std::string line; std::getline(log, line);)
        {
            const auto at = line.find("]: ");
            if (at != std::string::npos && line.find(" -> ") != std::string::npos)
            {
                ids.push_back(line.substr(at + 3, line.find(' ', at + 3) - at - 3));
            }
        }
        return ids;
    }

    ScopedPortDirectory mPorts;
    std::optional<SimulatedDriverProcess> mDriver;
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
        Serve(R"("PacketMessaging": true, "Version": ")" + std::string(c.version) + "\"");
        CMacDriverInterface driver;
        EXPECT_EQ(driver.GetMessagingType(), kUnknown);
        ASSERT_EQ(driver.Init(c.driverID, mName, false), KELSTATUS_SUCCESS);
        EXPECT_EQ(driver.GetDriverID(), c.driverID);
        CEventPacket packet = CountRequest();
        EXPECT_EQ(driver.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);
        EXPECT_EQ(driver.GetMessagingType(), c.type);
        EXPECT_EQ(DataOf(packet), kOneTablet);
        // The byte order, the version probe as a transit record, then the packet in its form.
        EXPECT_EQ(Requests(),
                  (std::vector<std::string>{"'ENDI'", "0", c.type == kPacket ? "'KEPK'" : "0"}));
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

    // The driver ends on the probe; the next one answers it.
    Serve(R"("Version": "6.1.2", "Faults": [{"Request": "file-version", "Action": "exit"}])");
    EXPECT_EQ(driver.SendKeltoEvent(&packet), KELSTATUS_FAILURE);
    EXPECT_EQ(driver.GetMessagingType(), kUnknown);
    EXPECT_EQ(packet.Status(), 0x1234);
    EXPECT_EQ(DataOf(packet), "xx");
    Serve(R"("Version": "6.1.2")");
    EXPECT_EQ(driver.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(DataOf(packet), kOneTablet);
    EXPECT_EQ(Requests(), (std::vector<std::string>{"0", "'KEPK'"}));

    // A restarted driver is reached again; what it speaks is not asked anew.
    Serve(R"("Version": "1.0.0", "PacketMessaging": true)");
    EXPECT_EQ(driver.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(DataOf(packet), kOneTablet);
    EXPECT_EQ(Requests(), (std::vector<std::string>{"'KEPK'"}));
}

TEST_F(CMacDriverInterfaceTests, DriversOfTheOtherByteOrderAreServedInTheirOrder)
{
    // Their statuses and record fields come reversed; the data never is.
    for (const char* version : {"6.0.0", "6.3.0"})
    {
        SCOPED_TRACE(version);
        Serve(R"("ByteOrder": "other", "Version": ")" + std::string(version) + "\"");
        CMacDriverInterface driver;
        ASSERT_EQ(driver.Init('KlKT', mName, false), KELSTATUS_SUCCESS);
        CEventPacket packet = CountRequest();
        EXPECT_EQ(driver.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);
        const bool legacy = version[2] == '0';
        EXPECT_EQ(driver.GetMessagingType(), legacy ? kLegacy : kPacket);
        EXPECT_EQ(DataOf(packet), kOneTablet);
        // A record's status is the send's result; a packet's travels in the packet.
        packet = MissingTabletRequest();
        EXPECT_EQ(driver.SendKeltoEvent(&packet),
                  legacy ? KELSTATUS_OBJECT_NOT_FOUND : KELSTATUS_SUCCESS);
        EXPECT_EQ(packet.Status(), KELSTATUS_OBJECT_NOT_FOUND);
    }

    // A legacy send that gets no reply is done, and says its receipt disagrees.
    Serve(R"("Version": "6.0.0", "Faults": [{"Request": "tablet-count", "Action": "empty"}])");
    CMacDriverInterface legacy;
    ASSERT_EQ(legacy.Init('KlKT', mName, false), KELSTATUS_SUCCESS);
    CEventPacket packet = CountRequest();
    const Output output =
        Capture([&] { EXPECT_EQ(legacy.SendKeltoEvent(&packet), KELSTATUS_SUCCESS); });
    EXPECT_EQ(legacy.GetMessagingType(), kLegacy);
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

    // The driver's reply event is handed over; its direct object names the driver.
    Serve(R"("Version": "6.3.0")");
    ASSERT_EQ(driver.ForwardAppleEvent(&event, &reply), noErr);
    EXPECT_EQ(reply.descriptorType, DescType(typeAppleEvent));
    char text[8] = {};
    Size size = 0;
    DescType type = 0;
    EXPECT_EQ(
        AEGetParamPtr(&reply, keyDirectObject, typeUTF8Text, &type, text, sizeof(text), &size),
        noErr);
    EXPECT_EQ(std::string(text, static_cast<std::size_t>(size)), "Kelto");
    AEDisposeDesc(&reply);
    EXPECT_EQ(Requests(), (std::vector<std::string>{"'AEVT'"}));

    // An 'errn' first item is the result and nothing is handed over; so are bad replies.
    const struct
    {
        const char* appleEvents;
        OSStatus result;
    } cases[] = {
        {R"({"ErrorNumber": -1700})", -1700},
        {R"({"ErrorNumber": 0})", noErr},
        {R"({"Reply": false})", noErr},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.appleEvents);
        Serve(R"("Version": "6.3.0", "AppleEvents": )" + std::string(c.appleEvents));
        EXPECT_EQ(driver.ForwardAppleEvent(&event, &reply), c.result);
        EXPECT_EQ(reply.descriptorType, DescType(typeNull));
    }
    mDriver.reset();
    {
        ScriptedPeer garbage(kDriverPort,
                             [](SInt32, const Bytes&) {
                                 return std::optional<Bytes>({'x', 'y'});
                             });
        EXPECT_EQ(driver.ForwardAppleEvent(&event, &reply), errAECorruptData);
        EXPECT_EQ(reply.descriptorType, DescType(typeNull));
    }
    AEDisposeDesc(&event);
}
} // namespace
