// The coordinator between simulated drivers: the first synchronisation, drivers of another
// wire form or byte order, and a driver that starts late. (The rules of routing and
// numbering are the route table's tests; the client's end-to-end tests route by tablet.)
#include "Tests/EndToEnd/EndToEndSupport.h"
#include "Tests/Support/CoordinatorProcess.h"
#include "Tests/Support/SimulatedDriverProcess.h"

#include "Mac/TabletDriver/Source/Coordinator/CMacInputs.h"

#include <gtest/gtest.h>

#include <thread>

#include <chrono>

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

    std::unique_ptr<CoordinatorProcess> Coordinator()
    {
        auto coordinator = std::make_unique<CoordinatorProcess>(mPorts.Path() + "/coordinator.log");
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

    // Sends a request about the tablet with that system ID through the coordinator; the
    // driver that answered.
    std::string AskTablet(unsigned int systemID)
    {
        Client coordinator(CMacInputs::kPortName);
        CEventPacket get = Packet(
            ECommandGet,
            {{EObjectIDDriver}, {EObjectIDTablet, systemID, EAddrModeByID}, {EParameterIDName}});
        return coordinator.Send(get) == KELSTATUS_SUCCESS ? AnsweringDriver(get) : std::string();
    }

    ScopedPortDirectory mPorts;
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

// Hot-plugging: a driver that starts a second after the coordinator is synchronised, and
// its tablet numbered, with no request from anybody.
TEST_F(CoordinatorDriversTests, DriverStartedLaterIsInTheTableWithNoCommand)
{
    auto kelto = Driver(Kelto(R"("Tablets": [{}])"));
    auto coordinator = Coordinator();
    EXPECT_EQ(WaitForTabletBlock(kKeltoPort, 1), (std::vector<STablet>{{0, 0, 0}}));
    std::this_thread::sleep_for(std::chrono::seconds(1));

    const auto started = std::chrono::steady_clock::now();
    auto pen = Driver(Pen(R"("Tablets": [{"SystemID": 0}])"));
    const std::vector<STablet> expected = {{0, 0, 0}, {1, 0, 1}};
    EXPECT_EQ(WaitForTabletBlock(kPenPort, 2), expected) << coordinator->Log();
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(3));
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

} // namespace
