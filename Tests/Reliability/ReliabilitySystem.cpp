#include "Tests/Reliability/ReliabilitySystem.h"
#include "Tests/EndToEnd/EndToEndSupport.h"
#include "Tools/SimulatedDriver/SSimDriverConfig.h"

#include <chrono>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

namespace reliability
{
namespace
{
const char* PortNameOf(int driverID_I)
{
    return driverID_I == 0 ? kSimKeltoDriverPortName : kSimPenDriverPortName;
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

bool CReliabilitySystem::LearnExpectations()
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
