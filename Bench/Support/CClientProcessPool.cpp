#include "Bench/Support/CClientProcessPool.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace
{
using Clock = std::chrono::steady_clock;

constexpr int kAnswerMilliseconds = 60'000;

// Parent to worker: an SOrder, then (once the worker said it is connected) one byte: 1 to
// go, 0 to drop the run because another client could not connect.
struct SOrder
{
    std::int32_t mCaseID;
    std::uint32_t mRoundTrips;
};

// Worker to parent: one byte (1 connected, 0 could not connect), then after the run an
// SReport followed by mCount latencies in nanoseconds.
struct SReport
{
    std::uint64_t mFailures;
    std::uint64_t mCount;
    std::int64_t mFirstStart; // nanoseconds of the monotonic clock
    std::int64_t mLastEnd;
};

bool WriteAll(int fd_I, const void* bytes_I, size_t length_I)
{
    const auto* bytes = static_cast<const char*>(bytes_I);
    while (length_I > 0)
    {
        const ssize_t count = write(fd_I, bytes, length_I);
        if (count < 0 && errno == EINTR)
        {
            continue;
        }
        if (count <= 0)
        {
            return false;
        }
        bytes += count;
        length_I -= static_cast<size_t>(count);
    }
    return true;
}

// Reads exactly `length_I` bytes, waiting at most `milliseconds_I` (-1: forever) for each.
bool ReadAll(int fd_I, void* bytes_O, size_t length_I, int milliseconds_I)
{
    auto* bytes = static_cast<char*>(bytes_O);
    while (length_I > 0)
    {
        pollfd fd = {fd_I, POLLIN, 0};
        const int ready = poll(&fd, 1, milliseconds_I);
        if (ready < 0 && errno == EINTR)
        {
            continue;
        }
        if (ready <= 0)
        {
            return false;
        }
        const ssize_t count = read(fd_I, bytes, length_I);
        if (count < 0 && errno == EINTR)
        {
            continue;
        }
        if (count <= 0)
        {
            return false;
        }
        bytes += count;
        length_I -= static_cast<size_t>(count);
    }
    return true;
}

std::int64_t Nanoseconds(Clock::time_point time_I)
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(time_I.time_since_epoch()).count();
}

// The body of a pool process: serves orders until the parent closes its pipe.
int Work(int fromParent_I, int toParent_I, const RoundTripClientFactory& factory_I)
{
    SOrder order;
    while (ReadAll(fromParent_I, &order, sizeof order, -1))
    {
        std::unique_ptr<IRoundTripClient> client;
        try
        {
            client = factory_I(order.mCaseID);
        }
        catch (const std::exception&)
        {
            client.reset();
        }
        const char connected = client ? 1 : 0;
        char go = 0;
        if (!WriteAll(toParent_I, &connected, 1) || !client)
        {
            continue;
        }
        if (!ReadAll(fromParent_I, &go, 1, -1))
        {
            return 1;
        }
        if (go == 0)
        {
            continue;
        }
        std::vector<std::int64_t> samples;
        samples.reserve(order.mRoundTrips);
        SReport report = {0, 0, 0, 0};
        Clock::time_point last = Clock::now();
        report.mFirstStart = Nanoseconds(last);
        for (std::uint32_t i = 0; i < order.mRoundTrips; ++i)
        {
            const Clock::time_point start = last;
            report.mFailures += client->RoundTrip() ? 0 : 1;
            last = Clock::now();
            samples.push_back((last - start).count());
        }
        report.mLastEnd = Nanoseconds(last);
        client.reset();
        report.mCount = samples.size();
        if (!WriteAll(toParent_I, &report, sizeof report) ||
            !WriteAll(toParent_I, samples.data(), samples.size() * sizeof samples[0]))
        {
            return 1;
        }
    }
    return 0;
}
} // namespace

CClientProcessPool::CClientProcessPool(size_t processes_I, RoundTripClientFactory factory_I)
{
    for (size_t i = 0; i < processes_I; ++i)
    {
        int down[2];
        int up[2];
        if (pipe2(down, O_CLOEXEC) != 0 || pipe2(up, O_CLOEXEC) != 0)
        {
            throw std::runtime_error("no pipes for the client processes");
        }
        SWorker worker;
        worker.mProcess = CChildProcess::Fork(
            [&]
            {
                close(down[1]);
                close(up[0]);
                // The pipes of the processes forked before this one are the parent's business.
                for (const SWorker& earlier : mWorkers)
                {
                    close(earlier.mToWorker);
                    close(earlier.mFromWorker);
                }
                return Work(down[0], up[1], factory_I);
            });
        close(down[0]);
        close(up[1]);
        worker.mToWorker = down[1];
        worker.mFromWorker = up[0];
        const bool started = static_cast<bool>(worker.mProcess);
        mWorkers.push_back(std::move(worker));
        if (!started)
        {
            throw std::runtime_error("cannot fork a client process");
        }
    }
}

CClientProcessPool::~CClientProcessPool()
{
    // Closing the order pipe ends a waiting process by itself; the stop is for one that is not.
    for (SWorker& worker : mWorkers)
    {
        close(worker.mToWorker);
        close(worker.mFromWorker);
    }
    for (SWorker& worker : mWorkers)
    {
        if (worker.mProcess && !worker.mProcess->WaitForExit(std::chrono::milliseconds(1000)))
        {
            worker.mProcess->Stop();
        }
    }
}

CClientProcessPool::SRun CClientProcessPool::Run(int caseID_I, size_t clients_I,
                                                 size_t roundTrips_I)
{
    if (clients_I == 0 || clients_I > mWorkers.size())
    {
        throw std::invalid_argument("more clients than processes");
    }
    const SOrder order = {caseID_I, static_cast<std::uint32_t>(roundTrips_I)};
    for (size_t i = 0; i < clients_I; ++i)
    {
        if (!WriteAll(mWorkers[i].mToWorker, &order, sizeof order))
        {
            throw std::runtime_error("a client process is gone");
        }
    }
    std::vector<bool> connected(clients_I);
    for (size_t i = 0; i < clients_I; ++i)
    {
        char byte = 0;
        if (!ReadAll(mWorkers[i].mFromWorker, &byte, 1, kAnswerMilliseconds))
        {
            throw std::runtime_error("a client process does not answer");
        }
        connected[i] = byte == 1;
    }
    const bool allConnected =
        std::find(connected.begin(), connected.end(), false) == connected.end();
    // Only a connected process waits for the word; one that could not connect waits for its
    // next order already.
    const char go = allConnected ? 1 : 0;
    for (size_t i = 0; i < clients_I; ++i)
    {
        if (connected[i])
        {
            WriteAll(mWorkers[i].mToWorker, &go, 1);
        }
    }
    if (!allConnected)
    {
        throw std::runtime_error("a client could not connect");
    }

    SRun run;
    std::vector<std::int64_t> samples;
    std::int64_t firstStart = INT64_MAX;
    std::int64_t lastEnd = INT64_MIN;
    for (size_t i = 0; i < clients_I; ++i)
    {
        SReport report;
        if (!ReadAll(mWorkers[i].mFromWorker, &report, sizeof report, kAnswerMilliseconds) ||
            report.mCount != roundTrips_I)
        {
            throw std::runtime_error("a client process did not report");
        }
        const size_t at = samples.size();
        samples.resize(at + report.mCount);
        if (!ReadAll(mWorkers[i].mFromWorker, samples.data() + at,
                     report.mCount * sizeof samples[0], kAnswerMilliseconds))
        {
            throw std::runtime_error("a client process did not report");
        }
        run.mFailures += report.mFailures;
        firstStart = std::min(firstStart, report.mFirstStart);
        lastEnd = std::max(lastEnd, report.mLastEnd);
    }
    run.mWall = std::chrono::nanoseconds(lastEnd - firstStart);
    run.mSummary = Summarize(std::move(samples), run.mWall);
    return run;
}
