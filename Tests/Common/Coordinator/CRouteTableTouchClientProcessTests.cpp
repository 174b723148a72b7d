// Touch API clients as real processes behind real message ports: the ports come from
// CDriverMessageSendPort::New, as in the coordinator, and a client that is gone is dropped.
#include "Common/Coordinator/CRouteTable.h"

#include "Mac/Common/Communication/KelTestDriverProcess.h"
#include "RouteTableTestSupport.h"

#include <gtest/gtest.h>

using namespace route_test;

TEST(CRouteTableTouchClientProcess, AClientThatIsGoneOrUnreachableIsDroppedAtTheNextSync)
{
    KelTestPortDirectory directory; // this test's own KELTO_PORT_DIR
    KelTestDriverProcess taking, leaving;
    ASSERT_TRUE(taking.Serve("com.example.takes", {}));
    // A client that ends while it is sent to. (A client answering a failure status is
    // not dropped: the port's send succeeds, and the status travels in the packet.)
    ASSERT_TRUE(leaving.Serve("com.example.leaves", {"--exit-on", "1"}));
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
    // What the client that stays receives is checked end to end with the coordinator.
}
