// Delivery of an event to this process's handlers. Private to Compat: the application's
// event port, AESend to this process and the launch event of NSApplication use it.
#pragma once

#include <AE/AppleEvents.h>

namespace AEDispatch
{
// The reply event to `event`: class 'aevt', ID 'ansr', the event's return and transaction IDs.
OSErr CreateReply(const AppleEvent* event, AppleEvent* reply);

// Runs the handler of `event` (lookup order in AE/AppleEvents.h) and returns its result, or
// errAEEventNotHandled. `reply` is a reply event when the sender waits for one, a typeNull
// descriptor otherwise; a failure is recorded in a reply event as keyErrorNumber unless the
// handler put one there itself.
OSErr DispatchEvent(const AppleEvent* event, AppleEvent* reply);
} // namespace AEDispatch
