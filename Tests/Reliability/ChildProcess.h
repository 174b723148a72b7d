// A program run as a process of a test: its standard output (and, when asked, its standard
// error) on a pipe, read line by line with a bounded wait, and the process killed by its ID
// when the object goes. CClientProcess runs the reliability client program
// (Client/ReliabilityClient.cpp).
#pragma once

#include "Tests/Reliability/RequestMix.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace reliability
{
class CChildProcess
{
public:
    // With `withErrors_I`, standard error goes to the same pipe as standard output.
    CChildProcess(const std::string& program_I, const std::vector<std::string>& arguments_I,
                  bool withErrors_I = false);
    ~CChildProcess();
    CChildProcess(const CChildProcess&) = delete;
    CChildProcess& operator=(const CChildProcess&) = delete;

    // The next line of output; "" when none comes within `seconds_I` or the output ended.
    std::string ReadLine(double seconds_I = 30.0);
    // Whether a whole line is waiting to be read right now.
    bool HasLine();
    // The exit status (128 + the signal that ended it), or -1 while it still runs after
    // `seconds_I`.
    int WaitForExit(double seconds_I = 30.0);
    pid_t Pid() const { return mPid; }
    // Everything it wrote until it closed its output, or until `seconds_I` passed.
    std::string ReadAll(double seconds_I = 30.0);

private:
    bool Fill(int milliseconds_I);

    pid_t mPid = -1;
    int mOut = -1;
    std::string mBuffered;
};

class CClientProcess : public CChildProcess
{
public:
    explicit CClientProcess(const std::vector<std::string>& arguments_I)
        : CChildProcess(KEL_RELIABILITY_CLIENT, arguments_I)
    {
    }
};

// The arguments of a "load" run: `requests_I` requests of the mix as client `client_I`,
// checked against `expected_I`.
std::vector<std::string> LoadArguments(unsigned int client_I, unsigned int requests_I,
                                       const SExpectations& expected_I);
// The line a "load" run prints when every answer was right.
std::string LoadAllRight(unsigned int client_I, unsigned int requests_I);
} // namespace reliability
