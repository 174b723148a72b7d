#include "Tests/Reliability/ReliabilitySystem.h"
#include "Tests/EndToEnd/EndToEndSupport.h"
#include "Tools/SimulatedDriver/SSimDriverConfig.h"

#include "Compat/CPortFrameDecoder.h"
#include "Mac/Common/Communication/MessageIDs.h"

#include <chrono>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

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

long ResidentKiB(pid_t pid_I, const char* field_I)
{
    std::ifstream status("/proc/" + std::to_string(pid_I) + "/status");
    const std::string prefix = std::string(field_I) + ":";
    std::string line;
    while (std::getline(status, line))
    {
        if (line.rfind(prefix, 0) == 0)
        {
            return std::stol(line.substr(prefix.size()));
        }
    }
    return -1;
}

std::vector<unsigned int> TabletsOf(const SExpectations& expected_I, int driverID_I)
{
    std::vector<unsigned int> tablets;
    for (unsigned int id = 0; id < expected_I.mDriverOfTablet.size(); ++id)
    {
        if (expected_I.mDriverOfTablet[id] == (driverID_I == 0 ? "Kelto" : "Pen"))
        {
            tablets.push_back(id);
        }
    }
    return tablets;
}

int RawConnect(const std::string& portDirectory_I)
{
    const std::string path = portDirectory_I + "/" + kCoordinatorPortName;
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    {
        close(fd);
        return -1;
    }
    return fd;
}

std::vector<UInt8> RequestFrame(UInt32 tag_I, CEventPacket packet)
{
    std::vector<UInt8> block(packet.GetSerializedSize(nullptr));
    packet.SerializeToBuffer(block.data(), block.size(), nullptr);
    return EncodePortFrame(kPortRequestMagic, tag_I, static_cast<UInt32>(kMessageIDEventPacket),
                           block.data(), block.size());
}
} // namespace reliability
