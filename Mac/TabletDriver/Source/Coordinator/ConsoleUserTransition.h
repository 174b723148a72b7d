// The coordinator's first act: taking on the identity of the user at the console.
//
// Only systems before 10.6 (system version code below 0x1060) started the coordinator with
// an identity other than the console user's; there the effective user is set first and the
// effective group second, in that order on purpose. From 10.6 on nothing is changed. No
// console user (nobody logged in, or no login manager) is logged and start-up goes on.
//
// System log lines (error priority): "NO LOGGED IN USER", "Transition to User ID:%d
// Group:%d". A failed seteuid or setegid is reported as the assertion lines 69 and 71 of
// "Mac/TabletDriver/Source/Coordinator/CMacCoordinatorMain" and start-up goes on.
#pragma once

#include <functional>

struct SUserTransitionOps
{
    // UserUtils::GetConsoleUser without the name.
    std::function<bool(unsigned int* userID_O, unsigned int* groupID_O)> mGetConsoleUser;
    // OSUtils::GetSystemVersion.
    std::function<unsigned int()> mGetSystemVersion;
    // seteuid and setegid: 0 on success.
    std::function<int(unsigned int userID_I)> mSetEffectiveUser;
    std::function<int(unsigned int groupID_I)> mSetEffectiveGroup;
};

// The operations of the running system.
SUserTransitionOps SystemUserTransitionOps();

void TransitionToConsoleUser(const SUserTransitionOps& ops_I);
