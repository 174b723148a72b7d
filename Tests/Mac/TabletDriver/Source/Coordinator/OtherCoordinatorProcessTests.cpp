#include "Mac/TabletDriver/Source/Coordinator/OtherCoordinatorProcess.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{
namespace fs = std::filesystem;

// A scratch directory with a program called "TabletDriver" (a copy of sleep), started with
// the port directory the test gives, stopped by its process ID.
class FakeCoordinatorProcess
{
public:
    explicit FakeCoordinatorProcess(const fs::path& directory)
        : mProgram(directory / "TabletDriver")
    {
        fs::copy_file("/bin/sleep", mProgram, fs::copy_options::overwrite_existing);
    }
    ~FakeCoordinatorProcess() { Stop(); }
    FakeCoordinatorProcess(const FakeCoordinatorProcess&) = delete;
    FakeCoordinatorProcess& operator=(const FakeCoordinatorProcess&) = delete;

    bool Start(const std::string& portDirectory)
    {
        std::string program = mProgram.string();
        std::string seconds = "30";
        char* argv[] = {program.data(), seconds.data(), nullptr};
        std::string variable = "KELTO_PORT_DIR=" + portDirectory;
        char* envp[] = {variable.data(), nullptr};
        if (posix_spawn(&mPid, program.c_str(), nullptr, nullptr, argv, envp) != 0)
        {
            mPid = 0;
            return false;
        }
        // Until the kernel shows the new program's name (bounded).
        for (int i = 0; i < 200; ++i)
        {
            std::string comm;
            if (FILE* file = std::fopen(("/proc/" + std::to_string(mPid) + "/comm").c_str(), "r"))
            {
                char buffer[64] = {};
                if (std::fgets(buffer, sizeof buffer, file) != nullptr)
                {
                    comm = buffer;
                }
                std::fclose(file);
            }
            if (comm == "TabletDriver\n")
            {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    void Stop()
    {
        if (mPid > 0)
        {
            kill(mPid, SIGKILL);
            waitpid(mPid, nullptr, 0);
            mPid = 0;
        }
    }

    pid_t Pid() const { return mPid; }

private:
    fs::path mProgram;
    pid_t mPid = 0;
};

class OtherCoordinatorProcessTests : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/kel_other_coordinator_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        mRoot = pattern;
        const char* saved = std::getenv("KELTO_PORT_DIR");
        mSaved = saved != nullptr ? std::optional<std::string>(saved) : std::nullopt;
    }
    void TearDown() override
    {
        if (mSaved)
        {
            setenv("KELTO_PORT_DIR", mSaved->c_str(), 1);
        }
        else
        {
            unsetenv("KELTO_PORT_DIR");
        }
        fs::remove_all(mRoot);
    }

    fs::path mRoot;
    std::optional<std::string> mSaved;
};

TEST_F(OtherCoordinatorProcessTests, OnlyACoordinatorOfOurPortDirectoryIsFound)
{
    FakeCoordinatorProcess other(mRoot);
    ASSERT_TRUE(other.Start((mRoot / "theirs").string()));

    // Another port directory: the process is of no concern to us.
    setenv("KELTO_PORT_DIR", (mRoot / "ours").c_str(), 1);
    ProcessSerialNumber psn = OtherCoordinatorProcess::Find("TabletDriver");
    EXPECT_EQ(psn.highLongOfPSN, 0u);
    EXPECT_EQ(psn.lowLongOfPSN, static_cast<UInt32>(kNoProcess));

    // The same directory: that is the other coordinator.
    setenv("KELTO_PORT_DIR", (mRoot / "theirs").c_str(), 1);
    psn = OtherCoordinatorProcess::Find("TabletDriver");
    pid_t pid = 0;
    ASSERT_EQ(GetProcessPID(&psn, &pid), noErr);
    EXPECT_EQ(pid, other.Pid());

    // The name must match exactly.
    EXPECT_EQ(OtherCoordinatorProcess::Find("TabletDrive").lowLongOfPSN,
              static_cast<UInt32>(kNoProcess));

    // Gone, it is found no more.
    other.Stop();
    EXPECT_EQ(OtherCoordinatorProcess::Find("TabletDriver").lowLongOfPSN,
              static_cast<UInt32>(kNoProcess));
}

TEST_F(OtherCoordinatorProcessTests, PortDirectoryFollowsTheMessagePortRule)
{
    EXPECT_EQ(OtherCoordinatorProcess::PortDirectoryFor("/a", "/run/user/5"), "/a");
    EXPECT_EQ(OtherCoordinatorProcess::PortDirectoryFor("", "/run/user/5"),
              "/run/user/5/com.kelto.ports");
    EXPECT_EQ(OtherCoordinatorProcess::PortDirectoryFor("", ""),
              "/tmp/com.kelto.ports." + std::to_string(geteuid()));
}
} // namespace
