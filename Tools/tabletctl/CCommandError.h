// A failure that a subcommand reports to the user: main prints "tabletctl: <what>" on one
// line of standard error and exits with status 1.
#pragma once

#include <stdexcept>
#include <string>

class CCommandError : public std::runtime_error
{
public:
    explicit CCommandError(const std::string& what_I) : std::runtime_error(what_I) {}
};
