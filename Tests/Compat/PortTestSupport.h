// Shared by the message port and run loop tests: an isolated port directory per test
// (ScopedPortDirectory), CF data helpers, running the loop until a condition holds (bounded
// in time), and the processor time this process has used.
#pragma once

#include "Tests/Support/ScopedPortDirectory.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>

#include <sys/resource.h>

namespace PortTestSupport
{
// Processor seconds, user and system, this process has used so far.
inline double CpuSeconds()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

inline CFDataRef MakeData(const std::string& bytes)
{
    return CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes.data()),
                        static_cast<CFIndex>(bytes.size()));
}

inline std::string Text(CFDataRef data)
{
    if (data == nullptr)
    {
        return "<null>";
    }
    return std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
                       static_cast<size_t>(CFDataGetLength(data)));
}

// Runs the current loop in `mode` until `done()` or `seconds` pass; returns done().
inline bool RunUntil(const std::function<bool()>& done, double seconds = 10.0,
                     CFStringRef mode = kCFRunLoopDefaultMode)
{
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                              std::chrono::duration<double>(seconds));
    while (!done() && std::chrono::steady_clock::now() < deadline)
    {
        CFRunLoopRunInMode(mode, 0.02, true);
    }
    return done();
}
} // namespace PortTestSupport
