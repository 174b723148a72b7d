// Load: eight client processes at once, each with its own mix of requests answered by the
// coordinator and requests routed to the two drivers; every answer must arrive, be the
// answer to that client's very request, and come from the driver that owns the tablet.
//
// KEL_LOAD_REQUESTS sets the requests per client (500 when unset; scripts/load runs
// 10,000). The figures (time, rate, the coordinator's memory before and after) are printed
// and recorded as test properties.
#include "Tests/Reliability/ClientProcess.h"
#include "Tests/Reliability/ReliabilitySystem.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

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

TEST(LoadTests, EightClientsEachGetTheRightAnswerToEveryRequest)
{
    const unsigned int requests = RequestsPerClient();
    CReliabilitySystem system;
    ASSERT_TRUE(system.Start()) << system.Problem();
    const pid_t coordinator = system.Coordinator().Pid();
    const long residentBefore = ResidentKiB(coordinator);

    const auto start = std::chrono::steady_clock::now();
    std::vector<std::unique_ptr<CClientProcess>> clients;
    for (unsigned int client = 0; client < kClients; ++client)
    {
        clients.push_back(
            std::make_unique<CClientProcess>(LoadArguments(client, requests, system.Expected())));
    }
    // Generous: a loaded machine with the sanitizers manages well over 100 requests a second.
    const double limit = 60.0 + kClients * requests / 100.0;
    for (unsigned int client = 0; client < kClients; ++client)
    {
        const std::string summary = clients[client]->ReadLine(limit);
        EXPECT_EQ(summary, LoadAllRight(client, requests));
        for (std::string wrong = clients[client]->ReadLine(1.0); !wrong.empty();
             wrong = clients[client]->ReadLine(1.0))
        {
            ADD_FAILURE() << wrong;
        }
        EXPECT_EQ(clients[client]->WaitForExit(), 0);
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
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
} // namespace
