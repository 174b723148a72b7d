// The coordinator between simulated drivers: the first synchronisation, tablet counts, the
// routing of requests, drivers of another wire form or byte order, a driver that starts
// late, and tablet IDs kept across a coordinator restart.
#include "Tests/EndToEnd/CoordinatorProcess.h"
#include "Tests/EndToEnd/EndToEndSupport.h"
#include "Tests/Support/SimulatedDriverProcess.h"

#include "Mac/TabletDriver/Source/Coordinator/CMacInputs.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace
{
using namespace end_to_end;

std::string Config(const std::string& name, const std::string& port, const std::string& version,
                   const std::string& body)
{
    return R"({"Name": ")" + name + R"(", "PortName": ")" + port + R"(", "Version": ")" + version +
           R"(")" + (body.empty() ? "" : ", " + body) + "}";
}

std::string Kelto(const std::string& body, const std::string& version = "6.3.0")
{
    return Config("Kelto", kKeltoPort, version, body);
}

std::string Pen(const std::string& body, const std::string& version = "5.3.0")
{
    return Config("Pen", kPenPort, version, body);
}

// How many trace lines of a driver's log contain `text`.
size_t Lines(const std::string& log, const std::string& text)
{
    size_t count = 0;
    for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1))
    {
        ++count;
    }
    return count;
}

class CoordinatorDriversTests : public ::testing::Test
{
protected:
    std::unique_ptr<SimulatedDriverProcess> Driver(const std::string& config)
    {
        auto driver = std::make_unique<SimulatedDriverProcess>(mPorts.Path(), config);
        EXPECT_TRUE(driver->WaitUntilServed()) << driver->Log();
        return driver;
    }

    std::unique_ptr<CoordinatorProcess> Coordinator(const std::string& name = "coordinator")
    {
        auto coordinator =
            std::make_unique<CoordinatorProcess>(mPorts.Path() + "/" + name + ".log");
        EXPECT_TRUE(coordinator->Start());
        EXPECT_TRUE(coordinator->WaitUntilServing(kAnswerSeconds)) << coordinator->Log();
        return coordinator;
    }

    // The coordinator's answer to a tablet count, by index or by ID; 0xFFFF when it failed.
    unsigned short TabletCount(EAddressingMode mode)
    {
        Client coordinator(CMacInputs::kPortName);
        CEventPacket count =
            Packet(ECommandGet, {{EObjectIDDriver}, {EParameterIDCount, EObjectIDTablet, mode}});
        if (coordinator.Send(count) != KELSTATUS_SUCCESS)
        {
            return 0xFFFF;
        }
        return count.UnPackData_<unsigned short>(0xFFFF);
    }

    // Sends a request for `parameter` of the tablet with that system ID through the
    // coordinator; the driver that answered, and the status.
    std::string AskTablet(unsigned int systemID, KELSTATUS* status = nullptr)
    {
        Client coordinator(CMacInputs::kPortName);
        CEventPacket get = Packet(
            ECommandGet,
            {{EObjectIDDriver}, {EObjectIDTablet, systemID, EAddrModeByID}, {EParameterIDName}});
        const KELSTATUS result = coordinator.Send(get);
        if (status != nullptr)
        {
            *status = result;
        }
        return result == KELSTATUS_SUCCESS ? AnsweringDriver(get) : std::string();
    }

    ScopedPortDirectory mPorts;
    std::vector<std::unique_ptr<SimulatedDriverProcess>> mDrivers;
    std::vector<std::unique_ptr<CoordinatorProcess>> mCoordinators;
};

TEST_F(CoordinatorDriversTests, FirstSyncNumbersTheTabletsAndTellsEveryDriver)
{
    // Kelto's tablet believes it is 0, which is right; Pen's believes 7 and must become 1.
    auto kelto = Driver(Kelto(R"("Tablets": [{"SystemID": 0}])"));
    auto pen = Driver(Pen(R"("Tablets": [{"SystemID": 7}])"));
    auto coordinator = Coordinator();

    const std::vector<STablet> expected = {{0, 0, 0}, {1, 0, 1}};
    EXPECT_EQ(WaitForTabletBlock(kKeltoPort, 2), expected) << coordinator->Log();
    EXPECT_EQ(WaitForTabletBlock(kPenPort, 2), expected) << coordinator->Log();

    // Only the driver that was wrong was corrected.
    EXPECT_EQ(DriverTabletID(kKeltoPort, 0), 0);
    EXPECT_EQ(DriverTabletID(kPenPort, 0), 1);
    EXPECT_EQ(Lines(kelto->Log(), "set system-id"), 0u) << kelto->Log();
    EXPECT_EQ(Lines(pen->Log(), "set system-id"), 1u) << pen->Log();

    EXPECT_EQ(TabletCount(EAddrModeByIndex), 2);
}

TEST_F(CoordinatorDriversTests, TabletCountsFollowADriverThatGainsATablet)
{
    auto kelto = Driver(Kelto(R"("Tablets": [{}])"));
    auto pen = Driver(Pen(R"("Tablets": [{"SystemID": 1}], "CountByID": 5)"));
    auto coordinator = Coordinator();
    ASSERT_EQ(WaitForTabletBlock(kPenPort, 2).size(), 2u);

    // Kelto finds a second tablet, which believes it is 9.
    ASSERT_TRUE(kelto->Reload(Kelto(R"("Tablets": [{}, {"SystemID": 9}])")));

    // By index: the table's count, after the sync that the drivers' new total calls for.
    EXPECT_EQ(TabletCount(EAddrModeByIndex), 3);
    const std::vector<STablet> expected = {{0, 0, 0}, {1, 0, 1}, {0, 1, 2}};
    EXPECT_EQ(TabletBlockAt(kKeltoPort), expected);
    EXPECT_EQ(TabletBlockAt(kPenPort), expected);
    EXPECT_EQ(DriverTabletID(kKeltoPort, 1), 2);

    // By ID: what the drivers say, summed (Kelto counts its two, Pen says 5).
    EXPECT_EQ(TabletCount(EAddrModeByID), 7);
}

TEST_F(CoordinatorDriversTests, RequestsFollowTheirTabletToItsDriver)
{
    auto kelto = Driver(Kelto(R"("Tablets": [{}])"));
    auto pen = Driver(Pen(R"("Tablets": [{"SystemID": 1}])"));
    auto coordinator = Coordinator();
    ASSERT_EQ(WaitForTabletBlock(kPenPort, 2).size(), 2u);

    EXPECT_EQ(AskTablet(0), "Kelto");
    EXPECT_EQ(AskTablet(1), "Pen");

    // A tablet nobody owns goes to every driver, and neither has it.
    KELSTATUS status = 0;
    AskTablet(9, &status);
    EXPECT_EQ(status, KELSTATUS_OBJECT_NOT_FOUND);

    // A request that names no tablet goes to every driver in turn; the last one's answer
    // stays in the packet.
    Client client(CMacInputs::kPortName);
    const size_t keltoBefore = Lines(kelto->Log(), "other");
    CEventPacket name = Packet(ECommandGet, {{EObjectIDDriver}, {EParameterIDName}});
    EXPECT_EQ(client.Send(name), KELSTATUS_SUCCESS);
    EXPECT_EQ(AnsweringDriver(name), "Pen");
    EXPECT_EQ(Lines(kelto->Log(), "other"), keltoBefore + 1) << kelto->Log();
}

TEST_F(CoordinatorDriversTests, CreateAndIndexGoToTheFirstDriverThatSucceeds)
{
    // What counts is what the driver's port reports. A transit record brings the driver's
    // own status back, so the legacy Kelto can refuse; a packet driver that answers at all
    // has taken the request, whatever status it wrote into the answer.
    auto kelto = Driver(Kelto(R"("CreateStatus": 1539)", "6.1.1"));
    auto pen = Driver(Pen(R"("Tablets": [{}])"));
    auto coordinator = Coordinator();
    ASSERT_EQ(WaitForTabletBlock(kPenPort, 1).size(), 1u);
    Client client(CMacInputs::kPortName);

    // Kelto, asked first, refuses the create; Pen takes it.
    CEventPacket create = Packet(ECommandCreate, {{EObjectIDDriver}, {EParameterIDGraphicsTablet}});
    EXPECT_EQ(client.Send(create), KELSTATUS_SUCCESS);
    EXPECT_EQ(AnsweringDriver(create), "Pen") << pen->Log();
    EXPECT_EQ(Lines(kelto->Log(), "create create -> status 0x0603"), 1u) << kelto->Log();

    // Kelto takes the index, so Pen is not asked.
    CEventPacket index = Packet(ECommandGet, {{EObjectIDDriver}, {EParameterIDIndex}});
    EXPECT_EQ(client.Send(index), KELSTATUS_SUCCESS);
    EXPECT_EQ(Lines(kelto->Log(), "get index -> status 0x0000"), 1u) << kelto->Log();
    EXPECT_EQ(Lines(pen->Log(), "index"), 0u) << pen->Log();

    // With Kelto refusing and Pen gone, nobody takes it: the answer is the last failure.
    ASSERT_TRUE(kelto->Reload(Kelto(R"("IndexStatus": 1539)", "6.1.1")));
    EXPECT_EQ(pen->Stop(), 0) << pen->Log();
    CEventPacket refused = Packet(ECommandGet, {{EObjectIDDriver}, {EParameterIDIndex}});
    EXPECT_EQ(client.Send(refused), KELSTATUS_FAILURE);
    EXPECT_EQ(Lines(kelto->Log(), "get index -> status 0x0603"), 1u) << kelto->Log();
}

TEST_F(CoordinatorDriversTests, LegacyDriverAndDriverOfTheOtherByteOrderSideBySide)
{
    // Kelto before 6.1.2 only takes transit records; Pen presents the other byte order.
    auto kelto = Driver(Kelto(R"("Tablets": [{}])", "6.1.1"));
    auto pen = Driver(Pen(R"("Tablets": [{"SystemID": 4}], "ByteOrder": "other")"));
    auto coordinator = Coordinator();

    // A transit record brings back no more data than it carried, so the legacy driver
    // cannot tell its tablets to the synchronisation: Pen's tablet is the only one, and
    // both drivers are told so, each in its own form.
    const std::vector<STablet> expected = {{1, 0, 0}};
    EXPECT_EQ(WaitForTabletBlock(kPenPort, 1), expected) << coordinator->Log();
    EXPECT_EQ(LegacyTabletBlockAt(kKeltoPort, 1), expected) << kelto->Log();
    EXPECT_EQ(DriverTabletID(kPenPort, 0), 0);
    EXPECT_EQ(AskTablet(0), "Pen");

    // Everything the coordinator sent the legacy driver came as transit records.
    const std::string keltoLog = kelto->Log();
    EXPECT_EQ(Lines(keltoLog, "'KEPK'"), 0u) << keltoLog;
    EXPECT_GT(Lines(keltoLog, "set tablet-block"), 0u) << keltoLog;
}

TEST_F(CoordinatorDriversTests, DriverAbsentAtStartUpIsReachedOnceItAppears)
{
    auto kelto = Driver(Kelto(R"("Tablets": [{}])"));
    auto coordinator = Coordinator();
    EXPECT_EQ(WaitForTabletBlock(kKeltoPort, 1), (std::vector<STablet>{{0, 0, 0}}));

    // Pen starts now; the next count finds the drivers' total changed and syncs.
    auto pen = Driver(Pen(R"("Tablets": [{"SystemID": 0}])"));
    EXPECT_EQ(TabletCount(EAddrModeByIndex), 2);
    const std::vector<STablet> expected = {{0, 0, 0}, {1, 0, 1}};
    EXPECT_EQ(TabletBlockAt(kPenPort), expected);
    EXPECT_EQ(DriverTabletID(kPenPort, 0), 1);
    EXPECT_EQ(AskTablet(1), "Pen");
}

TEST_F(CoordinatorDriversTests, TabletIDsOutliveTheCoordinator)
{
    // Pen's tablet is seen first and gets 0; Kelto's comes later and gets 1.
    auto pen = Driver(Pen(R"("Tablets": [{}])"));
    auto first = Coordinator("first");
    ASSERT_EQ(WaitForTabletBlock(kPenPort, 1).size(), 1u);
    auto kelto = Driver(Kelto(R"("Tablets": [{"SystemID": 0}])"));
    ASSERT_EQ(TabletCount(EAddrModeByIndex), 2);
    const std::vector<STablet> numbering = {{1, 0, 0}, {0, 0, 1}};
    ASSERT_EQ(TabletBlockAt(kKeltoPort), numbering);
    EXPECT_EQ(first->Stop(), 0) << first->Log();

    // A new coordinator reads the block back from the drivers and keeps that numbering,
    // although walking the drivers afresh would number Kelto's tablet first.
    auto second = Coordinator("second");
    EXPECT_TRUE(second->WaitForLog("calling AddTablet", kAnswerSeconds)) << second->Log();
    EXPECT_EQ(TabletCount(EAddrModeByIndex), 2);
    EXPECT_EQ(AskTablet(1), "Kelto");
    EXPECT_EQ(AskTablet(0), "Pen");
    EXPECT_EQ(TabletBlockAt(kKeltoPort), numbering);
    EXPECT_EQ(DriverTabletID(kKeltoPort, 0), 1);
}
} // namespace
