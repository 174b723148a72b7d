// The reliability client program (Client/ReliabilityClient.cpp) as a process of the test:
// its output in the test's port directory, read line by line with a bounded wait.
#pragma once

#include "Tests/Reliability/RequestMix.h"
#include "Tests/Support/TestProcess.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

namespace reliability
{
class CClientProcess : public TestProcess
{
public:
    explicit CClientProcess(const std::vector<std::string>& arguments_I)
        : TestProcess(WithProgram(arguments_I), LogPath())
    {
    }
    // The next line of output; "" when none comes within `seconds_I`.
    std::string ReadLine(double seconds_I = 30.0)
    {
        return TestProcess::ReadLine(
            std::chrono::milliseconds(static_cast<long>(seconds_I * 1000)));
    }
    // The exit status, or -1 while it still runs after `seconds_I`.
    int WaitForExit(double seconds_I = 30.0)
    {
        return TestProcess::WaitForExit(
                   std::chrono::milliseconds(static_cast<long>(seconds_I * 1000)))
            .value_or(-1);
    }

private:
    static std::vector<std::string> WithProgram(std::vector<std::string> arguments_I)
    {
        arguments_I.insert(arguments_I.begin(), KEL_RELIABILITY_CLIENT);
        return arguments_I;
    }
    static std::string LogPath()
    {
        static std::atomic<unsigned> sCount{0};
        return std::string(std::getenv("KELTO_PORT_DIR")) + "/client-" + std::to_string(sCount++) +
               ".log";
    }
};

// The arguments of a "load" run: `requests_I` requests of the mix as client `client_I`,
// checked against `expected_I`.
inline std::vector<std::string> LoadArguments(unsigned int client_I, unsigned int requests_I,
                                              const SExpectations& expected_I)
{
    std::vector<std::string> arguments = {
        "load", std::to_string(client_I), std::to_string(requests_I),
        std::to_string(expected_I.mTabletCount), std::to_string(expected_I.mProtocolVersion)};
    arguments.insert(arguments.end(), expected_I.mDriverOfTablet.begin(),
                     expected_I.mDriverOfTablet.end());
    if (!expected_I.mAvoidedDriver.empty())
    {
        arguments.push_back("--avoid=" + expected_I.mAvoidedDriver);
    }
    return arguments;
}

// The line a "load" run prints when every answer was right.
inline std::string LoadAllRight(unsigned int client_I, unsigned int requests_I)
{
    return "client " + std::to_string(client_I) + ": " + std::to_string(requests_I) +
           " requests, " + std::to_string(requests_I) + " right";
}
} // namespace reliability
