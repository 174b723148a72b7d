// Touch programming-interface clients: registration, the capabilities the coordinator
// delivers to them, the registrations it passes on to the drivers, and the version query.
#include "Tests/EndToEnd/CoordinatorProcess.h"
#include "Tests/EndToEnd/EndToEndSupport.h"
#include "Tests/Support/SimulatedDriverProcess.h"

#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsInteger.h"
#include "Common/Settings/CSettingsMap.h"
#include "Mac/Common/Communication/CMacMessagingServer.h"
#include "Mac/TabletDriver/Source/Coordinator/CMacInputs.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace
{
using namespace end_to_end;

constexpr const char* kClientPort = "com.kelto.test.TouchClient";
// The touch programming interface's version query, an identifier without a name.
constexpr auto kTouchAPIVersionQuery = static_cast<EEventIdentifier>(508);

// This test as a touch client: it serves the port named by its identifier and keeps every
// set of capabilities the coordinator sends there.
class TouchClient
{
public:
    TouchClient()
    {
        CFStringRef name = CFStringCreateWithCString(nullptr, kClientPort, kCFStringEncodingUTF8);
        mServing = mServer.Init(name, PortCallback, &mServer) == KELSTATUS_SUCCESS;
        CFRelease(name);
        mServer.SetProcessEventCallback(Receive, this);
    }

    bool Serving() const { return mServing; }
    // Every capabilities array received so far (null for one that did not decode).
    std::vector<std::shared_ptr<CSettingsArray>> mCapabilities;

private:
    static CFDataRef PortCallback(CFMessagePortRef, SInt32 messageID, CFDataRef data, void* info)
    {
        return static_cast<CMacMessagingServer*>(info)->ProcessRequest(data, messageID);
    }

    static KELSTATUS Receive(CEventPacket* packet, void* context)
    {
        auto* client = static_cast<TouchClient*>(context);
        if (packet->Command() == ECommandSet &&
            packet->ObjectKey(0)->Identifier() == EObjectIDMultiTouchAPI &&
            packet->ObjectKey(1)->Identifier() == EParameterIDTabletMultiTouchCapabilities)
        {
            client->mCapabilities.push_back(
                packet->UnPackData_<std::shared_ptr<CSettingsArray>>(nullptr));
        }
        packet->SetStatus(KELSTATUS_SUCCESS);
        return KELSTATUS_SUCCESS;
    }

    CMacMessagingServer mServer;
    bool mServing = false;
};

CEventPacket Registration(ECommand command, long long type)
{
    CEventPacket packet =
        Packet(command, {{EObjectIDMultiTouchAPI}, {EParameterIDMultiTouchAPIClient}});
    std::shared_ptr<CSettingsMap> map = CSettingsMap::New();
    map->SetKeyAndInteger("MultiTouchAPIClientRegistrationType", type);
    map->SetKeyAndString("MultiTouchAPIClientIdentifier", kClientPort);
    packet.PackData_<std::shared_ptr<CSettingsMap>>(map);
    return packet;
}

CEventPacket Flush()
{
    return Packet(ECommandFlush, {{EObjectIDRoutingTable}, {EParameterIDTabletBlock}});
}

class CoordinatorTouchClientTests : public ::testing::Test
{
protected:
    void SetUp() override
    {
        // Kelto's tablet is touch capable, Pen's is not.
        mKelto = std::make_unique<SimulatedDriverProcess>(
            mPorts.Path(),
            R"({"Name": "Kelto", "PortName": "com.kelto.KeltoTabletDriverMessageServer",
                "Version": "6.3.0", "Tablets": [{"SystemID": 0, "TouchCapabilities":
                {"MultiTouchMaxFingers": 10, "MultiTouchDeviceName": "Kelto Pro M"}}]})");
        mPen = std::make_unique<SimulatedDriverProcess>(
            mPorts.Path(), R"({"Name": "Pen", "PortName": "com.kelto.PenTabletDriverMessageServer",
                               "Version": "5.3.0", "Tablets": [{"SystemID": 1}]})");
        ASSERT_TRUE(mKelto->WaitUntilServed()) << mKelto->Log();
        ASSERT_TRUE(mPen->WaitUntilServed()) << mPen->Log();
        mCoordinator = std::make_unique<CoordinatorProcess>(mPorts.Path() + "/coordinator.log");
        ASSERT_TRUE(mCoordinator->Start());
        ASSERT_EQ(WaitForTabletBlock(kPenPort, 2).size(), 2u) << mCoordinator->Log();
    }

    // Every process of the test ends cleanly (under the sanitizers, a report ends it with
    // another code).
    void TearDown() override
    {
        if (mCoordinator)
        {
            EXPECT_EQ(mCoordinator->Stop(), 0) << mCoordinator->Log();
        }
        for (auto* driver : {mKelto.get(), mPen.get()})
        {
            if (driver != nullptr)
            {
                EXPECT_EQ(driver->Stop(), 0) << driver->Log();
            }
        }
    }

    ScopedPortDirectory mPorts;
    std::unique_ptr<SimulatedDriverProcess> mKelto;
    std::unique_ptr<SimulatedDriverProcess> mPen;
    std::unique_ptr<CoordinatorProcess> mCoordinator;
};

TEST_F(CoordinatorTouchClientTests, RegisteredClientReceivesTheCapabilitiesAtEachSync)
{
    TouchClient touchClient;
    ASSERT_TRUE(touchClient.Serving());
    Client coordinator(CMacInputs::kPortName);

    CEventPacket create = Registration(ECommandCreate, 1);
    EXPECT_EQ(coordinator.Send(create), KELSTATUS_SUCCESS);
    EXPECT_TRUE(touchClient.mCapabilities.empty());

    // A sync ends by sending the capabilities to every client; they arrive while this
    // thread waits for the flush to be answered.
    CEventPacket flush = Flush();
    EXPECT_EQ(coordinator.Send(flush), KELSTATUS_SUCCESS);
    ASSERT_EQ(touchClient.mCapabilities.size(), 1u);
    const std::shared_ptr<CSettingsArray> delivered = touchClient.mCapabilities[0];
    ASSERT_NE(delivered, nullptr);
    ASSERT_EQ(delivered->ObjectCount(), 1u); // only Kelto's tablet is touch capable
    auto capabilities = CSettingsMap::CastToMap(delivered->ObjectForIndex(0), true);
    ASSERT_NE(capabilities, nullptr);
    EXPECT_EQ(capabilities->IntegerForKeyWithDefault("MultiTouchMaxFingers", 0), 10);
    EXPECT_EQ(capabilities->StringForKeyWithDefault("MultiTouchDeviceName", ""), "Kelto Pro M");
    EXPECT_EQ(capabilities->IntegerForKeyWithDefault("MultiTouchDeviceID", -1), 0);

    // The same array is the coordinator's answer to anyone who asks.
    CEventPacket ask =
        Packet(ECommandGet, {{EObjectIDMultiTouchAPI}, {EParameterIDTabletMultiTouchCapabilities}});
    EXPECT_EQ(coordinator.Send(ask), KELSTATUS_SUCCESS);
    auto answered = ask.UnPackData_<std::shared_ptr<CSettingsArray>>(nullptr);
    ASSERT_NE(answered, nullptr);
    EXPECT_TRUE(answered->IsEqualTo(delivered));

    // Unregistered, the client hears nothing more.
    CEventPacket destroy = Registration(ECommandDestroy, 1);
    EXPECT_EQ(coordinator.Send(destroy), KELSTATUS_SUCCESS);
    CEventPacket again = Flush();
    EXPECT_EQ(coordinator.Send(again), KELSTATUS_SUCCESS);
    EXPECT_EQ(touchClient.mCapabilities.size(), 1u);
}

TEST_F(CoordinatorTouchClientTests, OtherRegistrationsAreTheDriversAffair)
{
    Client coordinator(CMacInputs::kPortName);
    CEventPacket create = Registration(ECommandCreate, 2);
    EXPECT_EQ(coordinator.Send(create), KELSTATUS_SUCCESS);
    // A type nobody knows is refused by the coordinator and goes no further.
    CEventPacket unknown = Registration(ECommandCreate, 7);
    coordinator.Send(unknown);

    // Both drivers recorded the first, with the command it came with, and only that.
    for (const char* port : {kKeltoPort, kPenPort})
    {
        Client driver(port);
        CEventPacket ask =
            Packet(ECommandGet, {{EObjectIDMultiTouchAPI}, {EParameterIDMultiTouchAPIClient}});
        ASSERT_EQ(driver.Send(ask), KELSTATUS_SUCCESS) << port;
        auto recorded = ask.UnPackData_<std::shared_ptr<CSettingsArray>>(nullptr);
        ASSERT_NE(recorded, nullptr) << port;
        ASSERT_EQ(recorded->ObjectCount(), 1u) << port;
        auto entry = CSettingsMap::CastToMap(recorded->ObjectForIndex(0), true);
        ASSERT_NE(entry, nullptr);
        EXPECT_EQ(entry->IntegerForKeyWithDefault("Command", -1), ECommandCreate);
        auto registration = CSettingsMap::CastToMap(entry->ObjectForKey("Registration"), true);
        ASSERT_NE(registration, nullptr);
        EXPECT_EQ(registration->IntegerForKeyWithDefault("MultiTouchAPIClientRegistrationType", 0),
                  2);
    }
}

TEST_F(CoordinatorTouchClientTests, VersionQueryMapsTheClientsVersion)
{
    Client coordinator(CMacInputs::kPortName);
    const std::pair<long long, long long> expected[] = {{0, 3}, {1, 3}, {2, 0}, {3, 0},
                                                        {4, 0}, {5, 2}, {40, 2}};
    for (const auto& [asked, answer] : expected)
    {
        CEventPacket query =
            Packet(ECommandGet, {{EObjectIDMultiTouchAPI}, {kTouchAPIVersionQuery}});
        query.PackData_<std::shared_ptr<CSettingsInteger>>(CSettingsInteger::New(asked));
        ASSERT_EQ(coordinator.Send(query), KELSTATUS_SUCCESS) << asked;
        auto version = query.UnPackData_<std::shared_ptr<CSettingsInteger>>(nullptr);
        ASSERT_NE(version, nullptr) << asked;
        EXPECT_EQ(version->GetValue(), answer) << asked;
    }
    // Answered by the coordinator alone.
    EXPECT_EQ(mKelto->Log().find("other"), std::string::npos) << mKelto->Log();
}
} // namespace
