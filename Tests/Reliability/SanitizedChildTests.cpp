// The processes that tests start are the sanitizer build's own, and what their sanitizers
// report is found in their output and ends them with a failing status: a probe program of
// the build commits one fault of each kind on request. In a build without sanitizers the
// probe only shows that a fault-free run is told apart.
#include "Tests/Reliability/ChildProcess.h"
#include "Tests/Support/SanitizerReport.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace
{
using reliability::CChildProcess;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

struct SRun
{
    int mStatus;
    std::string mOutput;
};

SRun Probe(const std::string& fault_I)
{
    CChildProcess probe(KEL_SANITIZER_PROBE, {fault_I}, true);
    std::string output = probe.ReadAll(60.0);
    return {probe.WaitForExit(), output};
}

TEST(SanitizedChildTests, AChildsSanitizerReportIsFoundAndFailsItsRun)
{
    const SRun clean = Probe("clean");
    EXPECT_EQ(clean.mStatus, 0);
    EXPECT_EQ(SanitizerReport(clean.mOutput), "");
    if (!kSanitized)
    {
        GTEST_SKIP() << "a build without sanitizers has no reports to find";
    }
    const std::pair<const char*, const char*> kFaults[] = {
        {"leak", "ERROR: LeakSanitizer: detected memory leaks"},
        {"overflow", "ERROR: AddressSanitizer: heap-buffer-overflow"},
        {"overflow-int", "runtime error: signed integer overflow"}};
    for (const auto& [fault, report] : kFaults)
    {
        const SRun run = Probe(fault);
        EXPECT_NE(run.mStatus, 0) << fault;
        EXPECT_NE(SanitizerReport(run.mOutput).find(report), std::string::npos) << fault << ":\n"
                                                                                << run.mOutput;
    }
}
} // namespace
