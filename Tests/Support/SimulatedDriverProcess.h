// Simulated tablet drivers as processes, for tests: each test gets a port directory of its
// own, starts the `simdriver` program of this build with a configuration given as JSON
// text, waits until the driver's port is served, and always stops the process by its id,
// within a bounded time.
//
//   ScopedPortDirectory ports;                       // KELTO_PORT_DIR of this process
//   SimulatedDriverProcess kelto(ports.Path(), R"({"PortName": "com.kelto.Kelto...",
//                                               "Version": "6.3.0", "Tablets": [{}]})");
//   ASSERT_TRUE(kelto.WaitUntilServed()) << kelto.Log();
//   ... talk to the port, or start a coordinator in ports.Path() ...
//   // the destructor stops the driver (SIGTERM, then SIGKILL after the stop time-out)
//
// The configuration format is the program's (`simdriver --help`). The driver runs with
// --trace, so Log() holds one line per request it served, plus its start and stop lines.
// Every file (configuration, log) lives in the port directory and goes with it.
//
// Link the target kel_test_support; it makes sure the simdriver program is built.
#pragma once

#include "Tests/Support/TestProcess.h"

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

// A fresh directory (mode 0700) under the test's temporary directory, made this process's
// KELTO_PORT_DIR for its lifetime, so that the message ports the test serves and reaches are
// its own. The previous value of KELTO_PORT_DIR comes back, and the directory is removed with
// everything in it, at the end. Throws std::runtime_error when the directory cannot be made.
class ScopedPortDirectory
{
public:
    ScopedPortDirectory();
    ~ScopedPortDirectory();
    ScopedPortDirectory(const ScopedPortDirectory&) = delete;
    ScopedPortDirectory& operator=(const ScopedPortDirectory&) = delete;

    const std::string& Path() const { return mPath; }

private:
    std::string mPath;
    std::optional<std::string> mPreviousValue;
};

struct SSimulatedDriverOptions
{
    // Bounds of WaitUntilServed and of Stop's wait after SIGTERM.
    std::chrono::milliseconds startTimeout{10000};
    std::chrono::milliseconds stopTimeout{5000};
    // Added after --trace and before the configuration file.
    std::vector<std::string> extraArguments;
};

class SimulatedDriverProcess
{
public:
    // Writes the configuration into portDirectory_I and starts the driver there (it does not
    // wait for the port: see WaitUntilServed). portDirectory_I must be this process's
    // KELTO_PORT_DIR (a ScopedPortDirectory), since that is where WaitUntilServed looks.
    // Throws std::runtime_error when the process cannot be started.
    SimulatedDriverProcess(const std::string& portDirectory_I, const std::string& configJson_I,
                           SSimulatedDriverOptions options_I = {});
    // Stop().
    ~SimulatedDriverProcess();
    SimulatedDriverProcess(const SimulatedDriverProcess&) = delete;
    SimulatedDriverProcess& operator=(const SimulatedDriverProcess&) = delete;

    pid_t Pid() const { return mProcess->Pid(); }
    // The "PortName" of the configuration; empty when the configuration has none.
    const std::string& PortName() const { return mPortName; }

    // True once the driver's port is served; false when the process ended first or the
    // start time-out passed. (A name that another process serves already counts as served:
    // a second driver on a taken port is seen by its exit, WaitForExit gives 3.)
    bool WaitUntilServed();

    // Whether the process is still running (it is reaped here if it has ended).
    bool IsRunning();
    // Waits up to timeout_I for the process to end by itself; its exit code (128 + the
    // signal when a signal ended it), or nothing while it still runs.
    std::optional<int> WaitForExit(std::chrono::milliseconds timeout_I);
    // SIGTERM, a wait up to the stop time-out, then SIGKILL. The exit code as WaitForExit
    // gives it (also when the process had ended before).
    int Stop();
    // Sends a signal to the running process (SIGSTOP/SIGCONT for a driver that stops
    // answering, for instance). False when it is not running.
    bool Signal(int signal_I);

    // What the driver wrote on standard error and standard output so far.
    std::string Log() const;
    // Whether `text` is in the log within timeout_I.
    bool WaitForLog(const std::string& text_I, std::chrono::milliseconds timeout_I) const
    {
        return mProcess->WaitForLog(text_I, timeout_I);
    }

    // The simdriver program of this build.
    static std::string ProgramPath();

private:
    std::string mConfigPath;
    std::string mPortName;
    SSimulatedDriverOptions mOptions;
    std::optional<TestProcess> mProcess;
};
