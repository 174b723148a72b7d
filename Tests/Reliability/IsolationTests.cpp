// The coordinator belongs to one user: it refuses to start in a port directory that is not
// that user's or that others may write to, and it refuses connections from other users.
// Switching users needs root; without it these tests are skipped.
#include "Tests/Reliability/ClientProcess.h"
#include "Tests/Reliability/ReliabilitySystem.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace
{
using namespace reliability;

constexpr uid_t kStranger = 65534; // "nobody"

// Starts a coordinator in `directory_I` (already made unfit by the caller) and returns its
// output once it has ended; empty when it is still running after 30 seconds.
std::string RefusedStart(const std::string& directory_I)
{
    CoordinatorProcess coordinator(directory_I + "-coordinator.log");
    EXPECT_TRUE(coordinator.Start());
    const int status = coordinator.WaitForExit(30.0);
    EXPECT_NE(status, 0);
    EXPECT_NE(status, -1) << "still running in an unfit port directory";
    std::string log = coordinator.Log();
    std::filesystem::remove(directory_I + "-coordinator.log");
    EXPECT_FALSE(std::filesystem::exists(directory_I + "/" + kCoordinatorPortName));
    return log;
}

class IsolationTests : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (geteuid() != 0)
        {
            GTEST_SKIP() << "needs root to act as another user (uid 65534)";
        }
    }
};

// (A directory open to others is refused without root too: the coordinator's life tests.)
TEST_F(IsolationTests, APortDirectoryOfAnotherUserIsRefusedAtStartUp)
{
    ScopedPortDirectory ports;
    ASSERT_EQ(chown(ports.Path().c_str(), kStranger, kStranger), 0);
    const std::string log = RefusedStart(ports.Path());
    EXPECT_NE(log.find(ports.Path() + ": owned by another user"), std::string::npos) << log;
    ASSERT_EQ(chown(ports.Path().c_str(), 0, 0), 0);
}

TEST_F(IsolationTests, AConnectionFromAnotherUserIsRefused)
{
    CReliabilitySystem system;
    ASSERT_TRUE(system.Start()) << system.Problem();
    // Let the stranger reach the socket at all, so that only the coordinator's own check
    // stands between it and an answer.
    ASSERT_EQ(chmod(system.PortDirectory().c_str(), 0711), 0);
    ASSERT_EQ(chmod((system.PortDirectory() + "/" + kCoordinatorPortName).c_str(), 0777), 0);

    CClientProcess stranger({"send-as", std::to_string(kStranger)});
    EXPECT_EQ(stranger.ReadLine(), "refused");
    CClientProcess own({"send-as", std::to_string(geteuid())});
    EXPECT_EQ(own.ReadLine(), "answered");
    EXPECT_TRUE(system.Coordinator().Running());
    ASSERT_EQ(chmod(system.PortDirectory().c_str(), 0700), 0);
}
} // namespace
