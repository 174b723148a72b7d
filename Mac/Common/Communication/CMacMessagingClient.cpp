#include "Mac/Common/Communication/CMacMessagingClient.h"

#include "Common/KelAssert.h"

const CFStringRef kMacMessagingClientRunLoopMode = CFSTR("CMacMessagingClientMode");

KELSTATUS
CMacMessagingClient::AllocateAndInitInstance(std::unique_ptr<CMacMessagingClient>& client_O,
                                             CFStringRef portName_I, double sendTimeout_I,
                                             double receiveTimeout_I, bool connect_I)
{
    client_O = std::make_unique<CMacMessagingClient>();
    client_O->Init(portName_I, sendTimeout_I, receiveTimeout_I);
    if (connect_I)
    {
        return client_O->Connect();
    }
    return KELSTATUS_SUCCESS;
}

CMacMessagingClient::~CMacMessagingClient()
{
    Disconnect();
    if (mPortName != nullptr)
    {
        CFRelease(mPortName);
    }
    if (mRunLoopMode != nullptr)
    {
        CFRelease(mRunLoopMode);
    }
}

CFStringRef CMacMessagingClient::GetRunLoopMode() const
{
    return mRunLoopMode;
}

KELSTATUS CMacMessagingClient::Init(CFStringRef portName_I, double sendTimeout_I,
                                    double receiveTimeout_I)
{
    SetSendReceiveTimeouts(sendTimeout_I, receiveTimeout_I);
    CFStringRef name =
        portName_I != nullptr ? CFStringCreateCopy(kCFAllocatorDefault, portName_I) : nullptr;
    if (mPortName != nullptr)
    {
        CFRelease(mPortName);
    }
    mPortName = name;
    SetRunLoopMode(kMacMessagingClientRunLoopMode);
    return KELSTATUS_SUCCESS;
}

KELSTATUS CMacMessagingClient::Connect()
{
    if (mMessagePortRef != nullptr)
    {
        KelAssertReport(__FILE__, 170, "!mMessagePortRef");
        return KELSTATUS_DEVICE_ALREADY_OPEN;
    }
    if (mPortName == nullptr)
    {
        return KELSTATUS_FAILURE;
    }
    mMessagePortRef = CFMessagePortCreateRemote(kCFAllocatorDefault, mPortName);
    if (mMessagePortRef == nullptr)
    {
        return KELSTATUS_FAILURE;
    }
    if (!CFMessagePortIsValid(mMessagePortRef))
    {
        Disconnect();
        return KELSTATUS_FAILURE;
    }
    return KELSTATUS_SUCCESS;
}

void CMacMessagingClient::Disconnect()
{
    if (mMessagePortRef != nullptr)
    {
        CFMessagePortInvalidate(mMessagePortRef);
        CFRelease(mMessagePortRef);
        mMessagePortRef = nullptr;
    }
}

bool CMacMessagingClient::IsValid() const
{
    return mMessagePortRef != nullptr && CFMessagePortIsValid(mMessagePortRef);
}

KELSTATUS CMacMessagingClient::SendRawRequest(SInt32 msgid_I, CFDataRef data_I, CFDataRef* pReply_O)
{
    if (!IsValid())
    {
        // One reconnect per send; its own result does not matter, only whether a valid
        // port came of it.
        Disconnect();
        Connect();
        if (!IsValid())
        {
            return KELSTATUS_FAILURE;
        }
    }
    // A port found valid is not asked again (each asking is a system call): a server that
    // goes away from here on is reported by the send, as it would be a moment later.

    const std::shared_ptr<int> waiting = mWaiting;
    if (*waiting >= kMaxWaitingRequests)
    {
        return KELSTATUS_FAILURE; // the peer has not answered the ones before
    }
    CFDataRef reply = nullptr;
    ++*waiting;
    const SInt32 result = CFMessagePortSendRequest(mMessagePortRef, msgid_I, data_I, mSendTimeout,
                                                   mReceiveTimeout, GetRunLoopMode(), &reply);
    --*waiting;
    const KELSTATUS status = StatusForPortResult(result);
    if (status != KELSTATUS_SUCCESS)
    {
        if (reply != nullptr)
        {
            CFRelease(reply);
        }
        return status;
    }
    if (pReply_O != nullptr)
    {
        *pReply_O = reply;
    }
    else if (reply != nullptr)
    {
        CFRelease(reply);
    }
    return KELSTATUS_SUCCESS;
}

void CMacMessagingClient::SetRunLoopMode(CFStringRef mode_I)
{
    if (mode_I != nullptr)
    {
        CFRetain(mode_I);
    }
    if (mRunLoopMode != nullptr)
    {
        CFRelease(mRunLoopMode);
    }
    mRunLoopMode = mode_I;
}

void CMacMessagingClient::GetSendReceiveTimeouts(double& sendTimeout_O,
                                                 double& receiveTimeout_O) const
{
    sendTimeout_O = mSendTimeout;
    receiveTimeout_O = mReceiveTimeout;
}

void CMacMessagingClient::SetSendReceiveTimeouts(double sendTimeout_I, double receiveTimeout_I)
{
    mSendTimeout = sendTimeout_I;
    mReceiveTimeout = receiveTimeout_I;
}

KELSTATUS CMacMessagingClient::StatusForPortResult(SInt32 portResult_I)
{
    switch (portResult_I)
    {
    case kCFMessagePortSuccess:
        return KELSTATUS_SUCCESS;
    case kCFMessagePortSendTimeout:
    case kCFMessagePortIsInvalid:
        return KELSTATUS_OS_BAD_RESOURCE;
#if !defined(__APPLE__)
    case kCFMessagePortRefused:
        // The other side is at its limit of connections, or refused a frame too large.
        return KELSTATUS_RESOURCE_FULL;
#endif
    case kCFMessagePortReceiveTimeout:
    default:
        // Transport errors, a port that became invalid while waiting, unknown values.
        return KELSTATUS_FAILURE;
    }
}
