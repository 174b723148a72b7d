// A coordinator and two simulated drivers as processes, for the reliability tests.
//
// Everything runs in a port directory of the test's own (this process's KELTO_PORT_DIR
// while the object lives). The drivers are called "Kelto" (driver 0) and "Pen" (driver 1),
// two tablets each, with the faults the test gives; Start() waits for the first sync, after
// which the four tablets have system IDs 0 to 3 and the expectations of the request mix
// (RequestMix.h) are known. Every process is stopped by its process ID when the object
// goes (and a sanitizer report in its output fails the test, as the process classes see to).
#pragma once

#include "Tests/EndToEnd/CoordinatorProcess.h"
#include "Tests/Reliability/RequestMix.h"
#include "Tests/Support/SimulatedDriverProcess.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace reliability
{
constexpr const char* kCoordinatorPortName = "com.kelto.CoordinatorMessageServer";
constexpr unsigned int kTabletsPerDriver = 2;

// The configuration of a simulated driver on the port of driver 0 or 1, called `name_I`,
// with two tablets and the "Faults" array given as JSON text.
std::string DriverConfig(int driverID_I, const std::string& name_I,
                         const std::string& faultsJson_I = "[]");

struct SSystemOptions
{
    // The "Faults" of each driver's configuration.
    std::string mKeltoFaults = "[]";
    std::string mPenFaults = "[]";
    // The program to start instead of the build's coordinator (a wrapper, for instance).
    std::string mCoordinatorProgram;
};

class CCoordinatorWithDrivers
{
public:
    explicit CCoordinatorWithDrivers(SSystemOptions options_I = {});
    ~CCoordinatorWithDrivers();
    CCoordinatorWithDrivers(const CCoordinatorWithDrivers&) = delete;
    CCoordinatorWithDrivers& operator=(const CCoordinatorWithDrivers&) = delete;

    // Starts the drivers, then the coordinator, and waits for the first sync. False with
    // the reason (and the logs) in Problem() when any step fails.
    bool Start();
    // Starts the coordinator again (after the test stopped it) and waits until it serves
    // and its first sync has sent every running driver the tablet block.
    bool StartCoordinator();
    const std::string& Problem() const { return mProblem; }

    const std::string& PortDirectory() const { return mPorts.Path(); }
    CoordinatorProcess& Coordinator() { return *mCoordinator; }
    // Driver 0 ("Kelto") or 1 ("Pen"); null once the test let it go with ReplaceDriver.
    SimulatedDriverProcess* Driver(int driverID_I) { return mDrivers[driverID_I].get(); }
    // Stops driver `driverID_I` (when it still runs) and, with a configuration, starts a new
    // process with it on the same port; true when the new one serves.
    bool ReplaceDriver(int driverID_I, const std::optional<std::string>& configJson_I);
    // The answers a client should get, learnt once the first sync was done.
    const SExpectations& Expected() const { return mExpected; }
    // Everything the processes wrote, for failure messages.
    std::string Logs() const;

private:
    bool LearnExpectations();

    ScopedPortDirectory mPorts;
    SSystemOptions mOptions;
    std::unique_ptr<SimulatedDriverProcess> mDrivers[2];
    std::unique_ptr<CoordinatorProcess> mCoordinator;
    std::vector<std::string> mRetiredLogs; // of drivers that were replaced
    SExpectations mExpected;
    std::string mProblem;
};

// Resident memory of a process in KiB (VmRSS of /proc); -1 when it cannot be read.
long ResidentKiB(pid_t pid_I);
} // namespace reliability
