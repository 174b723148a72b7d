// The simulated driver as a process, reached through real message ports by the
// coordinator's own driver port (CMacDriverInterface) and messaging client: both byte
// orders, packet and legacy drivers, faults, reloads, and the program's exits.
#include "Tests/Support/SimulatedDriverProcess.h"

#include "Common/CEventPacket.h"
#include "Mac/Common/Communication/CMacMessagingClient.h"
#include "Mac/Common/Communication/MessageIDs.h"
#include "Mac/TabletDriver/Source/Coordinator/CMacDriverInterface.h"
#include "Tests/Tools/SimulatedDriver/SimDriverTestSupport.h"
#include "Tools/SimulatedDriver/ESimRequestKind.h"

#include <AE/AERegistry.h>

#include <gtest/gtest.h>

#include <csignal>

using namespace SimDriverTest;

namespace
{
const std::string kKeltoPort = "com.kelto.KeltoTabletDriverMessageServer";
const std::string kPenPort = "com.kelto.PenTabletDriverMessageServer";

std::string Config(const std::string& port, const std::string& version,
                   const std::string& more = "")
{
    return R"({"Name": "driver on )" + port + R"(", "PortName": ")" + port + R"(", "Version": ")" +
           version + R"(", "Tablets": [{"SystemID": 5}, {"SystemID": 7}])" +
           (more.empty() ? "" : ", " + more) + "}";
}

// The coordinator's port to one driver, as the coordinator makes it (connected on the first
// packet).
struct SDriverPort
{
    CMacDriverInterface port;
    SDriverPort(std::uint32_t driverID, const std::string& name)
    {
        CFStringRef portName =
            CFStringCreateWithCString(nullptr, name.c_str(), kCFStringEncodingUTF8);
        EXPECT_EQ(port.Init(driverID, portName, false), KELSTATUS_SUCCESS);
        CFRelease(portName);
    }
};

KELSTATUS Send(CMacDriverInterface& port, CEventPacket& packet)
{
    return port.SendKeltoEvent(&packet);
}

std::uint16_t GetSystemID(CMacDriverInterface& port, std::uint32_t index,
                          const std::vector<std::uint8_t>& room = {})
{
    CEventPacket packet;
    Build(packet, ECommandGet,
          {{EObjectIDDriver}, LocalTablet(index), {EParameterIDTabletSystemID}}, room);
    EXPECT_EQ(Send(port, packet), KELSTATUS_SUCCESS);
    return packet.UnPackData_<std::uint16_t>(0xEEEE);
}

KELSTATUS SetSystemID(CMacDriverInterface& port, std::uint32_t index, std::uint16_t id)
{
    CEventPacket packet;
    Build(packet, ECommandSet,
          {{EObjectIDDriver}, LocalTablet(index), {EParameterIDTabletSystemID}}, Bytes(id));
    return Send(port, packet);
}

std::uint16_t TabletCount(CMacDriverInterface& port)
{
    CEventPacket packet;
    Build(packet, ECommandGet,
          {{EObjectIDDriver}, {EParameterIDCount, EObjectIDTablet, EAddrModeByIndex}});
    EXPECT_EQ(Send(port, packet), KELSTATUS_SUCCESS);
    return packet.UnPackData_<std::uint16_t>(0xEEEE);
}

std::vector<std::uint8_t> TabletBlock(std::uint32_t records)
{
    std::vector<std::uint32_t> words = {16, 16, 0x00010001, records};
    for (std::uint32_t k = 0; k < records; ++k)
    {
        words.insert(words.end(), {k, 0, k, 0});
    }
    std::vector<std::uint8_t> bytes(words.size() * 4);
    std::memcpy(bytes.data(), words.data(), bytes.size());
    return bytes;
}

// A client of the coordinator's own kind with short time-outs, for faults.
std::unique_ptr<CMacMessagingClient> Client(const std::string& name, double receiveTimeout)
{
    std::unique_ptr<CMacMessagingClient> client;
    CFStringRef portName = CFStringCreateWithCString(nullptr, name.c_str(), kCFStringEncodingUTF8);
    EXPECT_EQ(
        CMacMessagingClient::AllocateAndInitInstance(client, portName, 2.0, receiveTimeout, true),
        KELSTATUS_SUCCESS);
    CFRelease(portName);
    return client;
}

// A request to the driver as raw bytes: a serialized packet.
CFDataRef PacketData(CEventPacket& packet)
{
    std::vector<std::uint8_t> block(packet.GetSerializedSize(nullptr));
    EXPECT_TRUE(packet.SerializeToBuffer(block.data(), block.size(), nullptr));
    return CFDataCreate(nullptr, block.data(), static_cast<CFIndex>(block.size()));
}
} // namespace

TEST(SimulatedDriverProcess, PacketDriverOfEitherByteOrderServesTheCoordinatorsPort)
{
    for (bool other : {false, true})
    {
        SCOPED_TRACE(other ? "other byte order" : "same byte order");
        ScopedPortDirectory ports;
        SimulatedDriverProcess driver(
            ports.Path(), Config(kKeltoPort, "6.3.0", other ? R"("ByteOrder": "other")" : ""));
        ASSERT_TRUE(driver.WaitUntilServed()) << driver.Log();

        SDriverPort coordinator('KlKT', kKeltoPort);
        EXPECT_EQ(GetSystemID(coordinator.port, 0), 5);
        // The probe went as a transit record, with the driver's order for its header, and
        // the version said packets.
        EXPECT_EQ(coordinator.port.GetMessagingType(),
                  CMacDriverInterface::kMessagingTypeEventPacket);
        EXPECT_EQ(coordinator.port.GetRemoteEndianness(), other ? 2 : 1);
        EXPECT_EQ(GetSystemID(coordinator.port, 2), 0xFFFF);

        ASSERT_EQ(SetSystemID(coordinator.port, 1, 1), KELSTATUS_SUCCESS);
        EXPECT_EQ(GetSystemID(coordinator.port, 1), 1);

        const std::vector<std::uint8_t> block = TabletBlock(2);
        CEventPacket packet;
        Build(packet, ECommandSet, {{EObjectIDDriver}, {EParameterIDTabletBlock}}, block);
        ASSERT_EQ(Send(coordinator.port, packet), KELSTATUS_SUCCESS);
        Build(packet, ECommandGet,
              {{EObjectIDDriver}, {EParameterIDSize, EParameterIDTabletBlock}});
        ASSERT_EQ(Send(coordinator.port, packet), KELSTATUS_SUCCESS);
        EXPECT_EQ(packet.UnPackData_<std::uint32_t>(0), 48u);
        Build(packet, ECommandGet, {{EObjectIDDriver}, {EParameterIDTabletBlock}});
        ASSERT_EQ(Send(coordinator.port, packet), KELSTATUS_SUCCESS);
        EXPECT_EQ(Data(packet), block);

        const std::string log = driver.Log();
        EXPECT_NE(log.find("0 get file-version -> status 0x0000"), std::string::npos) << log;
        EXPECT_NE(log.find("'KEPK' get system-id tablet #0 -> status 0x0000"), std::string::npos)
            << log;
        EXPECT_EQ(driver.Stop(), 0);
        EXPECT_NE(driver.Log().find("stopped"), std::string::npos);
    }
}

TEST(SimulatedDriverProcess, LegacyDriverOfEitherByteOrderAnswersInTransitRecords)
{
    for (bool other : {false, true})
    {
        SCOPED_TRACE(other ? "other byte order" : "same byte order");
        ScopedPortDirectory ports;
        SimulatedDriverProcess driver(
            ports.Path(), Config(kPenPort, "5.1.0", other ? R"("ByteOrder": "other")" : ""));
        ASSERT_TRUE(driver.WaitUntilServed()) << driver.Log();

        SDriverPort coordinator('KlPT', kPenPort);
        // With room for the answer the ID comes back; without room nothing does.
        EXPECT_EQ(GetSystemID(coordinator.port, 1, {0, 0}), 7);
        EXPECT_EQ(coordinator.port.GetMessagingType(), CMacDriverInterface::kMessagingTypeLegacy);
        EXPECT_EQ(GetSystemID(coordinator.port, 1), 0xEEEE);
        ASSERT_EQ(SetSystemID(coordinator.port, 1, 0x0203), KELSTATUS_SUCCESS);
        EXPECT_EQ(GetSystemID(coordinator.port, 1, {0, 0}), 0x0203);
        EXPECT_EQ(SetSystemID(coordinator.port, 5, 1), KELSTATUS_OBJECT_NOT_FOUND);

        // A packet sent anyway gets no reply data from a driver this old.
        std::unique_ptr<CMacMessagingClient> client = Client(kPenPort, 5.0);
        CEventPacket packet;
        Build(packet, ECommandGet, {{EObjectIDDriver}, {EParameterIDLastTabletUsed}});
        CFDataRef request = PacketData(packet);
        CFDataRef reply = nullptr;
        EXPECT_EQ(client->SendRawRequest(kMessageIDEventPacket, request, &reply),
                  KELSTATUS_SUCCESS);
        EXPECT_EQ(reply, nullptr);
        CFRelease(request);
        EXPECT_EQ(driver.Log().find("'KEPK' get system-id"), std::string::npos) << driver.Log();
    }
}

TEST(SimulatedDriverProcess, ReloadAddsATabletAndKeepsTheCoordinatorsIDs)
{
    ScopedPortDirectory ports;
    SimulatedDriverProcess driver(ports.Path(), Config(kKeltoPort, "6.3.0"));
    ASSERT_TRUE(driver.WaitUntilServed()) << driver.Log();
    SDriverPort coordinator('KlKT', kKeltoPort);
    EXPECT_EQ(TabletCount(coordinator.port), 2);
    ASSERT_EQ(SetSystemID(coordinator.port, 0, 0), KELSTATUS_SUCCESS);

    ASSERT_TRUE(driver.Reload(R"({"PortName": ")" + kKeltoPort + R"(", "Version": "6.3.0",
        "Tablets": [{"SystemID": 5}, {"SystemID": 7}, {"SystemID": 9}]})"))
        << driver.Log();
    EXPECT_EQ(TabletCount(coordinator.port), 3);
    EXPECT_EQ(GetSystemID(coordinator.port, 0), 0);
    EXPECT_EQ(GetSystemID(coordinator.port, 2), 9);

    // A broken file is refused and the running configuration kept.
    EXPECT_FALSE(driver.Reload(R"({"PortName": ")" + kKeltoPort + R"(", "Version": 1})"));
    EXPECT_NE(driver.Log().find("reload refused, configuration kept: "), std::string::npos);
    EXPECT_EQ(TabletCount(coordinator.port), 3);
    EXPECT_FALSE(driver.Reload(Config(kPenPort, "6.3.0")));
    EXPECT_NE(driver.Log().find("PortName: cannot change"), std::string::npos);
}

TEST(SimulatedDriverProcess, FaultsSlowEmptyHangAndExit)
{
    ScopedPortDirectory ports;
    SimulatedDriverProcess driver(ports.Path(), Config(kKeltoPort, "6.3.0", R"("Faults": [
            {"Request": "last-tablet-used", "Action": "slow", "Milliseconds": 300, "Times": 1},
            {"Request": "tablet-count", "Action": "empty", "Times": 1},
            {"Request": "byte-order", "Action": "hang", "Milliseconds": 60000}])"));
    ASSERT_TRUE(driver.WaitUntilServed()) << driver.Log();
    std::unique_ptr<CMacMessagingClient> client = Client(kKeltoPort, 1.0);
    CEventPacket packet;
    CFDataRef reply = nullptr;

    Build(packet, ECommandGet, {{EObjectIDDriver}, {EParameterIDLastTabletUsed}});
    CFDataRef request = PacketData(packet);
    auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(client->SendRawRequest(kMessageIDEventPacket, request, &reply), KELSTATUS_SUCCESS);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
    ASSERT_NE(reply, nullptr);
    CFRelease(reply);
    // Only the first one was slow.
    start = std::chrono::steady_clock::now();
    ASSERT_EQ(client->SendRawRequest(kMessageIDEventPacket, request, &reply), KELSTATUS_SUCCESS);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
    CFRelease(reply);
    CFRelease(request);

    Build(packet, ECommandGet,
          {{EObjectIDDriver}, {EParameterIDCount, EObjectIDTablet, EAddrModeByIndex}});
    request = PacketData(packet);
    reply = reinterpret_cast<CFDataRef>(1);
    ASSERT_EQ(client->SendRawRequest(kMessageIDEventPacket, request, &reply), KELSTATUS_SUCCESS);
    EXPECT_EQ(reply, nullptr) << "an empty reply";
    CFRelease(request);

    // A hang is a receive time-out for the sender, and the driver still stops at once.
    EXPECT_EQ(client->SendRawRequest(kMessageIDEndianness, nullptr, &reply), KELSTATUS_FAILURE);
    EXPECT_TRUE(driver.IsRunning());

    start = std::chrono::steady_clock::now();
    EXPECT_EQ(driver.Stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));

    // The exit fault ends the process in the middle of the request.
    SimulatedDriverProcess again(
        ports.Path(), Config(kKeltoPort, "6.3.0", R"("Faults": [{"Request": "tablet-block",
            "Command": "Set", "Action": "exit", "ExitCode": 9}])"));
    ASSERT_TRUE(again.WaitUntilServed()) << again.Log();
    SDriverPort coordinator('KlKT', kKeltoPort);
    Build(packet, ECommandSet, {{EObjectIDDriver}, {EParameterIDTabletBlock}}, TabletBlock(0));
    EXPECT_EQ(Send(coordinator.port, packet), KELSTATUS_FAILURE);
    EXPECT_EQ(again.WaitForExit(std::chrono::seconds(5)), 9);
    EXPECT_NE(again.Log().find("fault: exit 9"), std::string::npos);
}

TEST(SimulatedDriverProcess, AppleEventsComeBackWithTheDriversAnswer)
{
    ScopedPortDirectory ports;
    SimulatedDriverProcess kelto(ports.Path(), Config(kKeltoPort, "6.3.0"));
    SimulatedDriverProcess pen(ports.Path(),
                               Config(kPenPort, "5.3.0", R"("AppleEvents": {"ErrorNumber": 513})"));
    ASSERT_TRUE(kelto.WaitUntilServed()) << kelto.Log();
    ASSERT_TRUE(pen.WaitUntilServed()) << pen.Log();

    AppleEvent event;
    ASSERT_EQ(AECreateAppleEvent(kAECoreSuite, kAEGetData, nullptr, kAutoGenerateReturnID,
                                 kAnyTransactionID, &event),
              noErr);
    SDriverPort toKelto('KlKT', kKeltoPort);
    AEDesc reply;
    AEInitializeDesc(&reply);
    ASSERT_EQ(toKelto.port.ForwardAppleEvent(&event, &reply), noErr);
    char name[128] = {};
    Size size = 0;
    ASSERT_EQ(AEGetParamPtr(&reply, keyDirectObject, typeUTF8Text, nullptr, name, sizeof(name) - 1,
                            &size),
              noErr);
    EXPECT_EQ(std::string(name, static_cast<size_t>(size)), "driver on " + kKeltoPort);
    AEDisposeDesc(&reply);

    SDriverPort toPen('KlPT', kPenPort);
    AEInitializeDesc(&reply);
    EXPECT_EQ(toPen.port.ForwardAppleEvent(&event, &reply), 513);
    AEDisposeDesc(&reply);
    AEDisposeDesc(&event);
    EXPECT_NE(pen.Log().find("'AEVT' apple event -> core/getd, errn 513"), std::string::npos)
        << pen.Log();
}

TEST(SimulatedDriverProcess, ProgramExitsWithAReasonForBadInput)
{
    ScopedPortDirectory ports;
    SimulatedDriverProcess bad(ports.Path(),
                               Config(kKeltoPort, "6.3.0", R"("Tablets": [{"SystemID": -1}])"));
    EXPECT_FALSE(bad.WaitUntilServed());
    EXPECT_EQ(bad.WaitForExit(std::chrono::seconds(5)), 1);
    EXPECT_EQ(bad.Log(), "simdriver: " + bad.ConfigPath() +
                             ": Tablets[0].SystemID: must be an integer from 0 to 65535, not -1\n");

    // A port that another driver serves cannot be taken.
    SimulatedDriverProcess first(ports.Path(), Config(kKeltoPort, "6.3.0"));
    ASSERT_TRUE(first.WaitUntilServed()) << first.Log();
    SimulatedDriverProcess second(ports.Path(), Config(kKeltoPort, "6.3.0"));
    EXPECT_EQ(second.WaitForExit(std::chrono::seconds(5)), 3);
    EXPECT_NE(second.Log().find("cannot serve port \"" + kKeltoPort + "\""), std::string::npos)
        << second.Log();
    EXPECT_TRUE(first.IsRunning());

    SSimulatedDriverOptions options;
    options.extraArguments = {"--frobnicate"};
    SimulatedDriverProcess usage(ports.Path(), Config(kPenPort, "5.3.0"), options);
    EXPECT_EQ(usage.WaitForExit(std::chrono::seconds(5)), 2);
}

TEST(SimulatedDriverProcess, HelpIsTheManualOfEveryRequestAndKey)
{
    ScopedPortDirectory ports;
    SSimulatedDriverOptions options;
    options.extraArguments = {"--help"};
    SimulatedDriverProcess help(ports.Path(), "{}", options);
    ASSERT_EQ(help.WaitForExit(std::chrono::seconds(5)), 0);
    const std::string text = help.Log();
    for (const char* word :
         {"SYNOPSIS",     "SIGUSR1",           "KELTO_PORT_DIR", "'ENDI'",
          "'AEVT'",       "PortName",          "Version",        "PacketMessaging",
          "ByteOrder",    "EndiannessReply",   "Tablets",        "SystemID",
          "Model",        "TouchCapabilities", "LastTabletUsed", "LastTabletUsedTimestamp",
          "CountByIndex", "CountByID",         "CreateStatus",   "IndexStatus",
          "AppleEvents",  "ErrorNumber",       "Faults",         "Request",
          "Action",       "Milliseconds",      "Skip",           "Times",
          "ExitCode",     "EXIT STATUS"})
    {
        EXPECT_NE(text.find(word), std::string::npos) << word;
    }
    for (const char* kind :
         {"file-version", "system-id", "touch-capabilities", "tablet-block-size", "tablet-block",
          "tablet-count", "last-tablet-used-timestamp", "touch-client", "create", "index",
          "destroy-tablet", "byte-order", "apple-event"})
    {
        EXPECT_NE(text.find(kind), std::string::npos) << kind;
    }
}
