// The system of the reliability tests: drivers "Kelto" (driver 0) and "Pen" (driver 1), two
// tablets each, with the faults the test gives. Start() waits for the first sync, after which
// the four tablets have system IDs 0 to 3 and the expectations of the request mix
// (RequestMix.h) are known.
#pragma once

#include "Tests/Reliability/RequestMix.h"
#include "Tests/Support/CoordinatorWithDrivers.h"

#include <MacTypes.h>

#include <string>
#include <vector>

#include <sys/types.h>

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
    std::string mCoordinatorProgram = CoordinatorProcess::ProgramPath();
};

class CReliabilitySystem : public CoordinatorWithDrivers
{
public:
    explicit CReliabilitySystem(const SSystemOptions& options_I = {})
        : CoordinatorWithDrivers(DriverConfig(0, "Kelto", options_I.mKeltoFaults),
                                 DriverConfig(1, "Pen", options_I.mPenFaults),
                                 options_I.mCoordinatorProgram)
    {
    }
    bool Start() { return CoordinatorWithDrivers::Start() && LearnExpectations(); }
    // The answers a client should get, learnt once the first sync was done.
    const SExpectations& Expected() const { return mExpected; }

private:
    bool LearnExpectations();

    SExpectations mExpected;
};

// Resident memory of a process in KiB (VmRSS of /proc), or its peak so far (VmHWM); -1 when
// it cannot be read.
long ResidentKiB(pid_t pid_I, const char* field_I = "VmRSS");
inline long PeakResidentKiB(pid_t pid_I)
{
    return ResidentKiB(pid_I, "VmHWM");
}

// The system IDs of the tablets of driver 0 ("Kelto") or 1 ("Pen").
std::vector<unsigned int> TabletsOf(const SExpectations& expected_I, int driverID_I);

// A connection to the coordinator's socket that follows the framing but nothing else; -1
// when it cannot connect.
int RawConnect(const std::string& portDirectory_I);
// The packet as a request frame with that tag, as a client sends it.
std::vector<UInt8> RequestFrame(UInt32 tag_I, CEventPacket packet);
} // namespace reliability
