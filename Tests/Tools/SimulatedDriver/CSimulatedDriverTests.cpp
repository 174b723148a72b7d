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
// One request through the driver the way the port runs it, answered with `status`.
CEventPacket Answer(CSimulatedDriver& driver, ECommand command, const std::vector<SKey>& keys,
                    KELSTATUS status = KELSTATUS_SUCCESS,
                    const std::vector<std::uint8_t>& data = {})
{
    CEventPacket packet;
    Build(packet, command, keys, data);
    EXPECT_EQ(driver.Process(packet, ClassifySimRequest(packet)), status);
    return packet;
}

std::uint16_t AskSystemID(CSimulatedDriver& driver, std::uint32_t index)
{
    CEventPacket packet = Answer(
        driver, ECommandGet, {{EObjectIDDriver}, LocalTablet(index), {EParameterIDTabletSystemID}});
    EXPECT_EQ(packet.Status(), KELSTATUS_SUCCESS);
    return packet.UnPackData_<std::uint16_t>(0xABCD);
}

void SetSystemID(CSimulatedDriver& driver, std::uint32_t index,
                 const std::vector<std::uint8_t>& data, KELSTATUS status = KELSTATUS_SUCCESS)
{
    Answer(driver, ECommandSet,
           {{EObjectIDDriver}, LocalTablet(index), {EParameterIDTabletSystemID}}, status, data);
}

std::shared_ptr<CSettingsObject> Settings(const CEventPacket& packet)
{
    return CSettingsObject::ReadFromASN1Binary(Data(packet));
}

std::shared_ptr<CSettingsMap> Map(const CEventPacket& packet)
{
    auto map = CSettingsMap::CastToMap(Settings(packet), false);
    EXPECT_TRUE(map);
    return map ? map : CSettingsMap::New();
}

std::uint16_t Count(CSimulatedDriver& driver, EAddressingMode mode)
{
    return Answer(driver, ECommandGet,
                  {{EObjectIDDriver}, {EParameterIDCount, EObjectIDTablet, mode}})
        .UnPackData_<std::uint16_t>(0xFFFF);
}

std::uint16_t LastTabletUsed(CSimulatedDriver& driver)
{
    return Answer(driver, ECommandGet, {{EObjectIDDriver}, {EParameterIDLastTabletUsed}})
        .UnPackData_<std::uint16_t>(0);
}
} // namespace

TEST(CSimulatedDriver, SystemIDsByLocalIndexEndWithNoTabletAndTakeTheCorrection)
{
    CSimulatedDriver driver(TwoTabletConfig());
    EXPECT_EQ(AskSystemID(driver, 0), 5);
    EXPECT_EQ(AskSystemID(driver, 1), 7);
    // No tablet at this index is an answer with success: it ends the coordinator's walk.
    EXPECT_EQ(AskSystemID(driver, 2), 0xFFFF);

    SetSystemID(driver, 1, Bytes<std::uint16_t>(1));
    EXPECT_EQ(AskSystemID(driver, 1), 1);
    EXPECT_EQ(AskSystemID(driver, 0), 5);
    // A set must carry exactly two bytes and name a tablet the driver has.
    SetSystemID(driver, 0, Bytes<std::uint32_t>(2), KELSTATUS_API_BAD_DATA_SIZE);
    SetSystemID(driver, 0, {}, KELSTATUS_API_BAD_DATA_SIZE);
    SetSystemID(driver, 2, Bytes<std::uint16_t>(2), KELSTATUS_OBJECT_NOT_FOUND);
    EXPECT_EQ(AskSystemID(driver, 0), 5);
    EXPECT_EQ(driver.Tablets().at(1).systemID, 1);
}

TEST(CSimulatedDriver, GenericAnswerNamesTheDriverAndTheTabletByItsCurrentID)
{
    CSimulatedDriver driver(TwoTabletConfig());
    SetSystemID(driver, 1, Bytes<std::uint16_t>(1));
    auto answer = Map(
        Answer(driver, ECommandGet,
               {{EObjectIDDriver}, {EObjectIDTablet, 1, EAddrModeByID}, {EParameterIDTabletSize}}));
    EXPECT_EQ(answer->StringForKeyWithDefault("Driver", ""), "Kelto test");
    EXPECT_EQ(answer->IntegerForKeyWithDefault("Command", -1), ECommandGet);
    EXPECT_EQ(answer->IntegerForKeyWithDefault("Parameter", -1), EParameterIDTabletSize);
    EXPECT_EQ(answer->IntegerForKeyWithDefault("TabletIndex", -1), 1);
    EXPECT_EQ(answer->IntegerForKeyWithDefault("SystemID", -1), 1);

    // The stale ID no longer names a tablet of this driver; the data is left as it came.
    CEventPacket stale =
        Answer(driver, ECommandGet,
               {{EObjectIDDriver}, {EObjectIDTablet, 7, EAddrModeByID}, {EParameterIDTabletSize}},
               KELSTATUS_OBJECT_NOT_FOUND, {1, 2, 3});
    EXPECT_EQ(stale.Status(), KELSTATUS_OBJECT_NOT_FOUND);
    EXPECT_EQ(Data(stale), (std::vector<std::uint8_t>{1, 2, 3}));

    // A request for the driver itself, or for all its tablets, is answered without a tablet.
    answer = Map(Answer(
        driver, ECommandSet,
        {{EObjectIDDriver}, {EObjectIDTablet, 0, EAddrModeAllSubordinate}, {EParameterIDName}}));
    EXPECT_EQ(answer->IntegerForKeyWithDefault("Command", -1), ECommandSet);
    EXPECT_FALSE(answer->IsKeyPresent("TabletIndex"));
}

TEST(CSimulatedDriver, TabletBlockIsKeptAsGivenAndItsSizeAnswered)
{
    CSimulatedDriver driver(TwoTabletConfig());
    const std::vector<SKey> size = {{EObjectIDDriver}, {EParameterIDSize, EParameterIDTabletBlock}};
    const std::vector<SKey> block = {{EObjectIDDriver}, {EParameterIDTabletBlock}};
    Answer(driver, ECommandGet, size, KELSTATUS_OBJECT_NOT_FOUND); // no block before one is set
    Answer(driver, ECommandGet, block, KELSTATUS_OBJECT_NOT_FOUND);

    std::vector<std::uint8_t> bytes(48);
    for (size_t i = 0; i < bytes.size(); ++i)
    {
        bytes[i] = static_cast<std::uint8_t>(i * 7);
    }
    Answer(driver, ECommandSet, block, KELSTATUS_SUCCESS, bytes);
    EXPECT_EQ(driver.TabletBlock(), bytes);
    EXPECT_EQ(Answer(driver, ECommandGet, size).UnPackData_<std::uint32_t>(0), 48u);
    EXPECT_EQ(Data(Answer(driver, ECommandGet, block)), bytes);

    // EParameterIDSize of anything else is not the block's size.
    Map(Answer(driver, ECommandGet, {{EObjectIDDriver}, {EParameterIDSize, EObjectIDTablet}}));
}

TEST(CSimulatedDriver, CountsLastTabletUsedAndTimestamp)
{
    SSimDriverConfig config = TwoTabletConfig();
    CSimulatedDriver driver(config);
    EXPECT_EQ(Count(driver, EAddrModeByIndex), 2);
    EXPECT_EQ(Count(driver, EAddrModeByID), 2);
    EXPECT_EQ(LastTabletUsed(driver), 7);
    // The answer follows the ID the coordinator gave the tablet.
    SetSystemID(driver, 1, Bytes<std::uint16_t>(1));
    EXPECT_EQ(LastTabletUsed(driver), 1);
    EXPECT_EQ(
        Answer(driver, ECommandGet, {{EObjectIDDriver}, {EParameterIDLastTabletUsedTimestamp}})
            .UnPackData_<std::uint32_t>(0),
        1234u);

    config.countByIndex = 9;
    config.countByID = 4;
    config.lastTabletUsed = -1;
    CSimulatedDriver fixed(config);
    EXPECT_EQ(Count(fixed, EAddrModeByIndex), 9);
    EXPECT_EQ(Count(fixed, EAddrModeByID), 4);
    EXPECT_EQ(LastTabletUsed(fixed), 0xFFFF);
}

TEST(CSimulatedDriver, TouchCapabilitiesAndFileVersion)
{
    SSimDriverConfig config = TwoTabletConfig();
    CSimulatedDriver driver(config);
    EXPECT_TRUE(config.tablets[0].touchCapabilities->IsEqualTo(Settings(
        Answer(driver, ECommandGet,
               {{EObjectIDDriver}, LocalTablet(0), {EParameterIDTabletMultiTouchCapabilities}}))));
    EXPECT_EQ(
        Answer(driver, ECommandGet,
               {{EObjectIDDriver}, LocalTablet(1), {EParameterIDTabletMultiTouchCapabilities}},
               KELSTATUS_OBJECT_NOT_FOUND, {9, 9})
            .SizeOfData(),
        0u)
        << "no capabilities, no data";

    // The coordinator's probe carries a zeroed version as room for the answer.
    const std::vector<SKey> version = {{EObjectIDDriver}, {EParameterIDFileVersion}};
    EXPECT_EQ(Data(Answer(driver, ECommandGet, version, KELSTATUS_SUCCESS,
                          std::vector<std::uint8_t>(5, 0))),
              (std::vector<std::uint8_t>{6, 3, 0, FileVersion::EFinalVersion, 0}));
    Answer(driver, ECommandSet, version, KELSTATUS_METHOD_NOT_IMPLEMENTED);
}

TEST(CSimulatedDriver, TouchClientRegistrationsAreRecordedAndListed)
{
    CSimulatedDriver driver(TwoTabletConfig());
    auto registration = CSettingsMap::New();
    registration->SetKeyAndInteger("MultiTouchAPIClientRegistrationType", 2);
    registration->SetKeyAndString("MultiTouchAPIClientIdentifier", "com.example.client");
    const std::vector<std::uint8_t> archive = registration->GetASN1Binary();

    // As the coordinator forwards it: the request's command, three keys, the same map.
    const std::vector<SKey> client = {
        {EObjectIDDriver}, {EObjectIDMultiTouchAPI}, {EParameterIDMultiTouchAPIClient}};
    EXPECT_EQ(Data(Answer(driver, ECommandCreate, client, KELSTATUS_SUCCESS, archive)), archive)
        << "the data goes on to the next driver as it came";
    Answer(driver, ECommandDestroy, client, KELSTATUS_SUCCESS, {0xDE, 0xAD});
    ASSERT_EQ(driver.TouchClients().size(), 2u);
    EXPECT_TRUE(registration->IsEqualTo(driver.TouchClients()[0].registration));
    EXPECT_FALSE(driver.TouchClients()[1].registration) << "not an archive: recorded as null";

    auto list = CSettingsArray::CastToArray(Settings(Answer(driver, ECommandGet, client)), false);
    ASSERT_TRUE(list);
    ASSERT_EQ(list->ObjectCount(), 2u);
    auto first = CSettingsMap::CastToMap(list->ObjectForIndex(0), false);
    auto second = CSettingsMap::CastToMap(list->ObjectForIndex(1), false);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->IntegerForKeyWithDefault("Command", -1), ECommandCreate);
    EXPECT_TRUE(registration->IsEqualTo(first->ObjectForKey("Registration")));
    EXPECT_EQ(second->IntegerForKeyWithDefault("Command", -1), ECommandDestroy);
    EXPECT_FALSE(second->IsKeyPresent("Registration"));
}

TEST(CSimulatedDriver, CreateIndexAndDestroyFollowTheConfiguration)
{
    const std::vector<SKey> tablet = {{EObjectIDDriver}, {EParameterIDGraphicsTablet}};
    SSimDriverConfig config = TwoTabletConfig();
    config.createStatus = KELSTATUS_OBJECT_NOT_FOUND;
    CSimulatedDriver driver(config);
    Answer(driver, ECommandCreate, tablet, KELSTATUS_OBJECT_NOT_FOUND);
    EXPECT_EQ(Map(Answer(driver, ECommandGet,
                         {{EObjectIDDriver}, {EParameterIDIndex}, {EParameterIDName}}))
                  ->StringForKeyWithDefault("Driver", ""),
              "Kelto test");

    config.createStatus = KELSTATUS_SUCCESS;
    config.indexStatus = KELSTATUS_API_BAD_PARAMETER;
    CSimulatedDriver other(config);
    Answer(other, ECommandCreate, tablet);
    Answer(other, ECommandGet, {{EObjectIDDriver}, {EParameterIDIndex}},
           KELSTATUS_API_BAD_PARAMETER);

    // Destroy names the tablet by the system ID in its data.
    Answer(other, ECommandDestroy, tablet, KELSTATUS_OBJECT_NOT_FOUND, Bytes<std::uint16_t>(6));
    Answer(other, ECommandDestroy, tablet, KELSTATUS_SUCCESS, Bytes<std::uint16_t>(5));
    ASSERT_EQ(other.Tablets().size(), 1u);
    EXPECT_EQ(other.Tablets()[0].systemID, 7);
}

TEST(CSimulatedDriver, ReloadKeepsTheCoordinatorsIDsUnlessTheFileChangesThem)
{
    SSimDriverConfig config = TwoTabletConfig();
    CSimulatedDriver driver(config);
    SetSystemID(driver, 0, Bytes<std::uint16_t>(0));
    SetSystemID(driver, 1, Bytes<std::uint16_t>(1));
    Answer(driver, ECommandSet, {{EObjectIDDriver}, {EParameterIDTabletBlock}}, KELSTATUS_SUCCESS,
           {1, 2, 3, 4});

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
