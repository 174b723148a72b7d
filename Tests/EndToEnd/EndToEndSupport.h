// What the end-to-end tests share: a client that talks to the coordinator, or to a
// simulated driver, the way the programs of the system do (through the project's
// message-port classes), with short time-outs so that a process that does not answer fails
// the test instead of stalling it.
#pragma once

#include "Common/CEventPacket.h"
#include "Common/KelStatus.h"

#include <initializer_list>
#include <memory>
#include <string>

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

// A packet driver's own system ID of its tablet at `localIndex`; 0xFFFF for none.
unsigned short DriverTabletID(const std::string& driverPort, unsigned int localIndex);

} // namespace end_to_end
