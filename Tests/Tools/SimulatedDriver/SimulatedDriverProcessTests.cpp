// The simulated driver as a program: what it does with a configuration it cannot use, a
// port it cannot have, a bad command line, and a reload. (Its answers over real ports are
// what the coordinator's tests talk to.) And a driver holding a request still stops at once.
#include "Tests/Support/SimulatedDriverProcess.h"

#include "Mac/Common/Communication/CMacMessagingClient.h"
#include "Mac/Common/Communication/MessageIDs.h"

#include <gtest/gtest.h>

#include <memory>

namespace
{
const std::string kKeltoPort = "com.kelto.KeltoTabletDriverMessageServer";
const std::string kPenPort = "com.kelto.PenTabletDriverMessageServer";

std::string Config(const std::string& port, const std::string& more = "")
{
    return R"({"PortName": ")" + port + R"(", "Version": "6.3.0")" +
           (more.empty() ? "" : ", " + more) + "}";
}
} // namespace

TEST(SimulatedDriverProcess, ProgramExitsWithAReasonForBadInput)
{
    ScopedPortDirectory ports;
    SimulatedDriverProcess bad(ports.Path(),
                               Config(kKeltoPort, R"("Tablets": [{"SystemID": -1}])"));
    EXPECT_FALSE(bad.WaitUntilServed());
    EXPECT_EQ(bad.WaitForExit(std::chrono::seconds(5)), 1);
    EXPECT_EQ(bad.Log(), "simdriver: " + bad.ConfigPath() +
                             ": Tablets[0].SystemID: must be an integer from 0 to 65535, not -1\n");

    // A port that another driver serves cannot be taken.
    SimulatedDriverProcess first(ports.Path(), Config(kKeltoPort));
    ASSERT_TRUE(first.WaitUntilServed()) << first.Log();
    SimulatedDriverProcess second(ports.Path(), Config(kKeltoPort));
    EXPECT_EQ(second.WaitForExit(std::chrono::seconds(5)), 3);
    EXPECT_NE(second.Log().find("cannot serve port \"" + kKeltoPort + "\""), std::string::npos)
        << second.Log();
    EXPECT_TRUE(first.IsRunning());

    SSimulatedDriverOptions options;
    options.extraArguments = {"--frobnicate"};
    SimulatedDriverProcess usage(ports.Path(), Config(kPenPort), options);
    EXPECT_EQ(usage.WaitForExit(std::chrono::seconds(5)), 2);

    // A reload that the driver cannot use is refused and the running configuration kept.
    EXPECT_TRUE(first.Reload(Config(kKeltoPort, R"("Tablets": [{}])")));
    EXPECT_FALSE(first.Reload(R"({"PortName": ")" + kKeltoPort + R"(", "Version": 1})"));
    EXPECT_NE(first.Log().find("reload refused, configuration kept: "), std::string::npos);
    EXPECT_FALSE(first.Reload(Config(kPenPort)));
    EXPECT_NE(first.Log().find("PortName: cannot change"), std::string::npos);
    EXPECT_TRUE(first.IsRunning());
    EXPECT_EQ(first.Stop(), 0);
}

TEST(SimulatedDriverProcess, ADriverHoldingARequestStillStopsAtOnce)
{
    for (const std::string action : {"hang", "slow"})
    {
        SCOPED_TRACE(action);
        ScopedPortDirectory ports;
        SimulatedDriverProcess driver(ports.Path(),
                                      Config(kKeltoPort, R"("Faults": [{"Request": "byte-order",
                                          "Action": ")" + action +
                                                             R"(", "Milliseconds": 60000}])"));
        ASSERT_TRUE(driver.WaitUntilServed()) << driver.Log();
        std::unique_ptr<CMacMessagingClient> client;
        CFStringRef name =
            CFStringCreateWithCString(nullptr, kKeltoPort.c_str(), kCFStringEncodingUTF8);
        ASSERT_EQ(CMacMessagingClient::AllocateAndInitInstance(client, name, 2.0, 0.5, true),
                  KELSTATUS_SUCCESS);
        CFRelease(name);
        CFDataRef reply = nullptr;
        // Held: a receive time-out for the sender.
        EXPECT_EQ(client->SendRawRequest(kMessageIDEndianness, nullptr, &reply), KELSTATUS_FAILURE);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(driver.Stop(), 0);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
        EXPECT_NE(driver.Log().find(action == "hang" ? "fault: hang" : "stopped while slow"),
                  std::string::npos)
            << driver.Log();
    }
}
