#include "Mac/TabletDriver/Source/Coordinator/ConsoleUserTransition.h"

#include "Tests/Mac/TabletDriver/Source/Coordinator/CoordinatorTestSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
using coordinator_test::Capture;
using coordinator_test::kMainSource;
using coordinator_test::Report;

// A system of the test's making: who is at the console, which release runs, and what the
// identity calls answer. The calls are recorded in order.
struct FakeSystem
{
    bool mUserPresent = true;
    unsigned int mUserID = 501;
    unsigned int mGroupID = 20;
    unsigned int mVersion = 0x1050;
    int mSetUserResult = 0;
    int mSetGroupResult = 0;
    std::vector<std::string> mCalls;

    SUserTransitionOps Ops()
    {
        SUserTransitionOps ops;
        ops.mGetConsoleUser = [this](unsigned int* userID, unsigned int* groupID)
        {
            mCalls.push_back("console user");
            if (mUserPresent)
            {
                *userID = mUserID;
                *groupID = mGroupID;
            }
            return mUserPresent;
        };
        ops.mGetSystemVersion = [this] { return mVersion; };
        ops.mSetEffectiveUser = [this](unsigned int userID)
        {
            mCalls.push_back("seteuid " + std::to_string(userID));
            return mSetUserResult;
        };
        ops.mSetEffectiveGroup = [this](unsigned int groupID)
        {
            mCalls.push_back("setegid " + std::to_string(groupID));
            return mSetGroupResult;
        };
        return ops;
    }
};

TEST(ConsoleUserTransitionTests, OnlySystemsBeforeTenSixWithAUserTakeItsIdentity)
{
    const std::vector<std::string> asked = {"console user"};
    const std::vector<std::string> taken = {"console user", "seteuid 501", "setegid 20"};
    const struct
    {
        unsigned int version;
        bool userPresent;
        const std::vector<std::string>& calls;
    } cases[] = {{0x1040, true, taken}, {0x1050, true, taken}, {0x105F, true, taken},
                 {0x1060, true, asked}, {0x1070, true, asked}, {0x10A0, true, asked},
                 {0x1040, false, asked}}; // nobody at the console: start-up goes on as it is
    for (const auto& c : cases)
    {
        FakeSystem system;
        system.mVersion = c.version;
        system.mUserPresent = c.userPresent;
        TransitionToConsoleUser(system.Ops());
        EXPECT_EQ(system.mCalls, c.calls) << std::hex << c.version << " " << c.userPresent;
    }
}

TEST(ConsoleUserTransitionTests, FailedIdentityCallsAreReportedAndStartUpGoesOn)
{
    FakeSystem userFails;
    userFails.mSetUserResult = -1;
    auto output = Capture([&] { TransitionToConsoleUser(userFails.Ops()); });
    EXPECT_EQ(output.out, Report(kMainSource, 69, "!unixErr"));
    // The group is still set after the user failed.
    EXPECT_EQ(userFails.mCalls.back(), "setegid 20");

    FakeSystem groupFails;
    groupFails.mSetGroupResult = -1;
    output = Capture([&] { TransitionToConsoleUser(groupFails.Ops()); });
    EXPECT_EQ(output.out, Report(kMainSource, 71, "!unixErr"));
}
} // namespace
