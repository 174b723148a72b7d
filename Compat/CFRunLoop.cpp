#include <CoreFoundation/CFRunLoop.h>

#include "Compat/CFRunLoopPrivate.h"
#include "Compat/CFRuntime.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

using CFRunLoopPrivate::Clock;
using CFRunLoopPrivate::IFdHandler;
using CFRunLoopPrivate::SWatch;
using CFRuntime::Fatal;

const CFRunLoopMode kCFRunLoopDefaultMode = CFSTR("kCFRunLoopDefaultMode");
const CFRunLoopMode kCFRunLoopCommonModes = CFSTR("kCFRunLoopCommonModes");

namespace
{
// The name under which a source added to the common modes is recorded.
const char* const kCommonModes = "kCFRunLoopCommonModes";
const char* const kDefaultMode = "kCFRunLoopDefaultMode";

// How many sources are signalled and not yet performed, over all loops: a pass of a loop
// looks for signalled sources only when there is one somewhere, which is seldom, instead of
// taking its lock and going through its sources every time.
std::atomic<int> gSignaledSources{0};
} // namespace

// Either a signalled source (version 0: a context whose perform runs after each signal) or
// a descriptor-driven one (a handler). It remembers where it is scheduled so that
// invalidation can take it out everywhere.
struct __CFRunLoopSource : CFRuntime::CFObject
{
    __CFRunLoopSource() : CFObject(CFRuntime::eTypeIDRunLoopSource) {}
    ~__CFRunLoopSource() override
    {
        if (mSignaled.load())
        {
            gSignaledSources.fetch_sub(1);
        }
        if (mHasContext && mContext.release != nullptr)
        {
            mContext.release(mContext.info);
        }
    }

    CFIndex mOrder = 0;
    std::atomic<bool> mValid{true};
    std::atomic<bool> mSignaled{false};
    bool mHasContext = false;
    CFRunLoopSourceContext mContext{};
    std::shared_ptr<IFdHandler> mHandler; // guarded by mLock

    std::mutex mLock;
    std::vector<std::pair<CFRunLoopRef, std::string>> mScheduled; // guarded by mLock
};

struct __CFRunLoopTimer : CFRuntime::CFObject
{
    __CFRunLoopTimer() : CFObject(CFRuntime::eTypeIDRunLoopTimer) {}
    ~__CFRunLoopTimer() override
    {
        if (mContext.release != nullptr)
        {
            mContext.release(mContext.info);
        }
    }

    std::atomic<bool> mValid{true};
    Clock::time_point mFire; // guarded by the lock of the loop it is added to
    CFTimeInterval mInterval = 0;
    CFRunLoopTimerCallBack mCallout = nullptr;
    CFRunLoopTimerContext mContext{};
    std::atomic<CFRunLoopRef> mLoop{nullptr};
};

struct __CFRunLoop : CFRuntime::CFObject
{
    __CFRunLoop() : CFObject(CFRuntime::eTypeIDRunLoop)
    {
        mWakeFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        if (mWakeFd < 0)
        {
            Fatal("CFRunLoopGetCurrent", "cannot create the wake-up descriptor");
        }
        mCommonModes.insert(kDefaultMode);
    }
    ~__CFRunLoop() override { close(mWakeFd); }

    std::mutex mLock;
    std::map<std::string, std::vector<CFRunLoopSourceRef>> mModes; // retained, by order
    std::set<std::string> mCommonModes;
    std::vector<CFRunLoopSourceRef> mCommonSources; // retained
    std::vector<std::pair<std::shared_ptr<IFdHandler>, int>> mWatchers;
    // Timers (retained) with the mode each was added to (kCommonModes for the common ones),
    // and how many there are, so that a pass of a loop without timers takes no lock for them.
    std::vector<std::pair<CFRunLoopTimerRef, std::string>> mTimers;
    std::atomic<size_t> mTimerCount{0};
    // Changes, under mLock and before the change, whenever a source joins or leaves a mode,
    // so that a pass knows its snapshot still holds without asking again.
    std::atomic<std::uint64_t> mGeneration{0};

    int mWakeFd = -1;
    std::atomic<bool> mStopped{false};

    // What one pass of the loop collects, kept from pass to pass so that a pass allocates
    // nothing once the loop has run a while; one set per nesting level, since a call-back
    // may run the loop again. Only touched by the own thread.
    struct SOwner
    {
        IFdHandler* handler;
        CFRunLoopSourceRef source; // NULL for a watcher
        std::shared_ptr<IFdHandler> keep;
        bool ready;
    };
    struct SPass
    {
        std::vector<CFRunLoopSourceRef> sources; // retained while the pass runs
        std::vector<std::shared_ptr<IFdHandler>> watchers;
        std::vector<pollfd> fds;
        std::vector<SOwner> owners;
        std::vector<SWatch> watches;
    };
    std::vector<std::unique_ptr<SPass>> mPasses;
    size_t mPassDepth = 0;
};

namespace
{
__CFRunLoop* Loop(CFRunLoopRef rl, const char* function)
{
    CFRuntime::Object(rl, function);
    if (rl->mTypeID != CFRuntime::eTypeIDRunLoop)
    {
        Fatal(function, "not a CFRunLoop");
    }
    return rl;
}

__CFRunLoopSource* Source(CFRunLoopSourceRef source, const char* function)
{
    CFRuntime::Object(source, function);
    if (source->mTypeID != CFRuntime::eTypeIDRunLoopSource)
    {
        Fatal(function, "not a CFRunLoopSource");
    }
    return source;
}

bool IsMainThread()
{
    return syscall(SYS_gettid) == getpid();
}

std::mutex gMainLock;
CFRunLoopRef gMain = nullptr;

CFRunLoopRef MainLoop()
{
    std::lock_guard<std::mutex> guard(gMainLock);
    if (gMain == nullptr)
    {
        gMain = new __CFRunLoop;
        gMain->mImmortal = true;
    }
    return gMain;
}

void RemoveFromVector(std::vector<CFRunLoopSourceRef>& sources, CFRunLoopSourceRef source,
                      std::vector<CFRunLoopSourceRef>& released)
{
    auto found = std::find(sources.begin(), sources.end(), source);
    if (found != sources.end())
    {
        sources.erase(found);
        released.push_back(source);
    }
}

void InsertByOrder(std::vector<CFRunLoopSourceRef>& sources, CFRunLoopSourceRef source)
{
    if (std::find(sources.begin(), sources.end(), source) != sources.end())
    {
        return;
    }
    auto position = std::upper_bound(sources.begin(), sources.end(), source,
                                     [](CFRunLoopSourceRef a, CFRunLoopSourceRef b)
                                     { return a->mOrder < b->mOrder; });
    sources.insert(position, CFRuntime::Retained(source));
}

// Tears down a thread's loop when the thread ends: its sources are taken out (they may
// outlive it) and it is released.
struct SThreadLoop
{
    CFRunLoopRef mLoop = nullptr;
    ~SThreadLoop()
    {
        if (mLoop == nullptr)
        {
            return;
        }
        std::set<CFRunLoopSourceRef> sources;
        {
            std::lock_guard<std::mutex> guard(mLoop->mLock);
            for (const auto& [name, list] : mLoop->mModes)
            {
                sources.insert(list.begin(), list.end());
            }
            sources.insert(mLoop->mCommonSources.begin(), mLoop->mCommonSources.end());
        }
        for (CFRunLoopSourceRef source : sources)
        {
            std::lock_guard<std::mutex> guard(source->mLock);
            auto& scheduled = source->mScheduled;
            scheduled.erase(std::remove_if(scheduled.begin(), scheduled.end(),
                                           [this](const auto& entry)
                                           { return entry.first == mLoop; }),
                            scheduled.end());
        }
        {
            std::lock_guard<std::mutex> guard(mLoop->mLock);
            ++mLoop->mGeneration;
            for (auto& [name, list] : mLoop->mModes)
            {
                for (CFRunLoopSourceRef source : list)
                {
                    CFRelease(source);
                }
            }
            for (CFRunLoopSourceRef source : mLoop->mCommonSources)
            {
                CFRelease(source);
            }
            mLoop->mModes.clear();
            mLoop->mCommonSources.clear();
            mLoop->mWatchers.clear();
            for (auto& [timer, mode] : mLoop->mTimers)
            {
                timer->mValid.store(false);
                CFRelease(timer);
            }
            mLoop->mTimers.clear();
            mLoop->mTimerCount.store(0);
        }
        CFRelease(mLoop);
    }
};

thread_local SThreadLoop tThreadLoop;

void CallSchedule(CFRunLoopSourceRef source, CFRunLoopRef rl, const std::string& mode)
{
    if (source->mHasContext && source->mContext.schedule != nullptr)
    {
        CFStringRef name = CFStringCreateWithCString(nullptr, mode.c_str(), kCFStringEncodingUTF8);
        source->mContext.schedule(source->mContext.info, rl, name);
        CFRelease(name);
    }
}

void CallCancel(CFRunLoopSourceRef source, CFRunLoopRef rl, const std::string& mode)
{
    if (source->mHasContext && source->mContext.cancel != nullptr)
    {
        CFStringRef name = CFStringCreateWithCString(nullptr, mode.c_str(), kCFStringEncodingUTF8);
        source->mContext.cancel(source->mContext.info, rl, name);
        CFRelease(name);
    }
}

// A mode being run: its name and, once the loop has the mode, the mode's source list. The
// loop never removes a mode while it lives, so the list is looked up once per run rather
// than by name at every pass.
struct SRunMode
{
    explicit SRunMode(const std::string& name) : mName(name) {}
    const std::string& mName;
    std::vector<CFRunLoopSourceRef>* mSources = nullptr;
};

// The mode's sources, NULL while the loop has never had the mode; rl->mLock must be held.
std::vector<CFRunLoopSourceRef>* ModeSources(__CFRunLoop* rl, SRunMode& mode)
{
    if (mode.mSources == nullptr)
    {
        auto found = rl->mModes.find(mode.mName);
        if (found != rl->mModes.end())
        {
            mode.mSources = &found->second;
        }
    }
    return mode.mSources;
}

// Appends the sources of a mode to `sources`, retained for the caller, in order; only those
// with a context (signalled sources) when `signalledOnly`.
// Returns the loop's generation that the snapshot is of.
std::uint64_t SnapshotSources(__CFRunLoop* rl, SRunMode& mode,
                              std::vector<CFRunLoopSourceRef>& sources, bool signalledOnly = false)
{
    std::lock_guard<std::mutex> guard(rl->mLock);
    if (const std::vector<CFRunLoopSourceRef>* list = ModeSources(rl, mode))
    {
        for (CFRunLoopSourceRef source : *list)
        {
            if (!signalledOnly || source->mHasContext)
            {
                sources.push_back(CFRuntime::Retained(source));
            }
        }
    }
    return rl->mGeneration.load();
}

// The scratch of the pass about to run at the current nesting level (see SPass).
class StPass
{
public:
    explicit StPass(__CFRunLoop* rl) : mLoop(rl)
    {
        if (rl->mPasses.size() <= rl->mPassDepth)
        {
            rl->mPasses.push_back(std::make_unique<__CFRunLoop::SPass>());
        }
        mPass = rl->mPasses[rl->mPassDepth++].get();
    }
    ~StPass()
    {
        mPass->sources.clear();
        mPass->watchers.clear();
        mPass->owners.clear(); // drops the handlers kept alive for the pass
        --mLoop->mPassDepth;
    }
    __CFRunLoop::SPass* operator->() const { return mPass; }

private:
    __CFRunLoop* mLoop;
    __CFRunLoop::SPass* mPass;
};

void ReleaseAll(std::vector<CFRunLoopSourceRef>& sources)
{
    for (CFRunLoopSourceRef source : sources)
    {
        CFRelease(source);
    }
    sources.clear();
}

bool ModeHasSource(__CFRunLoop* rl, SRunMode& mode, CFRunLoopSourceRef source)
{
    std::lock_guard<std::mutex> guard(rl->mLock);
    const std::vector<CFRunLoopSourceRef>* list = ModeSources(rl, mode);
    return list != nullptr && std::find(list->begin(), list->end(), source) != list->end();
}

// Whether a timer added to `timerMode` runs in the mode being run; rl->mLock must be held.
bool TimerRunsIn(__CFRunLoop* rl, const std::string& timerMode, const SRunMode& mode)
{
    return timerMode == mode.mName ||
           (timerMode == kCommonModes && rl->mCommonModes.count(mode.mName) != 0);
}

bool ModeIsEmpty(__CFRunLoop* rl, SRunMode& mode)
{
    std::lock_guard<std::mutex> guard(rl->mLock);
    const std::vector<CFRunLoopSourceRef>* list = ModeSources(rl, mode);
    if (list != nullptr && !list->empty())
    {
        return false;
    }
    return std::none_of(rl->mTimers.begin(), rl->mTimers.end(),
                        [&](const auto& entry) { return TimerRunsIn(rl, entry.second, mode); });
}

// The earliest fire date of the mode's timers; time_point::max() when there is none.
Clock::time_point NextTimerFire(__CFRunLoop* rl, const SRunMode& mode)
{
    Clock::time_point next = Clock::time_point::max();
    if (rl->mTimerCount.load() == 0)
    {
        return next;
    }
    std::lock_guard<std::mutex> guard(rl->mLock);
    for (const auto& [timer, timerMode] : rl->mTimers)
    {
        if (TimerRunsIn(rl, timerMode, mode))
        {
            next = std::min(next, timer->mFire);
        }
    }
    return next;
}

// Runs the call-out of every timer of the mode whose fire date has passed, after moving a
// repeating one to its next date in the future and taking a one-shot one out.
void FireDueTimers(__CFRunLoop* rl, const SRunMode& mode)
{
    if (rl->mTimerCount.load() == 0)
    {
        return;
    }
    std::vector<CFRunLoopTimerRef> due; // retained
    const Clock::time_point now = Clock::now();
    {
        std::lock_guard<std::mutex> guard(rl->mLock);
        for (const auto& [timer, timerMode] : rl->mTimers)
        {
            if (timer->mFire <= now && TimerRunsIn(rl, timerMode, mode))
            {
                due.push_back(CFRuntime::Retained(timer));
                if (timer->mInterval > 0)
                {
                    const auto interval = std::chrono::duration_cast<Clock::duration>(
                        std::chrono::duration<double>(timer->mInterval));
                    while (timer->mFire <= now)
                    {
                        timer->mFire += interval;
                    }
                }
            }
        }
    }
    for (CFRunLoopTimerRef timer : due)
    {
        // An earlier call-out may have invalidated it.
        if (timer->mValid.load())
        {
            if (timer->mInterval <= 0)
            {
                CFRunLoopTimerInvalidate(timer);
            }
            timer->mCallout(timer, timer->mContext.info);
        }
        CFRelease(timer);
    }
}

// Runs the perform call-back of every signalled source of the mode, in order.
bool PerformSignaled(__CFRunLoop* rl, SRunMode& mode)
{
    if (gSignaledSources.load() == 0)
    {
        return false;
    }
    StPass pass(rl);
    std::vector<CFRunLoopSourceRef>& sources = pass->sources;
    SnapshotSources(rl, mode, sources, true);
    bool handled = false;
    for (CFRunLoopSourceRef source : sources)
    {
        if (!source->mHasContext || !source->mValid.load())
        {
            continue;
        }
        if (source->mSignaled.exchange(false))
        {
            gSignaledSources.fetch_sub(1);
            if (source->mContext.perform != nullptr)
            {
                source->mContext.perform(source->mContext.info);
            }
            handled = true;
        }
    }
    ReleaseAll(sources);
    return handled;
}

int PollTimeout(Clock::time_point deadline, bool immediate)
{
    if (immediate)
    {
        return 0;
    }
    if (deadline == Clock::time_point::max())
    {
        return -1;
    }
    const auto remaining = deadline - Clock::now();
    if (remaining <= Clock::duration::zero())
    {
        return 0;
    }
    const auto ms = std::chrono::ceil<std::chrono::milliseconds>(remaining).count();
    return ms > INT_MAX ? INT_MAX : static_cast<int>(ms);
}

// One pass: waits in poll() for the sources of the mode and the watchers, then dispatches
// what is ready, watchers first. Returns whether a source (not a watcher) was handled.
bool WaitAndDispatch(__CFRunLoop* rl, SRunMode& mode, Clock::time_point deadline)
{
    StPass pass(rl);
    std::vector<CFRunLoopSourceRef>& sources = pass->sources;
    const std::uint64_t generation = SnapshotSources(rl, mode, sources);
    std::vector<std::shared_ptr<IFdHandler>>& watchers = pass->watchers;
    {
        std::lock_guard<std::mutex> guard(rl->mLock);
        for (const auto& entry : rl->mWatchers)
        {
            watchers.push_back(entry.first);
        }
    }

    std::vector<pollfd>& fds = pass->fds;
    std::vector<__CFRunLoop::SOwner>& owners = pass->owners;
    fds.assign(1, {rl->mWakeFd, POLLIN, 0});
    owners.push_back({nullptr, nullptr, nullptr, false});
    bool immediate = false;
    std::vector<SWatch>& watches = pass->watches;
    auto collect = [&](const std::shared_ptr<IFdHandler>& handler, CFRunLoopSourceRef source)
    {
        watches.clear();
        handler->CollectWatches(watches);
        for (const SWatch& watch : watches)
        {
            fds.push_back({watch.fd, watch.events, 0});
            owners.push_back({handler.get(), source, handler, watch.ready});
            immediate = immediate || watch.ready;
        }
    };
    for (const auto& watcher : watchers)
    {
        collect(watcher, nullptr);
    }
    for (CFRunLoopSourceRef source : sources)
    {
        if (!source->mValid.load())
        {
            continue;
        }
        if (source->mHasContext)
        {
            immediate = immediate || source->mSignaled.load();
            continue;
        }
        std::shared_ptr<IFdHandler> handler;
        {
            std::lock_guard<std::mutex> guard(source->mLock);
            handler = source->mHandler;
        }
        if (handler)
        {
            collect(handler, source);
        }
    }

    const int count = poll(fds.data(), fds.size(),
                           PollTimeout(std::min(deadline, NextTimerFire(rl, mode)), immediate));
    if (count < 0)
    {
        // EINTR: a signal arrived; the caller's loop looks at its state again.
        for (auto& fd : fds)
        {
            fd.revents = 0;
        }
    }
    if ((fds[0].revents & POLLIN) != 0)
    {
        eventfd_t value;
        eventfd_read(rl->mWakeFd, &value);
    }

    bool handled = false;
    for (size_t i = 1; i < fds.size(); ++i)
    {
        const __CFRunLoop::SOwner& owner = owners[i];
        if (fds[i].revents == 0 && !owner.ready)
        {
            continue;
        }
        if (owner.source != nullptr)
        {
            // An earlier call-back may have removed or invalidated it; the mode's list is
            // asked again only when some source came or went since the snapshot.
            if (!owner.source->mValid.load() ||
                (rl->mGeneration.load() != generation && !ModeHasSource(rl, mode, owner.source)))
            {
                continue;
            }
            handled = true;
        }
        owner.handler->Handle(fds[i].fd, fds[i].revents);
    }
    ReleaseAll(sources);
    FireDueTimers(rl, mode);
    return handled;
}

// Keeps the name of a running mode alive for the run (a call-back may release the string).
class StRetainedMode
{
public:
    explicit StRetainedMode(CFStringRef mode) : mMode(mode) { CFRetain(mMode); }
    ~StRetainedMode() { CFRelease(mMode); }
    StRetainedMode(const StRetainedMode&) = delete;
    StRetainedMode& operator=(const StRetainedMode&) = delete;

private:
    CFStringRef mMode;
};

CFRunLoopRunResult RunSpecific(__CFRunLoop* rl, const std::string& name, Clock::time_point deadline,
                               bool returnAfterSourceHandled)
{
    SRunMode mode(name);
    for (;;)
    {
        if (rl->mStopped.exchange(false))
        {
            return kCFRunLoopRunStopped;
        }
        if (ModeIsEmpty(rl, mode))
        {
            return kCFRunLoopRunFinished;
        }
        bool handled = PerformSignaled(rl, mode);
        if (!(handled && returnAfterSourceHandled))
        {
            if (rl->mStopped.exchange(false))
            {
                return kCFRunLoopRunStopped;
            }
            handled = WaitAndDispatch(rl, mode, deadline) || handled;
        }
        if (handled && returnAfterSourceHandled)
        {
            return kCFRunLoopRunHandledSource;
        }
        if (rl->mStopped.exchange(false))
        {
            return kCFRunLoopRunStopped;
        }
        if (Clock::now() >= deadline)
        {
            return kCFRunLoopRunTimedOut;
        }
    }
}
} // namespace

namespace CFRunLoopPrivate
{
Clock::time_point DeadlineAfter(CFTimeInterval seconds)
{
    // Beyond about thirty years a time-out means "never".
    if (std::isnan(seconds) || seconds > 1.0e9)
    {
        return Clock::time_point::max();
    }
    if (seconds <= 0)
    {
        return Clock::now();
    }
    return Clock::now() +
           std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

CFRunLoopSourceRef CreateFdSource(CFIndex order, std::shared_ptr<IFdHandler> handler)
{
    auto* source = new __CFRunLoopSource;
    source->mOrder = order;
    source->mHandler = std::move(handler);
    return source;
}

void AddWatcher(CFRunLoopRef rl, const std::shared_ptr<IFdHandler>& handler)
{
    __CFRunLoop* loop = Loop(rl, "AddWatcher");
    {
        std::lock_guard<std::mutex> guard(loop->mLock);
        for (auto& entry : loop->mWatchers)
        {
            if (entry.first == handler)
            {
                ++entry.second;
                return;
            }
        }
        loop->mWatchers.emplace_back(handler, 1);
    }
    // A loop waiting in poll() must look again; the calling thread's own loop is not waiting.
    if (tThreadLoop.mLoop != rl)
    {
        CFRunLoopWakeUp(rl);
    }
}

void RemoveWatcher(CFRunLoopRef rl, const IFdHandler* handler)
{
    __CFRunLoop* loop = Loop(rl, "RemoveWatcher");
    std::shared_ptr<IFdHandler> last; // destroyed outside the lock
    std::lock_guard<std::mutex> guard(loop->mLock);
    for (auto entry = loop->mWatchers.begin(); entry != loop->mWatchers.end(); ++entry)
    {
        if (entry->first.get() == handler)
        {
            if (--entry->second == 0)
            {
                last = std::move(entry->first);
                loop->mWatchers.erase(entry);
            }
            return;
        }
    }
}

void RunUntil(CFRunLoopMode mode, Clock::time_point deadline, const std::function<bool()>& done)
{
    __CFRunLoop* rl = CFRunLoopGetCurrent();
    StRetainedMode retained(mode);
    const std::string& name = CFRuntime::StringUTF8Ref(mode);
    SRunMode runMode(name);
    while (!done())
    {
        PerformSignaled(rl, runMode);
        if (done())
        {
            return;
        }
        WaitAndDispatch(rl, runMode, deadline);
        if (Clock::now() >= deadline)
        {
            return;
        }
    }
}
} // namespace CFRunLoopPrivate

CFRunLoopRef CFRunLoopGetCurrent(void)
{
    if (tThreadLoop.mLoop == nullptr)
    {
        tThreadLoop.mLoop =
            IsMainThread() ? MainLoop() : new __CFRunLoop; // the main loop is immortal
    }
    return tThreadLoop.mLoop;
}

void CFRunLoopRun(void)
{
    __CFRunLoop* rl = CFRunLoopGetCurrent();
    for (;;)
    {
        const CFRunLoopRunResult result =
            RunSpecific(rl, kDefaultMode, Clock::time_point::max(), false);
        if (result == kCFRunLoopRunStopped || result == kCFRunLoopRunFinished)
        {
            return;
        }
    }
}

CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                      Boolean returnAfterSourceHandled)
{
    CFRuntime::Object(mode, "CFRunLoopRunInMode");
    StRetainedMode retained(mode);
    return RunSpecific(CFRunLoopGetCurrent(), CFRuntime::StringUTF8Ref(mode),
                       CFRunLoopPrivate::DeadlineAfter(seconds), returnAfterSourceHandled);
}

void CFRunLoopStop(CFRunLoopRef rl)
{
    Loop(rl, "CFRunLoopStop")->mStopped.store(true);
    CFRunLoopWakeUp(rl);
}

void CFRunLoopWakeUp(CFRunLoopRef rl)
{
    eventfd_write(Loop(rl, "CFRunLoopWakeUp")->mWakeFd, 1);
}

void CFRunLoopAddSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode)
{
    __CFRunLoop* loop = Loop(rl, "CFRunLoopAddSource");
    __CFRunLoopSource* item = Source(source, "CFRunLoopAddSource");
    if (!item->mValid.load())
    {
        return;
    }
    const std::string name = CFRuntime::StringUTF8(mode);
    std::vector<std::string> modes;
    {
        std::lock_guard<std::mutex> guard(loop->mLock);
        ++loop->mGeneration;
        if (name == kCommonModes)
        {
            if (std::find(loop->mCommonSources.begin(), loop->mCommonSources.end(), source) !=
                loop->mCommonSources.end())
            {
                return;
            }
            loop->mCommonSources.push_back(CFRuntime::Retained(source));
            modes.assign(loop->mCommonModes.begin(), loop->mCommonModes.end());
        }
        else
        {
            modes.push_back(name);
        }
        for (const std::string& each : modes)
        {
            InsertByOrder(loop->mModes[each], source);
        }
    }
    {
        std::lock_guard<std::mutex> guard(item->mLock);
        item->mScheduled.emplace_back(rl, name);
    }
    for (const std::string& each : modes)
    {
        CallSchedule(source, rl, each);
    }
    CFRunLoopWakeUp(rl);
}

void CFRunLoopRemoveSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode)
{
    __CFRunLoop* loop = Loop(rl, "CFRunLoopRemoveSource");
    __CFRunLoopSource* item = Source(source, "CFRunLoopRemoveSource");
    const std::string name = CFRuntime::StringUTF8(mode);
    std::vector<CFRunLoopSourceRef> released;
    std::vector<std::string> modes;
    {
        std::lock_guard<std::mutex> guard(loop->mLock);
        ++loop->mGeneration;
        if (name == kCommonModes)
        {
            RemoveFromVector(loop->mCommonSources, source, released);
            if (released.empty())
            {
                return;
            }
            modes.assign(loop->mCommonModes.begin(), loop->mCommonModes.end());
        }
        else
        {
            modes.push_back(name);
        }
        for (const std::string& each : modes)
        {
            auto found = loop->mModes.find(each);
            if (found != loop->mModes.end())
            {
                RemoveFromVector(found->second, source, released);
            }
        }
    }
    {
        std::lock_guard<std::mutex> guard(item->mLock);
        auto& scheduled = item->mScheduled;
        auto found = std::find(scheduled.begin(), scheduled.end(), std::make_pair(rl, name));
        if (found != scheduled.end())
        {
            scheduled.erase(found);
        }
    }
    for (const std::string& each : modes)
    {
        CallCancel(source, rl, each);
    }
    ReleaseAll(released);
}

CFRunLoopSourceRef CFRunLoopSourceCreate(CFAllocatorRef, CFIndex order,
                                         CFRunLoopSourceContext* context)
{
    if (context == nullptr || context->version != 0)
    {
        return nullptr;
    }
    auto* source = new __CFRunLoopSource;
    source->mOrder = order;
    source->mHasContext = true;
    source->mContext = *context;
    if (context->retain != nullptr)
    {
        source->mContext.info = const_cast<void*>(context->retain(context->info));
    }
    return source;
}

void CFRunLoopSourceSignal(CFRunLoopSourceRef source)
{
    __CFRunLoopSource* item = Source(source, "CFRunLoopSourceSignal");
    // Counted before the flag shows, so that a loop that sees the flag also sees the count.
    gSignaledSources.fetch_add(1);
    if (item->mSignaled.exchange(true))
    {
        gSignaledSources.fetch_sub(1); // was signalled already
    }
}

void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source)
{
    __CFRunLoopSource* item = Source(source, "CFRunLoopSourceInvalidate");
    if (!item->mValid.exchange(false))
    {
        return;
    }
    if (item->mSignaled.exchange(false))
    {
        gSignaledSources.fetch_sub(1); // an invalid source is never performed
    }
    CFRetain(source); // removal may drop the last reference held by the loops
    std::vector<std::pair<CFRunLoopRef, std::string>> scheduled;
    std::shared_ptr<IFdHandler> handler;
    {
        std::lock_guard<std::mutex> guard(item->mLock);
        scheduled = item->mScheduled;
        handler = std::move(item->mHandler);
    }
    for (const auto& [rl, mode] : scheduled)
    {
        CFStringRef name = CFStringCreateWithCString(nullptr, mode.c_str(), kCFStringEncodingUTF8);
        CFRunLoopRemoveSource(rl, source, name);
        CFRelease(name);
    }
    handler.reset();
    CFRelease(source);
}

CFAbsoluteTime CFAbsoluteTimeGetCurrent(void)
{
    // The reference date is 978,307,200 seconds after the Unix epoch.
    constexpr double kReferenceDate = 978307200.0;
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
               .count() -
           kReferenceDate;
}

CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef, CFAbsoluteTime fireDate,
                                       CFTimeInterval interval, CFOptionFlags, CFIndex,
                                       CFRunLoopTimerCallBack callout,
                                       CFRunLoopTimerContext* context)
{
    if (callout == nullptr)
    {
        return nullptr;
    }
    auto* timer = new __CFRunLoopTimer;
    timer->mFire = CFRunLoopPrivate::DeadlineAfter(fireDate - CFAbsoluteTimeGetCurrent());
    timer->mInterval = interval;
    timer->mCallout = callout;
    if (context != nullptr)
    {
        timer->mContext = *context;
        if (context->retain != nullptr)
        {
            timer->mContext.info = const_cast<void*>(context->retain(context->info));
        }
    }
    return timer;
}

void CFRunLoopAddTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFRunLoopMode mode)
{
    __CFRunLoop* loop = Loop(rl, "CFRunLoopAddTimer");
    CFRuntime::Object(timer, "CFRunLoopAddTimer");
    CFRunLoopRef expected = nullptr;
    if (!timer->mValid.load() ||
        (!timer->mLoop.compare_exchange_strong(expected, rl) && expected != rl))
    {
        return; // invalid, or another loop's
    }
    const std::string name = CFRuntime::StringUTF8(mode);
    {
        std::lock_guard<std::mutex> guard(loop->mLock);
        for (const auto& entry : loop->mTimers)
        {
            if (entry.first == timer && entry.second == name)
            {
                return;
            }
        }
        loop->mTimers.emplace_back(CFRuntime::Retained(timer), name);
        loop->mTimerCount.store(loop->mTimers.size());
    }
    CFRunLoopWakeUp(rl);
}

void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer)
{
    CFRuntime::Object(timer, "CFRunLoopTimerInvalidate");
    if (!timer->mValid.exchange(false))
    {
        return;
    }
    CFRunLoopRef rl = timer->mLoop.load();
    if (rl == nullptr)
    {
        return;
    }
    std::vector<CFRunLoopTimerRef> released;
    {
        std::lock_guard<std::mutex> guard(rl->mLock);
        auto& timers = rl->mTimers;
        for (auto entry = timers.begin(); entry != timers.end();)
        {
            if (entry->first == timer)
            {
                released.push_back(entry->first);
                entry = timers.erase(entry);
            }
            else
            {
                ++entry;
            }
        }
        rl->mTimerCount.store(timers.size());
    }
    for (CFRunLoopTimerRef each : released)
    {
        CFRelease(each);
    }
}
