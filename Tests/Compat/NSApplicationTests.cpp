#include "AppKitChildProcess.h"
#include "PortTestSupport.h"

#include <AppKit/AppKit.h>
#include <CoreServices/CoreServices.h>

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{
using AppKitChild::CChild;
using AppKitChild::Log;

// --- What the children run ----------------------------------------------------------------

// Logs every step of the application's life; terminates itself once launched, unless told
// to wait for a signal or an event.
class CLoggingDelegate : public NSApplicationDelegate
{
public:
    explicit CLoggingDelegate(bool terminateWhenLaunched, int cancelCount = 0)
        : mTerminateWhenLaunched(terminateWhenLaunched), mCancelCount(cancelCount)
    {
    }

    void applicationWillFinishLaunching(NSNotification* note) override
    {
        Log(note->object() == NSApp ? "willFinish" : "willFinish: wrong object");
        // As the coordinator does: signals only ask the application to terminate.
        struct sigaction action = {};
        action.sa_handler = [](int) { NSApp->terminate(nil); };
        sigemptyset(&action.sa_mask);
        for (int signal : {SIGQUIT, SIGTERM, SIGINT, SIGABRT, SIGHUP})
        {
            sigaddset(&action.sa_mask, signal);
        }
        for (int signal : {SIGQUIT, SIGTERM, SIGINT, SIGABRT, SIGHUP})
        {
            sigaction(signal, &action, nullptr);
        }
    }
    void applicationDidFinishLaunching(NSNotification*) override
    {
        Log("didFinish");
        if (mTerminateWhenLaunched)
        {
            NSApp->terminate(nil);
            Log("terminate returned");
        }
    }
    NSApplicationTerminateReply applicationShouldTerminate(NSApplication*) override
    {
        Log("shouldTerminate");
        if (mCancelCount > 0)
        {
            --mCancelCount;
            return NSTerminateCancel;
        }
        return NSTerminateNow;
    }
    void applicationWillTerminate(NSNotification* note) override
    {
        Log(CFEqual(note->name(), NSApplicationWillTerminateNotification) ? "willTerminate"
                                                                          : "wrong name");
    }

private:
    bool mTerminateWhenLaunched;
    int mCancelCount;
};

OSErr LogLaunch(const AppleEvent* event, AppleEvent* reply, SRefCon refcon)
{
    AEEventID id = 0;
    AEGetAttributePtr(event, keyEventIDAttr, typeType, nullptr, &id, 4, nullptr);
    Log(std::string(static_cast<const char*>(refcon)) + (id == 'oapp' ? " oapp" : " other") +
        (reply->descriptorType == typeNull ? " no reply" : " reply"));
    return noErr;
}

int RunApplication(NSApplicationDelegate& delegate)
{
    NSApplication::sharedApplication()->setDelegate(&delegate);
    const char* argv[] = {"child", nullptr};
    int result = NSApplicationMain(1, argv);
    Log("returned " + std::to_string(result));
    return result;
}

AppKitChild::SRegister sLaunchOrder("launch order",
                                    []
                                    {
                                        // Installed before launching, as the coordinator does.
                                        AEInstallEventHandler(kCoreEventClass, kAEOpenApplication,
                                                              LogLaunch, (void*)"handler", false);
                                        CLoggingDelegate delegate(true);
                                        return RunApplication(delegate);
                                    });

AppKitChild::SRegister sWaitForSignal("wait for signal",
                                      []
                                      {
                                          CLoggingDelegate delegate(false);
                                          return RunApplication(delegate);
                                      });

AppKitChild::SRegister sCancelOnce("cancel once",
                                   []
                                   {
                                       CLoggingDelegate delegate(false, 1);
                                       return RunApplication(delegate);
                                   });

// --- The tests ----------------------------------------------------------------------------

std::vector<std::string> LinesUntilEnd(CChild& child)
{
    std::vector<std::string> lines;
    std::string line;
    while (child.ReadLine(line))
    {
        lines.push_back(line);
    }
    return lines;
}

TEST(NSApplicationTests, LaunchEventComesAfterWillFinishAndTerminateEndsTheMainLoop)
{
    PortTestSupport::CScopedPortDirectory ports;
    CChild child("launch order");
    std::vector<std::string> lines = LinesUntilEnd(child);
    EXPECT_EQ(child.Wait(), 0);
    // terminate: itself returns at once; the termination runs from the run loop afterwards.
    EXPECT_EQ(lines, (std::vector<std::string>{"willFinish", "handler oapp no reply", "didFinish",
                                               "terminate returned", "shouldTerminate",
                                               "willTerminate", "returned 0"}));
}

TEST(NSApplicationTests, EachTerminatingSignalEndsTheApplicationThroughItsDelegate)
{
    PortTestSupport::CScopedPortDirectory ports;
    for (int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGABRT})
    {
        CChild child("wait for signal");
        ASSERT_TRUE(child.WaitFor("didFinish")) << signal;
        kill(child.Pid(), signal);
        std::vector<std::string> lines = LinesUntilEnd(child);
        EXPECT_EQ(child.Wait(), 0) << signal;
        EXPECT_EQ(lines,
                  (std::vector<std::string>{"shouldTerminate", "willTerminate", "returned 0"}))
            << signal;
    }
}

TEST(NSApplicationTests, CancelledTerminationKeepsRunningUntilAskedAgain)
{
    PortTestSupport::CScopedPortDirectory ports;
    CChild child("cancel once");
    ASSERT_TRUE(child.WaitFor("didFinish"));
    kill(child.Pid(), SIGTERM);
    std::string line;
    ASSERT_TRUE(child.ReadLine(line));
    EXPECT_EQ(line, "shouldTerminate");
    EXPECT_FALSE(child.ReadLine(line, 0.2)); // still running, nothing more to say
    kill(child.Pid(), SIGINT);
    EXPECT_EQ(LinesUntilEnd(child),
              (std::vector<std::string>{"shouldTerminate", "willTerminate", "returned 0"}));
    EXPECT_EQ(child.Wait(), 0);
}

} // namespace
