// Run loops: one per thread, sleeping in poll() until a source has work.
//
// A source runs only while its run loop runs in a mode the source was added to. Adding to
// kCFRunLoopCommonModes adds to every mode marked common: kCFRunLoopDefaultMode, and any
// mode given to CFRunLoopAddCommonMode. A run in a mode that holds no source returns
// kCFRunLoopRunFinished at once. Callbacks run on the thread that runs the loop and may run
// the loop again (in any mode) before they return.
//
// From other threads only CFRunLoopStop, CFRunLoopWakeUp and CFRunLoopSourceSignal are safe.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFString.h>

CF_EXTERN_C_BEGIN

typedef struct __CFRunLoop* CFRunLoopRef;
typedef struct __CFRunLoopSource* CFRunLoopSourceRef;
typedef CFStringRef CFRunLoopMode;

extern const CFRunLoopMode kCFRunLoopDefaultMode;
extern const CFRunLoopMode kCFRunLoopCommonModes;

typedef SInt32 CFRunLoopRunResult;
enum
{
    kCFRunLoopRunFinished = 1,
    kCFRunLoopRunStopped = 2,
    kCFRunLoopRunTimedOut = 3,
    kCFRunLoopRunHandledSource = 4
};

CFRunLoopRef CFRunLoopGetCurrent(void);

// Runs in the default mode until stopped or until the mode holds no source.
void CFRunLoopRun(void);
// Runs in `mode` for at most `seconds`; with `returnAfterSourceHandled`, returns after the
// first source was handled.
CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                      Boolean returnAfterSourceHandled);
// Makes the innermost run of `rl` return kCFRunLoopRunStopped.
void CFRunLoopStop(CFRunLoopRef rl);
void CFRunLoopWakeUp(CFRunLoopRef rl);

void CFRunLoopAddSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode);
void CFRunLoopRemoveSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode);

// Timers: the call-out runs on the loop's thread once the fire date has passed, while the
// loop runs in a mode the timer was added to; a repeating timer (interval above 0) then
// fires again every interval (missed firings are skipped, not made up), a one-shot timer
// becomes invalid. A mode that holds only timers is not empty. A timer belongs to one loop.
typedef struct __CFRunLoopTimer* CFRunLoopTimerRef;
typedef void (*CFRunLoopTimerCallBack)(CFRunLoopTimerRef timer, void* info);
typedef struct
{
    CFIndex version; // 0
    void* info;
    const void* (*retain)(const void* info);
    void (*release)(const void* info);
    CFStringRef (*copyDescription)(const void* info);
} CFRunLoopTimerContext;
// Seconds since the reference date (2001-01-01 00:00:00 UTC).
CFAbsoluteTime CFAbsoluteTimeGetCurrent(void);
CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate,
                                       CFTimeInterval interval, CFOptionFlags flags, CFIndex order,
                                       CFRunLoopTimerCallBack callout,
                                       CFRunLoopTimerContext* context);
void CFRunLoopAddTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFRunLoopMode mode);
// Removes the timer from its loop; it never fires again.
void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer);

// A source that runs `perform` once after each CFRunLoopSourceSignal.
typedef struct
{
    CFIndex version; // 0
    void* info;
    const void* (*retain)(const void* info);
    void (*release)(const void* info);
    CFStringRef (*copyDescription)(const void* info);
    Boolean (*equal)(const void* info1, const void* info2);
    CFHashCode (*hash)(const void* info);
    void (*schedule)(void* info, CFRunLoopRef rl, CFRunLoopMode mode);
    void (*cancel)(void* info, CFRunLoopRef rl, CFRunLoopMode mode);
    void (*perform)(void* info);
} CFRunLoopSourceContext;

CFRunLoopSourceRef CFRunLoopSourceCreate(CFAllocatorRef allocator, CFIndex order,
                                         CFRunLoopSourceContext* context);
// Marks the source for running; the caller wakes the loop if it sleeps on another thread.
void CFRunLoopSourceSignal(CFRunLoopSourceRef source);
// Removes the source from every run loop and mode; it never runs again.
void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source);

CF_EXTERN_C_END
