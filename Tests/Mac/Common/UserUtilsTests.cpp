#include "Mac/Common/UserUtils.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <unistd.h>

namespace
{
// Presents a console user (or none) through the dynamic store's test variable.
class CConsoleUser
{
public:
    explicit CConsoleUser(const char* value) { setenv("KELTO_CONSOLE_USER", value, 1); }
    ~CConsoleUser() { unsetenv("KELTO_CONSOLE_USER"); }
};

struct SResult
{
    bool found;
    std::string name;
    unsigned uid, gid;
    std::string stderrText;
};

SResult Ask(bool (*function)(std::string*, unsigned*, unsigned*))
{
    SResult result{false, "untouched", 77, 78, ""};
    testing::internal::CaptureStderr();
    result.found = function(&result.name, &result.uid, &result.gid);
    result.stderrText = testing::internal::GetCapturedStderr();
    return result;
}

TEST(UserUtilsTests, NobodyAndTheLoginWindowAreNoUserAndLeaveTheOutputsAlone)
{
    // The test variable is "name:uid:gid"; anything else is nobody.
    for (const char* value :
         {"none", "loginwindow:0:0", "", "alice", "alice:1000", ":1:2", "alice:x:1", "alice:1:"})
    {
        CConsoleUser user(value);
        SResult result = Ask(UserUtils::GetConsoleUser);
        EXPECT_FALSE(result.found) << value;
        EXPECT_EQ(result.stderrText, "\t no user\n") << value;
        EXPECT_EQ(result.name, "untouched");
        EXPECT_EQ(result.uid, 77u);
        EXPECT_EQ(result.gid, 78u);
    }
}

TEST(UserUtilsTests, WithoutTheVariableOrALoginManagerThereIsNoUser)
{
    if (access("/run/systemd/seats/seat0", F_OK) == 0)
    {
        GTEST_SKIP() << "a login manager runs here";
    }
    unsetenv("KELTO_CONSOLE_USER");
    EXPECT_FALSE(Ask(UserUtils::GetConsoleUser).found);
}

// The only test that calls UserIsLoggedIn: its answer is kept for the process's life.
TEST(UserUtilsTests, LoggedInUserIsTheFirstOneSeenForTheLifeOfTheProcess)
{
    {
        CConsoleUser user("none");
        SResult result = Ask(UserUtils::UserIsLoggedIn);
        EXPECT_FALSE(result.found);
        EXPECT_EQ(result.name, ""); // the initial values are copied out
        EXPECT_EQ(result.uid, 0u);
    }
    {
        CConsoleUser user("alice:501:20");
        SResult result = Ask(UserUtils::UserIsLoggedIn);
        EXPECT_TRUE(result.found); // nobody before: asked again
        EXPECT_EQ(result.name, "alice");
    }
    {
        CConsoleUser user("bob:502:20");
        SResult result = Ask(UserUtils::UserIsLoggedIn);
        EXPECT_TRUE(result.found);
        EXPECT_EQ(result.name, "alice"); // a later switch is not seen
        EXPECT_EQ(result.uid, 501u);
        EXPECT_EQ(result.gid, 20u);
        EXPECT_EQ(result.stderrText, ""); // and the store is not asked at all
    }
    {
        CConsoleUser user("none");
        EXPECT_TRUE(UserUtils::UserIsLoggedIn(nullptr, nullptr, nullptr));
    }
}
} // namespace
