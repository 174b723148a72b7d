// A failure that a subcommand reports to the user: main prints "tabletctl: <what>" on one
// line of standard error and exits with the error's status (ToolExit.h).
#pragma once

#include "Tools/tabletctl/ToolExit.h"

#include <stdexcept>
#include <string>

class CCommandError : public std::runtime_error
{
public:
    explicit CCommandError(const std::string& what_I, int exitStatus_I = kExitFailed)
        : std::runtime_error(what_I), mExitStatus(exitStatus_I)
    {
    }
    int ExitStatus() const { return mExitStatus; }

private:
    int mExitStatus;
};
