// Clients that misbehave, and a coordinator that goes away under its clients: a client that
// sends and never reads its answers, clients that leave in the middle of a request, and a
// coordinator restarted (after SIGTERM, and after SIGKILL) while a client stays connected.
// The coordinator serves everyone else throughout, and a client reconnects by itself on
// its next send.
#include "Tests/EndToEnd/EndToEndSupport.h"
#include "Tests/Reliability/ClientProcess.h"
#include "Tests/Reliability/ReliabilitySystem.h"
#include "Tests/Support/CoordinatorProcess.h"

#include "Client/CKeltoClient.h"

#include "Compat/CPortServer.h"

#include "Compat/CPortFrameDecoder.h"
#include "Mac/Common/Communication/MessageIDs.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <sstream>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
using namespace reliability;
using Clock = std::chrono::steady_clock;

// Requests of every kind of the mix from a well-behaved client; the number answered right.
unsigned int Served(const SExpectations& expected_I, unsigned int count_I,
                    unsigned int client_I = 201)
{
    end_to_end::Client client(kCoordinatorPortName);
    unsigned int right = 0;
    for (unsigned int sequence = 0; sequence < count_I; ++sequence)
    {
        CEventPacket packet = MakeRequest(client_I, sequence, expected_I);
        const KELSTATUS status = client.Send(packet);
        right += CheckAnswer(client_I, sequence, expected_I, status, packet).empty();
    }
    return right;
}

// Twenty clients that send without ever reading: each gets at most a few requests served
// and a bounded queue of answers (then it is let go), so the coordinator stays small and
// answers everybody else within a second.
TEST(ClientFaultTests, TwentyClientsThatNeverReadKeepTheCoordinatorSmall)
{
    CReliabilitySystem system;
    ASSERT_TRUE(system.Start()) << system.Problem();
    std::vector<int> stalled;
    for (int i = 0; i < 20; ++i)
    {
        stalled.push_back(RawConnect(system.PortDirectory()));
        ASSERT_GE(stalled.back(), 0);
        fcntl(stalled.back(), F_SETFL, fcntl(stalled.back(), F_GETFL) | O_NONBLOCK);
    }
    const std::vector<UInt8> frame = RequestFrame(1, MakeRequest(100, 1, system.Expected()));
    const auto deadline = Clock::now() + std::chrono::seconds(3);
    while (Clock::now() < deadline)
    {
        for (const int fd : stalled)
        {
            // Whole frames only; a refused or partial one ends this client's sending.
            (void)send(fd, frame.data(), frame.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        }
    }
    const auto start = Clock::now();
    EXPECT_EQ(Served(system.Expected(), 10), 10u) << system.Logs();
    EXPECT_LT(std::chrono::duration<double>(Clock::now() - start).count(), 1.0);
    EXPECT_LT(ResidentKiB(system.Coordinator().Pid()), 100 * 1024);
    for (const int fd : stalled)
    {
        close(fd);
    }
    EXPECT_TRUE(system.Coordinator().Running());
}

// The frame a refused connection gets before it is closed: "<tag> <reason>".
std::string Refusal(int fd_I)
{
    pollfd wait = {fd_I, POLLIN, 0};
    std::vector<UInt8> bytes(256);
    ssize_t got = 0;
    if (poll(&wait, 1, 5000) == 1)
    {
        got = recv(fd_I, bytes.data(), bytes.size(), 0);
    }
    CPortFrameDecoder decoder(kPortReplyMagic);
    decoder.Append(bytes.data(), got > 0 ? static_cast<size_t>(got) : 0);
    SPortFrame frame;
    if (decoder.Next(frame) != CPortFrameDecoder::EResult::eFrame ||
        frame.mWord != kPortReplyRefused)
    {
        return "(none)";
    }
    return std::to_string(frame.mTag) + " " +
           std::string(frame.mPayload.begin(), frame.mPayload.end());
}

// Processor seconds a process has used (user and system, from /proc).
double CpuSeconds(pid_t pid_I)
{
    std::ifstream stat("/proc/" + std::to_string(pid_I) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string field;
    double ticks = 0;
    for (int i = 3; i <= 15 && fields >> field; ++i)
    {
        ticks += i >= 14 ? std::stod(field) : 0; // utime, stime
    }
    return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// 2,000 idle connections from one process: it keeps 64, the others are refused at once
// with a frame that says why, and everybody else is served within a second. A frame larger
// than the limit gets its own refusal. The coordinator stays small throughout.
TEST(ClientFaultTests, IdleConnectionsAndOversizedFramesLockNobodyOut)
{
    rlimit files = {};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = std::min<rlim_t>(files.rlim_max, 4096);
    setrlimit(RLIMIT_NOFILE, &files);
    CReliabilitySystem system;
    ASSERT_TRUE(system.Start()) << system.Problem();
    std::vector<int> idle;
    for (int i = 0; i < 2000; ++i)
    {
        const int fd = RawConnect(system.PortDirectory());
        ASSERT_GE(fd, 0) << i;
        idle.push_back(fd);
    }
    const size_t kept = CPortServer::kMaxConnectionsPerProcess;
    EXPECT_EQ(Refusal(idle[kept]), "0 too many connections");
    EXPECT_EQ(Refusal(idle.back()), "0 too many connections");
    // Idle, they cost the coordinator no processor time.
    const double before = CpuSeconds(system.Coordinator().Pid());
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_LT(CpuSeconds(system.Coordinator().Pid()) - before, 0.1);
    // Said once for the process, not for each of its 1,936 refused connections.
    const std::string log = system.Coordinator().Log();
    size_t told = 0;
    for (size_t at = log.find("refusing connections of process"); at != std::string::npos;
         at = log.find("refusing connections of process", at + 1))
    {
        ++told;
    }
    EXPECT_EQ(told, 1u) << log;

    // Another process is served at once.
    const auto start = Clock::now();
    CClientProcess asker({"ask", "0"});
    EXPECT_EQ(asker.ReadLine(5.0), "asking");
    EXPECT_EQ(asker.ReadLine(5.0), "status 0x0000 driver Kelto");
    EXPECT_LT(std::chrono::duration<double>(Clock::now() - start).count(), 1.0);
    EXPECT_LT(ResidentKiB(system.Coordinator().Pid()), 100 * 1024);

    // This process, at its limit, is told so through the client library.
    {
        CKeltoClient client(5.0);
        unsigned short count = 0;
        EXPECT_EQ(client.GetTabletCount(count), CKeltoClient::kStatusCoordinatorBusy);
    }
    // A frame announcing more than the limit: the sender learns why, then the connection ends.
    const std::vector<UInt8> header =
        EncodePortFrame(kPortRequestMagic, 7, kMessageIDEventPacket, nullptr, 0);
    std::vector<UInt8> oversized(header);
    const UInt32 length = kPortMaxPayload + 1;
    std::memcpy(oversized.data() + 12, &length, sizeof length);
    ASSERT_EQ(send(idle[0], oversized.data(), oversized.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(oversized.size()));
    EXPECT_EQ(Refusal(idle[0]), "7 frame too large");

    for (const int fd : idle)
    {
        close(fd);
    }
    EXPECT_EQ(Served(system.Expected(), 10), 10u) << system.Logs();
    EXPECT_TRUE(system.Coordinator().Running());
}

// Connections that hold half a frame keep their slots only for a while: once a new
// connection needs one, those stalled for kPartialFrameTimeout are let go.
TEST(ClientFaultTests, HalfAFrameHoldsASlotOnlyForAWhile)
{
    CReliabilitySystem system;
    ASSERT_TRUE(system.Start()) << system.Problem();
    const std::vector<UInt8> header = EncodePortFrame(kPortRequestMagic, 1, 0, nullptr, 0);
    std::vector<int> stalled;
    for (size_t i = 0; i < CPortServer::kMaxConnectionsPerProcess; ++i)
    {
        stalled.push_back(RawConnect(system.PortDirectory()));
        ASSERT_EQ(send(stalled.back(), header.data(), 8, MSG_NOSIGNAL), 8); // half a header
    }
    // Until the time-out the process is at its limit...
    int early = RawConnect(system.PortDirectory());
    EXPECT_EQ(Refusal(early), "0 too many connections");
    close(early);
    // ...after it, the stalled connections go and the new one is served. The time-out counts
    // from when the coordinator read the half headers, which a busy machine delays a little.
    std::this_thread::sleep_for(CPortServer::kPartialFrameTimeout);
    unsigned int served = 0;
    for (int attempt = 0; attempt < 15 && served < 4; ++attempt)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        served = Served(system.Expected(), 4);
    }
    EXPECT_EQ(served, 4u) << system.Logs();
    for (const int fd : stalled)
    {
        char byte = 0;
        EXPECT_EQ(recv(fd, &byte, 1, MSG_DONTWAIT), 0) << "a stalled connection is still open";
        close(fd);
    }
}

// With its descriptors used up (under a hard limit it cannot raise), the coordinator takes
// new connections on a spare descriptor and refuses them with the same frame, instead of
// leaving them in the backlog where its listening socket would wake every pass: it stays
// idle meanwhile, and serves again once connections go.
TEST(ClientFaultTests, OutOfDescriptorsNewConnectionsAreRefusedWithoutSpinning)
{
    const std::string scratch =
        std::filesystem::temp_directory_path() / ("kel-descriptors-" + std::to_string(getpid()));
    std::filesystem::create_directories(scratch);
    const std::string wrapper = scratch + "/coordinator-with-few-descriptors";
    std::ofstream(wrapper) << "#!/bin/sh\nulimit -n 40\nexec " << CoordinatorProcess::ProgramPath()
                           << " \"$@\"\n";
    std::filesystem::permissions(wrapper, std::filesystem::perms::owner_all);
    SSystemOptions options;
    options.mCoordinatorProgram = wrapper;
    {
        CReliabilitySystem system(options);
        ASSERT_TRUE(system.Start()) << system.Problem();
        std::vector<int> idle;
        for (int i = 0; i < 60; ++i)
        {
            idle.push_back(RawConnect(system.PortDirectory()));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        const auto refused = std::find_if(idle.begin(), idle.end(),
                                          [](int fd)
                                          {
                                              pollfd readable = {fd, POLLIN, 0};
                                              return poll(&readable, 1, 0) == 1;
                                          });
        ASSERT_NE(refused, idle.end()) << "every connection was taken";
        EXPECT_EQ(Refusal(*refused), "0 too many connections");
        const pid_t coordinator = system.Coordinator().Pid();
        const double before = CpuSeconds(coordinator);
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        EXPECT_LT(CpuSeconds(coordinator) - before, 0.1);
        for (const int fd : idle)
        {
            close(fd);
        }
        EXPECT_EQ(Served(system.Expected(), 4), 4u) << system.Logs();
    }
    std::filesystem::remove_all(scratch);
}

TEST(ClientFaultTests, ClientsLeavingInTheMiddleOfARequestHoldUpNobody)
{
    SSystemOptions options;
    options.mPenFaults =
        R"([{"Request": "other", "Action": "slow", "Milliseconds": 1500, "Times": 2}])";
    CReliabilitySystem system(options);
    ASSERT_TRUE(system.Start()) << system.Problem();

    // Half a request, then gone.
    const std::vector<UInt8> frame = RequestFrame(1, MakeRequest(100, 0, system.Expected()));
    int fd = RawConnect(system.PortDirectory());
    ASSERT_GE(fd, 0);
    ASSERT_EQ(send(fd, frame.data(), frame.size() / 2, MSG_NOSIGNAL),
              static_cast<ssize_t>(frame.size() / 2));
    close(fd);
    // A whole request, gone before the answer: the coordinator answers into a closed
    // connection once the slow driver is done.
    unsigned int penTablet = 0;
    while (system.Expected().mDriverOfTablet[penTablet] != "Pen")
    {
        ++penTablet;
    }
    {
        CClientProcess leaving({"ask", std::to_string(penTablet)});
        ASSERT_EQ(leaving.ReadLine(), "asking");
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    } // killed here, in the middle of its request
    // The same by a raw connection: a request for a Pen tablet, then close.
    fd = RawConnect(system.PortDirectory());
    ASSERT_GE(fd, 0);
    const std::vector<UInt8> routed = RequestFrame(2, TabletRequest(penTablet, EParameterIDName));
    send(fd, routed.data(), routed.size(), MSG_NOSIGNAL);
    shutdown(fd, SHUT_RDWR);
    close(fd);

    EXPECT_EQ(Served(system.Expected(), 40), 40u) << system.Logs();
    EXPECT_TRUE(system.Coordinator().Running());
}

TEST(ClientFaultTests, AConnectedClientReachesARestartedCoordinatorOnItsNextSend)
{
    CReliabilitySystem system;
    ASSERT_TRUE(system.Start()) << system.Problem();
    const SExpectations& expected = system.Expected();
    end_to_end::Client client(kCoordinatorPortName);
    unsigned int sequence = 0;
    auto next = [&]
    {
        CEventPacket packet = MakeRequest(202, sequence, expected);
        const KELSTATUS status = client.Send(packet);
        return CheckAnswer(202, sequence++, expected, status, packet);
    };
    for (int i = 0; i < 8; ++i)
    {
        EXPECT_EQ(next(), "");
    }

    for (const int signal : {SIGTERM, SIGKILL})
    {
        system.Coordinator().Signal(signal);
        EXPECT_GE(system.Coordinator().WaitForExit(10.0), 0) << "signal " << signal;
        // Meanwhile a request fails at once with a status.
        CEventPacket packet = MakeRequest(202, 1, expected);
        const auto start = Clock::now();
        EXPECT_NE(client.Send(packet), KELSTATUS_SUCCESS);
        EXPECT_LT(std::chrono::duration<double>(Clock::now() - start).count(), 2.0);

        ASSERT_TRUE(system.StartCoordinator()) << system.Problem();
        // The same client, with no new connection of its own: every kind of request,
        // the routed ones to the tablets' drivers as before.
        for (int i = 0; i < 8; ++i)
        {
            EXPECT_EQ(next(), "") << "after signal " << signal;
        }
    }
}
} // namespace
