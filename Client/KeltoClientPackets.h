// The packets of the client library: the requests it sends to the coordinator, and the
// decoding of the two kinds of packet it receives (the coordinator's replies, and the touch
// capabilities the coordinator delivers to a registered touch client).
//
// Bytes received from another process are decoded only through the bounded
// CEventPacket::DeserializeFromBuffer and the settings archive reader: nothing here reads
// outside the bytes given.
#pragma once

#include "Client/CKeltoClient.h"
#include "Common/CEventPacket.h"

#include <CoreFoundation/CFData.h>

#include <cstddef>
#include <memory>
#include <vector>

class CSettingsArray;
class CSettingsObject;

namespace KeltoClientPackets
{
// The most keys a packet carries (its last place always stays the chain's end).
constexpr std::size_t kMaxKeys = 9;
// The multi-touch programming-interface query: an identifier without a name.
constexpr EEventIdentifier kMultiTouchAPIQuery = static_cast<EEventIdentifier>(508);

// Fills packet_O (which must be fresh) with the request. KELSTATUS_API_BAD_PARAMETER, with
// packet_O unusable, for a command beyond the valid range, more than kMaxKeys keys, or a key
// the packet refuses (EObjectIDNothing, an identifier or mode out of range).
KELSTATUS BuildPacket(const CKeltoClient::SRequest& request_I, CEventPacket& packet_O);

// The wire form of a packet, for the 'KEPK' message.
std::vector<unsigned char> Serialize(const CEventPacket& packet_I);
// The same bytes as a new CFData (owned by the caller), ready to send.
CFDataRef SerializeToData(const CEventPacket& packet_I);

// Decodes a received block into packet_O. KELSTATUS_API_CORRUPT_DATA for anything that is
// not one whole serialized packet.
KELSTATUS Decode(const unsigned char* bytes_I, std::size_t size_I, CEventPacket& packet_O);

// The status and data of a decoded reply.
CKeltoClient::SReply ReplyOf(const CEventPacket& packet_I);

// A settings tree as request data, and back. Null when the bytes are no settings archive.
std::vector<unsigned char> SettingsData(const std::shared_ptr<CSettingsObject>& object_I);
std::shared_ptr<CSettingsObject> SettingsFromData(const std::vector<unsigned char>& data_I);

// Whether a packet received on a touch client's port delivers touch capabilities (command
// set, keys EObjectIDMultiTouchAPI then EParameterIDTabletMultiTouchCapabilities); if so,
// capabilities_O gets the array it carries, or null when its data is no settings array.
bool IsCapabilitiesDelivery(const CEventPacket& packet_I,
                            std::shared_ptr<CSettingsArray>& capabilities_O);

// The requests the coordinator answers itself, or routes on their keys.
CKeltoClient::SRequest TabletCountRequest(bool byID_I);
CKeltoClient::SRequest TabletBlockRequest();
CKeltoClient::SRequest ProtocolVersionRequest();
CKeltoClient::SRequest TouchCapabilitiesRequest();
CKeltoClient::SRequest MultiTouchAPIQueryRequest(std::uint32_t clientValue_I);
CKeltoClient::SRequest LastTabletUsedRequest();
CKeltoClient::SRequest SyncRequest();
CKeltoClient::SRequest QuitRequest();
// Registration (ECommandCreate) or its end (ECommandDestroy) of the touch client that
// serves the port named identifier_I.
CKeltoClient::SRequest TouchClientRequest(ECommand command_I, const std::string& identifier_I);
} // namespace KeltoClientPackets
