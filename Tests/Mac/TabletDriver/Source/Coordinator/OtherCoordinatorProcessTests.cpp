#include "Mac/TabletDriver/Source/Coordinator/OtherCoordinatorProcess.h"

#include "Tests/Support/SimulatedDriverProcess.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace
{
TEST(OtherCoordinatorProcessTests, OnlyACoordinatorOfOurPortDirectoryIsFound)
{
    ScopedPortDirectory scratch;
    const std::string program = scratch.Path() + "/TabletDriver";
    std::filesystem::copy_file("/bin/sleep", program);
    const std::string theirs = scratch.Path() + "/theirs";
    TestProcess other({program, "30"}, scratch.Path() + "/log", {"KELTO_PORT_DIR=" + theirs});
    ASSERT_TRUE(other.Started());
    ASSERT_TRUE(RunsAs(other.Pid(), "TabletDriver"));

    // Another port directory: the process is of no concern to us.
    setenv("KELTO_PORT_DIR", (scratch.Path() + "/ours").c_str(), 1);
    ProcessSerialNumber psn = OtherCoordinatorProcess::Find("TabletDriver");
    EXPECT_EQ(psn.highLongOfPSN, 0u);
    EXPECT_EQ(psn.lowLongOfPSN, static_cast<UInt32>(kNoProcess));

    setenv("KELTO_PORT_DIR", theirs.c_str(), 1);
    psn = OtherCoordinatorProcess::Find("TabletDriver");
    pid_t pid = 0;
    ASSERT_EQ(GetProcessPID(&psn, &pid), noErr);
    EXPECT_EQ(pid, other.Pid());
    EXPECT_EQ(OtherCoordinatorProcess::Find("TabletDrive").lowLongOfPSN,
              static_cast<UInt32>(kNoProcess));

    other.Stop();
    EXPECT_EQ(OtherCoordinatorProcess::Find("TabletDriver").lowLongOfPSN,
              static_cast<UInt32>(kNoProcess));
}

} // namespace
