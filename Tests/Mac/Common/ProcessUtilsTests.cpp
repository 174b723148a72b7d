#include "Mac/Common/ProcessUtils.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{
namespace fs = std::filesystem;

// A process started by the test and always ended by its process id: a forked copy that
// renames itself, or a program run under a name of the test's choosing.
class CTestProcess
{
public:
    // A fork that takes `name` as its command name and sleeps.
    static CTestProcess Renamed(const std::string& name)
    {
        CTestProcess process;
        int ready[2];
        if (pipe(ready) != 0)
        {
            return process;
        }
        process.mPid = fork();
        if (process.mPid == 0)
        {
            prctl(PR_SET_NAME, name.c_str());
            ssize_t ignored = write(ready[1], "r", 1);
            (void)ignored;
            for (int i = 0; i < 600; ++i) // bounded: ten minutes at most
            {
                sleep(1);
            }
            _exit(0);
        }
        close(ready[1]);
        char byte;
        ssize_t got = read(ready[0], &byte, 1); // renamed before anyone looks
        (void)got;
        close(ready[0]);
        return process;
    }

    // /bin/sleep started through a link named `path`, so it runs under that name.
    static CTestProcess Linked(const fs::path& path)
    {
        CTestProcess process;
        fs::create_symlink("/bin/sleep", path);
        process.mPid = fork();
        if (process.mPid == 0)
        {
            execl(path.c_str(), path.c_str(), "600", static_cast<char*>(nullptr));
            _exit(127);
        }
        // Wait until the program runs under its new name.
        for (int i = 0; i < 2000 && !Named(process.mPid, path.filename().string()); ++i)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return process;
    }

    CTestProcess(CTestProcess&& other) noexcept : mPid(other.mPid) { other.mPid = -1; }
    ~CTestProcess() { Reap(); }

    pid_t Pid() const { return mPid; }
    void Reap()
    {
        if (mPid > 0)
        {
            kill(mPid, SIGKILL);
            waitpid(mPid, nullptr, 0);
            mPid = -1;
        }
    }

private:
    CTestProcess() = default;

    static bool Named(pid_t pid, const std::string& name)
    {
        ProcessSerialNumber psn;
        CFStringRef found = nullptr;
        if (GetProcessForPID(pid, &psn) != noErr || CopyProcessName(&psn, &found) != noErr)
        {
            return false;
        }
        char buffer[256] = {};
        CFStringGetCString(found, buffer, sizeof buffer, kCFStringEncodingUTF8);
        CFRelease(found);
        return name == buffer;
    }

    pid_t mPid = -1;
};

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

TEST(ProcessUtilsTests, ProcessIsFoundByNameKilledAndThenGone)
{
    std::string name = UniqueName("kelPU");
    CTestProcess process = CTestProcess::Renamed(name);
    ASSERT_GT(process.Pid(), 0);

    ProcessSerialNumber psn = ProcessUtils::GetPSNForProcessWithName(name, false);
    ASSERT_FALSE(ProcessUtils::PSNIsNoProcess(psn));
    EXPECT_EQ(PidOf(psn), process.Pid());
    // The name must match whole.
    EXPECT_TRUE(ProcessUtils::PSNIsNoProcess(
        ProcessUtils::GetPSNForProcessWithName(name.substr(0, name.size() - 1), false)));

    EXPECT_TRUE(ProcessUtils::KillProcessWithPSN(psn));
    // Killed but not yet reaped, it is a zombie: already gone for the lookup.
    for (int i = 0; i < 2000 && !ProcessUtils::PSNIsNoProcess(
                                    ProcessUtils::GetPSNForProcessWithName(name, false));
         ++i)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_TRUE(ProcessUtils::PSNIsNoProcess(ProcessUtils::GetPSNForProcessWithName(name, false)));
    // Killing what is gone, or nothing at all, is no failure.
    EXPECT_TRUE(ProcessUtils::KillProcessWithPSN(psn));
    EXPECT_TRUE(ProcessUtils::KillProcessWithPSN({0, kNoProcess}));
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
    char pattern[] = "/tmp/kel_procutils_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    fs::path dir = pattern;
    std::string name = UniqueName("kelProcessUtilsLongName"); // beyond the kernel's 15
    {
        CTestProcess process = CTestProcess::Linked(dir / name);
        ProcessSerialNumber psn = ProcessUtils::GetPSNForProcessWithName(name, false);
        EXPECT_EQ(PidOf(psn), process.Pid());
        EXPECT_TRUE(ProcessUtils::PSNIsNoProcess(
            ProcessUtils::GetPSNForProcessWithName(name.substr(0, 15), false)));
    }
    fs::remove_all(dir);
}
} // namespace
