#include "Bench/Support/LatencySummary.h"

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

SLatencySummary Summarize(std::vector<std::int64_t> samples_I,
                          std::chrono::steady_clock::duration wall_I)
{
    SLatencySummary summary;
    summary.mCount = samples_I.size();
    summary.mP50Microseconds = static_cast<double>(Percentile(samples_I, 50)) / 1000.0;
    summary.mP99Microseconds = static_cast<double>(Percentile(samples_I, 99)) / 1000.0;
    const double seconds = std::chrono::duration<double>(wall_I).count();
    summary.mRequestsPerSecond = seconds > 0 ? static_cast<double>(summary.mCount) / seconds : 0;
    return summary;
}
