// Latencies of a run of round trips made by one or more client threads at once, and what a
// table wants of them: the median, the 99th percentile and the requests per second of the
// whole run.
//
// Each client thread records into a slot of its own (no lock in the timed loop); after the
// run, when every thread has finished, one thread merges the slots.
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

class CLatencyRecorder
{
public:
    using Clock = std::chrono::steady_clock;
    static constexpr size_t kMaxThreads = 64;

    CLatencyRecorder() : mSlots(kMaxThreads) {}

    // The empty slot of thread `thread_I` (0 <= thread_I < kMaxThreads), with room for
    // `expected_I` samples so that recording never allocates.
    std::vector<std::int64_t>& Slot(size_t thread_I, size_t expected_I);

    // All samples of threads 0 to `threads_I` - 1 over `wall_I`, the time from the first
    // request sent to the last reply received by any of them.
    SLatencySummary Summarize(size_t threads_I, Clock::duration wall_I);

private:
    std::vector<std::vector<std::int64_t>> mSlots; // nanoseconds
};
