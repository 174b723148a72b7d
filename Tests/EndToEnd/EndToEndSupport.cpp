#include "Tests/EndToEnd/EndToEndSupport.h"

#include "Common/Settings/CSettingsMap.h"
#include "Mac/Common/Communication/CMacDriverMessageSendPort.h"

#include <chrono>
#include <cstring>
#include <thread>

namespace end_to_end
{
namespace
{
constexpr std::uint32_t kBlockHeaderSize = 16;
constexpr std::uint32_t kBlockRecordSize = 16;
constexpr std::uint32_t kBlockVersion = 0x00010001;

std::uint32_t Word(const std::vector<unsigned char>& bytes, size_t offset)
{
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}
} // namespace

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

KELSTATUS Client::SendLegacy(CEventPacket& packet_IO)
{
    return mPort->SendLegacyKeltoEvent(&packet_IO, nullptr);
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

std::vector<STablet> DecodeTabletBlock(const std::vector<unsigned char>& block)
{
    std::vector<STablet> tablets;
    if (block.size() < kBlockHeaderSize || Word(block, 0) != kBlockHeaderSize ||
        Word(block, 4) != kBlockRecordSize || Word(block, 8) != kBlockVersion ||
        block.size() != kBlockHeaderSize + size_t{Word(block, 12)} * kBlockRecordSize)
    {
        return tablets;
    }
    for (size_t offset = kBlockHeaderSize; offset < block.size(); offset += kBlockRecordSize)
    {
        tablets.push_back({static_cast<std::int32_t>(Word(block, offset)),
                           static_cast<std::int32_t>(Word(block, offset + 4)),
                           Word(block, offset + 8)});
    }
    return tablets;
}

std::vector<STablet> TabletBlockAt(const std::string& driverPort)
{
    Client driver(driverPort);
    CEventPacket get = Packet(ECommandGet, {{EObjectIDDriver}, {EParameterIDTabletBlock}});
    if (driver.Send(get) != KELSTATUS_SUCCESS)
    {
        return {};
    }
    return DecodeTabletBlock(get.UnPackData_<std::vector<unsigned char>>({}));
}

std::vector<STablet> LegacyTabletBlockAt(const std::string& driverPort, unsigned int records)
{
    Client driver(driverPort);
    CEventPacket get = Packet(ECommandGet, {{EObjectIDDriver}, {EParameterIDTabletBlock}});
    get.PackData_(std::vector<unsigned char>(kBlockHeaderSize + records * kBlockRecordSize, 0));
    if (driver.SendLegacy(get) != KELSTATUS_SUCCESS)
    {
        return {};
    }
    return DecodeTabletBlock(get.UnPackData_<std::vector<unsigned char>>({}));
}

std::vector<STablet> WaitForTabletBlock(const std::string& driverPort, size_t records)
{
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::milliseconds(static_cast<long>(kAnswerSeconds * 1000));
    for (;;)
    {
        std::vector<STablet> block = TabletBlockAt(driverPort);
        if (block.size() == records || std::chrono::steady_clock::now() >= deadline)
        {
            return block;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
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

std::string AnsweringDriver(CEventPacket& packet)
{
    std::shared_ptr<CSettingsMap> answer =
        packet.UnPackData_<std::shared_ptr<CSettingsMap>>(nullptr);
    return answer ? answer->StringForKeyWithDefault("Driver", "") : std::string();
}
} // namespace end_to_end
