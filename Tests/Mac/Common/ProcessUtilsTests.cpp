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

// A program run under a name of the test's choosing, always ended by its process id. (Finding
// a process by name and killing it is the other-coordinator tests' and the coordinator's
// take-over test's.)
class CTestProcess
{
public:
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
