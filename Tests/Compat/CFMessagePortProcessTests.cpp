// Message ports between real processes: the test process and the peer program, each run
// started by the test in the test's own port directory, bounded in time and stopped by pid.
#include "AppKitChildProcess.h"
#include "PortTestSupport.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace
{
using namespace PortTestSupport;
using AppKitChild::CChild;
using AppKitChild::SProgram;
using Clock = std::chrono::steady_clock;

const CFStringRef kReplyMode = CFSTR("TestReplyMode");

// One run of the peer program.
CChild Peer(const std::vector<std::string>& arguments)
{
    std::vector<std::string> argv = {KEL_PORT_TEST_PEER};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    return CChild(SProgram{argv});
}

SInt32 Send(CFMessagePortRef remote, SInt32 msgid, const std::string& payload, std::string& reply,
            double sendTimeout = 10.0, double rcvTimeout = 10.0, CFStringRef mode = kReplyMode)
{
    CFDataRef data = MakeData(payload);
    CFDataRef returned = nullptr;
    const SInt32 result =
        CFMessagePortSendRequest(remote, msgid, data, sendTimeout, rcvTimeout, mode, &returned);
    CFRelease(data);
    reply = Text(returned);
    if (returned != nullptr)
    {
        CFRelease(returned);
    }
    return result;
}

double SecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

class CFMessagePortProcessTests : public ::testing::Test
{
protected:
    CScopedPortDirectory mDirectory;
};

TEST_F(CFMessagePortProcessTests, ARequestTheBusyPeerCannotTakeTimesOutOnSending)
{
    CChild peer = Peer({"serve", "com.kelto.Peer"});
    ASSERT_EQ(peer.NextLine(), "ready");
    CFMessagePortRef remote = CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.Peer"));
    ASSERT_NE(remote, nullptr);
    std::string reply;
    // While the peer is busy it reads nothing: a request larger than the socket can hold
    // waits for room until the send time-out.
    EXPECT_EQ(Send(remote, 'SLEP', "1500", reply, 10.0, 0.0, nullptr), kCFMessagePortSuccess);
    const std::string large(8 << 20, 'L');
    const auto start = Clock::now();
    EXPECT_EQ(Send(remote, 'ECHO', large, reply, 0.3, 10.0), kCFMessagePortSendTimeout);
    EXPECT_GE(SecondsSince(start), 0.29);
    EXPECT_LT(SecondsSince(start), 1.2);
    CFRelease(remote);

    // Once it is awake it answers again (on a new connection: the old one carries half a
    // request and was given up).
    remote = CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.Peer"));
    ASSERT_NE(remote, nullptr);
    EXPECT_EQ(Send(remote, 'ECHO', "awake", reply), kCFMessagePortSuccess);
    EXPECT_EQ(reply, "awake");
    CFRelease(remote);
}

TEST_F(CFMessagePortProcessTests, AServerThatDiesInvalidatesAndItsRestartIsReachedAgain)
{
    const std::string socketPath = mDirectory.Path() + "/com.kelto.Driver";
    CChild first = Peer({"serve", "com.kelto.Driver"});
    ASSERT_EQ(first.NextLine(), "ready");
    CFMessagePortRef remote = CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.Driver"));
    ASSERT_NE(remote, nullptr);
    std::string reply;
    EXPECT_EQ(Send(remote, 'ECHO', "one", reply), kCFMessagePortSuccess);

    first.Kill();
    EXPECT_FALSE(CFMessagePortIsValid(remote));
    EXPECT_EQ(Send(remote, 'ECHO', "two", reply), kCFMessagePortIsInvalid);
    CFRelease(remote);
    // Nobody serves the name now, though the killed process left its socket behind.
    EXPECT_TRUE(std::filesystem::exists(socketPath));
    EXPECT_EQ(CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.Driver")), nullptr);

    // A new process takes the name over, and a new remote port reaches it.
    CChild second = Peer({"serve", "com.kelto.Driver"});
    ASSERT_EQ(second.NextLine(), "ready");
    remote = CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.Driver"));
    ASSERT_NE(remote, nullptr);
    EXPECT_EQ(Send(remote, 'ECHO', "three", reply), kCFMessagePortSuccess);
    EXPECT_EQ(reply, "three");
    CFRelease(remote);
}

TEST_F(CFMessagePortProcessTests, AServedNameCannotBeTakenUntilItsServerEnds)
{
    CChild server = Peer({"serve", "com.kelto.Coordinator"});
    ASSERT_EQ(server.NextLine(), "ready");
    CChild second = Peer({"create", "com.kelto.Coordinator"});
    EXPECT_EQ(second.NextLine(), "refused");
    Boolean shouldFree = false;
    EXPECT_EQ(CFMessagePortCreateLocal(nullptr, CFSTR("com.kelto.Coordinator"), nullptr, nullptr,
                                       &shouldFree),
              nullptr);
    EXPECT_TRUE(shouldFree);

    CFMessagePortRef remote = CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.Coordinator"));
    ASSERT_NE(remote, nullptr);
    std::string reply;
    EXPECT_EQ(Send(remote, 'QUIT', "", reply), kCFMessagePortSuccess);
    EXPECT_EQ(reply, "bye");
    EXPECT_EQ(server.Wait(), 0);
    CFRelease(remote);
    CChild third = Peer({"create", "com.kelto.Coordinator"});
    EXPECT_EQ(third.NextLine(), "created");
}

TEST_F(CFMessagePortProcessTests, AConnectionFromAnotherUserIsRefused)
{
    if (geteuid() != 0)
    {
        GTEST_SKIP() << "needs root to run a peer as another user (uid 65534)";
    }
    int requests = 0;
    CFMessagePortContext context = {0, &requests, nullptr, nullptr, nullptr};
    CFMessagePortRef port = CFMessagePortCreateLocal(
        nullptr, CFSTR("com.kelto.Mine"),
        [](CFMessagePortRef, SInt32, CFDataRef data, void* info) -> CFDataRef
        {
            ++*static_cast<int*>(info);
            return CFDataCreateCopy(nullptr, data);
        },
        &context, nullptr);
    ASSERT_NE(port, nullptr);
    CFRunLoopSourceRef source = CFMessagePortCreateRunLoopSource(nullptr, port, 0);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopCommonModes);
    // Let the stranger reach the socket at all, so that only the peer check stands.
    ASSERT_EQ(chmod(mDirectory.Path().c_str(), 0711), 0);
    ASSERT_EQ(chmod((mDirectory.Path() + "/com.kelto.Mine").c_str(), 0777), 0);

    CChild stranger = Peer({"send-as", "65534", "com.kelto.Mine"});
    EXPECT_EQ(stranger.NextLine(), "refused");
    EXPECT_EQ(requests, 0);
    // The same steps as our own user are answered.
    CChild own = Peer({"send-as", std::to_string(geteuid()), "com.kelto.Mine"});
    EXPECT_EQ(own.NextLine(), "answered");
    EXPECT_EQ(requests, 1);

    CFMessagePortInvalidate(port);
    CFRelease(source);
    CFRelease(port);
}

// This process (A) and the peer (B) call each other: A's request to B makes B call back into
// A while A waits; A serves that in its reply mode and sends to B over the remote port on
// which its first request still waits, so B answers the second request before the first.
class CReentrantA
{
public:
    CReentrantA()
    {
        CFMessagePortContext context = {0, this, nullptr, nullptr, nullptr};
        mPort =
            CFMessagePortCreateLocal(nullptr, CFSTR("com.kelto.A"), Callback, &context, nullptr);
        mSource = CFMessagePortCreateRunLoopSource(nullptr, mPort, 0);
        CFRunLoopAddSource(CFRunLoopGetCurrent(), mSource, kCFRunLoopCommonModes);
        CFRunLoopAddSource(CFRunLoopGetCurrent(), mSource, kReplyMode);
    }
    ~CReentrantA()
    {
        CFMessagePortInvalidate(mPort);
        CFRelease(mSource);
        CFRelease(mPort);
    }

    static CFDataRef Callback(CFMessagePortRef, SInt32 msgid, CFDataRef data, void* info)
    {
        auto* self = static_cast<CReentrantA*>(info);
        ++self->mPings;
        EXPECT_EQ(msgid, 'PING');
        std::string echoed;
        EXPECT_EQ(Send(self->mRemote, 'ECHO', "echo(" + Text(data) + ")", echoed),
                  kCFMessagePortSuccess);
        return MakeData("A:" + echoed);
    }

    CFMessagePortRef mPort = nullptr;
    CFRunLoopSourceRef mSource = nullptr;
    CFMessagePortRef mRemote = nullptr;
    int mPings = 0;
};

TEST_F(CFMessagePortProcessTests, TwoProcessesCallEachOtherWhileWaiting)
{
    CReentrantA a;
    CChild b = Peer({"serve", "com.kelto.B"});
    ASSERT_EQ(b.NextLine(), "ready");
    a.mRemote = CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.B"));
    ASSERT_NE(a.mRemote, nullptr);
    std::string reply;
    EXPECT_EQ(Send(a.mRemote, 'CALL', "com.kelto.A:hello", reply), kCFMessagePortSuccess);
    EXPECT_EQ(reply, "B got: A:echo(hello)");
    EXPECT_EQ(a.mPings, 1);
    CFRelease(a.mRemote);
}

} // namespace
