#include "Mac/Common/ProcessUtils.h"

#include "Tests/Support/SimulatedDriverProcess.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <sys/prctl.h>
#include <unistd.h>

namespace
{
pid_t PidOf(const ProcessSerialNumber& psn)
{
    pid_t pid = -1;
    GetProcessPID(&psn, &pid);
    return pid;
}

std::string UniqueName(const char* stem)
{
    return stem + std::to_string(getpid() % 100000);
}

TEST(ProcessUtilsTests, CallingProcessIsFoundOnlyWhenAskedFor)
{
    char saved[17] = {};
    prctl(PR_GET_NAME, saved);
    std::string name = UniqueName("kelSelf");
    prctl(PR_SET_NAME, name.c_str());
    ProcessSerialNumber others = ProcessUtils::GetPSNForProcessWithName(name, false);
    ProcessSerialNumber any = ProcessUtils::GetPSNForProcessWithName(name, true);
    prctl(PR_SET_NAME, saved);

    EXPECT_TRUE(ProcessUtils::PSNIsNoProcess(others));
    EXPECT_EQ(PidOf(any), getpid());
}

TEST(ProcessUtilsTests, LongProgramNamesAreMatchedWhole)
{
    ScopedPortDirectory scratch;
    const std::string name = UniqueName("kelProcessUtilsLongName"); // beyond the kernel's 15
    const std::string link = scratch.Path() + "/" + name;
    std::filesystem::create_symlink("/bin/sleep", link);
    TestProcess process({link, "30"}, scratch.Path() + "/log");
    ASSERT_TRUE(process.Started());
    ASSERT_TRUE(RunsAs(process.Pid(), name));
    EXPECT_EQ(PidOf(ProcessUtils::GetPSNForProcessWithName(name, false)), process.Pid());
    EXPECT_TRUE(ProcessUtils::PSNIsNoProcess(
        ProcessUtils::GetPSNForProcessWithName(name.substr(0, 15), false)));
}
} // namespace
