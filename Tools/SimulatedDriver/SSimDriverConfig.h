// What one simulated tablet driver is: its port, its version and byte order, its tablets and
// how it answers, as read from its configuration file (SimDriverConfigReader.h; the file
// format is in the program's --help text, SimDriverHelp.cpp).
#pragma once

#include "Common/FileVersion.h"
#include "Common/KelStatus.h"
#include "Tools/SimulatedDriver/ESimRequestKind.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class CSettingsMap;

// One tablet as the driver knows it. Its local index is its place in SSimDriverConfig::tablets.
struct SSimTablet
{
    // The driver's own idea of the tablet's system ID, answered until the coordinator sets
    // another one. It may be stale (left from an earlier coordinator) on purpose.
    std::uint16_t systemID = 0;
    // Answered as text with its terminating 0 to a get of the tablet's model and serial
    // number; empty: the driver does not know it (KELSTATUS_RESOURCE_MISSING).
    std::string model;
    std::string serialNumber;
    // Answered to the touch capabilities request; null: the tablet has none.
    std::shared_ptr<CSettingsMap> touchCapabilities;
};

// What a fault does to the request it hits.
enum class ESimFaultAction
{
    eSlow,  // answer normally after `milliseconds`
    eHang,  // never answer: hold the request for `milliseconds`, serving nothing, then drop it
    eEmpty, // answer at once with no data, without handling the request
    eExit   // end the process in the middle of the request, before any answer
};

struct SSimFault
{
    ESimRequestKind request = ESimRequestKind::eAny;
    // Only requests with this command; empty: any command.
    std::optional<int> command;
    ESimFaultAction action = ESimFaultAction::eSlow;
    unsigned int milliseconds = 0;
    // The first `skip` matching requests are served normally...
    unsigned int skip = 0;
    // ... and the next `times` get the fault (0: every one after the skipped ones).
    unsigned int times = 0;
    int exitCode = 70;
};

struct SSimDriverConfig
{
    // Where the configuration was read from (for messages and reloads).
    std::string path;
    // Carried in generic answers and trace lines so that a reader can tell the drivers apart.
    std::string name;
    std::string portName;
    FileVersion version;
    // Whether 'KEPK' packets are understood; an older driver gives them an empty reply.
    bool packetMessaging = true;
    // The byte order the driver presents: its 'ENDI' answer (1: the coordinator's order),
    // and the order of every header it reads and writes.
    bool otherByteOrder = false;
    // The 'ENDI' answer; -1: no answer data at all.
    int endiannessCode = 1;
    std::vector<SSimTablet> tablets;
    // Local index of the tablet used last; -1: none.
    int lastTabletUsed = -1;
    std::uint32_t lastTabletUsedTimestamp = 0;
    // Fixed answers to the count requests instead of the number of tablets.
    std::optional<std::uint16_t> countByIndex;
    std::optional<std::uint16_t> countByID;
    // The status of create and index requests (0: they succeed).
    KELSTATUS createStatus = KELSTATUS_SUCCESS;
    KELSTATUS indexStatus = KELSTATUS_SUCCESS;
    // 'AEVT': whether a reply event comes back, and the 'errn' item it then carries first.
    bool appleEventReply = true;
    std::optional<std::int32_t> appleEventErrorNumber;
    std::vector<SSimFault> faults;
};

// The port names of the two drivers the coordinator knows, and the first version of each
// that it serves with event packets rather than transit records.
constexpr const char* kSimKeltoDriverPortName = "com.kelto.KeltoTabletDriverMessageServer";
constexpr const char* kSimPenDriverPortName = "com.kelto.PenTabletDriverMessageServer";
FileVersion SimPacketMessagingVersion(const std::string& portName_I);
