#include "Tests/EndToEnd/EndToEndSupport.h"

#include "Mac/Common/Communication/CMacDriverMessageSendPort.h"

namespace end_to_end
{
Client::Client(const std::string& portName) : mPort(std::make_shared<CMacDriverMessageSendPort>())
{
    CFStringRef name = CFStringCreateWithCString(nullptr, portName.c_str(), kCFStringEncodingUTF8);
    mPort->Init(name, true);
    CFRelease(name);
    if (CMacMessagingClient* client = mPort->GetMessagingClient())
    {
        client->SetSendReceiveTimeouts(kAnswerSeconds, kAnswerSeconds);
    }
}

Client::~Client() = default;

KELSTATUS Client::Send(CEventPacket& packet_IO)
{
    const KELSTATUS status = mPort->SendKeltoEvent(&packet_IO);
    return status != KELSTATUS_SUCCESS ? status : packet_IO.Status();
}

CEventPacket Packet(ECommand command, std::initializer_list<SKey> keys)
{
    CEventPacket packet;
    packet.SetCommand(command);
    for (const SKey& key : keys)
    {
        packet.AddKeyInt(key.mIdentifier, key.mReference, key.mMode);
    }
    return packet;
}

unsigned short DriverTabletID(const std::string& driverPort, unsigned int localIndex)
{
    Client driver(driverPort);
    CEventPacket get = Packet(ECommandGet, {{EObjectIDDriver},
                                            {EObjectIDTablet, localIndex, EAddrModeByLocalIndex},
                                            {EParameterIDTabletSystemID}});
    if (driver.Send(get) != KELSTATUS_SUCCESS)
    {
        return 0xFFFF;
    }
    return get.UnPackData_<unsigned short>(0xFFFF);
}
} // namespace end_to_end
