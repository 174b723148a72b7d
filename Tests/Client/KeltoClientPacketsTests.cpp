// The packets of the client library: what it refuses to send, what survives the wire, and
// which received bytes it takes for a packet or a capabilities delivery.
#include "Client/KeltoClientPackets.h"

#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsMap.h"

#include <gtest/gtest.h>

namespace
{
CKeltoClient::SKey Key(EEventIdentifier identifier, std::uint32_t reference = 0,
                       EAddressingMode mode = EAddrModeByIndex)
{
    return CKeltoClient::SKey(identifier, reference, mode);
}

std::shared_ptr<CSettingsArray> TwoTablets()
{
    auto array = CSettingsArray::New();
    for (int id = 0; id < 2; ++id)
    {
        auto map = CSettingsMap::New();
        map->SetKeyAndInteger("MultiTouchDeviceID", id);
        map->SetKeyAndString("MultiTouchDeviceName", id == 0 ? "Pro M" : "Pen S");
        array->AddObject(map);
    }
    return array;
}

// The packet as it arrives: built, serialized and decoded again.
CEventPacket Received(const CKeltoClient::SRequest& request)
{
    CEventPacket sent;
    EXPECT_EQ(KeltoClientPackets::BuildPacket(request, sent), KELSTATUS_SUCCESS);
    const std::vector<unsigned char> bytes = KeltoClientPackets::Serialize(sent);
    CEventPacket received;
    EXPECT_EQ(KeltoClientPackets::Decode(bytes.data(), bytes.size(), received), KELSTATUS_SUCCESS);
    return received;
}
} // namespace

TEST(KeltoClientPackets, RefusesRequestsAPacketCannotCarry)
{
    CKeltoClient::SRequest nineKeys;
    nineKeys.mKeys.assign(9, Key(EObjectIDTablet));
    CKeltoClient::SRequest tenKeys = nineKeys;
    tenKeys.mKeys.push_back(Key(EObjectIDTablet));
    CKeltoClient::SRequest chainEnd;
    chainEnd.mKeys = {Key(EObjectIDDriver), Key(EObjectIDNothing), Key(EObjectIDTablet)};
    CKeltoClient::SRequest badIdentifier;
    badIdentifier.mKeys = {Key(static_cast<EEventIdentifier>(MAX_KEY_ID))};
    CKeltoClient::SRequest badMode;
    badMode.mKeys = {Key(EObjectIDTablet, 0, MAX_ADDRESSING_MODE)};
    CKeltoClient::SRequest badCommand;
    badCommand.mCommand = static_cast<ECommand>(10);
    CKeltoClient::SRequest lastCommand;
    lastCommand.mCommand = MAX_COMMAND; // the packet's own test lets this one through

    struct SCase
    {
        const char* name;
        const CKeltoClient::SRequest& request;
        KELSTATUS expected;
    };
    const SCase cases[] = {
        {"nine keys", nineKeys, KELSTATUS_SUCCESS},
        {"ten keys", tenKeys, KELSTATUS_API_BAD_PARAMETER},
        {"a chain end inside", chainEnd, KELSTATUS_API_BAD_PARAMETER},
        {"identifier beyond the list", badIdentifier, KELSTATUS_API_BAD_PARAMETER},
        {"mode beyond the list", badMode, KELSTATUS_API_BAD_PARAMETER},
        {"command 10", badCommand, KELSTATUS_API_BAD_PARAMETER},
        {"MAX_COMMAND", lastCommand, KELSTATUS_SUCCESS},
    };
    for (const SCase& c : cases)
    {
        CEventPacket packet;
        EXPECT_EQ(KeltoClientPackets::BuildPacket(c.request, packet), c.expected) << c.name;
        if (c.expected == KELSTATUS_SUCCESS)
        {
            EXPECT_EQ(packet.IsValid(), KELSTATUS_SUCCESS) << c.name;
        }
    }
}

TEST(KeltoClientPackets, KeysAndDataSurviveTheWire)
{
    CKeltoClient::SRequest request;
    request.mCommand = ECommandSet;
    request.mKeys = {Key(EObjectIDDriver), Key(EObjectIDTablet, 7, EAddrModeByID),
                     CKeltoClient::SKey(EParameterIDName, "Pen \"S\"")};
    request.mData = {0x00, 0x01, 0xFE, 0xFF};

    CEventPacket received = Received(request);
    EXPECT_EQ(received.Command(), ECommandSet);
    EXPECT_EQ(received.ObjectKey(1)->Identifier(), EObjectIDTablet);
    EXPECT_EQ(received.ObjectKey(1)->mAddressingMode, EAddrModeByID);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(received.ObjectKey(1)->mReference), 7u);
    EXPECT_EQ(std::string(received.ObjectKey(2)->String()), "Pen \"S\"");
    EXPECT_EQ(received.ObjectKey(3)->Identifier(), EObjectIDNothing);
    EXPECT_EQ(KeltoClientPackets::ReplyOf(received).mData, request.mData);

    // No data at all is not a buffer of size 0 on the way back either.
    request.mData.clear();
    EXPECT_TRUE(KeltoClientPackets::ReplyOf(Received(request)).mData.empty());
}

TEST(KeltoClientPackets, DecodeTakesOnlyWholePackets)
{
    CKeltoClient::SRequest request = KeltoClientPackets::TouchClientRequest(ECommandCreate, "x");
    CEventPacket packet;
    ASSERT_EQ(KeltoClientPackets::BuildPacket(request, packet), KELSTATUS_SUCCESS);
    packet.SetStatus(KELSTATUS_OBJECT_NOT_FOUND);
    const std::vector<unsigned char> bytes = KeltoClientPackets::Serialize(packet);

    // Every cut short of the whole block is refused, and so are foreign bytes.
    for (std::size_t size = 0; size < bytes.size(); size += 7)
    {
        CEventPacket decoded;
        EXPECT_EQ(KeltoClientPackets::Decode(bytes.data(), size, decoded),
                  KELSTATUS_API_CORRUPT_DATA)
            << size;
    }
    std::vector<unsigned char> foreign = bytes;
    foreign[0] ^= 0xFF;
    CEventPacket decoded;
    EXPECT_EQ(KeltoClientPackets::Decode(foreign.data(), foreign.size(), decoded),
              KELSTATUS_API_CORRUPT_DATA);
    EXPECT_EQ(KeltoClientPackets::Decode(nullptr, 10, decoded), KELSTATUS_API_CORRUPT_DATA);

    // The bytes given are never written (a block of the other byte order is swapped on a
    // copy), and the status travels.
    const std::vector<unsigned char> before = bytes;
    ASSERT_EQ(KeltoClientPackets::Decode(bytes.data(), bytes.size(), decoded), KELSTATUS_SUCCESS);
    EXPECT_EQ(bytes, before);
    EXPECT_EQ(KeltoClientPackets::ReplyOf(decoded).mStatus, KELSTATUS_OBJECT_NOT_FOUND);
}

TEST(KeltoClientPackets, TellsCapabilityDeliveriesFromOtherPackets)
{
    auto delivery = [](ECommand command, EEventIdentifier second, std::vector<unsigned char> data)
    {
        CKeltoClient::SRequest request;
        request.mCommand = command;
        request.mKeys = {Key(EObjectIDMultiTouchAPI), Key(second)};
        request.mData = std::move(data);
        return Received(request);
    };
    const std::vector<unsigned char> array = KeltoClientPackets::SettingsData(TwoTablets());
    const std::vector<unsigned char> map = KeltoClientPackets::SettingsData(CSettingsMap::New());

    std::shared_ptr<CSettingsArray> capabilities;
    EXPECT_TRUE(KeltoClientPackets::IsCapabilitiesDelivery(
        delivery(ECommandSet, EParameterIDTabletMultiTouchCapabilities, array), capabilities));
    ASSERT_TRUE(capabilities);
    EXPECT_TRUE(capabilities->IsEqualTo(TwoTablets()));

    // A delivery of something else than an array is still a delivery, with nothing in it.
    EXPECT_TRUE(KeltoClientPackets::IsCapabilitiesDelivery(
        delivery(ECommandSet, EParameterIDTabletMultiTouchCapabilities, map), capabilities));
    EXPECT_FALSE(capabilities);
    EXPECT_TRUE(KeltoClientPackets::IsCapabilitiesDelivery(
        delivery(ECommandSet, EParameterIDTabletMultiTouchCapabilities, {1, 2, 3}), capabilities));
    EXPECT_FALSE(capabilities);

    // A question about capabilities, or another parameter, is not.
    EXPECT_FALSE(KeltoClientPackets::IsCapabilitiesDelivery(
        delivery(ECommandGet, EParameterIDTabletMultiTouchCapabilities, array), capabilities));
    EXPECT_FALSE(KeltoClientPackets::IsCapabilitiesDelivery(
        delivery(ECommandSet, EParameterIDMultiTouchAPIClient, array), capabilities));
}
