// The packets of the client library: the keys and data it builds survive the wire.
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
