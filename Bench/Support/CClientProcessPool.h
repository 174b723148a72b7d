// Concurrent clients as separate processes, as concurrent applications are: a pool of
// processes forked once, each of which, when told, connects a client of the requested kind,
// makes a given number of round trips with it and reports every latency.
//
// A run starts all its clients together: each connects first and says so, and only when all
// are connected are they told to go, so connecting is never timed. The run's wall time is
// from the first request sent to the last reply received, on the machine's monotonic clock,
// which all processes share.
//
// Fork the pool before this process starts any thread.
#pragma once

#include "Bench/Support/CChildProcess.h"
#include "Bench/Support/LatencySummary.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

// One client connection, made in a pool process for one run.
class IRoundTripClient
{
public:
    virtual ~IRoundTripClient() = default;
    // One request and its answer; false when it failed or the answer was not the one
    // expected.
    virtual bool RoundTrip() = 0;
};

// Makes the client of a case (a number the caller chooses) in a pool process; null or an
// exception when it cannot connect.
using RoundTripClientFactory = std::function<std::unique_ptr<IRoundTripClient>(int caseID_I)>;

class CClientProcessPool
{
public:
    struct SRun
    {
        SLatencySummary mSummary;
        size_t mFailures = 0; // round trips that returned false
        std::chrono::nanoseconds mWall{0};
    };

    // Forks `processes_I` clients that build their connections with `factory_I`.
    CClientProcessPool(size_t processes_I, RoundTripClientFactory factory_I);
    ~CClientProcessPool();
    CClientProcessPool(const CClientProcessPool&) = delete;
    CClientProcessPool& operator=(const CClientProcessPool&) = delete;

    size_t Size() const { return mWorkers.size(); }

    // `roundTrips_I` round trips of case `caseID_I` in each of the first `clients_I`
    // processes at once. Throws std::runtime_error when a client cannot connect, or a process
    // does not answer within a minute.
    SRun Run(int caseID_I, size_t clients_I, size_t roundTrips_I);

private:
    struct SWorker
    {
        std::unique_ptr<CChildProcess> mProcess;
        int mToWorker = -1;
        int mFromWorker = -1;
    };

    std::vector<SWorker> mWorkers;
};
