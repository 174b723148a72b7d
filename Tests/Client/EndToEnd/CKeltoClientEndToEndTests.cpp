// The client library against the real coordinator and two simulated drivers, as processes:
// what only a real synchronisation shows, a touch client's deliveries. (Queries, raw
// requests, Apple Events and quitting are tabletctl's end-to-end tests, through this
// library.)
#include "Client/CKeltoClient.h"

#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsMap.h"
#include "Tests/Support/CoordinatorWithDrivers.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace
{
// A Kelto driver with a second tablet, which has touch capabilities of its own.
const char* kKeltoWithTwoTablets = R"json({
    "Name": "Kelto tablet driver (simulated)",
    "PortName": "com.kelto.KeltoTabletDriverMessageServer",
    "Version": "6.3.0",
    "Tablets": [
        {"SystemID": 0, "Model": "Kelto Pro M",
         "TouchCapabilities": {"MultiTouchDeviceName": "Kelto Pro M", "MultiTouchMaxFingers": 10}},
        {"SystemID": 5, "Model": "Kelto Pro L",
         "TouchCapabilities": {"MultiTouchDeviceName": "Kelto Pro L", "MultiTouchMaxFingers": 16}}
    ],
    "LastTabletUsed": 1,
    "LastTabletUsedTimestamp": 1500
})json";

std::vector<std::string> DeviceNames(const std::shared_ptr<CSettingsArray>& capabilities)
{
    std::vector<std::string> names;
    for (std::size_t index = 0; index < capabilities->ObjectCount(); ++index)
    {
        auto map = CSettingsMap::CastToMap(capabilities->ObjectForIndex(index), false);
        names.push_back(map ? map->StringForKeyWithDefault("MultiTouchDeviceName", "?") : "?");
    }
    return names;
}

class ClientEndToEnd : public testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(mSystem.Start()) << mSystem.Problem(); }

    CoordinatorWithDrivers mSystem;
    CKeltoClient mClient{CoordinatorWithDrivers::kSeconds};
};
} // namespace

TEST_F(ClientEndToEnd, ATouchClientReceivesTheCapabilitiesAtEverySynchronisation)
{
    std::vector<std::shared_ptr<CSettingsArray>> received;
    ASSERT_EQ(mClient.RegisterTouchClient("com.example.touch",
                                          [&](std::shared_ptr<CSettingsArray> capabilities)
                                          { received.push_back(capabilities); }),
              KELSTATUS_SUCCESS);

    // Asked for: the delivery arrives while the client waits for its own request.
    ASSERT_EQ(mClient.RequestSync(), KELSTATUS_SUCCESS);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(DeviceNames(received[0]), std::vector<std::string>{"Kelto Pro M"});

    // A driver gains a tablet: the next count finds the drivers' total changed, the
    // coordinator synchronises, and the client hears of the new tablet during the count.
    ASSERT_TRUE(mSystem.Driver(0)->Reload(kKeltoWithTwoTablets)) << mSystem.Driver(0)->Log();
    unsigned short count = 0;
    ASSERT_EQ(mClient.GetTabletCount(count), KELSTATUS_SUCCESS);
    EXPECT_EQ(count, 3);
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(DeviceNames(received[1]), (std::vector<std::string>{"Kelto Pro M", "Kelto Pro L"}));
    std::vector<CKeltoClient::STablet> tablets;
    ASSERT_EQ(mClient.GetTablets(tablets), KELSTATUS_SUCCESS);
    ASSERT_EQ(tablets.size(), 3u);
    EXPECT_EQ(tablets[2].mSystemID, 2u);
    EXPECT_EQ(tablets[2].mDriverID, 0);
    EXPECT_EQ(tablets[2].mTabletIndex, 1);
    EXPECT_EQ(mClient.TouchCapabilitiesReceived(), 2u);

    // Unregistered, it hears nothing more.
    EXPECT_EQ(mClient.UnregisterTouchClient(), KELSTATUS_SUCCESS);
    ASSERT_EQ(mClient.RequestSync(), KELSTATUS_SUCCESS);
    EXPECT_EQ(received.size(), 2u);
}

TEST_F(ClientEndToEnd, AClientThatLeavesInsideItsHandlerIsDropped)
{
    CKeltoClient other(CoordinatorWithDrivers::kSeconds);
    int otherDeliveries = 0;
    ASSERT_EQ(other.RegisterTouchClient("com.example.stays", [&](std::shared_ptr<CSettingsArray>)
                                        { ++otherDeliveries; }),
              KELSTATUS_SUCCESS);
    int deliveries = 0;
    ASSERT_EQ(mClient.RegisterTouchClient("com.example.leaves",
                                          [&](std::shared_ptr<CSettingsArray>)
                                          {
                                              ++deliveries;
                                              EXPECT_EQ(mClient.UnregisterTouchClient(),
                                                        KELSTATUS_SUCCESS);
                                          }),
              KELSTATUS_SUCCESS);
    ASSERT_EQ(mClient.RequestSync(), KELSTATUS_SUCCESS);
    EXPECT_EQ(deliveries, 1);
    EXPECT_FALSE(mClient.IsTouchClient());
    EXPECT_EQ(otherDeliveries, 1);

    // The coordinator goes on serving, and the client that stayed still hears from it.
    ASSERT_EQ(mClient.RequestSync(), KELSTATUS_SUCCESS);
    EXPECT_EQ(deliveries, 1);
    EXPECT_EQ(otherDeliveries, 2);
}

TEST_F(ClientEndToEnd, TheReadmeExampleRuns)
{
    FILE* output = popen("timeout -s KILL 60 '" KEL_README_CLIENT_EXAMPLE "' 2>&1", "r");
    ASSERT_NE(output, nullptr);
    char line[256] = {};
    std::string text;
    while (std::fgets(line, sizeof line, output) != nullptr)
    {
        text += line;
    }
    EXPECT_EQ(pclose(output), 0) << text;
    EXPECT_EQ(text, "2 tablets, 1 with touch capabilities\n");
}
