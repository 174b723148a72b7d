// Child processes of the Compat tests, each with the lines it writes on a pipe: either a named
// scenario run in a fresh copy of this test program (for the process-wide things, the shared
// application and the Apple Event port, that need a process of their own), or another
// program with its arguments, whose standard output is the pipe.
//
// A scenario child is this executable again, started with KEL_APPKIT_SCENARIO naming a
// scenario registered with SRegister; it runs the scenario before any test and exits with its
// result. Every child inherits the test's port directory (KELTO_PORT_DIR, which the test sets
// with PortTestSupport::CScopedPortDirectory), is bounded in time and, if it is still there
// when the test is done with it, killed by its process id. While the test waits for a line or
// for the end of a child, this thread's run loop serves its default mode, so that a child's
// requests to the test are answered.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace AppKitChild
{
using Scenario = int (*)();

struct SRegister
{
    SRegister(const char* name, Scenario scenario);
};

// In a child: writes one line to the test that started it.
void Log(const std::string& line);

// A program and its arguments, argv[0] first.
struct SProgram
{
    std::vector<std::string> argv;
};

class CChild
{
public:
    explicit CChild(const SProgram& program);
    // `executable` is this test program unless given (a copy of it inside a bundle, say).
    explicit CChild(const std::string& scenario, const std::string& executable = "/proc/self/exe");
    ~CChild();
    CChild(const CChild&) = delete;
    CChild& operator=(const CChild&) = delete;

    pid_t Pid() const { return mPid; }

    // The next line the child logged; false at end of output or after `seconds`.
    bool ReadLine(std::string& line, double seconds = 20);
    // Reads lines until `expected` comes; false if it never does.
    bool WaitFor(const std::string& expected, double seconds = 20);
    // The exit status once the child has ended, or -1 if it had to be killed after `seconds`.
    int Wait(double seconds = 20);
    void Kill();

private:
    void Start(const std::vector<std::string>& argv, const std::string& scenario);

    pid_t mPid = -1;
    int mLogFd = -1;
    std::string mBuffer;
};
} // namespace AppKitChild
