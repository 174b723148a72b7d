// The client library against the real coordinator and two simulated drivers, as processes.
#include "Client/CKeltoClient.h"

#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsMap.h"
#include "Tests/Client/EndToEnd/CoordinatorWithDrivers.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <regex>

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

// The protocol version the build wrote into the coordinator's Info.plist.
int BuiltProtocolVersion()
{
    std::smatch match;
    const std::string plist = CoordinatorProcess::BuiltInfoPlist();
    if (!std::regex_search(plist, match,
                           std::regex("<key>Protocal</key>\\s*<integer>(\\d+)</integer>")))
    {
        return -1;
    }
    return std::stoi(match[1]);
}

class ClientEndToEnd : public testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(mSystem.Start()) << mSystem.Logs(); }

    CoordinatorWithDrivers mSystem;
    CKeltoClient mClient{CoordinatorWithDrivers::kSeconds};
};
} // namespace

TEST_F(ClientEndToEnd, AnswersAboutTheTabletsOfBothDrivers)
{
    ASSERT_EQ(mClient.Connect(), KELSTATUS_SUCCESS);
    unsigned short count = 0;
    EXPECT_EQ(mClient.GetTabletCount(count), KELSTATUS_SUCCESS);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(mClient.GetTabletCountByID(count), KELSTATUS_SUCCESS);
    EXPECT_EQ(count, 2);

    // Driver 0's tablet got system ID 0 and driver 1's the ID 1, although both drivers
    // reported their tablet as 0.
    std::vector<CKeltoClient::STablet> tablets;
    ASSERT_EQ(mClient.GetTablets(tablets), KELSTATUS_SUCCESS);
    ASSERT_EQ(tablets.size(), 2u);
    EXPECT_EQ(tablets[0].mSystemID, 0u);
    EXPECT_EQ(tablets[0].mDriverID, 0);
    EXPECT_EQ(tablets[1].mSystemID, 1u);
    EXPECT_EQ(tablets[1].mDriverID, 1);
    EXPECT_EQ(tablets[1].mTabletIndex, 0);

    std::int32_t version = 0;
    EXPECT_EQ(mClient.GetProtocolVersion(version), KELSTATUS_SUCCESS);
    EXPECT_EQ(version, BuiltProtocolVersion());

    unsigned short last = 0;
    EXPECT_EQ(mClient.GetLastTabletUsed(last), KELSTATUS_SUCCESS);
    EXPECT_EQ(last, 0);

    std::shared_ptr<CSettingsArray> capabilities;
    ASSERT_EQ(mClient.GetTouchCapabilities(capabilities), KELSTATUS_SUCCESS);
    EXPECT_EQ(DeviceNames(capabilities), std::vector<std::string>{"Kelto Pro M"});
    auto map = CSettingsMap::CastToMap(capabilities->ObjectForIndex(0), false);
    ASSERT_TRUE(map);
    EXPECT_EQ(map->IntegerForKeyWithDefault("MultiTouchDeviceID", -1), 0);
    EXPECT_EQ(map->IntegerForKeyWithDefault("MultiTouchMaxFingers", -1), 10);

    const std::pair<std::uint32_t, std::int64_t> answers[] = {{0, 3}, {1, 3}, {2, 0},
                                                              {4, 0}, {5, 2}, {4000000000u, 2}};
    for (const auto& [value, expected] : answers)
    {
        std::int64_t answer = -1;
        EXPECT_EQ(mClient.QueryMultiTouchAPI(value, answer), KELSTATUS_SUCCESS);
        EXPECT_EQ(answer, expected) << value;
    }
}

TEST_F(ClientEndToEnd, RequestsAreRoutedByTheirTabletKey)
{
    for (std::uint32_t systemID : {0u, 1u})
    {
        CKeltoClient::SRequest request;
        request.mKeys = {{EObjectIDDriver},
                         {EObjectIDTablet, systemID, EAddrModeByID},
                         {EParameterIDTabletSystemID}};
        CKeltoClient::SReply reply;
        ASSERT_EQ(mClient.Send(request, reply), KELSTATUS_SUCCESS) << systemID;
        ASSERT_EQ(reply.mData.size(), 2u);
        EXPECT_EQ(reply.mData[0] | (reply.mData[1] << 8), static_cast<int>(systemID));
    }
    // Each driver saw only the request for its own tablet.
    EXPECT_NE(mSystem.mPen.Log().find("tablet ID 1"), std::string::npos) << mSystem.mPen.Log();
    EXPECT_EQ(mSystem.mKelto.Log().find("tablet ID 1"), std::string::npos) << mSystem.mKelto.Log();
}

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
    ASSERT_TRUE(mSystem.mKelto.Reload(kKeltoWithTwoTablets)) << mSystem.mKelto.Log();
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

TEST_F(ClientEndToEnd, AppleEventsReachTheCoordinatorAndItsDrivers)
{
    long count = 0;
    EXPECT_EQ(mClient.CountTabletsByAppleEvent(count), 0);
    EXPECT_EQ(count, 2);

    // 'Kelm'/'KSnd' goes to the driver whose tablet was used last (the Kelto driver's
    // timestamp is the larger); the simulated driver answers with its name.
    CKeltoClient::SAppleEvent event;
    event.mClass = 'Kelm';
    event.mID = 'KSnd';
    CKeltoClient::SAppleEvent reply;
    ASSERT_EQ(mClient.SendAppleEvent(event, reply), 0);
    EXPECT_EQ(reply.mClass, static_cast<std::uint32_t>('aevt'));
    EXPECT_EQ(reply.mID, static_cast<std::uint32_t>('ansr'));
    ASSERT_FALSE(reply.mParameters.empty());
    EXPECT_EQ(reply.mParameters[0].mKeyword, static_cast<std::uint32_t>('----'));
    EXPECT_EQ(std::string(reply.mParameters[0].mData.begin(), reply.mParameters[0].mData.end()),
              "Kelto tablet driver (simulated)");
}

TEST_F(ClientEndToEnd, QuitEndsTheCoordinator)
{
    EXPECT_EQ(mClient.QuitCoordinator(), KELSTATUS_SUCCESS);
    EXPECT_EQ(mSystem.mCoordinator.WaitForExit(CoordinatorWithDrivers::kSeconds), 0)
        << mSystem.Logs();
    CKeltoClient late(1.0);
    EXPECT_EQ(late.Connect(), KELSTATUS_FAILURE);
    unsigned short count = 0;
    EXPECT_EQ(mClient.GetTabletCount(count), KELSTATUS_FAILURE);
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
