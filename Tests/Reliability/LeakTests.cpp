// A coordinator that served a few hundred requests of every kind (a few thousand from
// scripts/leakcheck) and was stopped by SIGTERM ends with no leak: under the sanitizer
// build LeakSanitizer checks it as it exits, in the other builds valgrind runs it (the test
// is skipped when valgrind is not installed). KEL_LEAK_REQUESTS sets the requests per
// client (two clients; 150 when unset).
#include "Tests/Reliability/ChildProcess.h"
#include "Tests/Reliability/CoordinatorWithDrivers.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

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
        CCoordinatorWithDrivers system(options);
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
} // namespace
