#include "Common/Coordinator/CRouteTable.h"

#include "RouteTableTestSupport.h"

#include <gtest/gtest.h>

using namespace route_test;

TEST(CRouteTableRegistry, SetDriverReportsReplacingALiveDriverButStillReplacesIt)
{
    CRouteTable table;
    auto first = Port();
    auto second = Port();
    EXPECT_EQ(table.SetDriver(0, first), KELSTATUS_SUCCESS);
    KELSTATUS status = 0;
    EXPECT_EQ(Capture([&] { status = table.SetDriver(0, second); }).out,
              Report(158, "result == KELSTATUS_SUCCESS"));
    EXPECT_EQ(status, KELSTATUS_INTERNAL_UNEXPECTED);
    EXPECT_EQ(table.GetDriverByID(0), second);
    // Exactly one side null is a normal change; both null is reported.
    EXPECT_EQ(table.SetDriver(0, nullptr), KELSTATUS_SUCCESS);
    EXPECT_EQ(Capture([&] { status = table.SetDriver(0, nullptr); }).out,
              Report(158, "result == KELSTATUS_SUCCESS"));
    EXPECT_EQ(status, KELSTATUS_INTERNAL_UNEXPECTED);
    EXPECT_EQ(table.SetDriver(0, first), KELSTATUS_SUCCESS);
    EXPECT_EQ(table.GetDriverByID(0), first);
    EXPECT_EQ(table.GetDriverByID(1), nullptr);
    EXPECT_EQ(table.Init(nullptr, nullptr), KELSTATUS_METHOD_NOT_IMPLEMENTED);
}

TEST(CRouteTableRegistry, NextDriverWalksInAscendingIDAndLookupsFindTheOwner)
{
    CRouteTable table;
    int driverID = 42;
    EXPECT_EQ(table.NextDriver(driverID, nullptr), nullptr);
    EXPECT_EQ(driverID, -1);
    auto five = Port(), zero = Port(), two = Port();
    table.SetDriver(5, five);
    table.SetDriver(0, zero);
    table.SetDriver(2, two);
    std::vector<int> walk;
    for (auto driver = table.NextDriver(driverID, nullptr); driver;
         driver = table.NextDriver(driverID, driver))
    {
        walk.push_back(driverID);
    }
    EXPECT_EQ(walk, (std::vector<int>{0, 2, 5}));
    EXPECT_EQ(driverID, -1);
    driverID = 3;
    EXPECT_EQ(table.NextDriver(driverID, Port()), nullptr);
    EXPECT_EQ(driverID, -1);
    // A null entry is returned with its ID, and a walk ends there.
    table.SetDriver(1, nullptr);
    EXPECT_EQ(table.NextDriver(driverID, zero), nullptr);
    EXPECT_EQ(driverID, 1);
    CEventPacket packet;
    EXPECT_EQ(table.SendToAllDrivers(&packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(zero->mSent.size() + two->mSent.size(), 1u);
    // The same port under two IDs is walked once per ID, not forever.
    table.SetDriver(1, zero);
    EXPECT_EQ(table.SendToAllDrivers(&packet), KELSTATUS_SUCCESS);
    EXPECT_EQ(zero->mSent.size(), 3u);
    EXPECT_EQ(five->mSent.size(), 1u);

    Capture(
        [&]
        {
            table.AddNewTablet(2, 0);
            table.AddNewTablet(7, 0); // a driver the table does not know
        });
    EXPECT_EQ(table.GetDriverForTabletSystemID(0), two);
    EXPECT_EQ(table.GetDriverIDForTabletSystemID(1), 7);
    EXPECT_EQ(table.GetDriverForTabletSystemID(1), nullptr);
    EXPECT_EQ(table.GetDriverIDForTabletSystemID(2), -1);
    int found = 0;
    Output output = Capture([&] { found = table.GetDriverIDForTabletSystemID(0xFFFFFFFF); });
    EXPECT_EQ(found, -1);
    EXPECT_EQ(output.out, Report(113, "\"Requested last used driver\""));
}
