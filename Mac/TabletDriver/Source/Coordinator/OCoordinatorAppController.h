// OCoordinatorAppController: the coordinator's application delegate.
//
// Its main task is the signal set-up before launching finishes: SIGQUIT, SIGTERM, SIGINT,
// SIGABRT and SIGHUP, in that order, go to respondToSignal, with exactly those five
// blocked while it runs and no flags. respondToSignal only asks the application to
// terminate; the work happens on the main run loop. When the application terminates, it
// tells the service manager (STOPPING=1).
#pragma once

#include <AppKit/AppKit.h>

class OCoordinatorAppController : public NSApplicationDelegate
{
public:
    void applicationWillFinishLaunching(NSNotification* notification_I) override;
    void applicationWillTerminate(NSNotification* notification_I) override;
};

// The bits of the signals that end the coordinator: SIGHUP (1), SIGINT (2), SIGQUIT (3),
// SIGABRT (6) and SIGTERM (15).
constexpr unsigned int kTerminatingSignalMask = 0x804E;

// Whether respondToSignal terminates the application for this signal number: only numbers
// below 16 whose bit is in the mask.
bool SignalTerminatesApplication(int signal_I);

// The handler installed for the five signals: TerminateApplication() for those of the mask,
// nothing for any other number.
void respondToSignal(int signal_I);
