// The coordinator program: start-up, then the application's run loop until it terminates.
#include "Mac/TabletDriver/Source/Coordinator/CMacCoordinatorMain.h"
#include "Mac/TabletDriver/Source/Coordinator/CMacInputs.h"
#include "Mac/TabletDriver/Source/Coordinator/CoordinatorArguments.h"
#include "Mac/TabletDriver/Source/Coordinator/OCoordinatorAppController.h"
#include "Mac/TabletDriver/Source/Coordinator/ServiceManager.h"

#include <AppKit/AppKit.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/resource.h>
#include <syslog.h>

namespace
{
// Each client holds a descriptor of this process. The soft limit is often 1024 while
// thousands of clients may connect; nothing here uses select(), so it is raised as far as
// the hard limit lets it, for the connection limits of the port server to be the ones met.
void RaiseDescriptorLimit()
{
    constexpr rlim_t kWanted = 32768;
    rlimit files = {};
    if (getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur < kWanted)
    {
        files.rlim_cur =
            files.rlim_max == RLIM_INFINITY || files.rlim_max > kWanted ? kWanted : files.rlim_max;
        setrlimit(RLIMIT_NOFILE, &files);
    }
}
} // namespace

int main(int argc, char* argv[])
{
    const SCoordinatorArguments arguments = ReadCoordinatorArguments(argc, argv);
    if (!arguments.mUnknown.empty())
    {
        std::fprintf(stderr, "TabletDriver: unknown argument '%s' (see TabletDriver --help)\n",
                     arguments.mUnknown.c_str());
        return 2;
    }
    if (arguments.mHelp)
    {
        std::fputs(CoordinatorUsage().c_str(), stdout);
        return 0;
    }
    if (arguments.mVersion)
    {
        unsigned int protocol = 0;
        const bool known = CMacInputs::GetProtocolVersion(protocol) == KELSTATUS_SUCCESS;
        std::printf("TabletDriver %s (protocol version %s)\n", KEL_PROJECT_VERSION,
                    known ? std::to_string(protocol).c_str() : "unknown");
        return 0;
    }
    CMacInputs::SetReplaceAnsweringCoordinator(arguments.mReplace);
    RaiseDescriptorLimit();

    // Operational messages go to the system log; a copy goes to standard error, where a
    // machine without a log daemon, or whoever started the program, can still read them,
    // unless standard error is the journal, which has the system log already.
    openlog("TabletDriver", LOG_PID | (ServiceManager::StandardErrorIsJournal() ? 0 : LOG_PERROR),
            LOG_USER);

    if (!InternalMain())
    {
        // The misspelling is part of the message that people search the logs for.
        syslog(LOG_ERR, "*** Coordinator termininating because initialization failed. ***");
        std::exit(-1);
    }

    // The delegate of the application's main nib: it lives as long as the process.
    static OCoordinatorAppController sController;
    // The port is served from here on (requests wait in it until the run loop takes them).
    ServiceManager::NotifyReady();
    NSApplication::sharedApplication()->setDelegate(&sController);
    return NSApplicationMain(argc, argv);
}
