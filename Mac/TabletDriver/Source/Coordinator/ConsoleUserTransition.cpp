#include "Mac/TabletDriver/Source/Coordinator/ConsoleUserTransition.h"

#include "Common/KelAssert.h"
#include "Mac/Common/OSUtils.h"
#include "Mac/Common/UserUtils.h"

#include <syslog.h>
#include <unistd.h>

namespace
{
// The reports belong to the start-up, which lives in CMacCoordinatorMain.
constexpr const char* kAssertSource = "Mac/TabletDriver/Source/Coordinator/CMacCoordinatorMain";

// The first system on which the coordinator already runs as the console user.
constexpr unsigned int kSystemVersion10_6 = 0x1060;
} // namespace

SUserTransitionOps SystemUserTransitionOps()
{
    SUserTransitionOps ops;
    ops.mGetConsoleUser = [](unsigned int* userID_O, unsigned int* groupID_O)
    { return UserUtils::GetConsoleUser(nullptr, userID_O, groupID_O); };
    ops.mGetSystemVersion = [] { return static_cast<unsigned int>(OSUtils::GetSystemVersion()); };
    ops.mSetEffectiveUser = [](unsigned int userID_I) { return seteuid(userID_I); };
    ops.mSetEffectiveGroup = [](unsigned int groupID_I) { return setegid(groupID_I); };
    return ops;
}

void TransitionToConsoleUser(const SUserTransitionOps& ops_I)
{
    unsigned int userID = 0;
    unsigned int groupID = 0;
    if (!ops_I.mGetConsoleUser(&userID, &groupID))
    {
        syslog(LOG_ERR, "NO LOGGED IN USER");
        return;
    }
    syslog(LOG_ERR, "Transition to User ID:%d Group:%d", static_cast<int>(userID),
           static_cast<int>(groupID));
    if (ops_I.mGetSystemVersion() >= kSystemVersion10_6)
    {
        return;
    }
    int unixErr = ops_I.mSetEffectiveUser(userID);
    KelAssertAt(kAssertSource, 69, !unixErr);
    unixErr = ops_I.mSetEffectiveGroup(groupID);
    KelAssertAt(kAssertSource, 71, !unixErr);
}
