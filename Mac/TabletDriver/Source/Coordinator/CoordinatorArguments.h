// The coordinator's command line. It takes three options; anything else is refused, so
// that a mistyped option never starts a coordinator (which would replace the running one).
//
//   --help      the usage, exit 0
//   --version   the program's version and the protocol version it announces, exit 0
//   --replace   replace a running coordinator even when it answers
//
// Arguments that the system's launcher adds on macOS ("-psn_...") are let through.
#pragma once

#include <string>

struct SCoordinatorArguments
{
    bool mHelp = false;
    bool mVersion = false;
    bool mReplace = false;
    // The first argument not understood; empty when all were.
    std::string mUnknown;
};

SCoordinatorArguments ReadCoordinatorArguments(int argc_I, const char* const* argv_I);

// The text of --help.
std::string CoordinatorUsage();
