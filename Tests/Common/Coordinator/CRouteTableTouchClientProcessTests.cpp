// Touch API clients as real processes behind real message ports: the ports come from
// CDriverMessageSendPort::New, as in the coordinator.
#include "Common/Coordinator/CRouteTable.h"

#include "Common/Settings/CSettingsArray.h"
#include "Mac/Common/Communication/KelMessagingTestSupport.h"
#include "RouteTableTestSupport.h"
#include "Tests/Support/SimulatedDriverProcess.h"

#include <gtest/gtest.h>

using namespace route_test;

TEST(CRouteTableTouchClientProcess, ClientsGetTheCapabilitiesOverTheirPortsOrAreDropped)
{
    ScopedPortDirectory directory;
    // A client that takes every delivery (no reply: done), and one that ends while it is
    // sent to. (A client answering a failure status is not dropped: the port's send
    // succeeds, and the status travels in the packet.)
    messaging_test::ScriptedPeer taking("com.example.takes",
                                        [](SInt32, const messaging_test::Bytes&)
                                        { return std::optional<messaging_test::Bytes>(); });
    SimulatedDriverProcess leaving(directory.Path(),
                                   R"({"PortName": "com.example.leaves", "Version": "6.3.0",
                                       "Faults": [{"Request": "any", "Action": "exit"}]})");
    ASSERT_TRUE(leaving.WaitUntilServed()) << leaving.Log();
    CRouteTable table;
    ScriptedDriver driver;
    driver.mTabletIDs = {0};
    table.SetDriver(0, driver.mPort);
    // Nobody serves the third name: no port, reported, kept until the next sending.
    Output output = Capture(
        [&]
        {
            for (const char* name : {"com.example.takes", "com.example.leaves", "com.example.none"})
            {
                table.AddTouchAPIClient(name);
            }
        });
    EXPECT_EQ(output.out, Report(821, "mTouchAPIClients[clientName_I]"));
    ASSERT_EQ(table.TouchAPIClients().size(), 3u);

    Capture([&] { EXPECT_EQ(table.Sync(), KELSTATUS_SUCCESS); });
    ASSERT_EQ(table.TouchAPIClients().size(), 1u);
    EXPECT_EQ(table.TouchAPIClients().begin()->first, "com.example.takes");
    std::vector<messaging_test::ScriptedPeer::Request> packets;
    for (const auto& request : taking.mRequests)
    {
        if (request.msgid == 'KEPK')
        {
            packets.push_back(request);
        }
    }
    CEventPacket received;
    ASSERT_EQ(received.DeserializeFromBuffer(packets[0].bytes.data(), packets[0].bytes.size()),
              KELSTATUS_SUCCESS);
    EXPECT_EQ(Snapshot(received).KeyIDs(),
              (Ids{EObjectIDMultiTouchAPI, EParameterIDTabletMultiTouchCapabilities}));
    auto capabilities = received.UnPackData_<std::shared_ptr<CSettingsArray>>(nullptr);
    ASSERT_NE(capabilities, nullptr);
    EXPECT_TRUE(capabilities->IsEqualTo(table.BuildTouchCapabilitiesArray()));
}
