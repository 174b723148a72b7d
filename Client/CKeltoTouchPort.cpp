#include "Client/CKeltoTouchPort.h"

#include "Client/KeltoClientPackets.h"
#include "Client/StCFRef.h"
#include "Common/Settings/CSettingsArray.h"
#include "Mac/Common/Communication/CMacMessagingClient.h"
#include "Mac/Common/Communication/MessageIDs.h"

KELSTATUS CKeltoTouchPort::Open(const std::string& name_I, Handler handler_I,
                                std::shared_ptr<CKeltoTouchPort>& port_O)
{
    const StCFRef<CFStringRef> name(
        CFStringCreateWithCString(kCFAllocatorDefault, name_I.c_str(), kCFStringEncodingUTF8));
    if (!name)
    {
        return KELSTATUS_CANT_OPEN_PORT;
    }
    // Another process serving the name makes the creation below fail like any other
    // trouble would; asking first tells the two apart.
    if (const StCFRef<CFMessagePortRef> remote(
            CFMessagePortCreateRemote(kCFAllocatorDefault, name.Get()));
        remote)
    {
        CFMessagePortInvalidate(remote.Get());
        return KELSTATUS_RESOURCE_EXISTS;
    }

    auto port = std::make_shared<CKeltoTouchPort>(name_I, std::move(handler_I));
    CFMessagePortContext context = {0, port.get(), nullptr, nullptr, nullptr};
    Boolean shouldFreeInfo = false;
    CFMessagePortRef local = CFMessagePortCreateLocal(kCFAllocatorDefault, name.Get(), PortCallBack,
                                                      &context, &shouldFreeInfo);
    if (local == nullptr)
    {
        return KELSTATUS_CANT_OPEN_PORT;
    }
    if (shouldFreeInfo)
    {
        // This process serves the name already: that port came back, not a new one.
        CFRelease(local);
        return KELSTATUS_RESOURCE_EXISTS;
    }
    port->mPort = local;
    port->mSource = CFMessagePortCreateRunLoopSource(kCFAllocatorDefault, local, 0);
    if (port->mSource == nullptr)
    {
        return KELSTATUS_CANT_OPEN_PORT; // the destructor closes the port
    }
    port->mRunLoop = CFRunLoopGetCurrent();
    CFRunLoopAddSource(port->mRunLoop, port->mSource, kCFRunLoopCommonModes);
    CFRunLoopAddSource(port->mRunLoop, port->mSource, kMacMessagingClientRunLoopMode);
    port_O = std::move(port);
    return KELSTATUS_SUCCESS;
}

CKeltoTouchPort::CKeltoTouchPort(std::string name_I, Handler handler_I)
    : mName(std::move(name_I)), mHandler(std::move(handler_I))
{
}

CKeltoTouchPort::~CKeltoTouchPort()
{
    Close();
}

void CKeltoTouchPort::Close()
{
    if (mSource != nullptr)
    {
        // Invalidating the port takes its source off every run loop and mode.
        CFRelease(mSource);
        mSource = nullptr;
    }
    if (mPort != nullptr)
    {
        CFMessagePortInvalidate(mPort);
        CFRelease(mPort);
        mPort = nullptr;
    }
    mRunLoop = nullptr;
}

std::vector<unsigned char> CKeltoTouchPort::Answer(SInt32 messageID_I, const unsigned char* bytes_I,
                                                   std::size_t size_I)
{
    CEventPacket packet;
    if (messageID_I != kMessageIDEventPacket ||
        KeltoClientPackets::Decode(bytes_I, size_I, packet) != KELSTATUS_SUCCESS)
    {
        return {};
    }
    std::shared_ptr<CSettingsArray> capabilities;
    KELSTATUS status = KELSTATUS_METHOD_NOT_IMPLEMENTED;
    if (KeltoClientPackets::IsCapabilitiesDelivery(packet, capabilities))
    {
        status = capabilities ? KELSTATUS_SUCCESS : KELSTATUS_API_CORRUPT_DATA;
    }
    if (capabilities && mHandler)
    {
        ++mDeliveries;
        // A copy: the handler may close this port or drop the last owner of this object.
        const Handler handler = mHandler;
        const std::shared_ptr<CKeltoTouchPort> keepAlive = shared_from_this();
        mInHandler = true;
        try
        {
            handler(capabilities);
        }
        catch (...)
        {
            // The application's failure is not the coordinator's business: it would only
            // drop the registration for it.
        }
        mInHandler = false;
    }
    packet.PackData(0, nullptr);
    packet.SetStatus(status);
    return KeltoClientPackets::Serialize(packet);
}

CFDataRef CKeltoTouchPort::PortCallBack(CFMessagePortRef /*port_I*/, SInt32 messageID_I,
                                        CFDataRef data_I, void* info_I)
{
    auto* self = static_cast<CKeltoTouchPort*>(info_I);
    if (self == nullptr || data_I == nullptr)
    {
        return nullptr;
    }
    const std::vector<unsigned char> reply = self->Answer(
        messageID_I, CFDataGetBytePtr(data_I), static_cast<std::size_t>(CFDataGetLength(data_I)));
    if (reply.empty())
    {
        return nullptr;
    }
    return CFDataCreate(kCFAllocatorDefault, reply.data(), static_cast<CFIndex>(reply.size()));
}
