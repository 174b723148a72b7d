#include "Mac/TabletDriver/Source/Coordinator/OCoordinatorAppController.h"

#include "Mac/TabletDriver/Source/Coordinator/ServiceManager.h"
#include "Mac/TabletDriver/Source/Coordinator/TerminateApplication.h"

#include <csignal>

namespace
{
// In the order in which the handler is installed.
constexpr int kHandledSignals[] = {SIGQUIT, SIGTERM, SIGINT, SIGABRT, SIGHUP};
} // namespace

bool SignalTerminatesApplication(int signal_I)
{
    return signal_I >= 0 && signal_I < 16 && ((1u << signal_I) & kTerminatingSignalMask) != 0;
}

void respondToSignal(int signal_I)
{
    if (SignalTerminatesApplication(signal_I))
    {
        TerminateApplication();
    }
}

void OCoordinatorAppController::applicationWillFinishLaunching(NSNotification* /*notification_I*/)
{
    struct sigaction action = {};
    action.sa_handler = respondToSignal;
    sigemptyset(&action.sa_mask);
    for (int signal : kHandledSignals)
    {
        sigaddset(&action.sa_mask, signal);
    }
    action.sa_flags = 0;
    for (int signal : kHandledSignals)
    {
        sigaction(signal, &action, nullptr);
    }
}

void OCoordinatorAppController::applicationWillTerminate(NSNotification* /*notification_I*/)
{
    ServiceManager::NotifyStopping();
}
