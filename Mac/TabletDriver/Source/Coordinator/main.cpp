// The coordinator program: start-up, then the application's run loop until it terminates.
#include "Mac/TabletDriver/Source/Coordinator/CMacCoordinatorMain.h"
#include "Mac/TabletDriver/Source/Coordinator/OCoordinatorAppController.h"

#include <AppKit/AppKit.h>

#include <cstdlib>
#include <syslog.h>

int main(int argc, char* argv[])
{
    // Operational messages go to the system log; a copy goes to standard error, where a
    // machine without a log daemon, or whoever started the program, can still read them.
    openlog("TabletDriver", LOG_PID | LOG_PERROR, LOG_USER);

    if (!InternalMain())
    {
        // The misspelling is part of the message that people search the logs for.
        syslog(LOG_ERR, "*** Coordinator termininating because initialization failed. ***");
        std::exit(-1);
    }

    // The delegate of the application's main nib: it lives as long as the process.
    static OCoordinatorAppController sController;
    NSApplication::sharedApplication()->setDelegate(&sController);
    return NSApplicationMain(argc, argv);
}
