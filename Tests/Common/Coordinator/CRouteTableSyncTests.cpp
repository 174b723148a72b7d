#include "Common/Coordinator/CRouteTable.h"

#include "Common/Coordinator/CTabletBlock.h"
#include "Common/Settings/CSettingsArray.h"
#include "Mac/Common/CKelSemaphore.h"
#include "RouteTableTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <map>
#include <thread>

using namespace route_test;

namespace
{
std::vector<unsigned char> Words(const std::vector<std::uint32_t>& words)
{
    std::vector<unsigned char> bytes(words.size() * 4);
    std::memcpy(bytes.data(), words.data(), bytes.size());
    return bytes;
}

const Ids kTabletID = {EObjectIDDriver, EObjectIDTablet, EParameterIDTabletSystemID};
const Ids kBlock = {EObjectIDDriver, EParameterIDTabletBlock};
} // namespace

TEST(CRouteTableSync, TwoDriversWithOneTabletEachGetIDsCorrectionsAndTheBlock)
{
    CRouteTable table;
    ScriptedDriver zero, one;
    zero.mTabletIDs = {5}; // a number from an earlier coordinator: corrected to 0
    one.mTabletIDs = {1};  // already right
    table.SetDriver(0, zero.mPort);
    table.SetDriver(1, one.mPort);
    KELSTATUS status = 0xFFFF;
    Output output = Capture([&] { status = table.Sync(); });
    EXPECT_EQ(status, KELSTATUS_SUCCESS);
    EXPECT_EQ(output.err.rfind("CRouteTable::Sync\n", 0), 0u);
    EXPECT_TRUE(Contains(output.err, "****************   IN ReadTabletsFromDrivers:  Get Tablet "
                                     "Block failed\n"));
    EXPECT_EQ(table.Tablets(), (std::vector<STabletRec>{{0, 0, 0, 0}, {1, 0, 1, 0}}));

    // Driver 0: the size of the block (it answers, so driver 1 is not asked), its tablet's
    // ID, the correction, the capabilities, the index that ends its list, the block.
    // Driver 1 needs no correction; both get the same 48-byte block.
    const Ids caps = {EObjectIDDriver, EObjectIDTablet, EParameterIDTabletMultiTouchCapabilities};
    EXPECT_EQ(TraceOf(zero.Sent()), (Trace{{ECommandGet, {EObjectIDDriver, EParameterIDSize}},
                                           {ECommandGet, kTabletID},
                                           {ECommandSet, kTabletID},
                                           {ECommandGet, caps},
                                           {ECommandGet, kTabletID},
                                           {ECommandSet, kBlock}}));
    EXPECT_EQ(TraceOf(one.Sent()), (Trace{{ECommandGet, kTabletID},
                                          {ECommandGet, caps},
                                          {ECommandGet, kTabletID},
                                          {ECommandSet, kBlock}}));
    EXPECT_EQ(zero.Sent()[0].mKeys[1].mRef, static_cast<std::uint32_t>(EParameterIDTabletBlock));
    EXPECT_EQ(zero.Sent()[5].mKeys[1], (SKey{EParameterIDTabletBlock, 0, EAddrModeByIndex}));
    EXPECT_EQ(zero.Sent()[2].mData, (std::vector<unsigned char>{0, 0}));
    EXPECT_EQ(zero.Sent()[4].mKeys[1], (SKey{EObjectIDTablet, 1, EAddrModeByLocalIndex}));
    EXPECT_EQ(zero.mTabletIDs[0], 0);
    EXPECT_EQ(one.mTabletBlock, zero.mTabletBlock);
    EXPECT_EQ(zero.mTabletBlock, Words({16, 16, 0x00010001, 2, 0, 0, 0, 0, 1, 0, 1, 0}));

    // The capabilities are kept under the IDs the drivers reported (5, not 0), and answered
    // in ascending ID, shared.
    ASSERT_EQ(table.TouchCapabilities().size(), 2u);
    for (int systemID : {1, 5})
    {
        auto map = table.TouchCapabilities().at(systemID);
        EXPECT_EQ(map->IntegerForKeyWithDefault("MultiTouchDeviceID", -1), systemID);
        EXPECT_EQ(map->IntegerForKeyWithDefault("MaxFingers", -1), 10);
    }
    CEventPacket request;
    Fill(request, ECommandGet,
         {{EObjectIDMultiTouchAPI}, {EParameterIDTabletMultiTouchCapabilities}});
    EXPECT_EQ(table.ProcessEvent(&request), KELSTATUS_SUCCESS);
    auto answered = request.UnPackData_<std::shared_ptr<CSettingsArray>>(nullptr);
    ASSERT_NE(answered, nullptr);
    EXPECT_EQ(answered->ObjectCount(), 2u);
    EXPECT_EQ(table.BuildTouchCapabilitiesArray()->ObjectForIndex(0),
              table.TouchCapabilities().at(1));
}

TEST(CRouteTableSync, IDsInTheDriversBlockSurviveANewCoordinator)
{
    ScriptedDriver zero, one;
    zero.mTabletIDs = {1};
    one.mTabletIDs = {0};
    // An earlier coordinator's block, with a tablet of driver 0 that is gone but owns 2.
    zero.mTabletBlock = CTabletBlock::Build({{1, 0, 0, 0}, {0, 0, 1, 0}, {0, 5, 2, 0}});
    CRouteTable table;
    table.SetDriver(0, zero.mPort);
    table.SetDriver(1, one.mPort);
    Output output = Capture([&] { table.Sync(); });
    EXPECT_TRUE(Contains(output.err, "**********   IN ReatTabletsFromDrivers: calling AddTablet.  "
                                     "DriverID:0  tabletIdx:5  systemId:2\n"));
    EXPECT_EQ(zero.Sent()[1].mKeys,
              (std::vector<SKey>{{EObjectIDDriver}, {EParameterIDTabletBlock}}));
    EXPECT_EQ(table.TabletCount(), 3u);
    EXPECT_EQ(table.FindTablet(0, 0), 1u);
    EXPECT_EQ(table.FindTablet(1, 0), 0u);
    EXPECT_EQ(CTabletBlock::Build(table.Tablets()), one.mTabletBlock);
    // A new tablet gets the next ID after the last one handed out.
    zero.mTabletIDs = {1, 0};
    Capture([&] { table.Sync(); });
    EXPECT_EQ(table.FindTablet(0, 1), 3u);
    EXPECT_EQ(zero.mTabletIDs[1], 3);
}

TEST(CRouteTableSync, BadTabletBlocksAddNothingAndTheSyncCarriesOn)
{
    const auto good = CTabletBlock::Build({{1, 0, 7, 0}});
    struct Case
    {
        std::vector<unsigned char> block;
        std::uint32_t reportedSize; // 0: the block's own size
        KELSTATUS expected;
    };
    const std::vector<Case> cases = {
        {Words({16, 16, 0x00010002, 1, 1, 0, 7, 0}), 0, 0x0600}, // version
        {Words({20, 16, 0x00010001, 1, 1, 0, 7, 0}), 0, 0x0600}, // header size
        {Words({16, 12, 0x00010001, 1, 1, 0, 7, 0}), 0, 0x0600}, // record size
        {Words({16, 16, 0x00010001, 0}), 0, 0x0600},             // no records
        {Words({16, 16, 0x00010001, 2, 1, 0, 7, 0}), 0, 0x0600}, // more than the bytes
        {Words({16, 16, 0x00010001, 0xFFFFFFFF, 1, 0, 7, 0}), 0, 0x0600},
        {std::vector<unsigned char>(good.begin(), good.begin() + 10), 0, 0x0600},
        {good, 64, 0}, // a size that does not match: reported, the block is read
        {{}, 0, 0x0606},
    };
    for (size_t i = 0; i < cases.size(); ++i)
    {
        ScriptedDriver driver;
        driver.mTabletBlock = cases[i].block;
        driver.mReportedBlockSize = cases[i].reportedSize;
        CRouteTable table;
        table.SetDriver(0, driver.mPort);
        KELSTATUS status = 0xFFFF;
        Output output = Capture([&] { status = table.ReadTabletsFromDrivers(); });
        EXPECT_EQ(status, cases[i].expected) << "case " << i;
        EXPECT_EQ(output.out, cases[i].reportedSize ? Report(777, "dataSize == buffer.size()") : "")
            << "case " << i;
        EXPECT_EQ(Contains(output.err, "Get Tablet Block failed\n"), status == 0x0606);
        // The sync goes on and numbers the driver's tablet: after the record read back
        // (ID 7) the next is 8, with nothing read it is 0.
        driver.mTabletIDs = {3};
        Capture([&] { EXPECT_EQ(table.Sync(), KELSTATUS_SUCCESS); });
        EXPECT_EQ(table.FindTablet(0, 0), status == 0 ? 8u : 0u) << "case " << i;
    }

    // The size is answered but the block is not: lenient, nothing read. No driver takes
    // the size request: not found.
    auto sizeOnly = Port(
        [](CEventPacket& packet)
        {
            packet.PackData_<std::uint32_t>(32);
            return packet.ObjectKey(1)->Identifier() == EParameterIDSize ? KELSTATUS_SUCCESS
                                                                         : KELSTATUS_FAILURE;
        });
    CRouteTable table;
    table.SetDriver(0, sizeOnly);
    EXPECT_EQ(table.ReadTabletsFromDrivers(), KELSTATUS_SUCCESS);
    EXPECT_EQ(table.TabletCount(), 0u);
    Capture([&] { table.SetDriver(0, PortAnswering(0x0201)); });
    EXPECT_EQ(table.ReadTabletsFromDrivers(), KELSTATUS_OBJECT_NOT_FOUND);
}

TEST(CRouteTableSync, TouchClientsThatCannotTakeTheCapabilitiesAreDropped)
{
    CRouteTable table;
    ScriptedDriver driver;
    driver.mTabletIDs = {0, 1};
    table.SetDriver(0, driver.mPort);
    std::map<std::string, std::shared_ptr<ScriptedPort>> ports = {
        {"a.replies", PortReplying(7)}, // the clients after it see its answer
        {"b.refuses", PortAnswering(KELSTATUS_FAILURE)},
        {"c.takes", Port()},
    };
    table.SetTouchClientPortFactory(
        [&](const std::string& name) -> std::shared_ptr<CDriverMessageSendPort>
        { return ports.count(name) ? ports[name] : nullptr; });
    Output output = Capture(
        [&]
        {
            for (const char* name : {"a.replies", "b.refuses", "c.takes", "d.unreachable"})
            {
                table.AddTouchAPIClient(name);
            }
        });
    EXPECT_EQ(output.out, Report(821, "mTouchAPIClients[clientName_I]"));
    EXPECT_EQ(table.TouchAPIClients().size(), 4u);

    output = Capture([&] { table.Sync(); });
    EXPECT_EQ(output.out, Report(726, "\"Driver message send port missing\""));
    std::vector<std::string> names;
    for (const auto& [name, port] : table.TouchAPIClients())
    {
        names.push_back(name);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"a.replies", "c.takes"}));
    for (const auto& [name, port] : ports)
    {
        ASSERT_EQ(port->mSent.size(), 1u) << name;
        EXPECT_EQ(port->mSent[0].mCommand, ECommandSet);
        EXPECT_EQ(port->mSent[0].KeyIDs(),
                  (Ids{EObjectIDMultiTouchAPI, EParameterIDTabletMultiTouchCapabilities}));
    }
    // The first client gets the capabilities; one packet goes round the clients in name
    // order, so the next ones see it as the first answered it.
    auto array = CSettingsArray::CastToArray(
        CSettingsObject::ReadFromASN1Binary(ports["a.replies"]->mSent[0].mData), true);
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(array->ObjectCount(), 2u);
    const std::uint16_t answer = 7;
    const auto* answerBytes = reinterpret_cast<const unsigned char*>(&answer);
    EXPECT_EQ(ports["b.refuses"]->mSent[0].mData,
              (std::vector<unsigned char>(answerBytes, answerBytes + sizeof(answer))));
    EXPECT_EQ(ports["c.takes"]->mSent[0].mData, ports["b.refuses"]->mSent[0].mData);
    table.RemoveTouchAPIClient("a.replies");
    table.RemoveTouchAPIClient("nobody");
    EXPECT_EQ(table.TouchAPIClients().size(), 1u);
}

TEST(CRouteTableSync, SyncHoldsTheRecursiveSemaphoreAndANewerSyncSupersedesIt)
{
    CRouteTable table;
    ScriptedDriver driver;
    driver.mTabletIDs = {0, 1};
    table.SetDriver(0, driver.mPort);
    std::atomic<bool> otherHolds = false;
    bool sawOtherHold = true;
    size_t sentByBoth = 0;
    std::thread other;
    auto scripted = driver.mPort->mAnswer;
    const Ids caps = {EObjectIDDriver, EObjectIDTablet, EParameterIDTabletMultiTouchCapabilities};
    driver.mPort->mAnswer = [&](CEventPacket& packet)
    {
        if (!other.joinable())
        {
            // At the first request of the sync another thread starts to wait...
            other = std::thread(
                [&]
                {
                    table.Semaphore()->RequestSemaphore();
                    otherHolds = true;
                    table.Semaphore()->ReleaseSemaphore();
                });
        }
        else if (sentByBoth == 0 && Snapshot(packet).KeyIDs() == caps)
        {
            // ...and at the first tablet's capabilities it still waits. A request served
            // meanwhile syncs again on the same thread, a whole sync of its own; the first
            // one then stops without another request.
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            sawOtherHold = otherHolds;
            sentByBoth = 1;
            CEventPacket flush;
            Fill(flush, ECommandFlush, {{EObjectIDRoutingTable}, {EParameterIDTabletBlock}});
            EXPECT_EQ(table.ProcessEvent(&flush), KELSTATUS_SUCCESS);
            sentByBoth = driver.Sent().size();
        }
        return scripted(packet);
    };
    Capture([&] { EXPECT_EQ(table.Sync(), KELSTATUS_SUCCESS); });
    ASSERT_TRUE(other.joinable());
    other.join();
    EXPECT_FALSE(sawOtherHold);
    EXPECT_TRUE(otherHolds);
    EXPECT_EQ(driver.Sent().size(), sentByBoth);
    EXPECT_EQ(driver.Sent().back().mCommand, ECommandSet);
    EXPECT_EQ(table.TouchCapabilities().size(), 2u);
}
