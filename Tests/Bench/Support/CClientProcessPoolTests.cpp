#include "Bench/Support/CClientProcessPool.h"

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>

#include <unistd.h>

namespace
{
enum ECase
{
    eSucceeds,
    eFailsEveryThird,
    eCannotConnect,
    eSlow,
};

// Each round trip writes the process id of the client that made it into a pipe, so the test
// sees who ran; the cases fail, refuse or take time as their names say.
class CTestClient : public IRoundTripClient
{
public:
    CTestClient(int caseID, int pipe) : mCase(caseID), mPipe(pipe) {}
    bool RoundTrip() override
    {
        const pid_t pid = getpid();
        if (write(mPipe, &pid, sizeof pid) != sizeof pid)
        {
            return false;
        }
        if (mCase == eSlow)
        {
            usleep(2000);
        }
        return mCase != eFailsEveryThird || ++mCount % 3 != 0;
    }

private:
    int mCase;
    int mPipe;
    int mCount = 0;
};

std::set<pid_t> Drain(int pipe, size_t expected)
{
    std::set<pid_t> pids;
    for (size_t i = 0; i < expected; ++i)
    {
        pid_t pid = 0;
        if (read(pipe, &pid, sizeof pid) != sizeof pid)
        {
            break;
        }
        pids.insert(pid);
    }
    return pids;
}
} // namespace

TEST(CClientProcessPoolTests, RunsEachClientInItsOwnProcessAndMergesTheirLatencies)
{
    int trace[2];
    ASSERT_EQ(pipe(trace), 0);
    CClientProcessPool pool(3,
                            [&](int caseID) -> std::unique_ptr<IRoundTripClient>
                            {
                                if (caseID == eCannotConnect)
                                {
                                    return nullptr;
                                }
                                return std::make_unique<CTestClient>(caseID, trace[1]);
                            });
    ASSERT_EQ(pool.Size(), 3u);

    CClientProcessPool::SRun run = pool.Run(eSucceeds, 3, 50);
    EXPECT_EQ(run.mSummary.mCount, 150u);
    EXPECT_EQ(run.mFailures, 0u);
    EXPECT_GT(run.mSummary.mRequestsPerSecond, 0.0);
    const std::set<pid_t> clients = Drain(trace[0], 150);
    EXPECT_EQ(clients.size(), 3u);
    EXPECT_EQ(clients.count(getpid()), 0u);

    run = pool.Run(eFailsEveryThird, 2, 30);
    EXPECT_EQ(run.mSummary.mCount, 60u);
    EXPECT_EQ(run.mFailures, 20u);
    EXPECT_EQ(Drain(trace[0], 60).size(), 2u);

    // The latencies are the clients' own: 2 ms round trips show as at least 2 ms, and the
    // rate is that of the clients together.
    run = pool.Run(eSlow, 2, 10);
    Drain(trace[0], 20);
    EXPECT_GE(run.mSummary.mP50Microseconds, 2000.0);
    EXPECT_LE(run.mSummary.mRequestsPerSecond, 2 * 500.0 * 1.01);

    // A client that cannot connect voids the run; the pool keeps working.
    EXPECT_THROW(pool.Run(eCannotConnect, 2, 10), std::runtime_error);
    EXPECT_THROW(pool.Run(eSucceeds, 4, 10), std::invalid_argument);
    run = pool.Run(eSucceeds, 3, 5);
    EXPECT_EQ(run.mSummary.mCount, 15u);
    EXPECT_EQ(Drain(trace[0], 15).size(), 3u);
    close(trace[0]);
    close(trace[1]);
}
