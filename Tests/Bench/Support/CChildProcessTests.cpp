#include "Bench/Support/CChildProcess.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <unistd.h>

namespace
{
std::string ReadFile(const std::string& path)
{
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string ScratchFile(const char* name)
{
    return (std::filesystem::path(testing::TempDir()) / (std::to_string(getpid()) + "_" + name))
        .string();
}
} // namespace

TEST(CChildProcessTests, ForkedBodyEndsWithItsResultAndIsStoppedByPid)
{
    auto finished = CChildProcess::Fork([] { return 7; });
    ASSERT_TRUE(finished);
    EXPECT_EQ(finished->WaitForExit(std::chrono::seconds(10)), 7);
    EXPECT_EQ(finished->Stop(), 7);
    EXPECT_FALSE(finished->IsRunning());
    EXPECT_EQ(finished->Stop(), 7); // stopping again changes nothing

    auto waiting = CChildProcess::Fork(
        []
        {
            pause();
            return 0;
        });
    ASSERT_TRUE(waiting);
    EXPECT_TRUE(waiting->IsRunning());
    EXPECT_EQ(waiting->WaitForExit(std::chrono::milliseconds(20)), std::nullopt);
    const pid_t pid = waiting->Pid();
    EXPECT_EQ(waiting->Stop(), 128 + SIGTERM);
    EXPECT_NE(kill(pid, 0), 0) << "the process is gone and reaped";

    // One that ignores SIGTERM is killed after the grace time.
    auto stubborn = CChildProcess::Fork(
        []
        {
            signal(SIGTERM, SIG_IGN);
            for (;;)
            {
                pause();
            }
            return 0;
        });
    ASSERT_TRUE(stubborn);
    usleep(50'000); // let it ignore SIGTERM first
    EXPECT_EQ(stubborn->Stop(std::chrono::milliseconds(100)), 128 + SIGKILL);
}

TEST(CChildProcessTests, SpawnedProgramSeesTheGivenEnvironmentAndWritesItsLog)
{
    const std::string log = ScratchFile("spawn.log");
    std::filesystem::remove(log);
    setenv("KEL_BENCH_KEPT", "kept", 1);
    setenv("KEL_BENCH_REPLACED", "old", 1);
    auto shell = CChildProcess::Spawn(
        {"/bin/sh", "-c",
         "echo $KEL_BENCH_KEPT $KEL_BENCH_REPLACED $KEL_BENCH_ADDED; echo err >&2"},
        {"KEL_BENCH_REPLACED=new", "KEL_BENCH_ADDED=added"}, log);
    ASSERT_TRUE(shell);
    EXPECT_EQ(shell->WaitForExit(std::chrono::seconds(10)), 0);
    EXPECT_EQ(ReadFile(log), "kept new added\nerr\n");
    unsetenv("KEL_BENCH_KEPT");
    unsetenv("KEL_BENCH_REPLACED");
    std::filesystem::remove(log);

    auto missing = CChildProcess::Spawn({"/nonexistent/program"}, {}, "");
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->WaitForExit(std::chrono::seconds(10)), 127);
    EXPECT_FALSE(CChildProcess::Spawn({}, {}, ""));
}
