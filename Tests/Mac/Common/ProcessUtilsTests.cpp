#include "Mac/Common/ProcessUtils.h"

#include <gtest/gtest.h>

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

} // namespace
