// The application object and its delegate, in C++.
//
// Objective-C cannot be compiled here, so the interfaces keep their names and their shape
// in C++. The mapping:
//
//   Objective-C                                   C++
//   [NSApplication sharedApplication], NSApp      NSApplication::sharedApplication(), NSApp
//   [NSApp setDelegate:d], [NSApp delegate]       NSApp->setDelegate(&d), NSApp->delegate()
//   [NSApp terminate:nil]                         NSApp->terminate(nil)
//   [NSApp stop:nil], [NSApp run]                 NSApp->stop(nil), NSApp->run()
//   [NSApp replyToApplicationShouldTerminate:b]   NSApp->replyToApplicationShouldTerminate(b)
//   @protocol NSApplicationDelegate               class NSApplicationDelegate: its optional
//                                                 methods are virtual with empty defaults
//   -applicationWillFinishLaunching:(NSNotification*)
//                                                 applicationWillFinishLaunching(NSNotification*)
//   the delegate object of the main nib           an instance the program gives to
//                                                 setDelegate() before NSApplicationMain
//   NSApplicationMain(argc, argv)                 NSApplicationMain(argc, argv)
//
// What the application does, in order:
//   NSApplicationMain runs the shared application on the calling thread's run loop. Launching
//   calls applicationWillFinishLaunching:, opens the application's Apple Event port (see
//   HIToolbox/AEInteraction.h), then, once the run loop runs, delivers the 'aevt'/'oapp'
//   event to the installed handler and calls applicationDidFinishLaunching:. The run loop then
//   runs in the default mode until the application terminates. When nothing else handles
//   'aevt'/'quit', that event terminates the application.
//
// terminate: and signals. terminate(nil) only writes one byte into a pipe, which is safe in
// a signal handler: a handler installed with sigaction may call it and do nothing else. The
// termination itself is run-loop work, done in the common modes: applicationShouldTerminate:
// is asked (NSTerminateLater waits for replyToApplicationShouldTerminate:),
// applicationWillTerminate: is called and the run loop stops. NSApplicationMain then
// returns 0, where the real one ends the process with exit(0); a main that returns its
// result ends the process the same way.
#pragma once

#include <CoreFoundation/CFFileDescriptor.h>
#include <CoreFoundation/CFRunLoop.h>
#include <Foundation/Foundation.h>

class NSApplication;
class NSApplicationDelegate;

extern NSApplication* NSApp;

typedef enum NSApplicationTerminateReply
{
    NSTerminateCancel = 0,
    NSTerminateNow = 1,
    NSTerminateLater = 2
} NSApplicationTerminateReply;

extern const NSNotificationName NSApplicationWillFinishLaunchingNotification;
extern const NSNotificationName NSApplicationDidFinishLaunchingNotification;
extern const NSNotificationName NSApplicationWillTerminateNotification;

class NSApplicationDelegate
{
public:
    virtual ~NSApplicationDelegate() = default;

    virtual void applicationWillFinishLaunching(NSNotification*) {}
    virtual void applicationDidFinishLaunching(NSNotification*) {}
    virtual NSApplicationTerminateReply applicationShouldTerminate(NSApplication*)
    {
        return NSTerminateNow;
    }
    virtual void applicationWillTerminate(NSNotification*) {}
};

class NSApplication
{
public:
    // Creates the application on first call and sets NSApp.
    static NSApplication* sharedApplication();

    // Not owned (the delegate outlet of a nib is not retained either).
    void setDelegate(NSApplicationDelegate* anObject) { mDelegate = anObject; }
    NSApplicationDelegate* delegate() const { return mDelegate; }

    void finishLaunching();
    void run();
    void stop(const void* sender);
    bool isRunning() const { return mRunning; }

    // Async-signal-safe: asks for termination as run-loop work (see above).
    void terminate(const void* sender);
    void replyToApplicationShouldTerminate(bool shouldTerminate);

    NSApplication(const NSApplication&) = delete;
    NSApplication& operator=(const NSApplication&) = delete;

private:
    NSApplication();
    ~NSApplication() = delete;

    static void TerminateCallBack(CFFileDescriptorRef f, CFOptionFlags types, void* info);
    static void LaunchedPerform(void* info);
    void PerformTerminate();
    void FinishTerminate();

    NSApplicationDelegate* mDelegate = nullptr;
    bool mLaunched = false;
    bool mRunning = false;
    bool mTerminateLater = false;
    int mTerminatePipe[2] = {-1, -1};
    CFFileDescriptorRef mTerminateDescriptor = nullptr;
    CFRunLoopSourceRef mTerminateSource = nullptr;
    CFRunLoopSourceRef mLaunchedSource = nullptr;
    CFRunLoopRef mRunLoop = nullptr;
};

int NSApplicationMain(int argc, const char* argv[]);
inline int NSApplicationMain(int argc, char* argv[])
{
    return NSApplicationMain(argc, const_cast<const char**>(argv));
}
