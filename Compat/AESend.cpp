// AESend: to this process's handlers directly, to another application through its port.
#include "Compat/AEDispatch.h"
#include "Compat/AEEventPort.h"

#include <Carbon/Carbon.h>

#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{
// While waiting for a reply, the sending thread's loop runs in this mode only.
const CFStringRef kReplyMode = CFSTR("AESendReplyMode");
constexpr double kDefaultTimeoutSeconds = 60.0;

struct STarget
{
    bool self = false;
    std::string portName;
};

OSErr ResolveTarget(const AppleEvent* event, STarget& target)
{
    AEDesc address;
    if (AEGetAttributeDesc(event, keyAddressAttr, typeWildCard, &address) != noErr)
    {
        return errAEUnknownAddressType;
    }
    std::vector<char> bytes(static_cast<size_t>(AEGetDescDataSize(&address)));
    AEGetDescData(&address, bytes.data(), Size(bytes.size()));
    DescType type = address.descriptorType;
    AEDisposeDesc(&address);

    pid_t pid = -1;
    if (type == typeKernelProcessID && bytes.size() == sizeof(pid_t))
    {
        std::memcpy(&pid, bytes.data(), sizeof pid);
    }
    else if (type == typeProcessSerialNumber && bytes.size() == sizeof(ProcessSerialNumber))
    {
        ProcessSerialNumber psn;
        std::memcpy(&psn, bytes.data(), sizeof psn);
        if (GetProcessPID(&psn, &pid) != noErr)
        {
            return procNotFound;
        }
    }
    else if (type == typeApplicationBundleID)
    {
        target.portName = AEEventPort::BundlePortName(std::string(bytes.begin(), bytes.end()));
        target.self = AEEventPort::Serves(target.portName);
        return noErr;
    }
    else
    {
        return errAEUnknownAddressType;
    }
    target.self = pid == getpid();
    target.portName = AEEventPort::PidPortName(pid);
    return noErr;
}

double TimeoutSeconds(SInt32 ticks)
{
    if (ticks == kNoTimeOut)
    {
        return 1.0e10;
    }
    if (ticks < 0)
    {
        return kDefaultTimeoutSeconds;
    }
    return ticks / 60.0;
}

OSErr SendThroughPort(const AppleEvent* event, AppleEvent* reply, bool waitReply,
                      const std::string& portName, double timeout)
{
    CFStringRef name = CFStringCreateWithCString(nullptr, portName.c_str(), kCFStringEncodingUTF8);
    CFMessagePortRef remote = name ? CFMessagePortCreateRemote(nullptr, name) : nullptr;
    if (name)
    {
        CFRelease(name);
    }
    if (!remote)
    {
        return procNotFound;
    }

    std::vector<UInt8> flat(static_cast<size_t>(AESizeOfFlattenedDesc(event)));
    Size actual = 0;
    OSErr err =
        AEFlattenDesc(event, reinterpret_cast<Ptr>(flat.data()), Size(flat.size()), &actual);
    if (err != noErr)
    {
        CFRelease(remote);
        return err;
    }
    CFDataRef data = CFDataCreate(nullptr, flat.data(), CFIndex(flat.size()));
    CFDataRef replyData = nullptr;
    SInt32 result = CFMessagePortSendRequest(
        remote, waitReply ? AEEventPort::kWaitReplyMessage : AEEventPort::kNoReplyMessage, data,
        timeout, timeout, waitReply ? kReplyMode : nullptr, waitReply ? &replyData : nullptr);
    CFRelease(data);
    CFRelease(remote);

    switch (result)
    {
    case kCFMessagePortSuccess:
        break;
    case kCFMessagePortSendTimeout:
    case kCFMessagePortReceiveTimeout:
        return errAETimeout;
    default:
        return connectionInvalid;
    }
    if (!waitReply)
    {
        return noErr;
    }
    err = errAEReplyNotValid;
    if (replyData)
    {
        AppleEvent received;
        if (AEUnflattenDescFromBytes(CFDataGetBytePtr(replyData),
                                     static_cast<size_t>(CFDataGetLength(replyData)),
                                     &received) == noErr &&
            received.descriptorType == typeAppleEvent)
        {
            *reply = received;
            err = noErr;
        }
        else
        {
            AEDisposeDesc(&received);
        }
        CFRelease(replyData);
    }
    return err;
}
} // namespace

OSErr AESend(const AppleEvent* theAppleEvent, AppleEvent* reply, AESendMode sendMode,
             AESendPriority, SInt32 timeOutInTicks, AEIdleUPP, AEFilterUPP)
{
    if (reply)
    {
        AEInitializeDesc(reply);
    }
    if (!theAppleEvent || theAppleEvent->descriptorType != typeAppleEvent)
    {
        return errAENotAppleEvent;
    }
    AESendMode replyMode = sendMode & kAEWaitReply;
    if (replyMode == kAEQueueReply || replyMode == 0)
    {
        return errAEUnknownSendMode;
    }
    bool waitReply = replyMode == kAEWaitReply;
    if (waitReply && !reply)
    {
        return paramErr;
    }

    STarget target;
    OSErr err = ResolveTarget(theAppleEvent, target);
    if (err != noErr)
    {
        return err;
    }
    if (!target.self)
    {
        return SendThroughPort(theAppleEvent, reply, waitReply, target.portName,
                               TimeoutSeconds(timeOutInTicks));
    }
    AppleEvent ownReply;
    AEInitializeDesc(&ownReply);
    if (waitReply)
    {
        err = AEDispatch::CreateReply(theAppleEvent, &ownReply);
        if (err != noErr)
        {
            return err;
        }
    }
    AEDispatch::DispatchEvent(theAppleEvent, &ownReply);
    if (waitReply)
    {
        *reply = ownReply;
    }
    return noErr;
}
