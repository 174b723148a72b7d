#include "PortTestSupport.h"

#include <CoreFoundation/CoreFoundation.h>

#include "Bench/Support/UnixSockets.h"
#include "Compat/CPortFrameDecoder.h"
#include "Compat/CPortServer.h"
#include "Compat/PortDirectory.h"
#include "Compat/SPortTransport.h"

#include <gtest/gtest.h>

#include <fstream>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
using namespace PortTestSupport;

const CFStringRef kReplyMode = CFSTR("TestReplyMode");

// A local port served on this thread in the default and the reply mode, whose call-back
// is a test's function.
class CServedPort
{
public:
    using Handler = std::function<CFDataRef(SInt32 msgid, CFDataRef data)>;

    CServedPort(CFStringRef name, Handler handler) : mHandler(std::move(handler))
    {
        CFMessagePortContext context = {0, this, nullptr, nullptr, nullptr};
        Boolean shouldFree = true;
        mPort = CFMessagePortCreateLocal(
            nullptr, name,
            [](CFMessagePortRef, SInt32 msgid, CFDataRef data, void* info)
            {
                auto* self = static_cast<CServedPort*>(info);
                ++self->mRequests;
                return self->mHandler(msgid, data);
            },
            &context, &shouldFree);
        if (mPort == nullptr)
        {
            return;
        }
        EXPECT_FALSE(shouldFree);
        mSource = CFMessagePortCreateRunLoopSource(nullptr, mPort, 0);
        CFRunLoopAddSource(CFRunLoopGetCurrent(), mSource, kCFRunLoopCommonModes);
        CFRunLoopAddSource(CFRunLoopGetCurrent(), mSource, kReplyMode);
    }
    ~CServedPort()
    {
        if (mPort != nullptr)
        {
            CFMessagePortInvalidate(mPort);
            CFRelease(mSource);
            CFRelease(mPort);
        }
    }

    Handler mHandler;
    CFMessagePortRef mPort = nullptr;
    CFRunLoopSourceRef mSource = nullptr;
    int mRequests = 0;
};

CFDataRef Echo(SInt32, CFDataRef data)
{
    return CFDataCreateCopy(nullptr, data);
}

SInt32 Send(CFMessagePortRef remote, SInt32 msgid, const std::string& payload, std::string& reply,
            double timeout = 10.0, CFStringRef mode = kReplyMode)
{
    CFDataRef data = MakeData(payload);
    CFDataRef returned = nullptr;
    const SInt32 result =
        CFMessagePortSendRequest(remote, msgid, data, timeout, timeout, mode, &returned);
    CFRelease(data);
    reply = Text(returned);
    if (returned != nullptr)
    {
        CFRelease(returned);
    }
    return result;
}

class CFMessagePortTests : public ::testing::Test
{
protected:
    void TearDown() override { SetPortTransport(nullptr); }
    ScopedPortDirectory mDirectory;
};

TEST_F(CFMessagePortTests, NamesAreTakenOnceAndGivenBackOnInvalidation)
{

    static int releases = 0;
    releases = 0;
    CFMessagePortContext context = {0, nullptr, nullptr, [](const void*) { ++releases; }, nullptr};
    Boolean shouldFree = false;
    CFMessagePortRef port =
        CFMessagePortCreateLocal(nullptr, CFSTR("com.kelto.Name"), nullptr, &context, &shouldFree);
    ASSERT_NE(port, nullptr);
    EXPECT_FALSE(shouldFree);
    const std::string socketPath = mDirectory.Path() + "/com.kelto.Name";
    EXPECT_TRUE(std::filesystem::exists(socketPath));

    // The same name again in this process gives the same port, and the info is not taken.
    CFMessagePortRef same =
        CFMessagePortCreateLocal(nullptr, CFSTR("com.kelto.Name"), nullptr, &context, &shouldFree);
    EXPECT_EQ(same, port);
    EXPECT_TRUE(shouldFree);
    CFRelease(same);

    EXPECT_EQ(CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.Nobody")), nullptr);

    CFMessagePortInvalidate(port);
    CFMessagePortInvalidate(port);
    EXPECT_FALSE(CFMessagePortIsValid(port));
    EXPECT_EQ(releases, 1);
    EXPECT_FALSE(std::filesystem::exists(socketPath));
    EXPECT_EQ(CFMessagePortCreateRunLoopSource(nullptr, port, 0), nullptr);
    CFRelease(port);
    EXPECT_EQ(releases, 1);

    CFMessagePortRef reborn =
        CFMessagePortCreateLocal(nullptr, CFSTR("com.kelto.Name"), nullptr, nullptr, &shouldFree);
    ASSERT_NE(reborn, nullptr);
    CFRelease(reborn); // releasing the last reference invalidates it too
    EXPECT_FALSE(std::filesystem::exists(socketPath));
}

TEST_F(CFMessagePortTests, AwkwardNamesAreKeptInsideTheDirectory)
{
    EXPECT_EQ(PortDirectory::FileName("com.kelto.Touch-1_a"), "com.kelto.Touch-1_a");
    EXPECT_EQ(PortDirectory::FileName("../x"), "%2E.%2Fx");
    EXPECT_EQ(PortDirectory::FileName("a b/\xC3\xA9"), "a%20b%2F%C3%A9");

    CServedPort server(CFSTR("../escape/attempt"), Echo);
    ASSERT_NE(server.mPort, nullptr);
    EXPECT_TRUE(std::filesystem::exists(mDirectory.Path() + "/%2E.%2Fescape%2Fattempt"));
    CFMessagePortRef remote = CFMessagePortCreateRemote(nullptr, CFSTR("../escape/attempt"));
    ASSERT_NE(remote, nullptr);
    std::string reply;
    EXPECT_EQ(Send(remote, 1, "ok", reply), kCFMessagePortSuccess);
    EXPECT_EQ(reply, "ok");
    CFRelease(remote);

    // A socket path holds 107 bytes and its NUL: a name one byte longer is neither served
    // nor reached.
    const size_t longest = 107 - mDirectory.Path().size() - 1;
    for (const size_t length : {longest, longest + 1})
    {
        CFStringRef name = CFStringCreateWithCString(nullptr, std::string(length, 'n').c_str(),
                                                     kCFStringEncodingUTF8);
        CServedPort served(name, Echo);
        remote = CFMessagePortCreateRemote(nullptr, name);
        EXPECT_EQ(served.mPort != nullptr, length == longest) << length;
        EXPECT_EQ(remote != nullptr, length == longest) << length;
        if (remote != nullptr)
        {
            CFRelease(remote);
        }
        CFRelease(name);
    }
}

// Where the ports are: the first of KELTO_PORT_DIR, XDG_RUNTIME_DIR, the shared temporary
// directory unless something unfit is there already, the user's home.
TEST_F(CFMessagePortTests, PortDirectoryRuleSkipsATemporaryNameSomebodyTookFirst)
{
    const std::string tmp = mDirectory.Path();
    const std::string shared = tmp + "/com.kelto.ports." + std::to_string(geteuid());
    const std::string home = "/home/u/.local/state/kelto/ports";
    struct Case
    {
        const char* there; // what is at the shared name: "", "dir 700", "dir 777", "file"
        PortDirectory::SPlaces places;
        std::string expected;
    };
    const Case cases[] = {
        {"", {"/a", "/run/user/5", tmp, "/home/u"}, "/a"},
        {"", {"", "/run/user/5", tmp, "/home/u"}, "/run/user/5/com.kelto.ports"},
        {"", {"", "", tmp, "/home/u"}, shared},
        {"dir 700", {"", "", tmp, "/home/u"}, shared},
        {"dir 777", {"", "", tmp, "/home/u"}, home},
        {"file", {"", "", tmp, "/home/u"}, home},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.there);
        std::filesystem::remove_all(shared);
        if (std::string(c.there).starts_with("dir"))
        {
            ASSERT_EQ(mkdir(shared.c_str(), 0700), 0);
            ASSERT_EQ(chmod(shared.c_str(), std::string(c.there) == "dir 777" ? 0777 : 0700), 0);
        }
        else if (std::string(c.there) == "file")
        {
            std::ofstream(shared).close();
        }
        EXPECT_EQ(PortDirectory::PathFor(c.places), c.expected);
    }
    std::filesystem::remove_all(shared);
}

TEST_F(CFMessagePortTests, ALateReplyIsDroppedAndASendNobodyReadsTimesOut)
{
    CServedPort server(CFSTR("com.kelto.Late"), Echo);
    ASSERT_NE(server.mPort, nullptr);
    CFMessagePortRef remote = CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.Late"));
    ASSERT_NE(remote, nullptr);

    // The server is not in this mode, so the request is not served while it waits.
    std::string reply;
    EXPECT_EQ(Send(remote, 1, "late", reply, 0.1, CFSTR("TestModeWithoutServer")),
              kCFMessagePortReceiveTimeout);
    EXPECT_EQ(server.mRequests, 0);
    EXPECT_TRUE(CFMessagePortIsValid(remote));
    // Now it is served, and its reply is written back to nobody waiting.
    EXPECT_TRUE(RunUntil([&] { return server.mRequests == 1; }));
    EXPECT_EQ(Send(remote, 1, "fresh", reply), kCFMessagePortSuccess);
    EXPECT_EQ(reply, "fresh");
    // A request larger than the socket takes, to a server that reads nothing meanwhile: the
    // send times out (as one to a stopped driver must).
    EXPECT_EQ(
        Send(remote, 1, std::string(8 << 20, 's'), reply, 0.1, CFSTR("TestModeWithoutServer")),
        kCFMessagePortSendTimeout);
    CFRelease(remote);
}

// Reads until end of stream while running the loop; true when the server closed. (Clients
// that do not follow the protocol are plain sockets.)
bool ServerClosed(int fd)
{
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    bool closed = false;
    RunUntil(
        [&]
        {
            char buffer[65536];
            for (;;)
            {
                const ssize_t count = recv(fd, buffer, sizeof buffer, 0);
                if (count == 0 || (count < 0 && errno == ECONNRESET))
                {
                    closed = true;
                }
                if (count <= 0)
                {
                    break;
                }
            }
            return closed;
        });
    return closed;
}

TEST_F(CFMessagePortTests, AMisbehavingClientIsDroppedAndOthersAreStillServed)
{
    CServedPort server(CFSTR("com.kelto.Robust"), Echo);
    ASSERT_NE(server.mPort, nullptr);
    const std::string path = mDirectory.Path() + "/com.kelto.Robust";
    CFMessagePortRef remote = CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.Robust"));
    ASSERT_NE(remote, nullptr);

    // Garbage, a length beyond the limit, and a frame cut off by the end of the stream.
    const std::vector<UInt8> oversized =
        EncodePortFrame(kPortRequestMagic, 1, 1, nullptr, 0); // length patched below
    std::vector<std::vector<UInt8>> attacks = {{'G', 'E', 'T', ' ', '/'}, oversized};
    attacks[1][12] = 0xFF, attacks[1][13] = 0xFF, attacks[1][14] = 0xFF, attacks[1][15] = 0x7F;
    for (const auto& attack : attacks)
    {
        const int fd = UnixSockets::Connect(path);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(write(fd, attack.data(), attack.size()), static_cast<ssize_t>(attack.size()));
        EXPECT_TRUE(ServerClosed(fd));
        close(fd);
        std::string reply;
        EXPECT_EQ(Send(remote, 1, "still here", reply), kCFMessagePortSuccess);
        EXPECT_EQ(reply, "still here");
    }
    const int fd = UnixSockets::Connect(path);
    const std::vector<UInt8> whole =
        EncodePortFrame(kPortRequestMagic, 7, 1, reinterpret_cast<const UInt8*>("abcd"), 4);
    ASSERT_EQ(write(fd, whole.data(), whole.size() - 1), static_cast<ssize_t>(whole.size() - 1));
    shutdown(fd, SHUT_WR);
    EXPECT_TRUE(ServerClosed(fd));
    close(fd);
    EXPECT_EQ(server.mRequests, 2); // only the well-formed requests reached the call-back
    CFRelease(remote);
}

// At the nesting limit the loop sleeps until a level returns: it does not poll in a spin
// while every level waits (for a slow driver, say).
TEST_F(CFMessagePortTests, AtTheNestingLimitTheLoopSleeps)
{
    size_t depth = 0;
    size_t deepest = 0;
    CServedPort server(CFSTR("com.kelto.Nested"),
                       [&](SInt32, CFDataRef data) -> CFDataRef
                       {
                           deepest = std::max(deepest, ++depth);
                           CFRunLoopRunInMode(kReplyMode, 0.1, false);
                           --depth;
                           return CFDataCreateCopy(nullptr, data);
                       });
    ASSERT_NE(server.mPort, nullptr);
    // Ten clients with four requests each: more than the levels there are.
    std::vector<int> clients;
    for (int i = 0; i < 10; ++i)
    {
        clients.push_back(UnixSockets::Connect(mDirectory.Path() + "/com.kelto.Nested"));
        ASSERT_GE(clients.back(), 0);
        for (UInt32 tag = 1; tag <= 4; ++tag)
        {
            const std::vector<UInt8> frame =
                EncodePortFrame(kPortRequestMagic, tag, 1, reinterpret_cast<const UInt8*>("x"), 1);
            ASSERT_EQ(write(clients.back(), frame.data(), frame.size()),
                      static_cast<ssize_t>(frame.size()));
        }
        fcntl(clients.back(), F_SETFL, fcntl(clients.back(), F_GETFL) | O_NONBLOCK);
    }
    const double before = CpuSeconds();
    size_t replies = 0;
    EXPECT_TRUE(RunUntil(
        [&]
        {
            for (const int fd : clients)
            {
                UInt8 buffer[4096];
                const ssize_t count = read(fd, buffer, sizeof buffer);
                replies += count > 0 ? static_cast<size_t>(count) / (kPortFrameHeaderSize + 1) : 0;
            }
            return replies == 40;
        },
        30.0, kReplyMode));
    EXPECT_EQ(deepest, CPortServer::kMaxNestedDeliveries);
    EXPECT_LT(CpuSeconds() - before, 0.15);
    for (const int fd : clients)
    {
        close(fd);
    }
}

// Clients that never read are dropped once their echoes of 1 MiB pile up, one after another,
// and what they left queued no longer counts against the bound for all connections: then a
// client that reads nothing until it has sent all its requests loses no reply, what its
// socket cannot take waiting beside it (250 echoes of 1 KiB stay within the bounds).
TEST_F(CFMessagePortTests, DeafClientsAreDroppedAndAPausingOneGetsEveryReplyLater)
{
    CServedPort server(CFSTR("com.kelto.Pause"), Echo);
    ASSERT_NE(server.mPort, nullptr);
    const std::string path = mDirectory.Path() + "/com.kelto.Pause";
    const std::string big(1 << 20, 'b');
    const std::vector<UInt8> flood = EncodePortFrame(
        kPortRequestMagic, 1, 1, reinterpret_cast<const UInt8*>(big.data()), big.size());
    for (int client = 0; client < 16; ++client)
    {
        const int deaf = UnixSockets::Connect(path);
        ASSERT_GE(deaf, 0);
        size_t offset = 0;
        EXPECT_TRUE(RunUntil(
            [&]
            {
                const ssize_t count = send(deaf, flood.data() + offset, flood.size() - offset,
                                           MSG_NOSIGNAL | MSG_DONTWAIT);
                offset = (offset + static_cast<size_t>(std::max<ssize_t>(count, 0))) % flood.size();
                return count < 0 && errno != EAGAIN; // EPIPE or ECONNRESET: dropped
            }))
            << client;
        close(deaf);
    }
    const int before = server.mRequests;
    const int fd = UnixSockets::Connect(path);
    ASSERT_GE(fd, 0);
    const std::string payload(1024, 'p');
    const std::vector<UInt8> frame = EncodePortFrame(
        kPortRequestMagic, 1, 1, reinterpret_cast<const UInt8*>(payload.data()), 1024);
    std::vector<UInt8> requests;
    for (int i = 0; i < 250; ++i)
    {
        requests.insert(requests.end(), frame.begin(), frame.end());
    }
    size_t sent = 0;
    EXPECT_TRUE(RunUntil(
        [&]
        {
            const ssize_t count = send(fd, requests.data() + sent, requests.size() - sent,
                                       MSG_NOSIGNAL | MSG_DONTWAIT);
            sent += count > 0 ? static_cast<size_t>(count) : 0;
            return server.mRequests - before == 250;
        }));
    CPortFrameDecoder decoder(kPortReplyMagic);
    int replies = 0;
    RunUntil(
        [&]
        {
            UInt8 buffer[65536];
            const ssize_t count = recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
            decoder.Append(buffer, count > 0 ? static_cast<size_t>(count) : 0);
            for (SPortFrame reply; decoder.Next(reply) == CPortFrameDecoder::EResult::eFrame;)
            {
                replies += reply.mPayload.size() == 1024;
            }
            return replies == 250 || count == 0;
        });
    EXPECT_EQ(replies, 250);
    close(fd);
}

// Fault injection: replacement system calls.
int gCalls = 0;
int gStaleErrno = 0;

TEST_F(CFMessagePortTests, ShortWritesAndInterruptedCallsAreResumed)
{
    static SPortTransport faulty;
    faulty = SystemPortTransport();
    gCalls = 0;
    faulty.send = [](int fd, const void* buffer, size_t length, int flags) -> ssize_t
    {
        if (++gCalls % 3 == 0)
        {
            errno = EINTR;
            return -1;
        }
        // Not much shorter: each write costs the socket a buffer of its own, and the server
        // (on this thread) reads only once the request is written. Every other one writes a
        // single byte.
        const size_t most = gCalls % 2 == 0 ? 1 : 61;
        return SystemPortTransport().send(fd, buffer, length < most ? length : most, flags);
    };
    faulty.recv = [](int fd, void* buffer, size_t length, int flags) -> ssize_t
    {
        if (++gCalls % 5 == 0)
        {
            errno = EINTR;
            return -1;
        }
        return SystemPortTransport().recv(fd, buffer, length < 5 ? length : 5, flags);
    };
    SetPortTransport(&faulty);

    CServedPort server(CFSTR("com.kelto.Faults"), Echo);
    ASSERT_NE(server.mPort, nullptr);
    CFMessagePortRef remote = CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.Faults"));
    ASSERT_NE(remote, nullptr);
    std::string payload;
    for (int i = 0; i < 3000; ++i)
    {
        payload.push_back(static_cast<char>('a' + i % 26));
    }
    std::string reply;
    EXPECT_EQ(Send(remote, 1, payload, reply), kCFMessagePortSuccess);
    EXPECT_EQ(reply, payload);
    EXPECT_GT(gCalls, 1000); // the faults were really in the path: 1200 reads of 5 bytes
    CFRelease(remote);
}

TEST_F(CFMessagePortTests, AFailingConnectOrWriteGivesNoPortOrATransportError)
{
    CServedPort server(CFSTR("com.kelto.Broken"), Echo);
    ASSERT_NE(server.mPort, nullptr);

    static SPortTransport faulty;
    faulty = SystemPortTransport();
    faulty.connect = [](int, const sockaddr*, socklen_t) -> int
    {
        errno = ECONNREFUSED;
        return -1;
    };
    SetPortTransport(&faulty);
    EXPECT_EQ(CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.Broken")), nullptr);
    SetPortTransport(nullptr);

    CFMessagePortRef remote = CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.Broken"));
    ASSERT_NE(remote, nullptr);
    faulty = SystemPortTransport();
    faulty.send = [](int, const void*, size_t, int) -> ssize_t
    {
        errno = EPIPE;
        return -1;
    };
    SetPortTransport(&faulty);
    std::string reply;
    EXPECT_EQ(Send(remote, 1, "x", reply), kCFMessagePortTransportError);
    EXPECT_FALSE(CFMessagePortIsValid(remote));
    EXPECT_EQ(Send(remote, 1, "x", reply), kCFMessagePortIsInvalid);
    SetPortTransport(nullptr);
    CFRelease(remote);

    // The end of the stream ends the port, whatever an earlier call left in errno.
    for (const int stale : {EINTR, EAGAIN})
    {
        gStaleErrno = stale;
        remote = CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.Broken"));
        faulty = SystemPortTransport();
        faulty.recv = [](int, void*, size_t, int) -> ssize_t
        {
            errno = gStaleErrno;
            return 0;
        };
        SetPortTransport(&faulty);
        EXPECT_EQ(Send(remote, 1, "x", reply, 2.0), kCFMessagePortBecameInvalidError) << stale;
        SetPortTransport(nullptr);
        CFRelease(remote);
    }

    // A new remote port connects again.
    remote = CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.Broken"));
    ASSERT_NE(remote, nullptr);
    EXPECT_EQ(Send(remote, 1, "back", reply), kCFMessagePortSuccess);
    EXPECT_EQ(reply, "back");
    CFRelease(remote);
}
} // namespace
