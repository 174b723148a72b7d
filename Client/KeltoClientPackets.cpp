#include "Client/KeltoClientPackets.h"

#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsInteger.h"
#include "Common/Settings/CSettingsMap.h"
#include "Mac/Common/Communication/StScratchCopy.h"

#include <cstring>

namespace KeltoClientPackets
{
namespace
{
// A packet's validity test allows commands up to this one (MAX_COMMAND itself included).
constexpr int kCommandLimit = 10;

CKeltoClient::SKey Key(EEventIdentifier identifier_I, std::uint32_t reference_I = 0,
                       EAddressingMode mode_I = EAddrModeByIndex)
{
    return CKeltoClient::SKey(identifier_I, reference_I, mode_I);
}

CKeltoClient::SRequest Request(ECommand command_I, std::vector<CKeltoClient::SKey> keys_I)
{
    CKeltoClient::SRequest request;
    request.mCommand = command_I;
    request.mKeys = std::move(keys_I);
    return request;
}

// Checked here so that a bad request is refused quietly instead of through the packet's
// assertion lines.
bool KeyIsAcceptable(const CKeltoClient::SKey& key_I)
{
    const auto identifier = static_cast<std::uint32_t>(key_I.mIdentifier);
    const auto mode = static_cast<std::uint32_t>(key_I.mMode);
    return identifier != EObjectIDNothing && identifier < MAX_KEY_ID && mode < MAX_ADDRESSING_MODE;
}
} // namespace

KELSTATUS BuildPacket(const CKeltoClient::SRequest& request_I, CEventPacket& packet_O)
{
    const auto command = static_cast<std::uint32_t>(request_I.mCommand);
    if (command >= kCommandLimit || request_I.mKeys.size() > kMaxKeys)
    {
        return KELSTATUS_API_BAD_PARAMETER;
    }
    for (const CKeltoClient::SKey& key : request_I.mKeys)
    {
        if (!KeyIsAcceptable(key))
        {
            return KELSTATUS_API_BAD_PARAMETER;
        }
    }
    packet_O.SetCommand(request_I.mCommand);
    for (const CKeltoClient::SKey& key : request_I.mKeys)
    {
        if (key.mMode == EAddrModeByString)
        {
            packet_O.AddKeyString(key.mIdentifier, key.mText, false);
        }
        else
        {
            packet_O.AddKeyInt(key.mIdentifier, key.mReference, key.mMode);
        }
    }
    if (!request_I.mData.empty())
    {
        packet_O.PackData(static_cast<unsigned int>(request_I.mData.size()),
                          request_I.mData.data());
    }
    return KELSTATUS_SUCCESS;
}

std::vector<unsigned char> Serialize(const CEventPacket& packet_I)
{
    std::vector<unsigned char> bytes(packet_I.GetSerializedSize(nullptr));
    packet_I.SerializeToBuffer(bytes.data(), bytes.size(), nullptr);
    return bytes;
}

CFDataRef SerializeToData(const CEventPacket& packet_I)
{
    // Written straight into the message's own bytes: no intermediate vector to copy from.
    const std::size_t size = packet_I.GetSerializedSize(nullptr);
    CFMutableDataRef data = CFDataCreateMutable(kCFAllocatorDefault, static_cast<CFIndex>(size));
    CFDataSetLength(data, static_cast<CFIndex>(size));
    packet_I.SerializeToBuffer(CFDataGetMutableBytePtr(data), size, nullptr);
    return data;
}

KELSTATUS Decode(const unsigned char* bytes_I, std::size_t size_I, CEventPacket& packet_O)
{
    if (bytes_I == nullptr || size_I == 0)
    {
        return KELSTATUS_API_CORRUPT_DATA;
    }
    // Decoding swaps a block of the other byte order in place: work on a copy.
    StScratchCopy copy(bytes_I, size_I);
    if (packet_O.DeserializeFromBuffer(copy.Bytes(), copy.Size()) != KELSTATUS_SUCCESS)
    {
        return KELSTATUS_API_CORRUPT_DATA;
    }
    return KELSTATUS_SUCCESS;
}

CKeltoClient::SReply ReplyOf(const CEventPacket& packet_I)
{
    CKeltoClient::SReply reply;
    reply.mStatus = packet_I.Status();
    const auto* data = static_cast<const unsigned char*>(packet_I.Buffer());
    if (data != nullptr)
    {
        reply.mData.assign(data, data + packet_I.SizeOfData());
    }
    return reply;
}

std::vector<unsigned char> SettingsData(const std::shared_ptr<CSettingsObject>& object_I)
{
    return object_I ? object_I->GetASN1Binary() : std::vector<unsigned char>();
}

std::shared_ptr<CSettingsObject> SettingsFromData(const std::vector<unsigned char>& data_I)
{
    if (data_I.empty())
    {
        return nullptr;
    }
    std::string failure;
    return CSettingsObject::ReadFromASN1Binary(data_I, failure);
}

bool IsCapabilitiesDelivery(const CEventPacket& packet_I,
                            std::shared_ptr<CSettingsArray>& capabilities_O)
{
    const OBJECT_KEY* first = packet_I.ObjectKey(0);
    const OBJECT_KEY* second = packet_I.ObjectKey(1);
    if (packet_I.Command() != ECommandSet || first->Identifier() != EObjectIDMultiTouchAPI ||
        second->Identifier() != EParameterIDTabletMultiTouchCapabilities)
    {
        return false;
    }
    capabilities_O = CSettingsArray::CastToArray(SettingsFromData(ReplyOf(packet_I).mData), false);
    return true;
}

CKeltoClient::SRequest TabletCountRequest(bool byID_I)
{
    return Request(ECommandGet,
                   {Key(EObjectIDDriver), Key(EParameterIDCount, EObjectIDTablet,
                                              byID_I ? EAddrModeByID : EAddrModeByIndex)});
}

CKeltoClient::SRequest TabletBlockRequest()
{
    // Routed to every driver; each holds the block of the coordinator's last synchronisation.
    return Request(ECommandGet, {Key(EObjectIDDriver), Key(EParameterIDTabletBlock)});
}

CKeltoClient::SRequest ProtocolVersionRequest()
{
    return Request(ECommandGet, {Key(EObjectIDRoutingTable), Key(EParameterIDFileVersion)});
}

CKeltoClient::SRequest TouchCapabilitiesRequest()
{
    return Request(ECommandGet,
                   {Key(EObjectIDMultiTouchAPI), Key(EParameterIDTabletMultiTouchCapabilities)});
}

CKeltoClient::SRequest MultiTouchAPIQueryRequest(std::uint32_t clientValue_I)
{
    CKeltoClient::SRequest request =
        Request(ECommandGet, {Key(EObjectIDMultiTouchAPI), Key(kMultiTouchAPIQuery)});
    request.mData = SettingsData(CSettingsInteger::New(clientValue_I));
    return request;
}

CKeltoClient::SRequest LastTabletUsedRequest()
{
    return Request(ECommandGet, {Key(EObjectIDDriver), Key(EParameterIDLastTabletUsed)});
}

CKeltoClient::SRequest SyncRequest()
{
    return Request(ECommandFlush, {Key(EObjectIDRoutingTable), Key(EParameterIDTabletBlock)});
}

CKeltoClient::SRequest QuitRequest()
{
    return Request(ECommandDestroy, {Key(EObjectIDRoutingTable), Key(EParameterIDTabletBlock)});
}

CKeltoClient::SRequest TouchClientRequest(ECommand command_I, const std::string& identifier_I)
{
    // Registration type 1 is the touch client that the coordinator itself serves; the
    // other types are the drivers' business.
    constexpr long long kRegistrationTypeClient = 1;
    auto registration = CSettingsMap::New();
    registration->SetKeyAndInteger("MultiTouchAPIClientRegistrationType", kRegistrationTypeClient);
    registration->SetKeyAndString("MultiTouchAPIClientIdentifier", identifier_I);
    CKeltoClient::SRequest request =
        Request(command_I, {Key(EObjectIDMultiTouchAPI), Key(EParameterIDMultiTouchAPIClient)});
    request.mData = SettingsData(registration);
    return request;
}
} // namespace KeltoClientPackets
