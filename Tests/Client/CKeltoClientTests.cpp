// CKeltoClient against a stand-in coordinator on this thread: how answers of every shape
// become results, the touch-client registration with a delivery during the client's own
// wait, and a coordinator that is not there.
#include "Client/CKeltoClient.h"

#include "Client/ClientTestSupport.h"
#include "Client/KeltoClientPackets.h"
#include "Common/Coordinator/CTabletBlock.h"
#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsInteger.h"
#include "Common/Settings/CSettingsMap.h"
#include "Compat/PortTestSupport.h"
#include "Mac/Common/Communication/CDriverMessageSendPort.h"
#include "Mac/Common/Communication/CMacMessagingClient.h"

#include <CarbonCore/MacErrors.h>

#include <gtest/gtest.h>

using client_test::CFakeCoordinator;
using client_test::KeyIdentifiers;

namespace
{
template <typename T> void Answer(CEventPacket& packet, T value)
{
    packet.PackData_<T>(value);
}

std::shared_ptr<CSettingsArray> OneTablet()
{
    auto array = CSettingsArray::New();
    auto map = CSettingsMap::New();
    map->SetKeyAndInteger("MultiTouchDeviceID", 0);
    map->SetKeyAndString("MultiTouchDeviceName", "Kelto Pro M");
    array->AddObject(map);
    return array;
}

class Client : public testing::Test
{
protected:
    ScopedPortDirectory mPorts;
};
} // namespace

TEST_F(Client, TypedAnswersAreCheckedForTheirSize)
{
    std::vector<unsigned char> answer;
    CFakeCoordinator coordinator(
        [&](CEventPacket& packet)
        {
            packet.PackData(static_cast<unsigned int>(answer.size()),
                            answer.empty() ? nullptr : answer.data());
        });
    CKeltoClient client(5.0);
    ASSERT_EQ(client.Connect(), KELSTATUS_SUCCESS);
    EXPECT_TRUE(client.IsConnected());
    EXPECT_EQ(client.Connect(), KELSTATUS_DEVICE_ALREADY_OPEN);

    answer = {2, 0};
    unsigned short count = 99;
    EXPECT_EQ(client.GetTabletCount(count), KELSTATUS_SUCCESS);
    EXPECT_EQ(count, 2);
    answer = {3, 0, 0, 0};
    count = 99;
    EXPECT_EQ(client.GetTabletCountByID(count), KELSTATUS_API_BAD_DATA_SIZE);
    EXPECT_EQ(count, 99); // untouched on failure
    answer = {};
    EXPECT_EQ(client.GetTabletCount(count), KELSTATUS_API_BAD_DATA_SIZE);

    std::int32_t version = 0;
    answer = {7, 0, 0, 0};
    EXPECT_EQ(client.GetProtocolVersion(version), KELSTATUS_SUCCESS);
    EXPECT_EQ(version, 7);
    answer = {7, 0};
    EXPECT_EQ(client.GetProtocolVersion(version), KELSTATUS_API_BAD_DATA_SIZE);

    // No driver knew the last tablet: the packet comes back without data.
    unsigned short last = 0;
    answer = {};
    EXPECT_EQ(client.GetLastTabletUsed(last), KELSTATUS_SUCCESS);
    EXPECT_EQ(last, CKeltoClient::kNoTablet);
    answer = {1, 0};
    EXPECT_EQ(client.GetLastTabletUsed(last), KELSTATUS_SUCCESS);
    EXPECT_EQ(last, 1);
    answer = {1};
    EXPECT_EQ(client.GetLastTabletUsed(last), KELSTATUS_API_BAD_DATA_SIZE);

    std::shared_ptr<CSettingsArray> capabilities;
    answer = KeltoClientPackets::SettingsData(OneTablet());
    EXPECT_EQ(client.GetTouchCapabilities(capabilities), KELSTATUS_SUCCESS);
    ASSERT_TRUE(capabilities);
    EXPECT_TRUE(capabilities->IsEqualTo(OneTablet()));
    answer = KeltoClientPackets::SettingsData(CSettingsMap::New());
    EXPECT_EQ(client.GetTouchCapabilities(capabilities), KELSTATUS_API_CORRUPT_DATA);
    answer = {};
    EXPECT_EQ(client.GetTouchCapabilities(capabilities), KELSTATUS_API_BAD_DATA_SIZE);

    std::int64_t touchAnswer = 0;
    answer = KeltoClientPackets::SettingsData(CSettingsInteger::New(3));
    EXPECT_EQ(client.QueryMultiTouchAPI(1, touchAnswer), KELSTATUS_SUCCESS);
    EXPECT_EQ(touchAnswer, 3);
    answer = {0xDE, 0xAD};
    EXPECT_EQ(client.QueryMultiTouchAPI(1, touchAnswer), KELSTATUS_API_CORRUPT_DATA);
    answer = {};
    EXPECT_EQ(client.QueryMultiTouchAPI(1, touchAnswer), KELSTATUS_API_BAD_DATA_SIZE);
    // The question travelled as a settings integer.
    auto asked = CEventPacket(coordinator.Requests().back())
                     .UnPackData_<std::shared_ptr<CSettingsInteger>>(nullptr);
    ASSERT_TRUE(asked);
    EXPECT_EQ(asked->GetValue(), 1);
}

TEST_F(Client, TheTabletTableComesFromTheBlock)
{
    std::vector<unsigned char> block;
    CFakeCoordinator coordinator(
        [&](CEventPacket& packet)
        { packet.PackData(static_cast<unsigned int>(block.size()), block.data()); });
    CKeltoClient client(5.0);

    block = CTabletBlock::Build({{0, 0, 0, 0}, {1, 0, 1, 0}, {0, 1, 2, 0}});
    std::vector<CKeltoClient::STablet> tablets;
    ASSERT_EQ(client.GetTablets(tablets), KELSTATUS_SUCCESS);
    ASSERT_EQ(tablets.size(), 3u);
    EXPECT_EQ(tablets[1].mSystemID, 1u);
    EXPECT_EQ(tablets[1].mDriverID, 1);
    EXPECT_EQ(tablets[2].mTabletIndex, 1);
    EXPECT_EQ(tablets[2].mSystemID, 2u);

    block = CTabletBlock::Build({});
    EXPECT_EQ(client.GetTablets(tablets), KELSTATUS_SUCCESS);
    EXPECT_TRUE(tablets.empty());

    tablets.resize(1);
    block = {16, 0, 0, 0, 16, 0, 0, 0}; // a header cut short
    EXPECT_EQ(client.GetTablets(tablets), KELSTATUS_API_CORRUPT_DATA);
    EXPECT_EQ(tablets.size(), 1u);
}

TEST_F(Client, StatusesOfTheCoordinatorAndOfTheRequestReachTheCaller)
{
    CFakeCoordinator coordinator([](CEventPacket& packet)
                                 { packet.SetStatus(KELSTATUS_OBJECT_NOT_FOUND); });
    CKeltoClient client(5.0);

    CKeltoClient::SRequest request;
    request.mCommand = ECommandGet;
    request.mKeys = {{EObjectIDDriver}, {EObjectIDTablet, 3, EAddrModeByID}};
    request.mData = {9, 8, 7};
    CKeltoClient::SReply reply;
    EXPECT_EQ(client.Send(request, reply), KELSTATUS_OBJECT_NOT_FOUND);
    EXPECT_EQ(reply.mStatus, KELSTATUS_OBJECT_NOT_FOUND);
    EXPECT_EQ(reply.mData, request.mData);
    ASSERT_EQ(coordinator.Requests().size(), 1u);
    EXPECT_EQ(KeyIdentifiers(coordinator.Requests()[0]),
              (std::vector<int>{EObjectIDDriver, EObjectIDTablet}));

    // A request that cannot be a packet never leaves.
    request.mKeys.assign(10, {EObjectIDTablet});
    reply = {};
    EXPECT_EQ(client.Send(request, reply), KELSTATUS_API_BAD_PARAMETER);
    EXPECT_EQ(coordinator.Requests().size(), 1u);

    unsigned short count = 0;
    EXPECT_EQ(client.GetTabletCount(count), KELSTATUS_OBJECT_NOT_FOUND);
    EXPECT_EQ(client.RequestSync(), KELSTATUS_OBJECT_NOT_FOUND);
    std::vector<CKeltoClient::STablet> tablets;
    EXPECT_EQ(client.GetTablets(tablets), KELSTATUS_OBJECT_NOT_FOUND);
    std::shared_ptr<CSettingsArray> capabilities;
    EXPECT_EQ(client.GetTouchCapabilities(capabilities), KELSTATUS_OBJECT_NOT_FOUND);
    std::int64_t answer = 0;
    EXPECT_EQ(client.QueryMultiTouchAPI(1, answer), KELSTATUS_OBJECT_NOT_FOUND);
    EXPECT_EQ(client.GetLastTabletUsed(count), KELSTATUS_OBJECT_NOT_FOUND);

    EXPECT_EQ(CKeltoClient::StatusName(KELSTATUS_OBJECT_NOT_FOUND), "KELSTATUS_OBJECT_NOT_FOUND");
    EXPECT_EQ(CKeltoClient::StatusName(0x0210), "0x0210");
}

TEST_F(Client, AnAbsentOrSilentCoordinatorIsAFailure)
{
    const KELSTATUS notRunning = CKeltoClient::kStatusCoordinatorNotRunning;
    EXPECT_EQ(CKeltoClient::StatusName(notRunning), "KELSTATUS_API_COORDINATOR_NOT_RUNNING");
    CKeltoClient client(0.5);
    EXPECT_EQ(client.Connect(), notRunning);
    EXPECT_FALSE(client.IsConnected());
    unsigned short count = 0;
    EXPECT_EQ(client.GetTabletCount(count), notRunning);
    EXPECT_EQ(
        client.RegisterTouchClient("com.example.absent", [](std::shared_ptr<CSettingsArray>) {}),
        notRunning);
    EXPECT_FALSE(client.IsTouchClient());
    long tablets = 0;
    EXPECT_EQ(client.CountTabletsByAppleEvent(tablets), procNotFound);

    // A coordinator whose answer is no packet.
    CFStringRef name = CFStringCreateWithCString(nullptr, CKeltoClient::kCoordinatorPortName,
                                                 kCFStringEncodingUTF8);
    CFMessagePortRef port = CFMessagePortCreateLocal(
        nullptr, name,
        [](CFMessagePortRef, SInt32, CFDataRef, void*) -> CFDataRef
        { return CFDataCreate(nullptr, reinterpret_cast<const UInt8*>("nonsense"), 8); },
        nullptr, nullptr);
    ASSERT_NE(port, nullptr);
    CFRunLoopSourceRef source = CFMessagePortCreateRunLoopSource(nullptr, port, 0);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kMacMessagingClientRunLoopMode);
    EXPECT_EQ(client.GetTabletCount(count), KELSTATUS_API_CORRUPT_DATA);
    CFMessagePortInvalidate(port);
    CFRelease(source);
    CFRelease(port);
    CFRelease(name);

    // The port is gone again: the next request reconnects, finds nobody and fails.
    EXPECT_EQ(client.GetTabletCount(count), notRunning);
}

TEST_F(Client, ATouchClientGetsCapabilitiesWhileItWaitsAndEndsItsRegistration)
{
    // A coordinator that delivers capabilities to its registered clients whenever it is
    // asked to synchronise, as the real one does.
    std::vector<std::string> clients;
    CFakeCoordinator coordinator(
        [&](CEventPacket& packet)
        {
            const std::vector<int> keys = KeyIdentifiers(packet);
            if (keys.size() == 2 && keys[1] == EParameterIDMultiTouchAPIClient)
            {
                auto map = packet.UnPackData_<std::shared_ptr<CSettingsMap>>(nullptr);
                const std::string name =
                    map->StringForKeyWithDefault("MultiTouchAPIClientIdentifier", "");
                if (packet.Command() == ECommandCreate)
                {
                    clients.push_back(name);
                }
                else
                {
                    std::erase(clients, name);
                }
                packet.SetStatus(KELSTATUS_SUCCESS);
                return;
            }
            for (const std::string& name : clients)
            {
                CKeltoClient::SRequest request;
                request.mCommand = ECommandSet;
                request.mKeys = {{EObjectIDMultiTouchAPI},
                                 {EParameterIDTabletMultiTouchCapabilities}};
                request.mData = KeltoClientPackets::SettingsData(OneTablet());
                CEventPacket delivery;
                KeltoClientPackets::BuildPacket(request, delivery);
                std::shared_ptr<CDriverMessageSendPort> port =
                    CDriverMessageSendPort::New(name, true);
                EXPECT_EQ(port ? port->SendKeltoEvent(&delivery) : KELSTATUS_FAILURE,
                          KELSTATUS_SUCCESS);
            }
        });

    CKeltoClient client(5.0);
    std::vector<std::shared_ptr<CSettingsArray>> received;
    KELSTATUS insideHandler = KELSTATUS_SUCCESS;
    EXPECT_EQ(client.RegisterTouchClient("", [](std::shared_ptr<CSettingsArray>) {}),
              KELSTATUS_API_BAD_PARAMETER);
    ASSERT_EQ(client.RegisterTouchClient("com.example.app",
                                         [&](std::shared_ptr<CSettingsArray> capabilities)
                                         {
                                             received.push_back(capabilities);
                                             unsigned short count = 0;
                                             insideHandler = client.GetTabletCount(count);
                                         }),
              KELSTATUS_SUCCESS);
    EXPECT_TRUE(client.IsTouchClient());
    EXPECT_EQ(clients, std::vector<std::string>{"com.example.app"});
    EXPECT_EQ(
        client.RegisterTouchClient("com.example.other", [](std::shared_ptr<CSettingsArray>) {}),
        KELSTATUS_RESOURCE_EXISTS);

    // The delivery arrives while the client waits for its own request.
    EXPECT_EQ(client.RequestSync(), KELSTATUS_SUCCESS);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_TRUE(received[0]->IsEqualTo(OneTablet()));
    EXPECT_EQ(client.TouchCapabilitiesReceived(), 1u);
    EXPECT_EQ(insideHandler, KELSTATUS_API_BAD_IO);

    EXPECT_EQ(client.UnregisterTouchClient(), KELSTATUS_SUCCESS);
    EXPECT_TRUE(clients.empty());
    EXPECT_FALSE(client.IsTouchClient());
    EXPECT_EQ(client.UnregisterTouchClient(), KELSTATUS_RESOURCE_MISSING);

    // A second object may take the name now; the first one's destructor, registered
    // again, tells the coordinator.
    {
        CKeltoClient other(5.0);
        EXPECT_EQ(
            other.RegisterTouchClient("com.example.app", [](std::shared_ptr<CSettingsArray>) {}),
            KELSTATUS_SUCCESS);
        EXPECT_EQ(clients.size(), 1u);
    }
    EXPECT_TRUE(clients.empty());
}
