#include <CoreFoundation/CoreFoundation.h>
#include <KelSignalRunLoopSource.h>

#include "Compat/CFRunLoopPrivate.h"
#include "PortTestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

namespace
{
using Clock = std::chrono::steady_clock;

// A signalled source whose perform runs a test's function.
struct SPerformSource
{
    explicit SPerformSource(std::function<void()> action = {}, CFIndex order = 0)
        : mAction(std::move(action))
    {
        CFRunLoopSourceContext context = {};
        context.info = this;
        context.perform = [](void* info)
        {
            auto* self = static_cast<SPerformSource*>(info);
            ++self->mCount;
            if (self->mAction)
            {
                self->mAction();
            }
        };
        mSource = CFRunLoopSourceCreate(nullptr, order, &context);
    }
    ~SPerformSource()
    {
        CFRunLoopSourceInvalidate(mSource);
        CFRelease(mSource);
    }
    void Signal() { CFRunLoopSourceSignal(mSource); }

    std::function<void()> mAction;
    CFRunLoopSourceRef mSource;
    int mCount = 0;
};

TEST(CFRunLoopTests, InvalidationTakesASourceOutEverywhereAndReleasesItsInfo)
{
    static int released = 0;
    released = 0;
    int performed = 0;
    CFRunLoopSourceContext context = {};
    context.info = &performed;
    context.release = [](const void*) { ++released; };
    context.perform = [](void* info) { ++*static_cast<int*>(info); };
    CFRunLoopSourceRef source = CFRunLoopSourceCreate(nullptr, 0, &context);
    CFRunLoopRef rl = CFRunLoopGetCurrent();
    CFRunLoopAddSource(rl, source, kCFRunLoopCommonModes);
    CFRunLoopAddSource(rl, source, CFSTR("TestOtherMode"));
    EXPECT_GT(CFGetRetainCount(source), 1); // the loop holds it

    CFRunLoopSourceSignal(source);
    CFRunLoopSourceInvalidate(source);
    EXPECT_EQ(CFGetRetainCount(source), 1);
    CFRunLoopAddSource(rl, source, kCFRunLoopDefaultMode); // ignored: it is invalid
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.02, false), kCFRunLoopRunFinished);
    EXPECT_EQ(performed, 0);
    EXPECT_EQ(released, 0);
    CFRelease(source);
    EXPECT_EQ(released, 1);
}

TEST(CFRunLoopTests, FileDescriptorCallBacksAreOneShot)
{
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    int calls = 0;
    CFFileDescriptorContext context = {0, &calls, nullptr, nullptr, nullptr};
    CFFileDescriptorRef descriptor = CFFileDescriptorCreate(
        nullptr, fds[0], true,
        [](CFFileDescriptorRef, CFOptionFlags types, void* info)
        {
            EXPECT_EQ(types, kCFFileDescriptorReadCallBack);
            ++*static_cast<int*>(info);
        },
        &context);
    EXPECT_EQ(CFFileDescriptorGetNativeDescriptor(descriptor), fds[0]);
    CFRunLoopSourceRef source = CFFileDescriptorCreateRunLoopSource(nullptr, descriptor, 0);
    CFRunLoopRef rl = CFRunLoopGetCurrent();
    CFRunLoopAddSource(rl, source, kCFRunLoopDefaultMode);
    CFFileDescriptorEnableCallBacks(descriptor, kCFFileDescriptorReadCallBack);

    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.02, true), kCFRunLoopRunTimedOut);
    ASSERT_EQ(write(fds[1], "x", 1), 1);
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 5.0, true), kCFRunLoopRunHandledSource);
    EXPECT_EQ(calls, 1);
    // The byte is still unread, but the call-back is disabled until enabled again.
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.05, true), kCFRunLoopRunTimedOut);
    EXPECT_EQ(calls, 1);
    CFFileDescriptorEnableCallBacks(descriptor, kCFFileDescriptorReadCallBack);
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 5.0, true), kCFRunLoopRunHandledSource);
    EXPECT_EQ(calls, 2);

    CFFileDescriptorInvalidate(descriptor);
    EXPECT_EQ(fcntl(fds[0], F_GETFD), -1); // closed on invalidation
    CFRelease(source);
    CFRelease(descriptor);
    close(fds[1]);
}

TEST(CFRunLoopTests, RunUntilServesTheModeAndLeavesAStopForTheOuterRun)
{
    CFRunLoopRef rl = CFRunLoopGetCurrent();
    CFStringRef replyMode = CFSTR("TestReplyMode");
    SPerformSource served;
    CFRunLoopAddSource(rl, served.mSource, replyMode);
    served.Signal();
    CFRunLoopStop(rl);
    CFRunLoopPrivate::RunUntil(replyMode, CFRunLoopPrivate::DeadlineAfter(5.0),
                               [&] { return served.mCount == 1; });
    EXPECT_EQ(served.mCount, 1);
    // The stop is still pending for a normal run.
    EXPECT_EQ(CFRunLoopRunInMode(replyMode, 5.0, false), kCFRunLoopRunStopped);

    // An empty mode does not end the wait early; the deadline does.
    const auto start = Clock::now();
    CFRunLoopPrivate::RunUntil(CFSTR("TestEmptyMode"), CFRunLoopPrivate::DeadlineAfter(0.1),
                               [] { return false; });
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(100));
    CFRunLoopRemoveSource(rl, served.mSource, replyMode);
}

TEST(CFRunLoopTests, ASignalIsPerformedOnceWhateverHappensToOtherSignalledSources)
{
    CFRunLoopRef rl = CFRunLoopGetCurrent();
    SPerformSource kept;
    CFRunLoopAddSource(rl, kept.mSource, kCFRunLoopDefaultMode);
    kept.Signal();
    kept.Signal(); // twice before a pass: one perform
    {
        // Signalled, then invalidated and destroyed without ever being performed.
        SPerformSource dropped;
        CFRunLoopAddSource(rl, dropped.mSource, kCFRunLoopDefaultMode);
        dropped.Signal();
    }
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.02, false);
    EXPECT_EQ(kept.mCount, 1);
    kept.Signal();
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.02, false);
    EXPECT_EQ(kept.mCount, 2);
    CFRunLoopRemoveSource(rl, kept.mSource, kCFRunLoopDefaultMode);
}
} // namespace

// Timers fire in their modes once their date has passed: a repeating one every interval,
// a one-shot one once; a mode with only a timer is not empty; invalidation ends a timer.
TEST(CFRunLoopTests, TimersFireInTheirModesAtTheirDates)
{
    struct SFired
    {
        int repeating = 0;
        int once = 0;
    } fired;
    auto count = [](CFRunLoopTimerRef, void* info) { ++*static_cast<int*>(info); };
    CFRunLoopTimerContext repeatingContext = {0, &fired.repeating, nullptr, nullptr, nullptr};
    CFRunLoopTimerContext onceContext = {0, &fired.once, nullptr, nullptr, nullptr};
    const CFAbsoluteTime now = CFAbsoluteTimeGetCurrent();
    CFRunLoopTimerRef repeating =
        CFRunLoopTimerCreate(nullptr, now + 0.05, 0.05, 0, 0, count, &repeatingContext);
    CFRunLoopTimerRef once =
        CFRunLoopTimerCreate(nullptr, now + 0.01, 0, 0, 0, count, &onceContext);
    CFRunLoopRef loop = CFRunLoopGetCurrent();
    CFRunLoopAddTimer(loop, repeating, kCFRunLoopCommonModes);
    CFRunLoopAddTimer(loop, once, CFSTR("TimerTestMode"));

    // Only the one-shot timer is in the private mode: the run lasts until it has fired, and
    // then finds the mode empty.
    EXPECT_EQ(CFRunLoopRunInMode(CFSTR("TimerTestMode"), 0.2, false), kCFRunLoopRunFinished);
    EXPECT_EQ(fired.once, 1);
    EXPECT_EQ(fired.repeating, 0);

    const auto start = Clock::now();
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.32, false), kCFRunLoopRunTimedOut);
    const auto seconds = std::chrono::duration<double>(Clock::now() - start).count();
    // Missed firings (it was due during the private run) are skipped, not made up.
    EXPECT_GE(fired.repeating, 3);
    EXPECT_LE(fired.repeating, static_cast<int>(seconds / 0.05) + 1);
    EXPECT_EQ(fired.once, 1);

    // A timer of the loop can go into another of its modes too.
    const int before = fired.repeating;
    CFRunLoopAddTimer(loop, repeating, CFSTR("TimerTestMode"));
    EXPECT_EQ(CFRunLoopRunInMode(CFSTR("TimerTestMode"), 0.12, false), kCFRunLoopRunTimedOut);
    EXPECT_GT(fired.repeating, before);
    CFRunLoopTimerInvalidate(repeating);
    EXPECT_EQ(CFRunLoopRunInMode(CFSTR("TimerTestMode"), 0.1, false), kCFRunLoopRunFinished);
    CFRelease(repeating);
    CFRelease(once);
}

// A timer that outlives the loop of its thread is invalid from then on: invalidating it
// later touches nothing of that loop.
TEST(CFRunLoopTests, ATimerOutlivesItsThreadsLoop)
{
    CFRunLoopTimerRef timer = CFRunLoopTimerCreate(
        nullptr, CFAbsoluteTimeGetCurrent() + 60, 0, 0, 0, [](CFRunLoopTimerRef, void*) {},
        nullptr);
    std::thread([timer] { CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode); })
        .join();
    CFRunLoopTimerInvalidate(timer);
    CFRelease(timer);
}
