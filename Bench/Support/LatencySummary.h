// What a table wants of the latencies of a run of round trips: the median, the 99th
// percentile, and the requests per second of the whole run.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

struct SLatencySummary
{
    size_t mCount = 0;
    double mP50Microseconds = 0;
    double mP99Microseconds = 0;
    double mRequestsPerSecond = 0;
};

// The nearest-rank percentile (0 < percent <= 100) of `samples_IO`, which it reorders; 0 for
// no samples.
std::int64_t Percentile(std::vector<std::int64_t>& samples_IO, double percent_I);

// Latencies in nanoseconds, of every client of a run, over `wall_I`: the time from the first
// request sent to the last reply received by any of them.
SLatencySummary Summarize(std::vector<std::int64_t> samples_I,
                          std::chrono::steady_clock::duration wall_I);
