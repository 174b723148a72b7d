// What a started process's sanitizer reports is found in its output: a probe program of the
// build commits one fault of each kind on request. In a build without sanitizers the probe
// only shows that a fault-free run is told apart.
#include "Tests/Support/SanitizerReport.h"
#include "Tests/Support/TestProcess.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <utility>

namespace
{
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

TEST(SanitizerProbe, AChildsSanitizerReportIsFoundAndFailsItsRun)
{
    auto probe = [](const std::string& fault_I)
    {
        TestProcess process({KEL_SANITIZER_PROBE, fault_I},
                            testing::TempDir() + "probe-" + fault_I + ".log");
        process.ExpectSanitizerReport();
        const int status = process.WaitForExit(std::chrono::seconds(60)).value_or(-1);
        std::string output = process.Log();
        std::remove((testing::TempDir() + "probe-" + fault_I + ".log").c_str());
        return std::make_pair(status, output);
    };
    const auto [cleanStatus, cleanOutput] = probe("clean");
    EXPECT_EQ(cleanStatus, 0);
    EXPECT_EQ(SanitizerReport(cleanOutput), "");
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
        const auto [status, output] = probe(fault);
        EXPECT_NE(status, 0) << fault;
        EXPECT_NE(SanitizerReport(output).find(report), std::string::npos) << fault << ":\n"
                                                                           << output;
    }
}
} // namespace
