// tabletctl against the real coordinator and two simulated drivers, where a transcript
// (system.transcript) cannot go: listen across a restart of the coordinator and SIGINT, and
// sync on a terminal.
#include "Tests/Support/CoordinatorWithDrivers.h"
#include "Tests/Tools/tabletctl/TabletctlRunner.h"

#include <gtest/gtest.h>

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

    CoordinatorWithDrivers mSystem;
};
} // namespace

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
