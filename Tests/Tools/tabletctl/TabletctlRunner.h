// Runs the built tabletctl as a process of the test, bounded in time, in this process's
// environment (so with the test's KELTO_PORT_DIR), and collects its exit status and output.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace tabletctl_test
{
struct SRun
{
    int status = -1;
    std::string out;
    std::string err;
};

inline std::string ReadFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// `arguments` is shell text (quote as needed), run in `directory` (the test's own when
// empty) with standard input from `input` there (nothing when empty). At most `seconds`
// seconds, then SIGKILL.
inline SRun RunTabletctl(const std::string& arguments, const std::string& directory = "",
                         const std::string& input = "", int seconds = 60)
{
    const std::filesystem::path scratch =
        std::filesystem::temp_directory_path() /
        ("tabletctl_run_" + std::to_string(getpid()) + "_" +
         testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(scratch);
    const std::string command =
        (directory.empty() ? "" : "cd '" + directory + "' && ") + "timeout -s KILL " +
        std::to_string(seconds) + " '" KEL_TEST_BINARY_DIR "/Tools/tabletctl/tabletctl' " +
        arguments + " >'" + (scratch / "out").string() + "' 2>'" + (scratch / "err").string() +
        "' <" + (input.empty() ? "/dev/null" : input);
    SRun run;
    const int result = std::system(command.c_str());
    run.status = WIFEXITED(result) ? WEXITSTATUS(result) : -1;
    run.out = ReadFile(scratch / "out");
    run.err = ReadFile(scratch / "err");
    std::filesystem::remove_all(scratch);
    return run;
}
} // namespace tabletctl_test
