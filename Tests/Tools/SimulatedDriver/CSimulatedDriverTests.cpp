// The driver's answers, request by request, as the coordinator's sync, routing and clients
// ask for them.
#include "Tools/SimulatedDriver/CSimulatedDriver.h"

#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsInteger.h"
#include "Tests/Tools/SimulatedDriver/SimDriverTestSupport.h"

#include <gtest/gtest.h>

using namespace SimDriverTest;

namespace
{
// Runs one request through the driver the way the port does.
KELSTATUS Ask(CSimulatedDriver& driver, CEventPacket& packet)
{
    return driver.Process(packet, ClassifySimRequest(packet));
}

std::uint16_t AskSystemID(CSimulatedDriver& driver, std::uint32_t index)
{
    CEventPacket packet;
    Build(packet, ECommandGet,
          {{EObjectIDDriver}, LocalTablet(index), {EParameterIDTabletSystemID}});
    EXPECT_EQ(Ask(driver, packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(packet.Status(), KELSTATUS_SUCCESS);
    return packet.UnPackData_<std::uint16_t>(0xABCD);
}

KELSTATUS SetSystemID(CSimulatedDriver& driver, std::uint32_t index,
                      const std::vector<std::uint8_t>& data)
{
    CEventPacket packet;
    Build(packet, ECommandSet,
          {{EObjectIDDriver}, LocalTablet(index), {EParameterIDTabletSystemID}}, data);
    return Ask(driver, packet);
}

std::shared_ptr<CSettingsObject> Settings(const CEventPacket& packet)
{
    return CSettingsObject::ReadFromASN1Binary(Data(packet));
}
} // namespace

TEST(CSimulatedDriver, SystemIDsByLocalIndexEndWithNoTabletAndTakeTheCorrection)
{
    CSimulatedDriver driver(TwoTabletConfig());
    EXPECT_EQ(AskSystemID(driver, 0), 5);
    EXPECT_EQ(AskSystemID(driver, 1), 7);
    // No tablet at this index is an answer with success: it ends the coordinator's walk.
    EXPECT_EQ(AskSystemID(driver, 2), 0xFFFF);

    EXPECT_EQ(SetSystemID(driver, 1, Bytes<std::uint16_t>(1)), KELSTATUS_SUCCESS);
    EXPECT_EQ(AskSystemID(driver, 1), 1);
    EXPECT_EQ(AskSystemID(driver, 0), 5);
    // A set must carry exactly two bytes and name a tablet the driver has.
    EXPECT_EQ(SetSystemID(driver, 0, Bytes<std::uint32_t>(2)), KELSTATUS_API_BAD_DATA_SIZE);
    EXPECT_EQ(SetSystemID(driver, 0, {}), KELSTATUS_API_BAD_DATA_SIZE);
    EXPECT_EQ(SetSystemID(driver, 2, Bytes<std::uint16_t>(2)), KELSTATUS_OBJECT_NOT_FOUND);
    EXPECT_EQ(AskSystemID(driver, 0), 5);
    EXPECT_EQ(driver.Tablets().at(1).systemID, 1);
}

TEST(CSimulatedDriver, GenericAnswerNamesTheDriverAndTheTabletByItsCurrentID)
{
    CSimulatedDriver driver(TwoTabletConfig());
    ASSERT_EQ(SetSystemID(driver, 1, Bytes<std::uint16_t>(1)), KELSTATUS_SUCCESS);

    CEventPacket packet;
    Build(packet, ECommandGet,
          {{EObjectIDDriver}, {EObjectIDTablet, 1, EAddrModeByID}, {EParameterIDTabletSize}});
    ASSERT_EQ(Ask(driver, packet), KELSTATUS_SUCCESS);
    auto answer = CSettingsMap::CastToMap(Settings(packet), false);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->StringForKeyWithDefault("Driver", ""), "Kelto test");
    EXPECT_EQ(answer->IntegerForKeyWithDefault("Command", -1), ECommandGet);
    EXPECT_EQ(answer->IntegerForKeyWithDefault("Parameter", -1), EParameterIDTabletSize);
    EXPECT_EQ(answer->IntegerForKeyWithDefault("TabletIndex", -1), 1);
    EXPECT_EQ(answer->IntegerForKeyWithDefault("SystemID", -1), 1);

    // The stale ID no longer names a tablet of this driver; the data is left as it came.
    Build(packet, ECommandGet,
          {{EObjectIDDriver}, {EObjectIDTablet, 7, EAddrModeByID}, {EParameterIDTabletSize}},
          {1, 2, 3});
    EXPECT_EQ(Ask(driver, packet), KELSTATUS_OBJECT_NOT_FOUND);
    EXPECT_EQ(packet.Status(), KELSTATUS_OBJECT_NOT_FOUND);
    EXPECT_EQ(Data(packet), (std::vector<std::uint8_t>{1, 2, 3}));

    // A request for the driver itself, or for all its tablets, is answered without a tablet.
    Build(packet, ECommandSet,
          {{EObjectIDDriver}, {EObjectIDTablet, 0, EAddrModeAllSubordinate}, {EParameterIDName}});
    ASSERT_EQ(Ask(driver, packet), KELSTATUS_SUCCESS);
    answer = CSettingsMap::CastToMap(Settings(packet), false);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->IntegerForKeyWithDefault("Command", -1), ECommandSet);
    EXPECT_FALSE(answer->IsKeyPresent("TabletIndex"));
}

TEST(CSimulatedDriver, TabletBlockIsKeptAsGivenAndItsSizeAnswered)
{
    CSimulatedDriver driver(TwoTabletConfig());
    CEventPacket packet;
    Build(packet, ECommandGet, {{EObjectIDDriver}, {EParameterIDSize, EParameterIDTabletBlock}});
    EXPECT_EQ(Ask(driver, packet), KELSTATUS_OBJECT_NOT_FOUND) << "no block before one is set";
    Build(packet, ECommandGet, {{EObjectIDDriver}, {EParameterIDTabletBlock}});
    EXPECT_EQ(Ask(driver, packet), KELSTATUS_OBJECT_NOT_FOUND);

    std::vector<std::uint8_t> block(48);
    for (size_t i = 0; i < block.size(); ++i)
    {
        block[i] = static_cast<std::uint8_t>(i * 7);
    }
    Build(packet, ECommandSet, {{EObjectIDDriver}, {EParameterIDTabletBlock}}, block);
    ASSERT_EQ(Ask(driver, packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(driver.TabletBlock(), block);

    Build(packet, ECommandGet, {{EObjectIDDriver}, {EParameterIDSize, EParameterIDTabletBlock}});
    ASSERT_EQ(Ask(driver, packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(packet.UnPackData_<std::uint32_t>(0), 48u);
    Build(packet, ECommandGet, {{EObjectIDDriver}, {EParameterIDTabletBlock}});
    ASSERT_EQ(Ask(driver, packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(Data(packet), block);

    // EParameterIDSize of anything else is not the block's size.
    Build(packet, ECommandGet, {{EObjectIDDriver}, {EParameterIDSize, EObjectIDTablet}});
    ASSERT_EQ(Ask(driver, packet), KELSTATUS_SUCCESS);
    EXPECT_TRUE(CSettingsMap::CastToMap(Settings(packet), false));
}

TEST(CSimulatedDriver, CountsLastTabletUsedAndTimestamp)
{
    SSimDriverConfig config = TwoTabletConfig();
    CSimulatedDriver driver(config);
    auto count = [&](EAddressingMode mode)
    {
        CEventPacket packet;
        Build(packet, ECommandGet, {{EObjectIDDriver}, {EParameterIDCount, EObjectIDTablet, mode}});
        EXPECT_EQ(Ask(driver, packet), KELSTATUS_SUCCESS);
        return packet.UnPackData_<std::uint16_t>(0xFFFF);
    };
    EXPECT_EQ(count(EAddrModeByIndex), 2);
    EXPECT_EQ(count(EAddrModeByID), 2);

    CEventPacket packet;
    Build(packet, ECommandGet, {{EObjectIDDriver}, {EParameterIDLastTabletUsed}});
    ASSERT_EQ(Ask(driver, packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(packet.UnPackData_<std::uint16_t>(0), 7);
    // The answer follows the ID the coordinator gave the tablet.
    ASSERT_EQ(SetSystemID(driver, 1, Bytes<std::uint16_t>(1)), KELSTATUS_SUCCESS);
    Build(packet, ECommandGet, {{EObjectIDDriver}, {EParameterIDLastTabletUsed}});
    ASSERT_EQ(Ask(driver, packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(packet.UnPackData_<std::uint16_t>(0), 1);
    Build(packet, ECommandGet, {{EObjectIDDriver}, {EParameterIDLastTabletUsedTimestamp}});
    ASSERT_EQ(Ask(driver, packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(packet.UnPackData_<std::uint32_t>(0), 1234u);

    config.countByIndex = 9;
    config.countByID = 4;
    config.lastTabletUsed = -1;
    CSimulatedDriver fixed(config);
    auto fixedCount = [&](EAddressingMode mode)
    {
        Build(packet, ECommandGet, {{EObjectIDDriver}, {EParameterIDCount, EObjectIDTablet, mode}});
        EXPECT_EQ(Ask(fixed, packet), KELSTATUS_SUCCESS);
        return packet.UnPackData_<std::uint16_t>(0xFFFF);
    };
    EXPECT_EQ(fixedCount(EAddrModeByIndex), 9);
    EXPECT_EQ(fixedCount(EAddrModeByID), 4);
    Build(packet, ECommandGet, {{EObjectIDDriver}, {EParameterIDLastTabletUsed}});
    ASSERT_EQ(Ask(fixed, packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(packet.UnPackData_<std::uint16_t>(0), 0xFFFF);
}

TEST(CSimulatedDriver, TouchCapabilitiesAndFileVersion)
{
    SSimDriverConfig config = TwoTabletConfig();
    CSimulatedDriver driver(config);
    CEventPacket packet;
    Build(packet, ECommandGet,
          {{EObjectIDDriver}, LocalTablet(0), {EParameterIDTabletMultiTouchCapabilities}});
    ASSERT_EQ(Ask(driver, packet), KELSTATUS_SUCCESS);
    EXPECT_TRUE(config.tablets[0].touchCapabilities->IsEqualTo(Settings(packet)));

    Build(packet, ECommandGet,
          {{EObjectIDDriver}, LocalTablet(1), {EParameterIDTabletMultiTouchCapabilities}}, {9, 9});
    EXPECT_EQ(Ask(driver, packet), KELSTATUS_OBJECT_NOT_FOUND);
    EXPECT_EQ(packet.SizeOfData(), 0u) << "no capabilities, no data";

    // The coordinator's probe carries a zeroed version as room for the answer.
    Build(packet, ECommandGet, {{EObjectIDDriver}, {EParameterIDFileVersion}},
          std::vector<std::uint8_t>(5, 0));
    ASSERT_EQ(Ask(driver, packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(Data(packet), (std::vector<std::uint8_t>{6, 3, 0, FileVersion::EFinalVersion, 0}));
    Build(packet, ECommandSet, {{EObjectIDDriver}, {EParameterIDFileVersion}});
    EXPECT_EQ(Ask(driver, packet), KELSTATUS_METHOD_NOT_IMPLEMENTED);
}

TEST(CSimulatedDriver, TouchClientRegistrationsAreRecordedAndListed)
{
    CSimulatedDriver driver(TwoTabletConfig());
    auto registration = CSettingsMap::New();
    registration->SetKeyAndInteger("MultiTouchAPIClientRegistrationType", 2);
    registration->SetKeyAndString("MultiTouchAPIClientIdentifier", "com.example.client");
    const std::vector<std::uint8_t> archive = registration->GetASN1Binary();

    // As the coordinator forwards it: the request's command, three keys, the same map.
    CEventPacket packet;
    Build(packet, ECommandCreate,
          {{EObjectIDDriver}, {EObjectIDMultiTouchAPI}, {EParameterIDMultiTouchAPIClient}},
          archive);
    ASSERT_EQ(Ask(driver, packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(Data(packet), archive) << "the data goes on to the next driver as it came";
    Build(packet, ECommandDestroy,
          {{EObjectIDDriver}, {EObjectIDMultiTouchAPI}, {EParameterIDMultiTouchAPIClient}},
          {0xDE, 0xAD});
    ASSERT_EQ(Ask(driver, packet), KELSTATUS_SUCCESS);

    ASSERT_EQ(driver.TouchClients().size(), 2u);
    EXPECT_TRUE(registration->IsEqualTo(driver.TouchClients()[0].registration));
    EXPECT_FALSE(driver.TouchClients()[1].registration) << "not an archive: recorded as null";

    Build(packet, ECommandGet,
          {{EObjectIDDriver}, {EObjectIDMultiTouchAPI}, {EParameterIDMultiTouchAPIClient}});
    ASSERT_EQ(Ask(driver, packet), KELSTATUS_SUCCESS);
    auto list = CSettingsArray::CastToArray(Settings(packet), false);
    ASSERT_TRUE(list);
    ASSERT_EQ(list->ObjectCount(), 2u);
    auto first = CSettingsMap::CastToMap(list->ObjectForIndex(0), false);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->IntegerForKeyWithDefault("Command", -1), ECommandCreate);
    EXPECT_TRUE(registration->IsEqualTo(first->ObjectForKey("Registration")));
    auto second = CSettingsMap::CastToMap(list->ObjectForIndex(1), false);
    ASSERT_TRUE(second);
    EXPECT_EQ(second->IntegerForKeyWithDefault("Command", -1), ECommandDestroy);
    EXPECT_FALSE(second->IsKeyPresent("Registration"));
}

TEST(CSimulatedDriver, CreateIndexAndDestroyFollowTheConfiguration)
{
    SSimDriverConfig config = TwoTabletConfig();
    config.createStatus = KELSTATUS_OBJECT_NOT_FOUND;
    CSimulatedDriver driver(config);
    CEventPacket packet;
    Build(packet, ECommandCreate, {{EObjectIDDriver}, {EParameterIDGraphicsTablet}});
    EXPECT_EQ(Ask(driver, packet), KELSTATUS_OBJECT_NOT_FOUND);
    Build(packet, ECommandGet, {{EObjectIDDriver}, {EParameterIDIndex}, {EParameterIDName}});
    ASSERT_EQ(Ask(driver, packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(
        CSettingsMap::CastToMap(Settings(packet), false)->StringForKeyWithDefault("Driver", ""),
        "Kelto test");

    config.createStatus = KELSTATUS_SUCCESS;
    config.indexStatus = KELSTATUS_API_BAD_PARAMETER;
    CSimulatedDriver other(config);
    Build(packet, ECommandCreate, {{EObjectIDDriver}, {EParameterIDGraphicsTablet}});
    EXPECT_EQ(Ask(other, packet), KELSTATUS_SUCCESS);
    Build(packet, ECommandGet, {{EObjectIDDriver}, {EParameterIDIndex}});
    EXPECT_EQ(Ask(other, packet), KELSTATUS_API_BAD_PARAMETER);

    // Destroy names the tablet by the system ID in its data.
    Build(packet, ECommandDestroy, {{EObjectIDDriver}, {EParameterIDGraphicsTablet}},
          Bytes<std::uint16_t>(6));
    EXPECT_EQ(Ask(other, packet), KELSTATUS_OBJECT_NOT_FOUND);
    Build(packet, ECommandDestroy, {{EObjectIDDriver}, {EParameterIDGraphicsTablet}},
          Bytes<std::uint16_t>(5));
    ASSERT_EQ(Ask(other, packet), KELSTATUS_SUCCESS);
    ASSERT_EQ(other.Tablets().size(), 1u);
    EXPECT_EQ(other.Tablets()[0].systemID, 7);
}

TEST(CSimulatedDriver, ReloadKeepsTheCoordinatorsIDsUnlessTheFileChangesThem)
{
    SSimDriverConfig config = TwoTabletConfig();
    CSimulatedDriver driver(config);
    ASSERT_EQ(SetSystemID(driver, 0, Bytes<std::uint16_t>(0)), KELSTATUS_SUCCESS);
    ASSERT_EQ(SetSystemID(driver, 1, Bytes<std::uint16_t>(1)), KELSTATUS_SUCCESS);
    CEventPacket packet;
    Build(packet, ECommandSet, {{EObjectIDDriver}, {EParameterIDTabletBlock}}, {1, 2, 3, 4});
    ASSERT_EQ(Ask(driver, packet), KELSTATUS_SUCCESS);

    // The file gains a third tablet and gives the second a new ID of its own.
    SSimDriverConfig next = config;
    next.tablets[1].systemID = 40;
    SSimTablet third;
    third.systemID = 41;
    next.tablets.push_back(third);
    driver.Reload(next);
    EXPECT_EQ(AskSystemID(driver, 0), 0);
    EXPECT_EQ(AskSystemID(driver, 1), 40);
    EXPECT_EQ(AskSystemID(driver, 2), 41);
    EXPECT_EQ(driver.TabletBlock(), (std::vector<std::uint8_t>{1, 2, 3, 4}));

    next.tablets.resize(1);
    driver.Reload(next);
    EXPECT_EQ(AskSystemID(driver, 0), 0);
    EXPECT_EQ(AskSystemID(driver, 1), 0xFFFF);
}

TEST(SSimRequest, KeyChainsAreReadAsTheDriverDocumentsThem)
{
    struct SCase
    {
        ECommand command;
        std::vector<SKey> keys;
        ESimRequestKind kind;
    };
    const SCase cases[] = {
        // The registration is found anywhere in the chain, the others by the last key.
        {ECommandGet,
         {{EObjectIDMultiTouchAPI}, {EParameterIDMultiTouchAPIClient}},
         ESimRequestKind::eTouchClient},
        {ECommandGet,
         {{EObjectIDMultiTouchAPI}, {EParameterIDMultiTouchAPIClient}, {EParameterIDName}},
         ESimRequestKind::eTouchClient},
        {ECommandGet,
         {{EParameterIDMultiTouchAPIClient}, {EObjectIDMultiTouchAPI}},
         ESimRequestKind::eOther},
        {ECommandGet,
         {{EObjectIDDriver}, {EParameterIDCount, EObjectIDDriver}},
         ESimRequestKind::eOther},
        {ECommandGet,
         {{EObjectIDDriver}, {EParameterIDLastTabletUsedTimestamp}},
         ESimRequestKind::eLastTabletUsedTimestamp},
        {ECommandCreate,
         {{EObjectIDDriver}, {EParameterIDGraphicsTablet}, {EParameterIDName}},
         ESimRequestKind::eCreate},
        {ECommandGet, {{EObjectIDDriver}, {EParameterIDGraphicsTablet}}, ESimRequestKind::eOther},
        {ECommandDestroy, {{EParameterIDGraphicsTablet}}, ESimRequestKind::eDestroyTablet},
        {ECommandSet, {{EParameterIDIndex}, {EObjectIDContext}}, ESimRequestKind::eIndex},
        // A parameter named by the last key wins over a create or an index before it.
        {ECommandCreate,
         {{EParameterIDGraphicsTablet}, {EParameterIDTabletSystemID}},
         ESimRequestKind::eSystemID},
        {ECommandGet, {}, ESimRequestKind::eOther},
    };
    for (const SCase& c : cases)
    {
        CEventPacket packet;
        Build(packet, c.command, c.keys);
        SSimRequest request = ClassifySimRequest(packet);
        EXPECT_EQ(request.kind, c.kind) << DescribeSimRequest(request);
    }

    CEventPacket packet;
    Build(packet, ECommandGet,
          {{EObjectIDDriver},
           {EObjectIDTablet, 3, EAddrModeByLocalIndex},
           {EObjectIDTablet, 9, EAddrModeByID},
           {EParameterIDName}});
    SSimRequest request = ClassifySimRequest(packet);
    EXPECT_EQ(request.tabletAddress, ESimTabletAddress::eLocalIndex) << "the first tablet key";
    EXPECT_EQ(request.tabletReference, 3u);
    EXPECT_EQ(DescribeSimRequest(request), "get other (parameter 29) tablet #3");
    Build(packet, ECommandGet, {{EObjectIDTablet, 9, EAddrModeByIndex}, {EParameterIDName}});
    EXPECT_EQ(ClassifySimRequest(packet).tabletAddress, ESimTabletAddress::eSystemID);
}
