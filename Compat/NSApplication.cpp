// The shared application: launching, the main run loop, termination as run-loop work.
#include "Compat/AEDispatch.h"
#include "Compat/AEEventPort.h"

#include <AppKit/AppKit.h>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

NSApplication* NSApp = nullptr;

const NSAppKitVersion NSAppKitVersionNumber = NSAppKitVersionNumber10_10;

const NSNotificationName NSApplicationWillFinishLaunchingNotification =
    CFSTR("NSApplicationWillFinishLaunchingNotification");
const NSNotificationName NSApplicationDidFinishLaunchingNotification =
    CFSTR("NSApplicationDidFinishLaunchingNotification");
const NSNotificationName NSApplicationWillTerminateNotification =
    CFSTR("NSApplicationWillTerminateNotification");

namespace
{
OSErr QuitHandler(const AppleEvent*, AppleEvent*, SRefCon)
{
    NSApp->terminate(nil);
    return noErr;
}
} // namespace

NSApplication* NSApplication::sharedApplication()
{
    // Never destroyed: a signal handler may reach it up to the last moment.
    static NSApplication* sShared = new NSApplication;
    NSApp = sShared;
    return sShared;
}

NSApplication::NSApplication()
{
    if (pipe2(mTerminatePipe, O_CLOEXEC | O_NONBLOCK) != 0)
    {
        mTerminatePipe[0] = mTerminatePipe[1] = -1;
    }
}

void NSApplication::finishLaunching()
{
    if (mLaunched)
    {
        return;
    }
    mLaunched = true;
    mRunLoop = CFRunLoopGetCurrent();

    if (mTerminatePipe[0] >= 0)
    {
        CFFileDescriptorContext context = {0, this, nullptr, nullptr, nullptr};
        mTerminateDescriptor =
            CFFileDescriptorCreate(nullptr, mTerminatePipe[0], false, TerminateCallBack, &context);
        CFFileDescriptorEnableCallBacks(mTerminateDescriptor, kCFFileDescriptorReadCallBack);
        mTerminateSource = CFFileDescriptorCreateRunLoopSource(nullptr, mTerminateDescriptor, 0);
        CFRunLoopAddSource(mRunLoop, mTerminateSource, kCFRunLoopCommonModes);
    }

    NSNotification willFinish(NSApplicationWillFinishLaunchingNotification, this);
    if (mDelegate)
    {
        mDelegate->applicationWillFinishLaunching(&willFinish);
    }

    if (AEGetEventHandler(kCoreEventClass, kAEQuitApplication, nullptr, nullptr, false) != noErr)
    {
        AEInstallEventHandler(kCoreEventClass, kAEQuitApplication, QuitHandler, nullptr, false);
    }
    AEEventPort::Open(mRunLoop);

    // The launch event goes out from the run loop, once it runs.
    CFRunLoopSourceContext context = {};
    context.info = this;
    context.perform = LaunchedPerform;
    mLaunchedSource = CFRunLoopSourceCreate(nullptr, 0, &context);
    CFRunLoopAddSource(mRunLoop, mLaunchedSource, kCFRunLoopDefaultMode);
    CFRunLoopSourceSignal(mLaunchedSource);
}

void NSApplication::LaunchedPerform(void* info)
{
    auto* app = static_cast<NSApplication*>(info);
    CFRunLoopSourceInvalidate(app->mLaunchedSource);
    CFRelease(app->mLaunchedSource);
    app->mLaunchedSource = nullptr;

    pid_t self = getpid();
    AEAddressDesc address;
    AppleEvent event;
    AppleEvent noReply;
    AEInitializeDesc(&noReply);
    AECreateDesc(typeKernelProcessID, &self, sizeof self, &address);
    if (AECreateAppleEvent(kCoreEventClass, kAEOpenApplication, &address, kAutoGenerateReturnID,
                           kAnyTransactionID, &event) == noErr)
    {
        AEDispatch::DispatchEvent(&event, &noReply);
    }
    AEDisposeDesc(&event);
    AEDisposeDesc(&address);

    NSNotification didFinish(NSApplicationDidFinishLaunchingNotification, app);
    if (app->mDelegate)
    {
        app->mDelegate->applicationDidFinishLaunching(&didFinish);
    }
}

void NSApplication::run()
{
    finishLaunching();
    mRunning = true;
    while (mRunning)
    {
        // The terminate source is always in the default mode, so this never spins on an
        // empty mode; it returns when the loop is stopped.
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1.0e10, false);
    }
}

void NSApplication::stop(const void*)
{
    mRunning = false;
    if (mRunLoop)
    {
        CFRunLoopStop(mRunLoop);
    }
}

void NSApplication::terminate(const void*)
{
    // Only async-signal-safe calls: this may run inside a signal handler.
    int savedErrno = errno;
    const char byte = 1;
    ssize_t written = write(mTerminatePipe[1], &byte, 1);
    (void)written; // a full pipe already holds a request
    errno = savedErrno;
}

void NSApplication::TerminateCallBack(CFFileDescriptorRef f, CFOptionFlags, void* info)
{
    auto* app = static_cast<NSApplication*>(info);
    char buffer[64];
    while (read(app->mTerminatePipe[0], buffer, sizeof buffer) > 0)
    {
    }
    CFFileDescriptorEnableCallBacks(f, kCFFileDescriptorReadCallBack);
    app->PerformTerminate();
}

void NSApplication::PerformTerminate()
{
    if (mTerminateLater)
    {
        return; // the delegate has yet to answer the earlier request
    }
    NSApplicationTerminateReply reply =
        mDelegate ? mDelegate->applicationShouldTerminate(this) : NSTerminateNow;
    if (reply == NSTerminateNow)
    {
        FinishTerminate();
    }
    else if (reply == NSTerminateLater)
    {
        mTerminateLater = true;
    }
}

void NSApplication::replyToApplicationShouldTerminate(bool shouldTerminate)
{
    if (!mTerminateLater)
    {
        return;
    }
    mTerminateLater = false;
    if (shouldTerminate)
    {
        FinishTerminate();
    }
}

void NSApplication::FinishTerminate()
{
    NSNotification willTerminate(NSApplicationWillTerminateNotification, this);
    if (mDelegate)
    {
        mDelegate->applicationWillTerminate(&willTerminate);
    }
    stop(nil);
}

int NSApplicationMain(int, const char*[])
{
    NSApplication::sharedApplication()->run();
    return 0;
}
