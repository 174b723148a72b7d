// tabletctl against the real coordinator and two simulated drivers: what each command
// prints, in text and in JSON, and its exit status when something fails.
#include "Tests/Support/CoordinatorWithDrivers.h"
#include "Tests/Tools/tabletctl/TabletctlRunner.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>

using tabletctl_test::ReadFile;
using tabletctl_test::RunTabletctl;
using tabletctl_test::SRun;

extern char** environ;

namespace
{
class TabletctlEndToEnd : public testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(mSystem.Start()) << mSystem.Problem(); }

    // The JSON document a successful run printed.
    static nlohmann::json JSONOf(const std::string& arguments)
    {
        SRun run = RunTabletctl("--json " + arguments);
        EXPECT_EQ(run.status, 0) << arguments << ": " << run.err;
        return nlohmann::json::parse(run.out, nullptr, false);
    }

    CoordinatorWithDrivers mSystem;
};

// The text of the capabilities of the example Kelto tablet, as both commands print them.
const char* kKeltoCapabilities = "  Device 0\n"
                                 "    MultiTouchDeviceID: 0\n"
                                 "    MultiTouchDeviceName: Kelto Pro M\n"
                                 "    MultiTouchLogicalHeight: 9200\n"
                                 "    MultiTouchLogicalWidth: 14720\n"
                                 "    MultiTouchMaxFingers: 10\n"
                                 "    MultiTouchPhysicalHeight: 140\n"
                                 "    MultiTouchPhysicalWidth: 224\n";
} // namespace

TEST_F(TabletctlEndToEnd, TextForPeople)
{
    struct SCase
    {
        const char* arguments;
        std::string out;
    };
    const SCase cases[] = {
        {"count", "Tablets: 2\n"},
        {"count --by-id", "Tablets with a system ID, as the drivers count them: 2\n"},
        {"tablets", "Tablets: 2\n"
                    "  System ID  Driver     Index  Last used  Model        Serial number\n"
                    "          0  0 Kelto        0  yes        Kelto Pro M  8KPM01234\n"
                    "          1  1 Pen          0             Kelto Pen S\n"},
        {"last-tablet", "Last tablet used: 0\n"},
        {"touch-api 1", "Multi-touch API answer: 3\n"},
        {"capabilities", std::string("Touch capabilities of 1 tablet:\n") + kKeltoCapabilities},
        {"raw get Driver Count=Tablet", "Status: KELSTATUS_SUCCESS (0x0000)\n"
                                        "Data: 2 bytes: 02 00\n"
                                        "Value (u16): 2\n"},
        {"ae count", "Tablets: 2\n"},
        {"sync", "The coordinator synchronised its tablet table with the drivers.\n"},
        {"listen --identifier com.example.cli --sync --count 1 --seconds 10",
         std::string("Registered as touch client com.example.cli; waiting for capabilities.\n"
                     "Touch capabilities received for 1 tablet:\n") +
             kKeltoCapabilities + "Received 1 delivery.\n"},
    };
    for (const SCase& c : cases)
    {
        SRun run = RunTabletctl(c.arguments);
        EXPECT_EQ(run.status, 0) << c.arguments << ": " << run.err;
        EXPECT_EQ(run.out, c.out) << c.arguments;
    }
    SRun version = RunTabletctl("version");
    EXPECT_EQ(version.status, 0);
    EXPECT_TRUE(version.out.starts_with("Protocol version: ")) << version.out;
}

TEST_F(TabletctlEndToEnd, JSONForPrograms)
{
    EXPECT_EQ(JSONOf("count"), nlohmann::json::parse(R"({"tablets": 2, "byID": false})"));
    nlohmann::json tablets = JSONOf("tablets");
    ASSERT_EQ(tablets["tablets"].size(), 2u);
    EXPECT_EQ(tablets["tablets"][1],
              nlohmann::json::parse(R"({"systemID": 1, "driverID": 1, "driver": "Pen",
                                        "index": 0, "lastUsed": false,
                                        "model": "Kelto Pen S", "serialNumber": null})"));
    EXPECT_EQ(tablets["lastTabletUsed"], 0);
    EXPECT_TRUE(JSONOf("version")["protocolVersion"].is_number_integer());
    EXPECT_EQ(JSONOf("capabilities")["capabilities"][0]["MultiTouchDeviceName"], "Kelto Pro M");
    EXPECT_EQ(JSONOf("touch-api 9")["answer"], 2);
    nlohmann::json raw = JSONOf("raw get MultiTouchAPI 508 --data integer:0");
    EXPECT_EQ(raw["statusName"], "KELSTATUS_SUCCESS");
    EXPECT_EQ(raw["type"], "settings");
    EXPECT_EQ(raw["value"], 3);
    nlohmann::json event = JSONOf("ae send Kelm KSnd");
    EXPECT_EQ(event["result"], 0);
    EXPECT_EQ(event["reply"]["parameters"][0]["value"], "Kelto tablet driver (simulated)");

    // listen: one document per line, per delivery.
    SRun listen = RunTabletctl("--json listen --sync --count 1 --seconds 10");
    ASSERT_EQ(listen.status, 0) << listen.err;
    ASSERT_EQ(std::count(listen.out.begin(), listen.out.end(), '\n'), 1);
    nlohmann::json delivery = nlohmann::json::parse(listen.out);
    EXPECT_EQ(delivery["delivery"], 1);
    EXPECT_EQ(delivery["capabilities"][0]["MultiTouchMaxFingers"], 10);
}

TEST_F(TabletctlEndToEnd, FailuresGiveOneLineAndAStatus)
{
    // A request no driver takes: the status of the reply is named.
    SRun run = RunTabletctl("raw get Driver Tablet@ByID=7 TabletMultiTouchCapabilities");
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(run.err.starts_with("tabletctl: the request failed: KELSTATUS_")) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;

    // No delivery in time.
    run = RunTabletctl("listen --count 1 --seconds 0.5");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "tabletctl: only 0 of 1 deliveries arrived\n");

    // No driver reports a tablet used: the last-used Apple Event finds no driver.
    const std::string quiet = R"("LastTabletUsedTimestamp": 0)";
    std::string kelto = CoordinatorWithDrivers::Example("kelto-driver.json");
    std::string pen = CoordinatorWithDrivers::Example("pen-driver.json");
    kelto.replace(kelto.find(R"("LastTabletUsedTimestamp": 1200)"), 31, quiet);
    pen.replace(pen.find(R"("LastTabletUsedTimestamp": 800)"), 30, quiet);
    ASSERT_TRUE(mSystem.Driver(0)->Reload(kelto)) << mSystem.Driver(0)->Log();
    ASSERT_TRUE(mSystem.Driver(1)->Reload(pen)) << mSystem.Driver(1)->Log();
    run = RunTabletctl("ae send Kelm KSnd");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "Result: -1728 (errAENoSuchObject)\n"
                       "Reply 'aevt'/'ansr'\n"
                       "  'errn' 'long' -1728\n");
    EXPECT_EQ(run.err, "tabletctl: the Apple Event failed: Apple Event error -1728 "
                       "(errAENoSuchObject)\n");
}

TEST_F(TabletctlEndToEnd, ListenEndsOnSIGINTAndQuitEndsTheCoordinator)
{
    const std::string out = mSystem.PortDirectory() + "/listen.out";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    std::string program = KEL_TEST_BINARY_DIR "/Tools/tabletctl/tabletctl";
    std::string command = "listen";
    char* argv[] = {program.data(), command.data(), nullptr};
    pid_t pid = -1;
    ASSERT_EQ(posix_spawn(&pid, program.c_str(), &actions, nullptr, argv, environ), 0);
    posix_spawn_file_actions_destroy(&actions);

    auto waitFor = [](const std::function<bool()>& done)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!done() && std::chrono::steady_clock::now() < deadline)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return done();
    };
    EXPECT_TRUE(waitFor([&] { return ReadFile(out).find("Registered") != std::string::npos; }));
    // Registered: a synchronisation now reaches it.
    EXPECT_EQ(RunTabletctl("sync").status, 0);
    EXPECT_TRUE(waitFor([&] { return ReadFile(out).find("Device 0") != std::string::npos; }));

    // The coordinator restarts: the client registers again and keeps receiving.
    EXPECT_EQ(mSystem.Coordinator().Stop(), 0);
    EXPECT_TRUE(waitFor([&] { return ReadFile(out).find("went away") != std::string::npos; }));
    ASSERT_TRUE(mSystem.StartCoordinator()) << mSystem.Problem();
    EXPECT_TRUE(
        waitFor([&] { return ReadFile(out).find("coordinator is back") != std::string::npos; }))
        << ReadFile(out);
    EXPECT_EQ(RunTabletctl("sync").status, 0);
    auto devices = [&]
    {
        const std::string text = ReadFile(out);
        size_t count = 0;
        for (size_t at = text.find("Device 0"); at != std::string::npos;
             at = text.find("Device 0", at + 1))
        {
            ++count;
        }
        return count;
    };
    EXPECT_TRUE(waitFor([&] { return devices() == 2; })) << ReadFile(out);
    kill(pid, SIGINT);
    int status = -1;
    bool reaped = false;
    EXPECT_TRUE(waitFor([&] { return reaped = reaped || waitpid(pid, &status, WNOHANG) == pid; }));
    if (!reaped)
    {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_TRUE(ReadFile(out).ends_with("Received 2 deliveries.\n")) << ReadFile(out);

    // On a terminal, sync shows what it is doing on a line it erases again.
    std::string terminal;
    if (FILE* pipe = popen("timeout -s KILL 60 script -qec '" KEL_TEST_BINARY_DIR
                           "/Tools/tabletctl/tabletctl sync' /dev/null",
                           "r"))
    {
        char chunk[256];
        for (size_t got; (got = fread(chunk, 1, sizeof chunk, pipe)) > 0;)
        {
            terminal.append(chunk, got);
        }
        pclose(pipe);
    }
    EXPECT_EQ(terminal, "\rSynchronising the tablet table with the drivers...\033[K\r\033[K"
                        "The coordinator synchronised its tablet table with the drivers.\r\n");

    SRun quit = RunTabletctl("quit --wait 10");
    EXPECT_EQ(quit.status, 0) << quit.err;
    EXPECT_EQ(quit.out, "The coordinator has quit.\n");
    // Not only its port: the process has ended (its parent, this test, has yet to reap it).
    std::ifstream stat("/proc/" + std::to_string(mSystem.Coordinator().Pid()) + "/stat");
    std::string state;
    std::getline(stat, state);
    EXPECT_TRUE(state.empty() || state.find(") Z ") != std::string::npos) << state;
    EXPECT_EQ(mSystem.Coordinator().WaitForExit(CoordinatorWithDrivers::kSeconds), 0);
    EXPECT_EQ(RunTabletctl("count").status, 3);
}
