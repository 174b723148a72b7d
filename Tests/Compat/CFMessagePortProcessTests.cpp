// Message ports between real processes: the test process and the peer program, each run
// started by the test in the test's own port directory, bounded in time and stopped by pid.
#include "PortTestSupport.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
using namespace PortTestSupport;
using Clock = std::chrono::steady_clock;

const CFStringRef kReplyMode = CFSTR("TestReplyMode");

// One run of the peer program, with its standard output on a pipe.
class CPeer
{
public:
    explicit CPeer(const std::vector<std::string>& arguments,
                   const std::string& program = KEL_PORT_TEST_PEER)
    {
        int fds[2];
        if (pipe2(fds, O_CLOEXEC) != 0)
        {
            ADD_FAILURE() << "pipe";
            return;
        }
        mPid = fork();
        if (mPid == 0)
        {
            dup2(fds[1], STDOUT_FILENO);
            std::vector<char*> argv{const_cast<char*>(program.c_str())};
            for (const auto& argument : arguments)
            {
                argv.push_back(const_cast<char*>(argument.c_str()));
            }
            argv.push_back(nullptr);
            execv(program.c_str(), argv.data());
            _exit(127);
        }
        close(fds[1]);
        mOut = fds[0];
    }
    ~CPeer()
    {
        Kill();
        if (mOut >= 0)
        {
            close(mOut);
        }
    }

    // The next line of output, running this thread's loop meanwhile so that the peer's
    // requests to us are served; "" on time-out or end of output.
    std::string ReadLine(double seconds = 20.0)
    {
        const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                 std::chrono::duration<double>(seconds));
        while (Clock::now() < deadline)
        {
            const size_t end = mBuffered.find('\n');
            if (end != std::string::npos)
            {
                std::string line = mBuffered.substr(0, end);
                mBuffered.erase(0, end + 1);
                return line;
            }
            pollfd fd = {mOut, POLLIN, 0};
            if (poll(&fd, 1, 0) > 0)
            {
                char buffer[256];
                const ssize_t count = read(mOut, buffer, sizeof buffer);
                if (count <= 0)
                {
                    return "";
                }
                mBuffered.append(buffer, static_cast<size_t>(count));
                continue;
            }
            CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.01, true);
        }
        return "";
    }

    void Kill()
    {
        if (mPid > 0)
        {
            kill(mPid, SIGKILL);
            waitpid(mPid, nullptr, 0);
            mPid = -1;
        }
    }

    // Waits (bounded) for the peer to end by itself; its exit status, or -1.
    int Wait(double seconds = 20.0)
    {
        const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                 std::chrono::duration<double>(seconds));
        while (mPid > 0 && Clock::now() < deadline)
        {
            int status = 0;
            if (waitpid(mPid, &status, WNOHANG) == mPid)
            {
                mPid = -1;
                return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            }
            CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.01, true);
        }
        return -1;
    }

private:
    pid_t mPid = -1;
    int mOut = -1;
    std::string mBuffered;
};

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

TEST_F(CFMessagePortProcessTests, RequestsAndTheTwoTimeOutsAcrossProcesses)
{
    CPeer peer({"serve", "com.kelto.Peer"});
    ASSERT_EQ(peer.ReadLine(), "ready");
    CFMessagePortRef remote = CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.Peer"));
    ASSERT_NE(remote, nullptr);
    std::string reply;
    EXPECT_EQ(Send(remote, 'ECHO', "across", reply), kCFMessagePortSuccess);
    EXPECT_EQ(reply, "across");

    // The reply comes after the receive time-out.
    auto start = Clock::now();
    EXPECT_EQ(Send(remote, 'SLEP', "600", reply, 10.0, 0.1), kCFMessagePortReceiveTimeout);
    EXPECT_LT(SecondsSince(start), 0.5);
    EXPECT_TRUE(CFMessagePortIsValid(remote));

    // While the peer is busy it reads nothing: a request larger than the socket can hold
    // waits for room until the send time-out.
    EXPECT_EQ(Send(remote, 'SLEP', "1500", reply, 10.0, 0.0, nullptr), kCFMessagePortSuccess);
    const std::string large(8 << 20, 'L');
    start = Clock::now();
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
    auto first = std::make_unique<CPeer>(std::vector<std::string>{"serve", "com.kelto.Driver"});
    ASSERT_EQ(first->ReadLine(), "ready");
    CFMessagePortRef remote = CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.Driver"));
    ASSERT_NE(remote, nullptr);
    static int invalidations = 0;
    invalidations = 0;
    CFMessagePortSetInvalidationCallBack(remote, [](CFMessagePortRef, void*) { ++invalidations; });
    std::string reply;
    EXPECT_EQ(Send(remote, 'ECHO', "one", reply), kCFMessagePortSuccess);

    first->Kill();
    EXPECT_FALSE(CFMessagePortIsValid(remote));
    EXPECT_EQ(invalidations, 1);
    EXPECT_EQ(Send(remote, 'ECHO', "two", reply), kCFMessagePortIsInvalid);
    CFRelease(remote);
    // Nobody serves the name now, though the killed process left its socket behind.
    EXPECT_TRUE(std::filesystem::exists(socketPath));
    EXPECT_EQ(CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.Driver")), nullptr);

    // A new process takes the name over, and a new remote port reaches it.
    CPeer second({"serve", "com.kelto.Driver"});
    ASSERT_EQ(second.ReadLine(), "ready");
    remote = CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.Driver"));
    ASSERT_NE(remote, nullptr);
    EXPECT_EQ(Send(remote, 'ECHO', "three", reply), kCFMessagePortSuccess);
    EXPECT_EQ(reply, "three");
    CFRelease(remote);
}

TEST_F(CFMessagePortProcessTests, AServedNameCannotBeTakenUntilItsServerEnds)
{
    CPeer server({"serve", "com.kelto.Coordinator"});
    ASSERT_EQ(server.ReadLine(), "ready");
    CPeer second({"create", "com.kelto.Coordinator"});
    EXPECT_EQ(second.ReadLine(), "refused");
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
    CPeer third({"create", "com.kelto.Coordinator"});
    EXPECT_EQ(third.ReadLine(), "created");
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

    CPeer stranger({"send-as", "65534", "com.kelto.Mine"});
    EXPECT_EQ(stranger.ReadLine(), "refused");
    EXPECT_EQ(requests, 0);
    // The same steps as our own user are answered.
    CPeer own({"send-as", std::to_string(geteuid()), "com.kelto.Mine"});
    EXPECT_EQ(own.ReadLine(), "answered");
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
    CPeer b({"serve", "com.kelto.B"});
    ASSERT_EQ(b.ReadLine(), "ready");
    a.mRemote = CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.B"));
    ASSERT_NE(a.mRemote, nullptr);
    std::string reply;
    EXPECT_EQ(Send(a.mRemote, 'CALL', "com.kelto.A:hello", reply), kCFMessagePortSuccess);
    EXPECT_EQ(reply, "B got: A:echo(hello)");
    EXPECT_EQ(a.mPings, 1);
    CFRelease(a.mRemote);
}

} // namespace
