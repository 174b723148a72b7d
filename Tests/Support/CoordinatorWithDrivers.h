// The system as a user runs it, for tests: the real coordinator and two simulated drivers
// (driver 0 on the Kelto port, driver 1 on the Pen port; by default the shipped example
// configurations the demo uses), as processes in a port directory of the test's own (this
// process's KELTO_PORT_DIR while the object lives), each stopped by its process ID when the
// object goes.
//
//   CoordinatorWithDrivers system;
//   ASSERT_TRUE(system.Start()) << system.Problem();
//   ... CKeltoClient, tabletctl or raw ports, in this process's environment ...
#pragma once

#include "Tests/Support/CoordinatorProcess.h"
#include "Tests/Support/SimulatedDriverProcess.h"

#include <memory>
#include <string>

class CoordinatorWithDrivers
{
public:
    // Seconds any one wait of the tests may take.
    static constexpr double kSeconds = 20.0;
    // The shipped example configuration of that name (Tools/SimulatedDriver/examples/).
    static std::string Example(const std::string& fileName_I);

    explicit CoordinatorWithDrivers(
        std::string keltoConfig_I = Example("kelto-driver.json"),
        std::string penConfig_I = Example("pen-driver.json"),
        std::string coordinatorProgram_I = CoordinatorProcess::ProgramPath());
    ~CoordinatorWithDrivers();
    CoordinatorWithDrivers(const CoordinatorWithDrivers&) = delete;
    CoordinatorWithDrivers& operator=(const CoordinatorWithDrivers&) = delete;

    // Starts the drivers, then the coordinator, and waits until its first sync has sent
    // every driver the tablet block. False with the reason (and the logs) in Problem() when
    // any step fails.
    bool Start();
    // Starts the coordinator again (after the test stopped it), with the same wait.
    bool StartCoordinator();
    const std::string& Problem() const { return mProblem; }

    const std::string& PortDirectory() const { return mPorts.Path(); }
    CoordinatorProcess& Coordinator() { return *mCoordinator; }
    // Driver 0 or 1.
    SimulatedDriverProcess* Driver(int driverID_I) { return mDrivers[driverID_I].get(); }
    // Everything the processes wrote, for failure messages.
    std::string Logs() const;

protected:
    std::string mProblem;

private:
    ScopedPortDirectory mPorts;
    std::string mConfigs[2];
    std::string mCoordinatorProgram;
    std::unique_ptr<SimulatedDriverProcess> mDrivers[2];
    std::unique_ptr<CoordinatorProcess> mCoordinator;
};
