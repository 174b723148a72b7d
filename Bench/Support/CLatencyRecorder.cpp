#include "Bench/Support/CLatencyRecorder.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

std::int64_t Percentile(std::vector<std::int64_t>& samples_IO, double percent_I)
{
    if (samples_IO.empty())
    {
        return 0;
    }
    if (!(percent_I > 0 && percent_I <= 100))
    {
        throw std::invalid_argument("a percentile lies in (0, 100]");
    }
    // Nearest rank: the smallest sample that at least percent_I percent of them do not exceed.
    const auto rank =
        static_cast<size_t>(std::ceil(percent_I / 100.0 * static_cast<double>(samples_IO.size())));
    const auto nth =
        samples_IO.begin() + static_cast<std::ptrdiff_t>(std::max<size_t>(rank, 1) - 1);
    std::nth_element(samples_IO.begin(), nth, samples_IO.end());
    return *nth;
}

std::vector<std::int64_t>& CLatencyRecorder::Slot(size_t thread_I, size_t expected_I)
{
    std::vector<std::int64_t>& slot = mSlots.at(thread_I);
    slot.clear();
    slot.reserve(expected_I);
    return slot;
}

SLatencySummary CLatencyRecorder::Summarize(size_t threads_I, Clock::duration wall_I)
{
    std::vector<std::int64_t> all;
    for (size_t thread = 0; thread < threads_I && thread < mSlots.size(); ++thread)
    {
        all.insert(all.end(), mSlots[thread].begin(), mSlots[thread].end());
    }
    SLatencySummary summary;
    summary.mCount = all.size();
    summary.mP50Microseconds = static_cast<double>(Percentile(all, 50)) / 1000.0;
    summary.mP99Microseconds = static_cast<double>(Percentile(all, 99)) / 1000.0;
    const double seconds = std::chrono::duration<double>(wall_I).count();
    summary.mRequestsPerSecond = seconds > 0 ? static_cast<double>(all.size()) / seconds : 0;
    return summary;
}
