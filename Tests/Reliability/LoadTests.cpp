// Load: eight client processes at once, each with its own mix of requests answered by the
// coordinator and requests routed to the two drivers; every answer must arrive, be the
// answer to that client's very request, and come from the driver that owns the tablet.
// Then the same beside a hostile mix: 2,000 idle connections from one process, a stopped
// driver with 64 requests waiting for it, and 20 clients that send without ever reading.
//
// KEL_LOAD_REQUESTS sets the requests per client (500 when unset; scripts/load runs
// 10,000). The figures (time, rate, failures, the coordinator's memory) are printed and
// recorded as test properties.
#include "Tests/Reliability/ClientProcess.h"
#include "Tests/Reliability/ReliabilitySystem.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
using namespace reliability;

constexpr unsigned int kClients = 8;

unsigned int RequestsPerClient()
{
    const char* text = std::getenv("KEL_LOAD_REQUESTS");
    const long value = text != nullptr ? std::atol(text) : 0;
    return value > 0 ? static_cast<unsigned int>(value) : 500;
}

// How many requests for a tablet parameter a driver's trace shows answered with success.
size_t TabletAnswers(const std::string& log_I)
{
    std::istringstream lines(log_I);
    size_t count = 0;
    for (std::string line; std::getline(lines, line);)
    {
        count += line.find("'KEPK' get other (parameter") != std::string::npos &&
                 line.find("-> status 0x0000,") != std::string::npos;
    }
    return count;
}

// Runs the eight clients to their end; returns the requests not answered right (each one
// also fails the test) and the seconds it took.
unsigned int RunClients(const SExpectations& expected_I, unsigned int requests_I, double& seconds_O)
{
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::unique_ptr<CClientProcess>> clients;
    for (unsigned int client = 0; client < kClients; ++client)
    {
        clients.push_back(
            std::make_unique<CClientProcess>(LoadArguments(client, requests_I, expected_I)));
    }
    // Generous: a loaded machine with the sanitizers manages well over 100 requests a second.
    const double limit = 60.0 + kClients * requests_I / 100.0;
    unsigned int failures = 0;
    for (unsigned int client = 0; client < kClients; ++client)
    {
        const std::string summary = clients[client]->ReadLine(limit);
        EXPECT_EQ(summary, LoadAllRight(client, requests_I));
        const size_t right = summary.rfind(", ");
        failures +=
            requests_I - (right == std::string::npos
                              ? 0
                              : static_cast<unsigned int>(std::atoi(summary.c_str() + right + 2)));
        for (std::string wrong = clients[client]->ReadLine(1.0); !wrong.empty();
             wrong = clients[client]->ReadLine(1.0))
        {
            ADD_FAILURE() << wrong;
        }
        EXPECT_EQ(clients[client]->WaitForExit(), 0);
    }
    seconds_O = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return failures;
}

TEST(LoadTests, EightClientsEachGetTheRightAnswerToEveryRequest)
{
    const unsigned int requests = RequestsPerClient();
    CReliabilitySystem system;
    ASSERT_TRUE(system.Start()) << system.Problem();
    const pid_t coordinator = system.Coordinator().Pid();
    const long residentBefore = ResidentKiB(coordinator);
    double seconds = 0;
    RunClients(system.Expected(), requests, seconds);
    const long residentAfter = ResidentKiB(coordinator);

    // A quarter of the requests went to the drivers, each to the one that owns the tablet.
    EXPECT_EQ(TabletAnswers(system.Driver(0)->Log()) + TabletAnswers(system.Driver(1)->Log()),
              size_t{kClients} * (requests / 4));
    EXPECT_TRUE(system.Coordinator().Running());

    const double total = double(kClients) * requests;
    std::printf("load: %u clients x %u requests in %.2f s, %.0f requests/s; coordinator RSS "
                "%ld KiB before, %ld KiB after\n",
                kClients, requests, seconds, total / seconds, residentBefore, residentAfter);
    ::testing::Test::RecordProperty("requests", std::to_string(kClients * requests));
    ::testing::Test::RecordProperty("seconds", std::to_string(seconds));
    ::testing::Test::RecordProperty("rss_before_kib", std::to_string(residentBefore));
    ::testing::Test::RecordProperty("rss_after_kib", std::to_string(residentAfter));
}

// The eight clients keep to what the stopped driver has no part in (the coordinator's own
// answers and the other driver's tablets): not one of their requests may fail, and the
// coordinator's peak memory stays under 100 MB.
TEST(LoadTests, EightClientsBesideAHostileMix)
{
    const unsigned int requests = RequestsPerClient();
    rlimit files = {};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = std::min<rlim_t>(files.rlim_max, 4096);
    setrlimit(RLIMIT_NOFILE, &files);
    CReliabilitySystem system;
    ASSERT_TRUE(system.Start()) << system.Problem();
    const pid_t coordinator = system.Coordinator().Pid();

    // The deaf ones first: past its first 64 connections this process is refused.
    std::vector<int> deaf; // send requests, never read an answer
    for (int i = 0; i < 20; ++i)
    {
        deaf.push_back(RawConnect(system.PortDirectory()));
        fcntl(deaf.back(), F_SETFL, fcntl(deaf.back(), F_GETFL) | O_NONBLOCK);
    }
    std::vector<int> idle;
    for (int i = 0; i < 2000; ++i)
    {
        idle.push_back(RawConnect(system.PortDirectory()));
        ASSERT_GE(idle.back(), 0) << i;
    }
    const std::vector<unsigned int> pen = TabletsOf(system.Expected(), 1);
    system.Driver(1)->Signal(SIGSTOP);
    std::vector<std::unique_ptr<CClientProcess>> askers;
    for (int i = 0; i < 64; ++i)
    {
        askers.push_back(std::make_unique<CClientProcess>(
            std::vector<std::string>{"ask", std::to_string(pen[i % pen.size()])}));
    }
    for (auto& asker : askers)
    {
        EXPECT_EQ(asker->ReadLine(20.0), "asking");
    }
    std::atomic<bool> stop{false};
    std::thread sender(
        [&]
        {
            const std::vector<UInt8> frame =
                RequestFrame(1, MakeRequest(100, 1, system.Expected()));
            while (!stop.load())
            {
                for (const int fd : deaf)
                {
                    (void)send(fd, frame.data(), frame.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });

    SExpectations expected = system.Expected();
    expected.mAvoidedDriver = "Pen";
    double seconds = 0;
    const unsigned int failures = RunClients(expected, requests, seconds);
    const long peak = PeakResidentKiB(coordinator);
    stop.store(true);
    sender.join();

    EXPECT_EQ(failures, 0u) << system.Logs();
    EXPECT_LT(peak, 100 * 1024);
    for (const std::vector<int>* fds : {&idle, &deaf})
    {
        for (const int fd : *fds)
        {
            close(fd);
        }
    }
    system.Driver(1)->Signal(SIGCONT);
    for (auto& asker : askers)
    {
        EXPECT_EQ(asker->WaitForExit(20.0), 0);
    }
    EXPECT_TRUE(system.Coordinator().Running());

    std::printf("hostile load: %u clients x %u requests in %.2f s, %.0f requests/s, %u failed; "
                "coordinator peak RSS %ld KiB\n",
                kClients, requests, seconds, double(kClients) * requests / seconds, failures, peak);
    ::testing::Test::RecordProperty("failures", std::to_string(failures));
    ::testing::Test::RecordProperty("peak_rss_kib", std::to_string(peak));
}
} // namespace
