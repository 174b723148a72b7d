// What the run loop offers the other parts of this layer: sources driven by file
// descriptors (message ports, file descriptors, signals) and waiting for a reply.
#pragma once

#include <CoreFoundation/CFRunLoop.h>

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

namespace CFRunLoopPrivate
{
using Clock = std::chrono::steady_clock;

struct SWatch
{
    int fd;
    short events; // for poll()
    // Work is already buffered: dispatch this watch without waiting for the descriptor.
    bool ready = false;
};

// The work behind a descriptor-driven source. Handle() runs on the run loop's thread, once
// per watch that poll() reported (or that was ready), and may run the loop again.
class IFdHandler
{
public:
    virtual ~IFdHandler() = default;
    virtual void CollectWatches(std::vector<SWatch>& watches) = 0;
    virtual void Handle(int fd, short revents) = 0;
};

// A new source (owned by the caller) that shares ownership of `handler`; the handler is
// released when the source is invalidated or destroyed.
CFRunLoopSourceRef CreateFdSource(CFIndex order, std::shared_ptr<IFdHandler> handler);

// A handler watched in every mode of `rl`, as long as it is registered (registrations are
// counted). Watchers do not count as sources: they never keep a mode from being empty.
void AddWatcher(CFRunLoopRef rl, const std::shared_ptr<IFdHandler>& handler);
void RemoveWatcher(CFRunLoopRef rl, const IFdHandler* handler);

// Runs the current thread's loop in `mode` until `done()` is true or `deadline` passes,
// serving the mode's sources and the watchers. Unlike CFRunLoopRunInMode it neither
// returns for an empty mode nor takes a CFRunLoopStop: a stop that arrives meanwhile is left
// for the run that was stopped.
void RunUntil(CFRunLoopMode mode, Clock::time_point deadline, const std::function<bool()>& done);

// Converts a time-out in seconds into a deadline; huge, infinite or NaN values mean never.
Clock::time_point DeadlineAfter(CFTimeInterval seconds);
} // namespace CFRunLoopPrivate
