#include "Common/Coordinator/CRouteTable.h"

#include "Common/Settings/CSettingsInteger.h"
#include "RouteTableTestSupport.h"

#include <gtest/gtest.h>

using namespace route_test;

namespace
{
constexpr int kAll = CRouteTable::kRouteToAllDrivers;
constexpr int kOne = CRouteTable::kRouteToDriver;
constexpr int kInTurn = CRouteTable::kRouteToSuccessfulDriver;

// Drivers 0 and 1; system ID 0 belongs to driver 1 and system ID 1 to driver 0.
struct TwoDrivers
{
    CRouteTable table;
    std::shared_ptr<ScriptedPort> driver0 = Port();
    std::shared_ptr<ScriptedPort> driver1 = Port();
    TwoDrivers()
    {
        table.SetDriver(1, driver1);
        table.SetDriver(0, driver0);
        Capture(
            [&]
            {
                table.AddNewTablet(1, 0);
                table.AddNewTablet(0, 0);
            });
    }
};

KELSTATUS Process(CRouteTable& table, CEventPacket& packet)
{
    KELSTATUS status = 0;
    Capture([&] { status = table.ProcessEvent(&packet); });
    return status;
}
} // namespace

TEST(CRouteTableRouting, IdentifierRulesOfTheRoutingWalk)
{
    TwoDrivers fixture;
    const auto driver0 = fixture.driver0, driver1 = fixture.driver1;
    const std::string context =
        Report(424, "event_I->CurrentKey()->Identifier() == EObjectIDTablet");
    struct Case
    {
        std::vector<SKey> keys;
        int decision;
        std::shared_ptr<ScriptedPort> driver = nullptr;
        ECommand command = ECommandGet;
        std::string out = "";
    };
    const std::vector<Case> cases = {
        {{}, kAll},
        {{{EObjectIDDriver}}, kAll},
        {{{EObjectIDDriver}, {EParameterIDNothing}, {EObjectIDTablet, 1}}, kAll},
        {{{EObjectIDDriver}, {EObjectIDTablet, 1, EAddrModeByID}}, kOne, driver0},
        {{{EObjectIDTablet, 1, EAddrModeAllSubordinate}}, kAll},
        {{{EObjectIDTablet, 9}, {EParameterIDName}}, kAll},
        {{{EObjectIDTablet, 9}, {EObjectIDTablet, 0}}, kOne, driver1},
        {{{EObjectIDContext, 0}}, kOne, driver1, ECommandGet, context},
        {{{EObjectIDContextManager, 1}}, kOne, driver0, ECommandGet, context},
        {{{EObjectIDContextTemplate, 1, EAddrModeAllSubordinate}},
         kAll,
         nullptr,
         ECommandSet,
         context},
        {{{EObjectIDDriver}, {EParameterIDIndex}, {EObjectIDTablet, 0}}, kInTurn},
        {{{EParameterIDGraphicsTablet}, {EObjectIDTablet, 0}}, kInTurn, nullptr, ECommandCreate},
        {{{EParameterIDGraphicsTablet}, {EObjectIDTablet, 1}}, kOne, driver0},
        {{{EParameterIDGraphicsTablet}}, kAll, nullptr, ECommandDestroy}, // no data to read
        {{{EObjectIDDriver}, {EParameterIDCount, 4}}, kAll},
        {{{EObjectIDDriver}, {EParameterIDCount, EObjectIDTablet}}, CRouteTable::kRouteAnswered},
    };
    for (size_t i = 0; i < cases.size(); ++i)
    {
        CEventPacket packet;
        Fill(packet, cases[i].command, cases[i].keys);
        std::shared_ptr<CDriverMessageSendPort> driver = Port(); // must be reset
        int decision = -1;
        Output output = Capture([&] { decision = fixture.table.ProcessRouting(&packet, driver); });
        EXPECT_EQ(decision, cases[i].decision) << "case " << i;
        EXPECT_EQ(driver, cases[i].driver) << "case " << i;
        EXPECT_EQ(output.out, cases[i].out) << "case " << i;
        EXPECT_EQ(packet.CurrentKey(), packet.ObjectKey(0)) << "case " << i;
    }

    // Destroying a graphics tablet goes to the owner of the system ID in the data.
    for (auto [systemID, owner] :
         std::vector<std::pair<std::uint16_t, std::shared_ptr<ScriptedPort>>>{
             {0, driver1}, {1, driver0}, {9, nullptr}})
    {
        CEventPacket packet;
        Fill(packet, ECommandDestroy, {{EParameterIDGraphicsTablet}});
        packet.PackData_<std::uint16_t>(systemID);
        std::shared_ptr<CDriverMessageSendPort> driver;
        EXPECT_EQ(fixture.table.ProcessRouting(&packet, driver), owner ? kOne : kAll);
        EXPECT_EQ(driver, owner);
    }
}

TEST(CRouteTableRouting, TabletCountIsAnsweredAfterASyncWhenTheDriversTotalDiffers)
{
    CRouteTable table;
    ScriptedDriver zero, one;
    zero.mTabletIDs = {0};
    one.mTabletIDs = {1, 2};
    table.SetDriver(0, zero.mPort);
    table.SetDriver(1, one.mPort);
    auto count = [&](EAddressingMode mode)
    {
        CEventPacket packet;
        Fill(packet, ECommandGet, {{EObjectIDDriver}, {EParameterIDCount, EObjectIDTablet, mode}});
        EXPECT_EQ(Process(table, packet), KELSTATUS_SUCCESS);
        return packet.UnPackData_<std::uint16_t>(0xDEAD);
    };
    // 3 against an empty table: a sync first, then the table's own count.
    EXPECT_EQ(count(EAddrModeByIndex), 3);
    EXPECT_EQ(table.TabletCount(), 3u);
    EXPECT_EQ(zero.Sent()[0].mKeys[1], (SKey{EParameterIDCount, EObjectIDTablet}));
    // Equal totals: no sync; by ID the drivers' total is the answer, however they count.
    one.mTabletIDs.push_back(0xFFFF);
    zero.mTabletIDs.clear();
    const size_t sent = zero.Sent().size();
    EXPECT_EQ(count(EAddrModeByID), 3);
    EXPECT_EQ(zero.Sent().size(), sent + 2);
    EXPECT_EQ(zero.Sent().back().mKeys[1],
              (SKey{EParameterIDCount, EObjectIDTablet, EAddrModeByID}));
    // 4 against 3: the sync adds the new tablet.
    zero.mTabletIDs = {0, 3};
    one.mTabletIDs.pop_back();
    EXPECT_EQ(count(EAddrModeByIndex), 4);

    // Totals wrap in 16 bits; a failing or missing driver counts 0.
    CRouteTable wrapping;
    auto big = PortReplying(0xFFFF);
    wrapping.SetDriver(0, big);
    wrapping.SetDriver(1, PortReplying(2));
    wrapping.SetDriver(2, PortAnswering(KELSTATUS_FAILURE));
    EXPECT_EQ(wrapping.TabletCountFromDrivers(true), 1);
    unsigned short alone = 9;
    EXPECT_EQ(Capture([&] { alone = wrapping.TabletCountFromDriver(nullptr, true); }).out,
              Report(1004, "pDrvIF_I"));
    EXPECT_EQ(alone, 0);
}

TEST(CRouteTableRouting, SendingInTurnOrToAllCombinesTheDriversAnswers)
{
    CRouteTable table;
    CEventPacket packet;
    EXPECT_EQ(table.SendToSuccessfulDriver(&packet), KELSTATUS_OBJECT_NOT_FOUND);
    EXPECT_EQ(table.SendToAllDrivers(&packet), KELSTATUS_OBJECT_NOT_FOUND);
    auto zero = PortAnswering(0x1234);
    auto one = PortReplying(0xABAB);
    auto two = PortAnswering(0x0201);
    table.SetDriver(2, two);
    table.SetDriver(1, one);
    table.SetDriver(0, zero);
    EXPECT_EQ(table.SendToSuccessfulDriver(&packet), KELSTATUS_SUCCESS);
    EXPECT_TRUE(two->mSent.empty());
    // Every driver, each seeing what the one before left in the packet.
    EXPECT_EQ(table.SendToAllDrivers(&packet), KELSTATUS_SUCCESS);
    ASSERT_EQ(two->mSent.size(), 1u);
    EXPECT_EQ(two->mSent[0].mData, (std::vector<unsigned char>{0xAB, 0xAB}));
    // All failing gives "not found", never the last driver's own status.
    Capture([&] { table.SetDriver(1, PortAnswering(KELSTATUS_FAILURE)); });
    EXPECT_EQ(table.SendToSuccessfulDriver(&packet), KELSTATUS_OBJECT_NOT_FOUND);
    EXPECT_EQ(table.SendToAllDrivers(&packet), KELSTATUS_OBJECT_NOT_FOUND);
    EXPECT_EQ(zero->mSent.size(), 4u);
    EXPECT_EQ(two->mSent.size(), 3u);

    KELSTATUS status = 0;
    EXPECT_EQ(Capture([&] { status = table.SendToDriver(nullptr, &packet); }).out,
              Report(495, "drvIF_I"));
    EXPECT_EQ(status, KELSTATUS_INTERNAL_UNEXPECTED);
    EXPECT_EQ(Capture([&] { status = table.SendToDriver(zero, nullptr); }).out,
              Report(496, "event_I"));
    EXPECT_EQ(status, KELSTATUS_INTERNAL_UNEXPECTED);
    EXPECT_EQ(zero->mSent.size(), 4u);
    EXPECT_EQ(Capture([&] { table.DriverFromEventData(nullptr); }).out, Report(867, "event_I"));
}
