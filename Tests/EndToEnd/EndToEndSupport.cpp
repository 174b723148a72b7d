#include "Tests/EndToEnd/EndToEndSupport.h"

#include "Mac/Common/Communication/CMacDriverMessageSendPort.h"

#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>

namespace end_to_end
{
PortDirectory::PortDirectory()
{
    char pattern[] = "/tmp/kel_end_to_end_XXXXXX";
    if (mkdtemp(pattern) == nullptr)
    {
        return;
    }
    mRoot = pattern;
    mPath = mRoot + "/ports";
    mkdir(mPath.c_str(), 0700);
    if (const char* saved = std::getenv("KELTO_PORT_DIR"))
    {
        mSaved = saved;
    }
    setenv("KELTO_PORT_DIR", mPath.c_str(), 1);
}

PortDirectory::~PortDirectory()
{
    if (mSaved)
    {
        setenv("KELTO_PORT_DIR", mSaved->c_str(), 1);
    }
    else
    {
        unsetenv("KELTO_PORT_DIR");
    }
    if (!mRoot.empty())
    {
        std::error_code error;
        std::filesystem::remove_all(mRoot, error);
    }
}

std::string PortDirectory::Scratch(const std::string& name) const
{
    return mRoot + "/" + name;
}

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
} // namespace end_to_end
