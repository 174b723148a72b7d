#include "Tests/Reliability/CoordinatorWithDrivers.h"

#include "Tests/EndToEnd/EndToEndSupport.h"
#include "Tools/SimulatedDriver/SSimDriverConfig.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

namespace reliability
{
namespace
{
constexpr double kStartSeconds = 20.0;

const char* PortNameOf(int driverID_I)
{
    return driverID_I == 0 ? kSimKeltoDriverPortName : kSimPenDriverPortName;
}

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

std::string DriverConfig(int driverID_I, const std::string& name_I, const std::string& faultsJson_I)
{
    std::ostringstream config;
    config << R"({"Name": ")" << name_I << R"(", "PortName": ")" << PortNameOf(driverID_I)
           << R"(", "Version": "6.3.0", "Tablets": [{"Model": ")" << name_I
           << R"( M"}, {"Model": ")" << name_I << R"( L"}], "Faults": )" << faultsJson_I << "}";
    return config.str();
}

CCoordinatorWithDrivers::CCoordinatorWithDrivers(SSystemOptions options_I)
    : mOptions(std::move(options_I))
{
}

CCoordinatorWithDrivers::~CCoordinatorWithDrivers()
{
    if (mCoordinator)
    {
        mCoordinator->Stop();
    }
    for (auto& driver : mDrivers)
    {
        if (driver)
        {
            driver->Stop();
        }
    }
}

bool CCoordinatorWithDrivers::Start()
{
    mDrivers[0] = std::make_unique<SimulatedDriverProcess>(
        mPorts.Path(), DriverConfig(0, "Kelto", mOptions.mKeltoFaults));
    mDrivers[1] = std::make_unique<SimulatedDriverProcess>(
        mPorts.Path(), DriverConfig(1, "Pen", mOptions.mPenFaults));
    for (auto& driver : mDrivers)
    {
        if (!driver->WaitUntilServed())
        {
            mProblem = "a driver did not start\n" + Logs();
            return false;
        }
    }
    return StartCoordinator() && LearnExpectations();
}

bool CCoordinatorWithDrivers::StartCoordinator()
{
    // The tablet blocks each driver had been sent before this coordinator: its first sync
    // ends by sending one more to every driver that runs.
    size_t blocksBefore[2] = {};
    for (int driverID = 0; driverID < 2; ++driverID)
    {
        blocksBefore[driverID] = mDrivers[driverID] ? TabletBlocksSent(*mDrivers[driverID]) : 0;
    }
    const std::string log = mPorts.Path() + "/coordinator.log";
    mCoordinator = mOptions.mCoordinatorProgram.empty()
                       ? std::make_unique<CoordinatorProcess>(log)
                       : std::make_unique<CoordinatorProcess>(log, mOptions.mCoordinatorProgram);
    if (!mCoordinator->Start() || !mCoordinator->WaitUntilServing(kStartSeconds))
    {
        mProblem = "the coordinator did not start\n" + Logs();
        return false;
    }
    // A request that comes while the first sync still asks a driver which wire form it
    // speaks reaches that driver as a transit record, and a tablet count taken then can
    // start a sync of its own that numbers the tablets afresh. Clients of the tests come
    // once the first sync is over, so that the answers they check are settled ones.
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::milliseconds(static_cast<long>(kStartSeconds * 1000));
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

bool CCoordinatorWithDrivers::LearnExpectations()
{
    // The first sync gives every tablet a system ID and tells each driver its tablets' IDs;
    // the drivers' own view is the truth the answers are checked against.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    for (;;)
    {
        std::vector<std::string> owners(2 * kTabletsPerDriver);
        std::set<unsigned int> seen;
        for (int driverID = 0; driverID < 2; ++driverID)
        {
            for (unsigned int index = 0; index < kTabletsPerDriver; ++index)
            {
                const unsigned int id = end_to_end::DriverTabletID(PortNameOf(driverID), index);
                if (id < owners.size())
                {
                    owners[id] = driverID == 0 ? "Kelto" : "Pen";
                    seen.insert(id);
                }
            }
        }
        if (seen.size() == owners.size())
        {
            mExpected.mDriverOfTablet = owners;
            break;
        }
        if (std::chrono::steady_clock::now() >= deadline)
        {
            mProblem = "the first sync did not give the tablets the IDs 0 to 3\n" + Logs();
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    mExpected.mTabletCount = 2 * kTabletsPerDriver;
    mExpected.mProtocolVersion = ProtocolVersionInInfoPlist(CoordinatorProcess::BuiltInfoPlist());
    return true;
}

bool CCoordinatorWithDrivers::ReplaceDriver(int driverID_I,
                                            const std::optional<std::string>& configJson_I)
{
    if (mDrivers[driverID_I])
    {
        mDrivers[driverID_I]->Stop();
        mRetiredLogs.push_back(mDrivers[driverID_I]->Log());
        mDrivers[driverID_I].reset();
    }
    if (!configJson_I)
    {
        return true;
    }
    mDrivers[driverID_I] = std::make_unique<SimulatedDriverProcess>(mPorts.Path(), *configJson_I);
    return mDrivers[driverID_I]->WaitUntilServed();
}

std::string CCoordinatorWithDrivers::Logs() const
{
    std::string logs;
    for (const std::string& retired : mRetiredLogs)
    {
        logs += "--- a replaced driver:\n" + retired;
    }
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

long ResidentKiB(pid_t pid_I)
{
    std::ifstream status("/proc/" + std::to_string(pid_I) + "/status");
    std::string line;
    while (std::getline(status, line))
    {
        if (line.rfind("VmRSS:", 0) == 0)
        {
            return std::stol(line.substr(6));
        }
    }
    return -1;
}
} // namespace reliability
