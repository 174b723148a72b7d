// Simulated tablet drivers as processes, for tests: each test gets a port directory of its
// own, starts the `simdriver` program of this build with a configuration given as JSON
// text, waits until the driver's port is served, and always stops the process by its id,
// within a bounded time.
//
//   ScopedPortDirectory ports;                       // KELTO_PORT_DIR of this process
//   SimulatedDriverProcess kelto(ports.Path(), R"({"PortName": "com.kelto.Kelto...",
//                                               "Version": "6.3.0", "Tablets": [{}]})");
//   ASSERT_TRUE(kelto.WaitUntilServed()) << kelto.Log();
//   ... talk to the port ...
//   // the destructor stops the driver (SIGTERM, then SIGKILL after 3 seconds)
//
// The configuration format is the program's (`simdriver --help`). The driver runs with
// --trace, so Log() holds one line per request it served, plus its start and stop lines.
// Every file (configuration, log) lives in the port directory and goes with it.
//
// Link the target kel_test_support; it makes sure the simdriver program is built.
#pragma once

#include "Bench/Support/CChildProcess.h"
#include "Tests/Support/ScopedPortDirectory.h"

#include <memory>
#include <string>

class SimulatedDriverProcess
{
public:
    // Writes the configuration into portDirectory_I and starts the driver there (it does not
    // wait for the port: see WaitUntilServed). portDirectory_I must be this process's
    // KELTO_PORT_DIR (a ScopedPortDirectory), since that is where WaitUntilServed looks.
    // Throws std::runtime_error when the process cannot be started.
    SimulatedDriverProcess(const std::string& portDirectory_I, const std::string& configJson_I);
    // Stops the driver (CChildProcess::Stop).
    ~SimulatedDriverProcess();
    SimulatedDriverProcess(const SimulatedDriverProcess&) = delete;
    SimulatedDriverProcess& operator=(const SimulatedDriverProcess&) = delete;

    // True once the driver's port is served; false when the process ended first or 10
    // seconds passed. (A name that another process serves already counts as served.)
    bool WaitUntilServed();

    // What the driver wrote on standard error and standard output so far.
    std::string Log() const;

private:
    std::string mConfigPath;
    std::string mLogPath;
    std::string mPortName;
    std::unique_ptr<CChildProcess> mProcess;
};
