// Finding a sanitizer's report in the output of a process that a test started. A child
// killed by the test, or one whose exit status nobody looks at, would otherwise take its
// AddressSanitizer, LeakSanitizer or UndefinedBehaviorSanitizer report with it unnoticed.
#pragma once

#include <algorithm>
#include <string>

// The report's lines (up to 20) when `output_I` holds one; empty otherwise.
inline std::string SanitizerReport(const std::string& output_I)
{
    static const char* const kMarks[] = {"ERROR: AddressSanitizer", "ERROR: LeakSanitizer",
                                         "runtime error:", "SUMMARY: UndefinedBehaviorSanitizer"};
    size_t start = std::string::npos;
    for (const char* mark : kMarks)
    {
        start = std::min(start, output_I.find(mark));
    }
    if (start == std::string::npos)
    {
        return std::string();
    }
    start = output_I.rfind('\n', start);
    start = start == std::string::npos ? 0 : start + 1;
    size_t end = start;
    for (int line = 0; line < 20 && end != std::string::npos; ++line)
    {
        end = output_I.find('\n', end + 1);
    }
    return output_I.substr(start, end == std::string::npos ? std::string::npos : end - start);
}
