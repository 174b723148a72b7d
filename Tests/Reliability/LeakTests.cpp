// Leaks and the sanitizers' other findings in the processes that tests start.
//
// A coordinator that served a few hundred requests of every kind (a few thousand from
// scripts/leakcheck) and was stopped by SIGTERM ends with no leak: under the sanitizer
// build LeakSanitizer checks it as it exits, in the other builds valgrind runs it (the test
// is skipped when valgrind is not installed). KEL_LEAK_REQUESTS sets the requests per
// client (two clients; 150 when unset).
//
// What a started process's sanitizer reports is found in its output: a probe program of the
// build commits one fault of each kind on request. In a build without sanitizers the probe
// only shows that a fault-free run is told apart.
#include "Tests/Reliability/ClientProcess.h"
#include "Tests/Reliability/ReliabilitySystem.h"
#include "Tests/Support/SanitizerReport.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>
#include <utility>

namespace
{
using namespace reliability;

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

constexpr int kValgrindFoundErrors = 99;

unsigned int RequestsPerClient()
{
    const char* text = std::getenv("KEL_LEAK_REQUESTS");
    const long value = text != nullptr ? std::atol(text) : 0;
    return value > 0 ? static_cast<unsigned int>(value) : 150;
}

std::string Valgrind()
{
    for (const char* path : {"/usr/bin/valgrind", "/usr/local/bin/valgrind"})
    {
        if (access(path, X_OK) == 0)
        {
            return path;
        }
    }
    return std::string();
}

// A program that runs the build's coordinator under valgrind's leak check, in `directory_I`.
std::string ValgrindWrapper(const std::string& directory_I, const std::string& valgrind_I)
{
    const std::string wrapper = directory_I + "/coordinator-under-valgrind";
    std::ofstream(wrapper) << "#!/bin/sh\nexec " << valgrind_I
                           << " --quiet --leak-check=full --show-leak-kinds=definite,indirect"
                              " --errors-for-leak-kinds=definite,indirect --error-exitcode="
                           << kValgrindFoundErrors << " " << CoordinatorProcess::ProgramPath()
                           << " \"$@\"\n";
    std::filesystem::permissions(wrapper, std::filesystem::perms::owner_all);
    return wrapper;
}

TEST(LeakTests, ACoordinatorStoppedAfterServingRequestsLeavesNoLeak)
{
    SSystemOptions options;
    std::string scratch;
    if (!kSanitized)
    {
        const std::string valgrind = Valgrind();
        if (valgrind.empty())
        {
            GTEST_SKIP() << "no leak checker: neither a sanitizer build nor valgrind";
        }
        // Beside the port directory, which the fixture makes.
        scratch = std::filesystem::temp_directory_path() / ("kel-leak-" + std::to_string(getpid()));
        std::filesystem::create_directories(scratch);
        options.mCoordinatorProgram = ValgrindWrapper(scratch, valgrind);
    }
    const unsigned int requests = RequestsPerClient();
    {
        CReliabilitySystem system(options);
        ASSERT_TRUE(system.Start()) << system.Problem();
        for (int client : {1, 2})
        {
            CClientProcess load(LoadArguments(client, requests, system.Expected()));
            EXPECT_EQ(load.ReadLine(600.0), LoadAllRight(client, requests));
            EXPECT_EQ(load.WaitForExit(), 0);
        }
        system.Coordinator().Signal(SIGTERM);
        const int status = system.Coordinator().WaitForExit(60.0);
        EXPECT_EQ(status, 0) << (status == kValgrindFoundErrors ? "valgrind found errors\n" : "")
                             << system.Coordinator().Log();
        EXPECT_EQ(system.Coordinator().Log().find("LeakSanitizer"), std::string::npos);
        std::printf("leak check (%s): coordinator served %u requests, exit status %d\n",
                    kSanitized ? "LeakSanitizer" : "valgrind", 2 * requests, status);
    }
    if (!scratch.empty())
    {
        std::filesystem::remove_all(scratch);
    }
}

TEST(LeakTests, AChildsSanitizerReportIsFoundAndFailsItsRun)
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
