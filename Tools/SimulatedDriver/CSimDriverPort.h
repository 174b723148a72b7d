// The named message port of a simulated driver, served on the current thread's run loop.
//
// Each request is read (CSimDriverResponder), given the fault the plan has for it
// (CSimFaultPlan), answered, and traced on standard error when tracing is on, one line per
// request:
//   simdriver[Kelto]: 'KEPK' get system-id tablet #0 -> status 0x0000, 2 bytes of data
//
// Slow and hanging answers hold the run loop in kSimDriverBusyMode, in which the port itself
// is not served (a busy driver takes no other request) but whatever the owner adds to that
// mode is, so that a stop request (RequestStop) ends the wait at once.
#pragma once

#include "Tools/SimulatedDriver/CSimDriverResponder.h"
#include "Tools/SimulatedDriver/CSimFaultPlan.h"

#include <CoreFoundation/CoreFoundation.h>

#include <string>

class CSimulatedDriver;

// The run loop mode of a driver busy with a slow or hanging answer.
extern const CFStringRef kSimDriverBusyMode;

class CSimDriverPort
{
public:
    CSimDriverPort(CSimulatedDriver& driver_I, bool trace_I);
    ~CSimDriverPort();
    CSimDriverPort(const CSimDriverPort&) = delete;
    CSimDriverPort& operator=(const CSimDriverPort&) = delete;

    // Creates the local port named in the driver's configuration and adds it to the current
    // run loop (common modes). False, with the reason, when the name is served already or the
    // port directory is unusable.
    bool Open(std::string& error_O);
    void Close();

    // The faults of the driver's current configuration, counted from zero again (after a
    // reload).
    void ResetFaults();

    // Ends a slow or hanging answer under way (its request gets no reply) and stops the run
    // loop that serves the port. Safe to call from run-loop work such as a signal's.
    void RequestStop();
    bool StopRequested() const { return mStopRequested; }

    // One request, as the port's callback hands it over; the reply is owned by the caller.
    CFDataRef HandleRequest(SInt32 msgid_I, CFDataRef data_I);

private:
    static CFDataRef PortCallback(CFMessagePortRef port_I, SInt32 msgid_I, CFDataRef data_I,
                                  void* info_I);
    // Holds the run loop in kSimDriverBusyMode for that long, or until a stop request.
    void Busy(unsigned int milliseconds_I);
    void Trace(const SSimMessage& message_I, const std::string& outcome_I) const;

    CSimulatedDriver& mDriver;
    CSimDriverResponder mResponder;
    CSimFaultPlan mFaults;
    bool mTrace;
    bool mStopRequested = false;
    CFMessagePortRef mPort = nullptr;
    CFRunLoopSourceRef mSource = nullptr;
    CFRunLoopRef mRunLoop = nullptr;
};
