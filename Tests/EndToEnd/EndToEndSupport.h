// What the end-to-end tests share: a port directory of their own, and a client that talks
// to the coordinator the way client programs do, through the project's message-port
// classes, with short time-outs so that a coordinator that does not answer fails the test
// instead of stalling it.
#pragma once

#include "Common/CEventPacket.h"
#include "Common/KelStatus.h"

#include <memory>
#include <optional>
#include <string>

class CMacDriverMessageSendPort;

namespace end_to_end
{
// Seconds a test waits for any one answer or event.
constexpr double kAnswerSeconds = 10.0;

// A fresh port directory (mode 0700) for one test; this process's KELTO_PORT_DIR points at
// it while the object lives, and the processes the test starts inherit it.
class PortDirectory
{
public:
    PortDirectory();
    ~PortDirectory();
    PortDirectory(const PortDirectory&) = delete;
    PortDirectory& operator=(const PortDirectory&) = delete;

    const std::string& Path() const { return mPath; }
    // A file in the directory's parent scratch area, for logs and configurations.
    std::string Scratch(const std::string& name) const;

private:
    std::string mRoot; // scratch area; the port directory is mRoot/ports
    std::string mPath;
    std::optional<std::string> mSaved;
};

// A connection to one named port of the system (the coordinator's by default).
class Client
{
public:
    explicit Client(const std::string& portName);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // Sends the packet and puts the answer into it. The request's status: the answer's, or
    // the failure of the exchange itself.
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
} // namespace end_to_end
