// Faults of the transport under a client of the real coordinator: the system calls of this
// process's message ports are replaced (SPortTransport) by ones that refuse to connect,
// write and read a few bytes at a time, are interrupted (EINTR), or break the connection.
// Short and interrupted calls change nothing a client sees; a failed connect or a broken
// connection gives the request a status at once, and the next send connects again.
#include "Tests/EndToEnd/EndToEndSupport.h"
#include "Tests/Reliability/ReliabilitySystem.h"

#include "Compat/SPortTransport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>

namespace
{
using namespace reliability;
using Clock = std::chrono::steady_clock;

std::atomic<int> gCalls{0};

class TransportFaultTests : public ::testing::Test
{
protected:
    void SetUp() override
    {
        gCalls = 0;
        mFaulty = SystemPortTransport();
    }
    void TearDown() override { SetPortTransport(nullptr); }

    // Request `sequence_I` of the mix through `client_I`; empty when answered right.
    std::string Ask(end_to_end::Client& client_I, unsigned int sequence_I)
    {
        CEventPacket packet = MakeRequest(203, sequence_I, mSystem.Expected());
        const KELSTATUS status = client_I.Send(packet);
        return CheckAnswer(203, sequence_I, mSystem.Expected(), status, packet);
    }

    CReliabilitySystem mSystem;
    SPortTransport mFaulty;
};

TEST_F(TransportFaultTests, ShortAndInterruptedCallsChangeNoAnswer)
{
    ASSERT_TRUE(mSystem.Start()) << mSystem.Problem();
    mFaulty.send = [](int fd, const void* buffer, size_t length, int flags) -> ssize_t
    {
        if (++gCalls % 3 == 0)
        {
            errno = EINTR;
            return -1;
        }
        return SystemPortTransport().send(fd, buffer, length < 7 ? length : 7, flags);
    };
    mFaulty.recv = [](int fd, void* buffer, size_t length, int flags) -> ssize_t
    {
        if (++gCalls % 4 == 0)
        {
            errno = EINTR;
            return -1;
        }
        return SystemPortTransport().recv(fd, buffer, length < 5 ? length : 5, flags);
    };
    mFaulty.connect = [](int fd, const sockaddr* address, socklen_t length) -> int
    {
        if (++gCalls % 2 == 0)
        {
            errno = EINTR;
            return -1;
        }
        return SystemPortTransport().connect(fd, address, length);
    };
    SetPortTransport(&mFaulty);

    end_to_end::Client client(kCoordinatorPortName);
    for (unsigned int sequence = 0; sequence < 200; ++sequence)
    {
        EXPECT_EQ(Ask(client, sequence), "");
    }
    // The faults were in the path: every request and answer took dozens of calls.
    EXPECT_GT(gCalls.load(), 200 * 40);
}

TEST_F(TransportFaultTests, AFailedConnectGivesAStatusAndTheNextSendConnects)
{
    ASSERT_TRUE(mSystem.Start()) << mSystem.Problem();
    mFaulty.connect = [](int, const sockaddr*, socklen_t) -> int
    {
        ++gCalls;
        errno = ECONNREFUSED;
        return -1;
    };
    SetPortTransport(&mFaulty);
    end_to_end::Client client(kCoordinatorPortName);
    const auto start = Clock::now();
    CEventPacket packet = MakeRequest(203, 1, mSystem.Expected());
    EXPECT_EQ(client.Send(packet), KELSTATUS_FAILURE);
    EXPECT_LT(std::chrono::duration<double>(Clock::now() - start).count(), 2.0);
    EXPECT_GT(gCalls.load(), 0);

    SetPortTransport(nullptr);
    for (unsigned int sequence = 0; sequence < 8; ++sequence)
    {
        EXPECT_EQ(Ask(client, sequence), "");
    }
}

TEST_F(TransportFaultTests, ABrokenConnectionGivesAStatusAndTheNextSendConnectsAgain)
{
    ASSERT_TRUE(mSystem.Start()) << mSystem.Problem();
    end_to_end::Client client(kCoordinatorPortName);
    EXPECT_EQ(Ask(client, 0), "");

    // The connection breaks while a request is written, then while its answer is read.
    mFaulty.send = [](int, const void*, size_t, int) -> ssize_t
    {
        ++gCalls;
        errno = EPIPE;
        return -1;
    };
    SetPortTransport(&mFaulty);
    CEventPacket packet = MakeRequest(203, 1, mSystem.Expected());
    EXPECT_NE(client.Send(packet), KELSTATUS_SUCCESS);
    SetPortTransport(nullptr);
    EXPECT_EQ(Ask(client, 1), "");

    mFaulty = SystemPortTransport();
    mFaulty.recv = [](int, void*, size_t, int) -> ssize_t
    {
        ++gCalls;
        errno = ECONNRESET;
        return -1;
    };
    SetPortTransport(&mFaulty);
    packet = MakeRequest(203, 2, mSystem.Expected());
    const auto start = Clock::now();
    EXPECT_NE(client.Send(packet), KELSTATUS_SUCCESS);
    EXPECT_LT(std::chrono::duration<double>(Clock::now() - start).count(), 2.0);
    SetPortTransport(nullptr);
    for (unsigned int sequence = 2; sequence < 10; ++sequence)
    {
        EXPECT_EQ(Ask(client, sequence), "");
    }
    EXPECT_GE(gCalls.load(), 2);
}
} // namespace
