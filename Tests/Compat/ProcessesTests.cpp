#include <ApplicationServices/ApplicationServices.h>

#include <gtest/gtest.h>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
// The serial number of a process, found as the coordinator finds processes: by the list.
bool FindProcess(pid_t wanted, ProcessSerialNumber& psn)
{
    psn = {0, kNoProcess};
    while (GetNextProcess(&psn) == noErr)
    {
        pid_t pid = 0;
        if (GetProcessPID(&psn, &pid) == noErr && pid == wanted)
        {
            return true;
        }
    }
    return false;
}

TEST(ProcessesTests, ListRunsInAscendingOrderAndEndsWithNoProcess)
{
    ProcessSerialNumber psn = {0, kNoProcess};
    pid_t last = 0;
    bool sawSelf = false;
    int count = 0;
    OSErr err;
    while ((err = GetNextProcess(&psn)) == noErr)
    {
        pid_t pid = 0;
        ASSERT_EQ(GetProcessPID(&psn, &pid), noErr);
        EXPECT_GT(pid, last);
        last = pid;
        sawSelf = sawSelf || pid == getpid();
        ASSERT_LT(++count, 100000);
    }
    EXPECT_EQ(err, procNotFound);
    EXPECT_EQ(psn.highLongOfPSN, 0u);
    EXPECT_EQ(psn.lowLongOfPSN, UInt32(kNoProcess));
    EXPECT_TRUE(sawSelf);
}

TEST(ProcessesTests, CurrentProcessConstantAndSerialNumberAreTheSameProcess)
{
    ProcessSerialNumber current;
    ASSERT_EQ(GetCurrentProcess(&current), noErr);
    ProcessSerialNumber constant = {0, kCurrentProcess};
    ProcessSerialNumber byPid;
    ASSERT_TRUE(FindProcess(getpid(), byPid));
    Boolean same = false;
    EXPECT_EQ(SameProcess(&current, &constant, &same), noErr);
    EXPECT_TRUE(same);
    EXPECT_EQ(SameProcess(&byPid, &constant, &same), noErr);
    EXPECT_TRUE(same);
    ProcessSerialNumber none = {0, kNoProcess};
    EXPECT_EQ(SameProcess(&none, &constant, &same), paramErr);
    EXPECT_EQ(KillProcess(&none), paramErr);
}

TEST(ProcessesTests, EndedProcessIsNotFoundAndCannotBeKilledAgain)
{
    pid_t child = fork();
    if (child == 0)
    {
        pause();
        _exit(0);
    }
    ASSERT_GT(child, 0);
    ProcessSerialNumber psn;
    ASSERT_TRUE(FindProcess(child, psn));
    EXPECT_EQ(KillProcess(&psn), noErr);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(KillProcess(&psn), procNotFound);
    CFStringRef name = nullptr;
    EXPECT_EQ(CopyProcessName(&psn, &name), procNotFound);
    EXPECT_FALSE(FindProcess(child, psn));
}
} // namespace
