// Receiving Apple Events on the application's message ports.
#include "Compat/AEEventPort.h"

#include "Compat/AEDispatch.h"

#include <CoreServices/CoreServices.h>

#include <mutex>
#include <unistd.h>
#include <vector>

namespace
{
struct SPorts
{
    std::mutex mutex;
    bool opened = false;
    std::vector<std::string> names;
    std::vector<CFMessagePortRef> ports; // kept for the life of the process
};

SPorts& Ports()
{
    static SPorts* ports = new SPorts; // never destroyed: served until the process ends
    return *ports;
}

CFDataRef Serve(CFMessagePortRef, SInt32 messageID, CFDataRef data, void*)
{
    if (!data)
    {
        return nullptr;
    }
    return AEEventPort::HandleRequest(messageID, CFDataGetBytePtr(data), CFDataGetLength(data));
}

std::string UTF8(CFStringRef string)
{
    CFIndex size =
        CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8) + 1;
    std::string buffer(static_cast<size_t>(size), '\0');
    if (!CFStringGetCString(string, buffer.data(), size, kCFStringEncodingUTF8))
    {
        return {};
    }
    buffer.resize(std::char_traits<char>::length(buffer.c_str()));
    return buffer;
}

bool OpenPort(SPorts& ports, const std::string& name, CFRunLoopRef runLoop)
{
    CFStringRef cfName = CFStringCreateWithCString(nullptr, name.c_str(), kCFStringEncodingUTF8);
    if (!cfName)
    {
        return false;
    }
    Boolean shouldFreeInfo = false;
    CFMessagePortRef port =
        CFMessagePortCreateLocal(nullptr, cfName, Serve, nullptr, &shouldFreeInfo);
    CFRelease(cfName);
    if (!port)
    {
        return false;
    }
    CFRunLoopSourceRef source = CFMessagePortCreateRunLoopSource(nullptr, port, 0);
    CFRunLoopAddSource(runLoop, source, kCFRunLoopCommonModes);
    CFRelease(source);
    ports.ports.push_back(port);
    ports.names.push_back(name);
    return true;
}
} // namespace

std::string AEEventPort::PidPortName(pid_t pid)
{
    return "AppleEvents.pid." + std::to_string(pid);
}

std::string AEEventPort::BundlePortName(const std::string& bundleIdentifier)
{
    return "AppleEvents.bundle." + bundleIdentifier;
}

bool AEEventPort::Open(CFRunLoopRef runLoop)
{
    SPorts& ports = Ports();
    std::lock_guard<std::mutex> lock(ports.mutex);
    if (ports.opened)
    {
        return !ports.ports.empty();
    }
    ports.opened = true;
    bool opened = OpenPort(ports, PidPortName(getpid()), runLoop);
    CFBundleRef bundle = CFBundleGetMainBundle();
    CFStringRef identifier = bundle ? CFBundleGetIdentifier(bundle) : nullptr;
    if (identifier)
    {
        // Taken by another running copy: that one receives the events for the bundle.
        OpenPort(ports, BundlePortName(UTF8(identifier)), runLoop);
    }
    return opened;
}

bool AEEventPort::Serves(const std::string& portName)
{
    SPorts& ports = Ports();
    std::lock_guard<std::mutex> lock(ports.mutex);
    for (const std::string& name : ports.names)
    {
        if (name == portName)
        {
            return true;
        }
    }
    return false;
}

CFDataRef AEEventPort::HandleRequest(SInt32 messageID, const UInt8* bytes, CFIndex length)
{
    if ((messageID != kWaitReplyMessage && messageID != kNoReplyMessage) || length < 0)
    {
        return nullptr;
    }
    AppleEvent event;
    if (AEUnflattenDescFromBytes(bytes, static_cast<size_t>(length), &event) != noErr)
    {
        return nullptr;
    }
    CFDataRef result = nullptr;
    AppleEvent reply;
    AEInitializeDesc(&reply);
    if (event.descriptorType == typeAppleEvent &&
        (messageID == kNoReplyMessage || AEDispatch::CreateReply(&event, &reply) == noErr))
    {
        AEDispatch::DispatchEvent(&event, &reply);
        if (messageID == kWaitReplyMessage)
        {
            std::vector<UInt8> flat(static_cast<size_t>(AESizeOfFlattenedDesc(&reply)));
            Size actual = 0;
            if (AEFlattenDesc(&reply, reinterpret_cast<Ptr>(flat.data()), Size(flat.size()),
                              &actual) == noErr)
            {
                result = CFDataCreate(nullptr, flat.data(), CFIndex(flat.size()));
            }
        }
    }
    AEDisposeDesc(&reply);
    AEDisposeDesc(&event);
    return result;
}
