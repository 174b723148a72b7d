// Turns POSIX signals into run-loop work.
//
// KelSignalRunLoopSourceCreate installs a handler for each signal given (sigaction, with
// SA_RESTART) that only writes the signal's number into a pipe, and returns a run loop
// source (owned by the caller) that reads the pipe and calls `callBack(signal, info)` on
// the thread whose run loop runs the source, once per signal delivered (a burst of the same
// signal may be merged by the pipe only if it overflows, which takes thousands). Add the
// source to the modes in which signals should be handled, usually kCFRunLoopCommonModes.
//
// Invalidating the source (CFRunLoopSourceInvalidate) or releasing its last reference
// gives the signals back their default action and closes the pipe. A signal belongs to
// one such source at a time: a later source for the same signal takes it over. Returns NULL
// when the pipe or a handler cannot be installed.
#pragma once

#include <CoreFoundation/CFRunLoop.h>

CF_EXTERN_C_BEGIN

typedef void (*KelSignalCallBack)(int signalNumber, void* info);

CFRunLoopSourceRef KelSignalRunLoopSourceCreate(const int* signals, CFIndex count,
                                                KelSignalCallBack callBack, void* info);

CF_EXTERN_C_END
