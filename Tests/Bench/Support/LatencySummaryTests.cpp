#include "Bench/Support/LatencySummary.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <stdexcept>

TEST(LatencySummaryTests, PercentileIsTheNearestRankWhateverTheOrder)
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

    std::vector<std::int64_t> one = {42};
    EXPECT_EQ(Percentile(one, 50), 42);
    EXPECT_EQ(Percentile(one, 99), 42);
    std::vector<std::int64_t> none;
    EXPECT_EQ(Percentile(none, 50), 0);
    // A slow tail must show in p99 and not move the median.
    std::vector<std::int64_t> tail(100, 10);
    tail[3] = 5000;
    tail[60] = 7000;
    EXPECT_EQ(Percentile(tail, 50), 10);
    EXPECT_EQ(Percentile(tail, 99), 5000);
    EXPECT_THROW(Percentile(tail, 0), std::invalid_argument);
    EXPECT_THROW(Percentile(tail, 101), std::invalid_argument);
}

TEST(LatencySummaryTests, SummaryInMicrosecondsAndRequestsPerSecondOfTheWholeRun)
{
    std::vector<std::int64_t> samples(50, 2'000); // 2 microseconds
    samples.insert(samples.end(), 50, 4'000);
    const SLatencySummary summary = Summarize(samples, std::chrono::milliseconds(50));
    EXPECT_EQ(summary.mCount, 100u);
    EXPECT_DOUBLE_EQ(summary.mP50Microseconds, 2.0);
    EXPECT_DOUBLE_EQ(summary.mP99Microseconds, 4.0);
    EXPECT_DOUBLE_EQ(summary.mRequestsPerSecond, 2000.0);

    const SLatencySummary empty = Summarize({}, std::chrono::seconds(0));
    EXPECT_EQ(empty.mCount, 0u);
    EXPECT_DOUBLE_EQ(empty.mRequestsPerSecond, 0.0);
    EXPECT_DOUBLE_EQ(empty.mP99Microseconds, 0.0);
}
