#include "Tests/Support/CoordinatorWithDrivers.h"

#include <chrono>
#include <fstream>
#include <iterator>
#include <thread>

namespace
{
// How many tablet blocks a coordinator has sent the driver, as its trace tells.
size_t TabletBlocksSent(const SimulatedDriverProcess& driver_I)
{
    const std::string log = driver_I.Log();
    size_t count = 0;
    for (size_t at = log.find("set tablet-block"); at != std::string::npos;
         at = log.find("set tablet-block", at + 1))
    {
        ++count;
    }
    return count;
}
} // namespace

std::string CoordinatorWithDrivers::Example(const std::string& fileName_I)
{
    std::ifstream in(KEL_TEST_SOURCE_DIR "/Tools/SimulatedDriver/examples/" + fileName_I);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

CoordinatorWithDrivers::CoordinatorWithDrivers(std::string keltoConfig_I, std::string penConfig_I,
                                               std::string coordinatorProgram_I)
    : mConfigs{std::move(keltoConfig_I), std::move(penConfig_I)},
      mCoordinatorProgram(std::move(coordinatorProgram_I))
{
}

// The coordinator goes first, so that no driver it still talks to goes away under it.
CoordinatorWithDrivers::~CoordinatorWithDrivers()
{
    mCoordinator.reset();
    mDrivers[0].reset();
    mDrivers[1].reset();
}

bool CoordinatorWithDrivers::Start()
{
    for (int driverID = 0; driverID < 2; ++driverID)
    {
        mDrivers[driverID] =
            std::make_unique<SimulatedDriverProcess>(mPorts.Path(), mConfigs[driverID]);
    }
    for (auto& driver : mDrivers)
    {
        if (!driver->WaitUntilServed())
        {
            mProblem = "a driver did not start\n" + Logs();
            return false;
        }
    }
    return StartCoordinator();
}

bool CoordinatorWithDrivers::StartCoordinator()
{
    // The tablet blocks each driver had been sent before this coordinator: its first sync
    // ends by sending one more to every driver that runs.
    size_t blocksBefore[2] = {};
    for (int driverID = 0; driverID < 2; ++driverID)
    {
        blocksBefore[driverID] = mDrivers[driverID] ? TabletBlocksSent(*mDrivers[driverID]) : 0;
    }
    mCoordinator = std::make_unique<CoordinatorProcess>(mPorts.Path() + "/coordinator.log",
                                                        mCoordinatorProgram);
    if (!mCoordinator->Start() || !mCoordinator->WaitUntilServing(kSeconds))
    {
        mProblem = "the coordinator did not start\n" + Logs();
        return false;
    }
    // A request that comes while the first sync still asks a driver which wire form it
    // speaks reaches that driver as a transit record, and a tablet count taken then can
    // start a sync of its own that numbers the tablets afresh. Clients of the tests come
    // once the first sync is over, so that the answers they check are settled ones.
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::milliseconds(static_cast<long>(kSeconds * 1000));
    for (int driverID = 0; driverID < 2; ++driverID)
    {
        while (mDrivers[driverID] && mDrivers[driverID]->IsRunning() &&
               TabletBlocksSent(*mDrivers[driverID]) <= blocksBefore[driverID])
        {
            if (std::chrono::steady_clock::now() >= deadline)
            {
                mProblem = "the coordinator's first sync did not end\n" + Logs();
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    return true;
}

std::string CoordinatorWithDrivers::Logs() const
{
    std::string logs;
    for (int driverID = 0; driverID < 2; ++driverID)
    {
        if (mDrivers[driverID])
        {
            logs += "--- driver " + std::to_string(driverID) + ":\n" + mDrivers[driverID]->Log();
        }
    }
    if (mCoordinator)
    {
        logs += "--- coordinator:\n" + mCoordinator->Log();
    }
    return logs;
}
