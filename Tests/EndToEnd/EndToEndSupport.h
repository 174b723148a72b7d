// What the end-to-end tests share: a client that talks to the coordinator, or to a
// simulated driver, the way the programs of the system do (through the project's
// message-port classes), with short time-outs so that a process that does not answer fails
// the test instead of stalling it; and readers of what the drivers were told.
#pragma once

#include "Common/CEventPacket.h"
#include "Common/KelStatus.h"

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

class CMacDriverMessageSendPort;

namespace end_to_end
{
// Seconds a test waits for any one answer or event.
constexpr double kAnswerSeconds = 10.0;

constexpr const char* kKeltoPort = "com.kelto.KeltoTabletDriverMessageServer";
constexpr const char* kPenPort = "com.kelto.PenTabletDriverMessageServer";

// A connection to one named port of the system.
class Client
{
public:
    explicit Client(const std::string& portName);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // Sends the packet as a serialized event packet and puts the answer into it. The
    // request's status: the answer's, or the failure of the exchange itself.
    KELSTATUS Send(CEventPacket& packet_IO);
    // The same as a transit record, as to a driver that predates event packets: the answer
    // comes back within the room of the packet's data, which the caller provides.
    KELSTATUS SendLegacy(CEventPacket& packet_IO);

private:
    std::shared_ptr<CMacDriverMessageSendPort> mPort;
};

// A packet with this command and keys (each by index, reference 0 unless given).
struct SKey
{
    EEventIdentifier mIdentifier;
    unsigned int mReference = 0;
    EAddressingMode mMode = EAddrModeByIndex;
};
CEventPacket Packet(ECommand command, std::initializer_list<SKey> keys);

// One record of a tablet block.
struct STablet
{
    std::int32_t mDriverID;
    std::int32_t mTabletIndex;
    std::uint32_t mSystemID;
    bool operator==(const STablet&) const = default;
};

// The records of a tablet block; empty for a block whose header is not the one the
// coordinator writes (16, 16, 0x00010001, n, then exactly n records of 16 bytes).
std::vector<STablet> DecodeTabletBlock(const std::vector<unsigned char>& block);

// The tablet block a packet driver stores; empty when it has none.
std::vector<STablet> TabletBlockAt(const std::string& driverPort);
// The same from a legacy driver, asked with a transit record with room for `records`.
std::vector<STablet> LegacyTabletBlockAt(const std::string& driverPort, unsigned int records);
// Waits until a packet driver stores a block of `records` records; that block, or what it
// had when the time ran out.
std::vector<STablet> WaitForTabletBlock(const std::string& driverPort, size_t records);

// A packet driver's own system ID of its tablet at `localIndex`; 0xFFFF for none.
unsigned short DriverTabletID(const std::string& driverPort, unsigned int localIndex);

// The "Driver" entry of a simulated driver's generic answer in the packet; empty if none.
std::string AnsweringDriver(CEventPacket& packet);
} // namespace end_to_end
