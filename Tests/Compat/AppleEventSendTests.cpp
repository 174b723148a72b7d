#include "AppKitChildProcess.h"
#include "PortTestSupport.h"

#include <AppKit/AppKit.h>
#include <Carbon/Carbon.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace
{
namespace fs = std::filesystem;
using AppKitChild::CChild;
using AppKitChild::Log;

// --- The receiving application ------------------------------------------------------------

SInt32 DirectLong(const AppleEvent* event)
{
    SInt32 value = 0;
    AEGetParamPtr(event, keyDirectObject, typeSInt32, nullptr, &value, 4, nullptr);
    return value;
}

OSErr Double(const AppleEvent* event, AppleEvent* reply, SRefCon)
{
    SInt32 value = DirectLong(event) * 2;
    return AEPutParamPtr(reply, keyDirectObject, typeSInt32, &value, 4);
}
OSErr ReportPid(const AppleEvent*, AppleEvent* reply, SRefCon)
{
    SInt32 pid = getpid();
    return AEPutParamPtr(reply, keyDirectObject, typeSInt32, &pid, 4);
}
OSErr Note(const AppleEvent* event, AppleEvent* reply, SRefCon)
{
    Log("note " + std::to_string(DirectLong(event)) +
        (reply->descriptorType == typeNull ? " without reply" : " with reply"));
    return noErr;
}
OSErr Slow(const AppleEvent*, AppleEvent*, SRefCon)
{
    sleep(1);
    return noErr;
}

class CReadyDelegate : public NSApplicationDelegate
{
    void applicationDidFinishLaunching(NSNotification*) override { Log("ready"); }
    void applicationWillTerminate(NSNotification*) override { Log("terminating"); }
};

AppKitChild::SRegister
    sEventServer("event server",
                 []
                 {
                     AEInstallEventHandler('test', 'dble', Double, nullptr, false);
                     AEInstallEventHandler('test', 'pid ', ReportPid, nullptr, false);
                     AEInstallEventHandler('test', 'note', Note, nullptr, false);
                     AEInstallEventHandler('test', 'slow', Slow, nullptr, false);
                     CReadyDelegate delegate;
                     NSApplication::sharedApplication()->setDelegate(&delegate);
                     return NSApplicationMain(0, (const char**)nullptr);
                 });

// --- The sending side -----------------------------------------------------------------------

struct SEvent
{
    AppleEvent event{typeNull, nullptr};
    AppleEvent reply{typeNull, nullptr};
    ~SEvent()
    {
        AEDisposeDesc(&event);
        AEDisposeDesc(&reply);
    }
};

void MakeEvent(SEvent& e, DescType addressType, const void* address, Size size, AEEventID id,
               SInt32 value = 0)
{
    AEAddressDesc target;
    AECreateDesc(addressType, address, size, &target);
    AECreateAppleEvent('test', id, &target, kAutoGenerateReturnID, kAnyTransactionID, &e.event);
    AEDisposeDesc(&target);
    AEPutParamPtr(&e.event, keyDirectObject, typeSInt32, &value, 4);
}

OSErr SendToPid(SEvent& e, pid_t pid, AEEventID id, SInt32 value, AESendMode mode,
                SInt32 ticks = kAEDefaultTimeout)
{
    MakeEvent(e, typeKernelProcessID, &pid, sizeof pid, id, value);
    return AESend(&e.event, &e.reply, mode, kAENormalPriority, ticks, nullptr, nullptr);
}

SInt32 ReplyLong(const AppleEvent& reply, AEKeyword key = keyDirectObject)
{
    SInt32 value = 0;
    if (AEGetParamPtr(&reply, key, typeSInt32, nullptr, &value, 4, nullptr) != noErr)
    {
        return -99999;
    }
    return value;
}

TEST(AppleEventSendTests, EventsReachAnotherApplicationAndItsRepliesComeBack)
{
    PortTestSupport::CScopedPortDirectory ports;
    CChild child("event server");
    ASSERT_TRUE(child.WaitFor("ready"));

    {
        SEvent e;
        ASSERT_EQ(SendToPid(e, child.Pid(), 'dble', 21, kAEWaitReply), noErr);
        EXPECT_EQ(ReplyLong(e.reply), 42);
        AEEventID replyID = 0;
        AEReturnID sent = 0, answered = 0;
        AEGetAttributePtr(&e.reply, keyEventIDAttr, typeType, nullptr, &replyID, 4, nullptr);
        AEGetAttributePtr(&e.event, keyReturnIDAttr, typeSInt16, nullptr, &sent, 2, nullptr);
        AEGetAttributePtr(&e.reply, keyReturnIDAttr, typeSInt16, nullptr, &answered, 2, nullptr);
        EXPECT_EQ(replyID, AEEventID(kAEAnswer));
        EXPECT_EQ(answered, sent);
        EXPECT_EQ(ReplyLong(e.reply, keyErrorNumber), -99999); // no error
    }
    {
        // An event nobody handles is delivered; the reply carries the error.
        SEvent e;
        ASSERT_EQ(SendToPid(e, child.Pid(), 'none', 0, kAEWaitReply), noErr);
        EXPECT_EQ(ReplyLong(e.reply, keyErrorNumber), errAEEventNotHandled);
    }
    {
        SEvent e;
        ASSERT_EQ(SendToPid(e, child.Pid(), 'note', 7, kAENoReply), noErr);
        EXPECT_EQ(e.reply.descriptorType, DescType(typeNull));
        EXPECT_TRUE(child.WaitFor("note 7 without reply"));
    }
    {
        // The application's own 'quit' handler terminates it.
        SEvent e;
        pid_t pid = child.Pid();
        AEDesc target;
        AECreateDesc(typeKernelProcessID, &pid, sizeof pid, &target);
        AECreateAppleEvent(kCoreEventClass, kAEQuitApplication, &target, kAutoGenerateReturnID,
                           kAnyTransactionID, &e.event);
        AEDisposeDesc(&target);
        ASSERT_EQ(AESend(&e.event, &e.reply, kAEWaitReply, kAENormalPriority, kAEDefaultTimeout,
                         nullptr, nullptr),
                  noErr);
        EXPECT_TRUE(child.WaitFor("terminating"));
        EXPECT_EQ(child.Wait(), 0);
        SEvent after;
        EXPECT_EQ(SendToPid(after, pid, 'dble', 1, kAEWaitReply), procNotFound);
    }
}

TEST(AppleEventSendTests, SlowHandlerTimesOutAndTheApplicationGoesOn)
{
    PortTestSupport::CScopedPortDirectory ports;
    CChild child("event server");
    ASSERT_TRUE(child.WaitFor("ready"));
    SEvent slow;
    EXPECT_EQ(SendToPid(slow, child.Pid(), 'slow', 0, kAEWaitReply, 6), errAETimeout);
    EXPECT_EQ(slow.reply.descriptorType, DescType(typeNull));
    SEvent next; // the late reply to the slow event is not taken for this one
    ASSERT_EQ(SendToPid(next, child.Pid(), 'dble', 5, kAEWaitReply), noErr);
    EXPECT_EQ(ReplyLong(next.reply), 10);
}

TEST(AppleEventSendTests, BytesThatAreNoEventGetNoReplyAndDoNoHarm)
{
    PortTestSupport::CScopedPortDirectory ports;
    CChild child("event server");
    ASSERT_TRUE(child.WaitFor("ready"));
    std::string name = "AppleEvents.pid." + std::to_string(child.Pid());
    CFStringRef cfName = CFStringCreateWithCString(nullptr, name.c_str(), kCFStringEncodingUTF8);
    CFMessagePortRef remote = CFMessagePortCreateRemote(nullptr, cfName);
    CFRelease(cfName);
    ASSERT_NE(remote, nullptr);

    AEDescList list;
    AECreateList(nullptr, 0, false, &list);
    std::vector<char> flatList(size_t(AESizeOfFlattenedDesc(&list)));
    Size actual;
    AEFlattenDesc(&list, flatList.data(), Size(flatList.size()), &actual);
    AEDisposeDesc(&list);
    const std::string garbage = "AEfl\xFF\xFF\xFF\xFF garbage";
    for (const std::string& bytes :
         {garbage, std::string(flatList.begin(), flatList.end()), std::string()})
    {
        CFDataRef data = CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes.data()),
                                      CFIndex(bytes.size()));
        CFDataRef reply = nullptr;
        EXPECT_EQ(CFMessagePortSendRequest(remote, 'AEVT', data, 10, 10, CFSTR("test"), &reply),
                  kCFMessagePortSuccess);
        EXPECT_TRUE(reply == nullptr || CFDataGetLength(reply) == 0);
        if (reply)
        {
            CFRelease(reply);
        }
        CFRelease(data);
    }
    CFRelease(remote);

    SEvent e;
    ASSERT_EQ(SendToPid(e, child.Pid(), 'dble', 4, kAEWaitReply), noErr);
    EXPECT_EQ(ReplyLong(e.reply), 8);
}

// A copy of this test program inside Name.app, with a bundle identifier of its own.
class CBundledCopy
{
public:
    explicit CBundledCopy(const std::string& identifier)
    {
        char pattern[] = "/tmp/kel_aebundle_XXXXXX";
        if (!mkdtemp(pattern))
        {
            ADD_FAILURE() << "mkdtemp";
            return;
        }
        mRoot = pattern;
        fs::path contents = mRoot / "AEServer.app" / "Contents";
        fs::create_directories(contents / "MacOS");
        std::ofstream(contents / "Info.plist")
            << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
               "<key>CFBundleIdentifier</key><string>"
            << identifier << "</string></dict></plist>\n";
        mExecutable = contents / "MacOS" / "AEServer";
        fs::copy_file(fs::read_symlink("/proc/self/exe"), mExecutable);
        fs::permissions(mExecutable, fs::perms::owner_all);
    }
    ~CBundledCopy() { fs::remove_all(mRoot); }
    std::string Executable() const { return mExecutable.string(); }

private:
    fs::path mRoot;
    fs::path mExecutable;
};

TEST(AppleEventSendTests, BundleIdentifierReachesTheFirstCopyThatServesIt)
{
    PortTestSupport::CScopedPortDirectory ports;
    std::string identifier = "com.kelto.test.AEServer" + std::to_string(getpid());
    CBundledCopy bundle(identifier);
    CChild first("event server", bundle.Executable());
    ASSERT_TRUE(first.WaitFor("ready"));
    CChild second("event server", bundle.Executable()); // finds the bundle's port taken
    ASSERT_TRUE(second.WaitFor("ready"));

    SEvent e;
    MakeEvent(e, typeApplicationBundleID, identifier.data(), Size(identifier.size()), 'pid ');
    ASSERT_EQ(AESend(&e.event, &e.reply, kAEWaitReply, kAENormalPriority, kAEDefaultTimeout,
                     nullptr, nullptr),
              noErr);
    EXPECT_EQ(ReplyLong(e.reply), first.Pid());

    SEvent bySecondPid; // the second copy is still reached by its process ID
    ASSERT_EQ(SendToPid(bySecondPid, second.Pid(), 'pid ', 0, kAEWaitReply), noErr);
    EXPECT_EQ(ReplyLong(bySecondPid.reply), second.Pid());

    SEvent unknown;
    std::string nobody = identifier + ".nobody";
    MakeEvent(unknown, typeApplicationBundleID, nobody.data(), Size(nobody.size()), 'pid ');
    EXPECT_EQ(AESend(&unknown.event, &unknown.reply, kAEWaitReply, kAENormalPriority,
                     kAEDefaultTimeout, nullptr, nullptr),
              procNotFound);
}

OSErr SelfHandler(const AppleEvent* event, AppleEvent* reply, SRefCon refcon)
{
    ++*static_cast<int*>(refcon);
    return reply->descriptorType == typeNull ? OSErr(noErr) : Double(event, reply, nullptr);
}

TEST(AppleEventSendTests, EventsToThisProcessGoStraightToItsHandlers)
{
    PortTestSupport::CScopedPortDirectory ports;
    int calls = 0;
    ASSERT_EQ(AEInstallEventHandler('test', 'self', SelfHandler, &calls, false), noErr);

    ProcessSerialNumber current = {0, kCurrentProcess};
    SEvent byPSN;
    MakeEvent(byPSN, typeProcessSerialNumber, &current, sizeof current, 'self', 8);
    ASSERT_EQ(AESend(&byPSN.event, &byPSN.reply, kAEWaitReply, kAENormalPriority, kAEDefaultTimeout,
                     nullptr, nullptr),
              noErr);
    EXPECT_EQ(ReplyLong(byPSN.reply), 16);

    SEvent byPid;
    EXPECT_EQ(SendToPid(byPid, getpid(), 'self', 1, kAENoReply), noErr);
    EXPECT_EQ(byPid.reply.descriptorType, DescType(typeNull));
    EXPECT_EQ(calls, 2);

    // Sending modes and addresses that are not offered.
    SEvent queued;
    EXPECT_EQ(SendToPid(queued, getpid(), 'self', 1, kAEQueueReply), errAEUnknownSendMode);
    SEvent noAddress;
    AECreateAppleEvent('test', 'self', nullptr, kAutoGenerateReturnID, 0, &noAddress.event);
    EXPECT_EQ(AESend(&noAddress.event, &noAddress.reply, kAEWaitReply, kAENormalPriority,
                     kAEDefaultTimeout, nullptr, nullptr),
              errAEUnknownAddressType);
    EXPECT_EQ(calls, 2);
    AERemoveEventHandler('test', 'self', SelfHandler, false);
}
} // namespace
