// What an action printed: standard output (where the assertion lines go) and standard error
// (diagnostics, and the system log when it is opened with LOG_PERROR).
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace test_support
{
struct Output
{
    std::string out;
    std::string err;
};

template <typename F> Output Capture(F&& action)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    action();
    std::fflush(nullptr);
    Output output;
    output.out = testing::internal::GetCapturedStdout();
    output.err = testing::internal::GetCapturedStderr();
    return output;
}
} // namespace test_support
