// The touch client's port, reached the way the coordinator reaches it: through a driver send
// port of the messaging layer, over a real message port. The sender waits in the private
// reply mode, in which the touch port is served, so one thread plays both sides.
#include "Client/CKeltoTouchPort.h"

#include "Client/KeltoClientPackets.h"
#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsMap.h"
#include "Compat/PortTestSupport.h"
#include "Mac/Common/Communication/CDriverMessageSendPort.h"
#include "Mac/Common/Communication/CMacMessagingClient.h"
#include "Mac/Common/Communication/MessageIDs.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace
{
const char* kName = "com.example.touchclient";

std::shared_ptr<CSettingsArray> Capabilities(int tablets)
{
    auto array = CSettingsArray::New();
    for (int id = 0; id < tablets; ++id)
    {
        auto map = CSettingsMap::New();
        map->SetKeyAndInteger("MultiTouchDeviceID", id);
        map->SetKeyAndInteger("MultiTouchMaxFingers", 10);
        array->AddObject(map);
    }
    return array;
}

// The packet the coordinator sends its touch clients, with the given command, parameter
// and data.
CEventPacket Delivery(const std::vector<unsigned char>& data,
                      EEventIdentifier parameter = EParameterIDTabletMultiTouchCapabilities,
                      ECommand command = ECommandSet)
{
    CKeltoClient::SRequest request;
    request.mCommand = command;
    request.mKeys = {{EObjectIDMultiTouchAPI}, {parameter}};
    request.mData = data;
    CEventPacket packet;
    EXPECT_EQ(KeltoClientPackets::BuildPacket(request, packet), KELSTATUS_SUCCESS);
    return packet;
}

class TouchPort : public testing::Test
{
protected:
    // A packet sent as the coordinator sends it; its status, with the answer in the packet.
    KELSTATUS Deliver(CEventPacket& packet)
    {
        std::shared_ptr<CDriverMessageSendPort> sender = CDriverMessageSendPort::New(kName, true);
        return sender ? sender->SendKeltoEvent(&packet) : KELSTATUS_FAILURE;
    }

    // Raw bytes under any message id; the reply's bytes ("<none>" for no reply).
    std::string SendRaw(SInt32 messageID, const std::vector<unsigned char>& bytes)
    {
        std::unique_ptr<CMacMessagingClient> client;
        CFStringRef name = CFStringCreateWithCString(nullptr, kName, kCFStringEncodingUTF8);
        EXPECT_EQ(CMacMessagingClient::AllocateAndInitInstance(client, name, 10, 10, true),
                  KELSTATUS_SUCCESS);
        CFRelease(name);
        CFDataRef data = CFDataCreate(nullptr, bytes.data(), static_cast<CFIndex>(bytes.size()));
        CFDataRef reply = nullptr;
        EXPECT_EQ(client->SendRawRequest(messageID, data, &reply), KELSTATUS_SUCCESS);
        CFRelease(data);
        const std::string text = reply ? PortTestSupport::Text(reply) : "<none>";
        if (reply != nullptr)
        {
            CFRelease(reply);
        }
        return text;
    }

    ScopedPortDirectory mPorts;
    std::vector<std::shared_ptr<CSettingsArray>> mReceived;
};
} // namespace

TEST_F(TouchPort, OneServerPerNameAndTheNameIsFreeAgainOnClose)
{
    auto ignore = [](std::shared_ptr<CSettingsArray>) {};
    std::shared_ptr<CKeltoTouchPort> first;
    ASSERT_EQ(CKeltoTouchPort::Open(kName, ignore, first), KELSTATUS_SUCCESS);
    std::shared_ptr<CKeltoTouchPort> second;
    EXPECT_EQ(CKeltoTouchPort::Open(kName, ignore, second), KELSTATUS_RESOURCE_EXISTS);
    EXPECT_FALSE(second);
    EXPECT_TRUE(first->IsOpen());

    first->Close();
    EXPECT_FALSE(first->IsOpen());
    CEventPacket delivery = Delivery(KeltoClientPackets::SettingsData(Capabilities(1)));
    EXPECT_EQ(Deliver(delivery), KELSTATUS_FAILURE);
    EXPECT_EQ(CKeltoTouchPort::Open(kName, ignore, second), KELSTATUS_SUCCESS);

    // A name too long for any socket path.
    std::shared_ptr<CKeltoTouchPort> bad;
    EXPECT_EQ(CKeltoTouchPort::Open(std::string(300, 'n'), ignore, bad), KELSTATUS_CANT_OPEN_PORT);
    EXPECT_FALSE(bad);
}

TEST_F(TouchPort, TheHandlerMayEndThePortAndMayThrow)
{
    std::shared_ptr<CKeltoTouchPort> port;
    int calls = 0;
    ASSERT_EQ(CKeltoTouchPort::Open(
                  kName,
                  [&](std::shared_ptr<CSettingsArray>)
                  {
                      ++calls;
                      EXPECT_TRUE(port->InHandler());
                      if (calls == 1)
                      {
                          throw std::runtime_error("application fault");
                      }
                      // Drops the last owner of the running port.
                      port.reset();
                  },
                  port),
              KELSTATUS_SUCCESS);
    CEventPacket first = Delivery(KeltoClientPackets::SettingsData(Capabilities(1)));
    EXPECT_EQ(Deliver(first), KELSTATUS_SUCCESS);
    EXPECT_EQ(first.Status(), KELSTATUS_SUCCESS);
    EXPECT_FALSE(port->InHandler());

    // Closing the port inside the handler leaves the delivery in progress unanswered: the
    // coordinator drops the client there and then.
    CEventPacket second = Delivery(KeltoClientPackets::SettingsData(Capabilities(1)));
    EXPECT_EQ(Deliver(second), KELSTATUS_FAILURE);
    EXPECT_EQ(calls, 2);
    EXPECT_FALSE(port);

    // The port went with its object: the next delivery fails, the name is free.
    CEventPacket third = Delivery(KeltoClientPackets::SettingsData(Capabilities(1)));
    EXPECT_EQ(Deliver(third), KELSTATUS_FAILURE);
    std::shared_ptr<CKeltoTouchPort> again;
    EXPECT_EQ(CKeltoTouchPort::Open(
                  kName, [](std::shared_ptr<CSettingsArray>) {}, again),
              KELSTATUS_SUCCESS);
}
