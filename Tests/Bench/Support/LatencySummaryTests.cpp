// The percentiles behind every latency figure the benchmarks report.
#include "Bench/Support/LatencySummary.h"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>

TEST(LatencySummaryTests, NearestRankPercentilesAndRate)
{
    std::vector<std::int64_t> samples;
    for (std::int64_t i = 1; i <= 200; ++i)
    {
        samples.push_back(i);
    }
    std::shuffle(samples.begin(), samples.end(), std::mt19937(7));
    EXPECT_EQ(Percentile(samples, 50), 100);
    EXPECT_EQ(Percentile(samples, 99), 198);
    EXPECT_EQ(Percentile(samples, 100), 200);
    EXPECT_EQ(Percentile(samples, 0.1), 1);
    std::vector<std::int64_t> none;
    EXPECT_EQ(Percentile(none, 50), 0);
    EXPECT_THROW(Percentile(samples, 0), std::invalid_argument);
    EXPECT_THROW(Percentile(samples, 101), std::invalid_argument);

    // Nanoseconds in, microseconds out; the rate is that of the whole run.
    std::vector<std::int64_t> run(50, 2'000);
    run.insert(run.end(), 50, 4'000);
    const SLatencySummary summary = Summarize(run, std::chrono::milliseconds(50));
    EXPECT_EQ(summary.mCount, 100u);
    EXPECT_DOUBLE_EQ(summary.mP50Microseconds, 2.0);
    EXPECT_DOUBLE_EQ(summary.mP99Microseconds, 4.0);
    EXPECT_DOUBLE_EQ(summary.mRequestsPerSecond, 2000.0);
    EXPECT_DOUBLE_EQ(Summarize({}, std::chrono::seconds(0)).mRequestsPerSecond, 0.0);
}
