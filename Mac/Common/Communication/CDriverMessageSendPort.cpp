#include "Mac/Common/Communication/CDriverMessageSendPort.h"

#include "Mac/Common/Communication/CMacDriverMessageSendPort.h"

#include <CoreFoundation/CoreFoundation.h>

std::shared_ptr<CDriverMessageSendPort> CDriverMessageSendPort::New(const std::string& name,
                                                                    bool /*connect*/)
{
    CFStringRef portName =
        CFStringCreateWithCString(kCFAllocatorDefault, name.c_str(), kCFStringEncodingUTF8);
    if (portName == nullptr)
    {
        return nullptr;
    }
    auto port = std::make_shared<CMacDriverMessageSendPort>();
    // Always connected at once, whatever the caller asked for: a touch client registers
    // from its own running port, and a name that cannot be reached now is of no use.
    const KELSTATUS status = port->Init(portName, true);
    CFRelease(portName);
    if (status != KELSTATUS_SUCCESS)
    {
        return nullptr;
    }
    return port;
}
