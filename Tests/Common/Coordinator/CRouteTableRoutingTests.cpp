#include "Common/Coordinator/CRouteTable.h"

#include "Common/Settings/CSettingsInteger.h"
#include "RouteTableTestSupport.h"

#include <gtest/gtest.h>

using namespace route_test;

namespace
{
constexpr auto kVersionQuery = static_cast<EEventIdentifier>(508);
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

TEST(CRouteTableRouting, LocalRowsAnswerOrDeclineAndTouchNoDriver)
{
    TwoDrivers fixture;
    struct Row
    {
        std::vector<SKey> keys;
        ECommand command;
        KELSTATUS expected;
    };
    const std::vector<Row> rows = {
        {{{EObjectIDMultiTouchAPI}, {EParameterIDName}}, ECommandGet, 0x0603},
        {{{EObjectIDMultiTouchAPI}}, ECommandGet, 0x0603},
        {{{EObjectIDRoutingTable}, {EParameterIDTabletBlock}}, ECommandGet, 0xFFFF},
        {{{EObjectIDRoutingTable}, {EParameterIDTabletBlock}}, ECommandDestroy, 0xFFFF},
        {{{EObjectIDRoutingTable}, {EParameterIDCount}}, ECommandFlush, 0x0603},
        {{{EObjectIDDriver}, {EParameterIDName}}, ECommandGet, 0xFFFF},
        {{{EObjectIDTablet}, {EParameterIDLastTabletUsed}}, ECommandGet, 0xFFFF},
        {{}, ECommandGet, 0xFFFF},
    };
    for (const Row& row : rows)
    {
        CEventPacket packet;
        Fill(packet, row.command, row.keys);
        EXPECT_EQ(fixture.table.ProcessLocally(&packet), row.expected) << row.keys.size();
    }
    EXPECT_TRUE(fixture.driver0->mSent.empty() && fixture.driver1->mSent.empty());

    // A flush of the tablet block syncs and leaves the request's own data alone.
    ScriptedDriver driver;
    driver.mTabletIDs = {0};
    CRouteTable table;
    table.SetDriver(0, driver.mPort);
    CEventPacket flush;
    Fill(flush, ECommandFlush, {{EObjectIDRoutingTable}, {EParameterIDTabletBlock}});
    flush.PackData_<std::uint32_t>(0xCAFE);
    EXPECT_EQ(Process(table, flush), KELSTATUS_SUCCESS);
    EXPECT_EQ(driver.mTabletBlock.size(), 32u);
    EXPECT_EQ(flush.UnPackData_<std::uint32_t>(0), 0xCAFEu);
    for (const SSentPacket& sent : driver.Sent())
    {
        EXPECT_NE(sent.mCommand, ECommandFlush);
    }
}

TEST(CRouteTableRouting, VersionQueryOfTheMultiTouchAPI)
{
    CRouteTable table;
    // The asked version is read as unsigned 32-bit: -1 is large, 2^32 + 1 is 1.
    for (auto [asked, answer] : std::vector<std::pair<long long, long long>>{
             {0, 3}, {1, 3}, {2, 0}, {4, 0}, {5, 2}, {-1, 2}, {0x100000001LL, 3}, {-99, 3}})
    {
        CEventPacket packet;
        Fill(packet, ECommandGet, {{EObjectIDMultiTouchAPI}, {kVersionQuery}});
        if (asked != -99) // no integer in the request: read as 0
        {
            packet.PackData_<std::shared_ptr<CSettingsObject>>(CSettingsInteger::New(asked));
        }
        EXPECT_EQ(Process(table, packet), KELSTATUS_SUCCESS);
        auto reply = packet.UnPackData_<std::shared_ptr<CSettingsInteger>>(nullptr);
        ASSERT_NE(reply, nullptr);
        EXPECT_EQ(reply->GetValue(), answer) << asked;
    }
}

TEST(CRouteTableRouting, TouchClientRegistration)
{
    TwoDrivers fixture;
    CRouteTable& table = fixture.table;
    table.SetTouchClientPortFactory([](const std::string&) { return Port(); });
    auto registration = [](long long type, const char* name)
    {
        std::shared_ptr<CSettingsMap> map = CSettingsMap::New();
        map->SetKeyAndInteger("MultiTouchAPIClientRegistrationType", type);
        map->SetKeyAndString("MultiTouchAPIClientIdentifier", name);
        return map;
    };
    // The status, the assertion lines and the number of clients after a request.
    auto request = [&](ECommand command, std::shared_ptr<CSettingsMap> map)
    {
        CEventPacket packet;
        Fill(packet, command, {{EObjectIDMultiTouchAPI}, {EParameterIDMultiTouchAPIClient}});
        if (map)
        {
            packet.PackData_<std::shared_ptr<CSettingsObject>>(map);
        }
        KELSTATUS status = 0;
        Output output = Capture([&] { status = table.ProcessEvent(&packet); });
        return std::make_pair(status, output.out + std::to_string(table.TouchAPIClients().size()));
    };
    using Result = std::pair<KELSTATUS, std::string>;
    EXPECT_EQ(request(ECommandCreate, nullptr), Result(0x0600, "0"));
    EXPECT_EQ(request(ECommandCreate, registration(1, "client")), Result(0, "1"));
    EXPECT_EQ(table.TouchAPIClients().count("client"), 1u);
    EXPECT_EQ(request(ECommandGet, registration(1, "other")), Result(0, "1"));
    EXPECT_EQ(request(ECommandDestroy, registration(1, "client")), Result(0, "0"));
    // An empty identifier is reported and then used as a name like any other.
    const std::string empty = Report(281, "!clientName.empty()");
    EXPECT_EQ(request(ECommandCreate, registration(1, "")), Result(0, empty + "1"));
    EXPECT_EQ(request(ECommandDestroy, registration(1, "")), Result(0, empty + "0"));
    for (long long type : {0LL, 5LL, -1LL})
    {
        EXPECT_EQ(request(ECommandCreate, registration(type, "x")), Result(0x0900, "0"));
    }
    EXPECT_TRUE(fixture.driver0->mSent.empty());
    // Types 2 to 4 belong to the drivers: the same settings go to all of them, whose
    // failure does not matter.
    fixture.driver1->mAnswer = [](CEventPacket&) { return KELSTATUS_FAILURE; };
    for (long long type : {2LL, 3LL, 4LL})
    {
        EXPECT_EQ(request(ECommandSubscribe, registration(type, "y")), Result(0, "0"));
    }
    EXPECT_EQ(fixture.driver1->mSent.size(), 3u);
    ASSERT_EQ(fixture.driver0->mSent.size(), 3u);
    EXPECT_EQ(
        TraceOf({fixture.driver0->mSent[2]}),
        (Trace{{ECommandSubscribe,
                {EObjectIDDriver, EObjectIDMultiTouchAPI, EParameterIDMultiTouchAPIClient}}}));
    EXPECT_EQ(fixture.driver0->mSent[2].mData, registration(4, "y")->GetASN1Binary());
}

TEST(CRouteTableRouting, LastTabletUsedAsksDriversInTurnUntilOneKnows)
{
    CRouteTable table;
    auto failing = PortAnswering(KELSTATUS_OBJECT_NOT_FOUND);
    auto none = PortReplying(0xFFFF);
    auto knows = PortReplying(7);
    auto notAsked = PortReplying(8);
    table.SetDriver(0, failing);
    table.SetDriver(1, none);
    table.SetDriver(2, knows);
    table.SetDriver(3, notAsked);
    CEventPacket packet;
    Fill(packet, ECommandGet, {{EObjectIDDriver}, {EParameterIDLastTabletUsed}});
    EXPECT_EQ(Process(table, packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(packet.UnPackData_<std::uint16_t>(0), 7);
    EXPECT_EQ(failing->mSent.size() + none->mSent.size() + knows->mSent.size(), 3u);
    EXPECT_TRUE(notAsked->mSent.empty());

    // Nobody knows: still success, with the last answer in the packet.
    table.SetDriver(2, nullptr);
    EXPECT_EQ(Process(table, packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(packet.UnPackData_<std::uint16_t>(0), 0xFFFF);
}

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

TEST(CRouteTableRouting, CurrentKeyIsWhereItWasAfterEveryRoute)
{
    TwoDrivers fixture;
    fixture.driver0->mAnswer = [](CEventPacket&) { return KELSTATUS_FAILURE; };
    // Each chain is positioned on its second key; the drivers must see it there too, the
    // second driver of a walk included, although the first one's port moved it.
    for (EEventIdentifier last : {EObjectIDTablet, EParameterIDIndex, EParameterIDName,
                                  EParameterIDLastTabletUsed, EParameterIDCount})
    {
        CEventPacket packet;
        const std::uint32_t reference = last == EParameterIDCount ? EObjectIDTablet : 1;
        Fill(packet, ECommandGet, {{EObjectIDUser}, {EObjectIDDriver}, {last, reference}});
        packet.AdvanceCurrentKey();
        fixture.driver0->mSent.clear();
        fixture.driver1->mSent.clear();
        Process(fixture.table, packet);
        EXPECT_EQ(packet.CurrentKey(), packet.ObjectKey(1)) << last;
        size_t seen = 0;
        for (const auto& port : {fixture.driver0, fixture.driver1})
        {
            for (const SSentPacket& sent : port->mSent)
            {
                if (sent.mKeys[0].mID == EObjectIDUser) // not the packets of a sync
                {
                    EXPECT_EQ(sent.mCurrentKey, 1u) << last;
                    ++seen;
                }
            }
        }
        EXPECT_EQ(seen, last == EParameterIDCount ? 0u : last == EObjectIDTablet ? 1u : 2u);
    }
}
