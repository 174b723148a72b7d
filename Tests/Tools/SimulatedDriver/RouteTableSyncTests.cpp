// The route table's synchronisation against two simulated driver processes, each with one
// tablet that calls itself 0, reached through the coordinator's own driver ports.
#include "Common/Coordinator/CRouteTable.h"
#include "Mac/TabletDriver/Source/Coordinator/CMacDriverInterface.h"
#include "Tests/Support/SimulatedDriverProcess.h"
#include "Tests/Tools/SimulatedDriver/SimDriverTestSupport.h"

#include "Common/Settings/CSettingsMap.h"

#include <gtest/gtest.h>

using namespace SimDriverTest;

namespace
{
const std::string kKeltoConfig = R"({"Name": "Kelto", "Version": "6.3.0",
    "PortName": "com.kelto.KeltoTabletDriverMessageServer",
    "Tablets": [{"SystemID": 0, "TouchCapabilities": {"MultiTouchMaxFingers": 10}}]})";
const std::string kPenConfig = R"({"Name": "Pen", "Version": "5.3.0",
    "PortName": "com.kelto.PenTabletDriverMessageServer", "Tablets": [{"SystemID": 0}]})";

std::shared_ptr<CMacDriverInterface> DriverPort(std::uint32_t driverID, const std::string& name)
{
    auto port = std::make_shared<CMacDriverInterface>();
    CFStringRef portName = CFStringCreateWithCString(nullptr, name.c_str(), kCFStringEncodingUTF8);
    EXPECT_EQ(port->Init(driverID, portName, false), KELSTATUS_SUCCESS);
    CFRelease(portName);
    return port;
}

// A coordinator's route table with its two drivers, as start-up makes it.
struct SCoordinator
{
    CRouteTable table;
    std::shared_ptr<CMacDriverInterface> kelto =
        DriverPort('KlKT', "com.kelto.KeltoTabletDriverMessageServer");
    std::shared_ptr<CMacDriverInterface> pen =
        DriverPort('KlPT', "com.kelto.PenTabletDriverMessageServer");
    SCoordinator()
    {
        table.SetDriver(0, kelto);
        table.SetDriver(1, pen);
    }
};

std::uint16_t OwnSystemID(CMacDriverInterface& port)
{
    CEventPacket packet;
    Build(packet, ECommandGet, {{EObjectIDDriver}, LocalTablet(0), {EParameterIDTabletSystemID}});
    EXPECT_EQ(port.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);
    return packet.UnPackData_<std::uint16_t>(0xEEEE);
}

std::vector<std::uint32_t> StoredBlock(CMacDriverInterface& port)
{
    CEventPacket packet;
    Build(packet, ECommandGet, {{EObjectIDDriver}, {EParameterIDTabletBlock}});
    EXPECT_EQ(port.SendKeltoEvent(&packet), KELSTATUS_SUCCESS);
    std::vector<std::uint8_t> bytes = Data(packet);
    std::vector<std::uint32_t> words(bytes.size() / 4);
    std::memcpy(words.data(), bytes.data(), words.size() * 4);
    EXPECT_EQ(bytes.size() % 4, 0u);
    return words;
}

size_t Count(const std::string& text, const std::string& what)
{
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
    {
        ++count;
    }
    return count;
}
} // namespace

TEST(RouteTableSync, TwoDriverProcessesGetIDsZeroAndOneAndTheBlockOfBoth)
{
    ScopedPortDirectory ports;
    SimulatedDriverProcess kelto(ports.Path(), kKeltoConfig);
    SimulatedDriverProcess pen(ports.Path(), kPenConfig);
    ASSERT_TRUE(kelto.WaitUntilServed()) << kelto.Log();
    ASSERT_TRUE(pen.WaitUntilServed()) << pen.Log();

    const std::vector<std::uint32_t> block = {16, 16, 0x00010001, 2,  // header
                                              0,  0,  0,          0,  // driver 0, tablet 0: ID 0
                                              1,  0,  1,          0}; // driver 1, tablet 0: ID 1
    {
        SCoordinator coordinator;
        // No driver has a block yet: the read-back fails and the sync goes on.
        EXPECT_EQ(coordinator.table.Sync(), KELSTATUS_SUCCESS);
        EXPECT_EQ(coordinator.table.Tablets(),
                  (std::vector<STabletRec>{{0, 0, 0, 0}, {1, 0, 1, 0}}));
        EXPECT_EQ(OwnSystemID(*coordinator.kelto), 0);
        EXPECT_EQ(OwnSystemID(*coordinator.pen), 1) << "the corrective set reached the driver";
        EXPECT_EQ(StoredBlock(*coordinator.kelto), block);
        EXPECT_EQ(StoredBlock(*coordinator.pen), block);
        // Capabilities of the one tablet that has them, under the ID its driver reported.
        ASSERT_EQ(coordinator.table.TouchCapabilities().count(0), 1u);
        EXPECT_EQ(coordinator.table.TouchCapabilities().at(0)->IntegerForKeyWithDefault(
                      "MultiTouchDeviceID", -1),
                  0);
        EXPECT_EQ(coordinator.table.TouchCapabilities().size(), 1u);
    }
    // Only the driver whose own answer differed was corrected, once.
    EXPECT_EQ(Count(kelto.Log(), "set system-id"), 0u) << kelto.Log();
    EXPECT_EQ(Count(pen.Log(), "'KEPK' set system-id tablet #0 -> status 0x0000"), 1u) << pen.Log();
    EXPECT_EQ(Count(kelto.Log(), "set tablet-block -> status 0x0000, 48 bytes"), 1u) << kelto.Log();
    EXPECT_EQ(Count(pen.Log(), "set tablet-block -> status 0x0000, 48 bytes"), 1u) << pen.Log();

    // A coordinator that starts again reads the block back from the drivers, which kept it,
    // and finds every tablet where it was: no new ID, no correction.
    SCoordinator restarted;
    EXPECT_EQ(restarted.table.Sync(), KELSTATUS_SUCCESS);
    EXPECT_EQ(restarted.table.Tablets(), (std::vector<STabletRec>{{0, 0, 0, 0}, {1, 0, 1, 0}}));
    EXPECT_EQ(Count(pen.Log(), "set system-id"), 1u) << pen.Log();
    EXPECT_EQ(StoredBlock(*restarted.pen), block);
}
