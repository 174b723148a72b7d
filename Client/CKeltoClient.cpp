#include "Client/CKeltoClient.h"

#include "Client/CKeltoTouchPort.h"
#include "Client/KeltoClientPackets.h"
#include "Client/StCFRef.h"
#include "Common/CStringifyEnums.h"
#include "Common/Coordinator/CTabletBlock.h"
#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsInteger.h"
#include "Mac/Common/Communication/CMacMessagingClient.h"
#include "Mac/Common/Communication/MessageIDs.h"

#include <cstdio>
#include <cstring>

namespace
{
StCFRef<CFStringRef> PortName(const std::string& name_I)
{
    return StCFRef<CFStringRef>(
        CFStringCreateWithCString(kCFAllocatorDefault, name_I.c_str(), kCFStringEncodingUTF8));
}

// A number the coordinator packs in host order, exactly as wide as T.
template <typename T> T NumberFrom(const std::vector<unsigned char>& data_I)
{
    T value{};
    std::memcpy(&value, data_I.data(), sizeof value);
    return value;
}
} // namespace

CKeltoClient::CKeltoClient(double timeoutSeconds_I) : mTimeout(timeoutSeconds_I)
{
    const StCFRef<CFStringRef> name = PortName(kCoordinatorPortName);
    CMacMessagingClient::AllocateAndInitInstance(mpMessagingClient, name.Get(), mTimeout, mTimeout,
                                                 false);
}

CKeltoClient::~CKeltoClient()
{
    if (mpTouchPort)
    {
        UnregisterTouchClient();
    }
}

KELSTATUS CKeltoClient::Connect(const std::string& portName_I)
{
    if (mpMessagingClient->IsValid())
    {
        return KELSTATUS_DEVICE_ALREADY_OPEN;
    }
    // Drops a port that broke; Init never connects, Connect below does.
    mpMessagingClient->Disconnect();
    const StCFRef<CFStringRef> name = PortName(portName_I);
    mpMessagingClient->Init(name.Get(), mTimeout, mTimeout);
    const KELSTATUS status = mpMessagingClient->Connect();
    return status == KELSTATUS_FAILURE ? kStatusCoordinatorNotRunning : status;
}

bool CKeltoClient::IsConnected() const
{
    return mpMessagingClient->IsValid();
}

void CKeltoClient::Disconnect()
{
    mpMessagingClient->Disconnect();
}

KELSTATUS CKeltoClient::Send(const SRequest& request_I, SReply& reply_O)
{
    if (mpTouchPort && mpTouchPort->InHandler())
    {
        // The coordinator is waiting for the handler: a request now would run inside its
        // delivery to all touch clients.
        return KELSTATUS_API_BAD_IO;
    }
    CEventPacket packet;
    KELSTATUS status = KeltoClientPackets::BuildPacket(request_I, packet);
    if (status != KELSTATUS_SUCCESS)
    {
        return status;
    }
    // A touch client notes a broken connection even when this send connects again at once:
    // the coordinator it reaches then may be a new one that never heard of the client.
    if (mpTouchPort && !mpMessagingClient->IsValid())
    {
        mConnectionLost = true;
    }
    const StCFRef<CFDataRef> data(KeltoClientPackets::SerializeToData(packet));
    CFDataRef replyData = nullptr;
    status = mpMessagingClient->SendRawRequest(kMessageIDEventPacket, data.Get(), &replyData);
    if (status == KELSTATUS_FAILURE && !mpMessagingClient->IsValid())
    {
        return kStatusCoordinatorNotRunning;
    }
    if (status == KELSTATUS_RESOURCE_FULL)
    {
        return kStatusCoordinatorBusy; // the refusal of a coordinator at its limits
    }
    if (status != KELSTATUS_SUCCESS)
    {
        return status;
    }
    const StCFRef<CFDataRef> reply(replyData);
    CEventPacket answer;
    if (!reply || KeltoClientPackets::Decode(CFDataGetBytePtr(reply.Get()),
                                             static_cast<std::size_t>(CFDataGetLength(reply.Get())),
                                             answer) != KELSTATUS_SUCCESS)
    {
        return KELSTATUS_API_CORRUPT_DATA;
    }
    reply_O = KeltoClientPackets::ReplyOf(answer);
    return reply_O.mStatus;
}

KELSTATUS CKeltoClient::SendForData(const SRequest& request_I, std::size_t size_I,
                                    std::vector<unsigned char>& data_O)
{
    SReply reply;
    const KELSTATUS status = Send(request_I, reply);
    if (status != KELSTATUS_SUCCESS)
    {
        return status;
    }
    if (size_I != 0 && reply.mData.size() != size_I)
    {
        return KELSTATUS_API_BAD_DATA_SIZE;
    }
    data_O = std::move(reply.mData);
    return KELSTATUS_SUCCESS;
}

KELSTATUS CKeltoClient::GetTabletCount(unsigned short& count_O)
{
    std::vector<unsigned char> data;
    const KELSTATUS status =
        SendForData(KeltoClientPackets::TabletCountRequest(false), sizeof count_O, data);
    if (status == KELSTATUS_SUCCESS)
    {
        count_O = NumberFrom<unsigned short>(data);
    }
    return status;
}

KELSTATUS CKeltoClient::GetTabletCountByID(unsigned short& count_O)
{
    std::vector<unsigned char> data;
    const KELSTATUS status =
        SendForData(KeltoClientPackets::TabletCountRequest(true), sizeof count_O, data);
    if (status == KELSTATUS_SUCCESS)
    {
        count_O = NumberFrom<unsigned short>(data);
    }
    return status;
}

KELSTATUS CKeltoClient::GetTablets(std::vector<STablet>& tablets_O)
{
    std::vector<unsigned char> data;
    const KELSTATUS status = SendForData(KeltoClientPackets::TabletBlockRequest(), 0, data);
    if (status != KELSTATUS_SUCCESS)
    {
        return status;
    }
    std::vector<STablet> tablets;
    // The block of an empty table is the one block Parse refuses on purpose (the
    // coordinator must not read it back as a table); here it is simply no tablets.
    if (data != CTabletBlock::Build({}))
    {
        std::vector<STabletRec> records;
        if (CTabletBlock::Parse(data, records) != KELSTATUS_SUCCESS)
        {
            return KELSTATUS_API_CORRUPT_DATA;
        }
        for (const STabletRec& record : records)
        {
            tablets.push_back({record.mSystemID, record.mDriverID, record.mTabletIndex});
        }
    }
    tablets_O = std::move(tablets);
    return KELSTATUS_SUCCESS;
}

KELSTATUS CKeltoClient::GetProtocolVersion(std::int32_t& version_O)
{
    std::vector<unsigned char> data;
    const KELSTATUS status =
        SendForData(KeltoClientPackets::ProtocolVersionRequest(), sizeof version_O, data);
    if (status == KELSTATUS_SUCCESS)
    {
        version_O = NumberFrom<std::int32_t>(data);
    }
    return status;
}

KELSTATUS CKeltoClient::GetTouchCapabilities(std::shared_ptr<CSettingsArray>& capabilities_O)
{
    std::vector<unsigned char> data;
    const KELSTATUS status = SendForData(KeltoClientPackets::TouchCapabilitiesRequest(), 0, data);
    if (status != KELSTATUS_SUCCESS)
    {
        return status;
    }
    if (data.empty())
    {
        return KELSTATUS_API_BAD_DATA_SIZE;
    }
    std::shared_ptr<CSettingsArray> capabilities =
        CSettingsArray::CastToArray(KeltoClientPackets::SettingsFromData(data), false);
    if (!capabilities)
    {
        return KELSTATUS_API_CORRUPT_DATA;
    }
    capabilities_O = std::move(capabilities);
    return KELSTATUS_SUCCESS;
}

KELSTATUS CKeltoClient::QueryMultiTouchAPI(std::uint32_t clientValue_I, std::int64_t& answer_O)
{
    std::vector<unsigned char> data;
    const KELSTATUS status =
        SendForData(KeltoClientPackets::MultiTouchAPIQueryRequest(clientValue_I), 0, data);
    if (status != KELSTATUS_SUCCESS)
    {
        return status;
    }
    if (data.empty())
    {
        return KELSTATUS_API_BAD_DATA_SIZE;
    }
    std::shared_ptr<CSettingsInteger> answer =
        CSettingsInteger::CastToInteger(KeltoClientPackets::SettingsFromData(data));
    if (!answer)
    {
        return KELSTATUS_API_CORRUPT_DATA;
    }
    answer_O = answer->GetValue();
    return KELSTATUS_SUCCESS;
}

KELSTATUS CKeltoClient::GetLastTabletUsed(unsigned short& systemID_O)
{
    std::vector<unsigned char> data;
    const KELSTATUS status = SendForData(KeltoClientPackets::LastTabletUsedRequest(), 0, data);
    if (status != KELSTATUS_SUCCESS)
    {
        return status;
    }
    // No driver answered: the packet comes back as it went, without data.
    if (data.empty())
    {
        systemID_O = kNoTablet;
        return KELSTATUS_SUCCESS;
    }
    if (data.size() != sizeof systemID_O)
    {
        return KELSTATUS_API_BAD_DATA_SIZE;
    }
    systemID_O = NumberFrom<unsigned short>(data);
    return KELSTATUS_SUCCESS;
}

KELSTATUS CKeltoClient::RequestSync()
{
    SReply reply;
    return Send(KeltoClientPackets::SyncRequest(), reply);
}

KELSTATUS CKeltoClient::QuitCoordinator()
{
    SReply reply;
    return Send(KeltoClientPackets::QuitRequest(), reply);
}

KELSTATUS CKeltoClient::RegisterTouchClient(const std::string& identifier_I,
                                            TouchCapabilitiesHandler handler_I)
{
    if (identifier_I.empty() || !handler_I)
    {
        return KELSTATUS_API_BAD_PARAMETER;
    }
    if (mpTouchPort)
    {
        return KELSTATUS_RESOURCE_EXISTS;
    }
    std::shared_ptr<CKeltoTouchPort> port;
    KELSTATUS status = CKeltoTouchPort::Open(identifier_I, std::move(handler_I), port);
    if (status != KELSTATUS_SUCCESS)
    {
        return status;
    }
    // The port is served before the coordinator hears of it: it connects at registration.
    SReply reply;
    status = Send(KeltoClientPackets::TouchClientRequest(ECommandCreate, identifier_I), reply);
    if (status != KELSTATUS_SUCCESS)
    {
        port->Close();
        return status;
    }
    mpTouchPort = std::move(port);
    mConnectionLost = false;
    mToldGone = false;
    CFRunLoopTimerContext context = {0, this, nullptr, nullptr, nullptr};
    mRegistrationTimer = CFRunLoopTimerCreate(
        kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + kRegistrationCheckSeconds,
        kRegistrationCheckSeconds, 0, 0, LookAfterRegistration, &context);
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), mRegistrationTimer, kCFRunLoopDefaultMode);
    return KELSTATUS_SUCCESS;
}

void CKeltoClient::LookAfterRegistration(CFRunLoopTimerRef, void* info_I)
{
    auto* self = static_cast<CKeltoClient*>(info_I);
    if (!self->mpTouchPort || self->mpTouchPort->InHandler())
    {
        return;
    }
    if (!self->mConnectionLost && self->mpMessagingClient->IsValid())
    {
        return;
    }
    self->mConnectionLost = true;
    // The handlers may end the registration or destroy this object: nothing of it is used
    // after they return.
    const CoordinatorEventHandler handler = self->mCoordinatorEventHandler;
    if (!self->mToldGone)
    {
        self->mToldGone = true;
        if (handler)
        {
            handler(ECoordinatorEvent::eGone);
            return; // looked at again on the next tick
        }
    }
    SReply reply;
    const std::string name = self->mpTouchPort->Name();
    if (self->Send(KeltoClientPackets::TouchClientRequest(ECommandCreate, name), reply) ==
        KELSTATUS_SUCCESS)
    {
        self->mConnectionLost = false;
        self->mToldGone = false;
        if (handler)
        {
            handler(ECoordinatorEvent::eBack);
        }
    }
}

void CKeltoClient::StopLookingAfterRegistration()
{
    if (mRegistrationTimer != nullptr)
    {
        CFRunLoopTimerInvalidate(mRegistrationTimer);
        CFRelease(mRegistrationTimer);
        mRegistrationTimer = nullptr;
    }
}

void CKeltoClient::SetCoordinatorEventHandler(CoordinatorEventHandler handler_I)
{
    mCoordinatorEventHandler = std::move(handler_I);
}

KELSTATUS CKeltoClient::UnregisterTouchClient()
{
    if (!mpTouchPort)
    {
        return KELSTATUS_RESOURCE_MISSING;
    }
    StopLookingAfterRegistration();
    const std::shared_ptr<CKeltoTouchPort> port = std::move(mpTouchPort);
    KELSTATUS status = KELSTATUS_SUCCESS;
    if (!port->InHandler())
    {
        SReply reply;
        status = Send(KeltoClientPackets::TouchClientRequest(ECommandDestroy, port->Name()), reply);
    }
    // Inside the handler the coordinator is waiting for this client and cannot be asked;
    // the delivery it waits for goes unanswered once the port is closed, and it drops the
    // client for that.
    port->Close();
    return status;
}

bool CKeltoClient::IsTouchClient() const
{
    return mpTouchPort != nullptr;
}

unsigned int CKeltoClient::TouchCapabilitiesReceived() const
{
    return mpTouchPort ? mpTouchPort->Deliveries() : 0;
}

std::string CKeltoClient::StatusName(KELSTATUS status_I)
{
    if (status_I == kStatusCoordinatorNotRunning)
    {
        return "KELSTATUS_API_COORDINATOR_NOT_RUNNING";
    }
    if (status_I == kStatusCoordinatorBusy)
    {
        return "KELSTATUS_API_COORDINATOR_BUSY";
    }
    std::string name = CStringifyEnums<unsigned short>::GetInstance()->GetString(status_I, false);
    if (name.empty())
    {
        char hex[8];
        std::snprintf(hex, sizeof hex, "0x%04X", static_cast<unsigned int>(status_I));
        name = hex;
    }
    return name;
}
