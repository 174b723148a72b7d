#include "Bench/Support/CRawEchoServer.h"
#include "Bench/Support/CRawRelay.h"
#include "Bench/Support/UnixSockets.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <vector>

#include <csignal>
#include <stdlib.h>
#include <unistd.h>

namespace
{
constexpr size_t kRequest = 40;
constexpr size_t kReply = 100;

class CRawRelayTests : public testing::Test
{
protected:
    void SetUp() override
    {
        std::string pattern = testing::TempDir() + "kel_raw_XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        mDirectory = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(mDirectory); }

    static std::vector<unsigned char> Request(unsigned char seed)
    {
        std::vector<unsigned char> request(kRequest);
        for (size_t i = 0; i < kRequest; ++i)
        {
            request[i] = static_cast<unsigned char>(seed + i);
        }
        return request;
    }
    static std::vector<unsigned char> Expected(const std::vector<unsigned char>& request)
    {
        std::vector<unsigned char> reply(kReply);
        CRawEchoServer::FillReply(request.data(), request.size(), reply.data(), reply.size());
        return reply;
    }
    static std::vector<unsigned char> Receive(int fd)
    {
        std::vector<unsigned char> reply(kReply);
        if (!UnixSockets::ReadExactly(fd, reply.data(), reply.size()))
        {
            reply.clear();
        }
        return reply;
    }

    std::string mDirectory;
};
} // namespace

TEST_F(CRawRelayTests, EchoServerAnswersEachWholeRequestInOrder)
{
    CRawEchoServer server(mDirectory + "/server", kRequest, kReply);
    const int fd = UnixSockets::Connect(server.Path(), 5);
    ASSERT_GE(fd, 0);
    const std::vector<unsigned char> first = Request(1);
    const std::vector<unsigned char> second = Request(100);
    EXPECT_EQ(Expected(first)[kRequest], first[0]) << "the reply repeats the request";

    // Two requests in one write, then one in two writes: answers come per whole request.
    std::vector<unsigned char> both = first;
    both.insert(both.end(), second.begin(), second.end());
    ASSERT_TRUE(UnixSockets::WriteAll(fd, both.data(), both.size()));
    EXPECT_EQ(Receive(fd), Expected(first));
    EXPECT_EQ(Receive(fd), Expected(second));
    ASSERT_TRUE(UnixSockets::WriteAll(fd, second.data(), 10));
    usleep(20'000);
    ASSERT_TRUE(UnixSockets::WriteAll(fd, second.data() + 10, kRequest - 10));
    EXPECT_EQ(Receive(fd), Expected(second));
    close(fd);

    const pid_t pid = server.Process().Pid();
    EXPECT_EQ(server.Process().Stop(), 128 + SIGTERM);
    EXPECT_NE(kill(pid, 0), 0);
    EXPECT_THROW(CRawEchoServer(mDirectory + "/none", 0, kReply), std::runtime_error);
}

TEST_F(CRawRelayTests, RelayGivesEveryClientItsOwnReplies)
{
    CRawEchoServer server(mDirectory + "/server", kRequest, kReply);
    CRawRelay relay(mDirectory + "/relay", server.Path(), kRequest, kReply);
    const int a = UnixSockets::Connect(relay.Path(), 5);
    const int b = UnixSockets::Connect(relay.Path(), 5);
    const int gone = UnixSockets::Connect(relay.Path(), 5);
    ASSERT_GE(a, 0);
    ASSERT_GE(b, 0);
    ASSERT_GE(gone, 0);

    // Requests of three clients in flight at once, one client leaving before its answer,
    // one request split across writes: each client gets exactly its own answers, in order.
    const std::vector<unsigned char> a1 = Request(1), a2 = Request(2), b1 = Request(50),
                                     g1 = Request(200);
    ASSERT_TRUE(UnixSockets::WriteAll(a, a1.data(), kRequest));
    ASSERT_TRUE(UnixSockets::WriteAll(b, b1.data(), 7));
    ASSERT_TRUE(UnixSockets::WriteAll(gone, g1.data(), kRequest));
    close(gone);
    ASSERT_TRUE(UnixSockets::WriteAll(a, a2.data(), kRequest));
    usleep(20'000);
    ASSERT_TRUE(UnixSockets::WriteAll(b, b1.data() + 7, kRequest - 7));
    EXPECT_EQ(Receive(b), Expected(b1));
    EXPECT_EQ(Receive(a), Expected(a1));
    EXPECT_EQ(Receive(a), Expected(a2));

    // Later clients still work after one left.
    const int c = UnixSockets::Connect(relay.Path(), 5);
    ASSERT_GE(c, 0);
    ASSERT_TRUE(UnixSockets::WriteAll(c, a2.data(), kRequest));
    EXPECT_EQ(Receive(c), Expected(a2));
    for (int fd : {a, b, c})
    {
        close(fd);
    }

    // Without its server the relay has nothing to do and ends.
    EXPECT_EQ(server.Process().Stop(), 128 + SIGTERM);
    EXPECT_EQ(relay.Process().WaitForExit(std::chrono::seconds(10)), 1);
    EXPECT_THROW(CRawRelay(mDirectory + "/relay2", mDirectory + "/nobody", kRequest, kReply),
                 std::runtime_error);
}
