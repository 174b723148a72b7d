#include <CoreFoundation/CFMessagePort.h>

#include "Compat/CFRunLoopPrivate.h"
#include "Compat/CFRuntime.h"
#include "Compat/CPortClient.h"
#include "Compat/CPortServer.h"
#include "Compat/PortDirectory.h"

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <syslog.h>

using CFRuntime::Fatal;

struct __CFMessagePort : CFRuntime::CFObject
{
    __CFMessagePort() : CFObject(CFRuntime::eTypeIDMessagePort) {}
    ~__CFMessagePort() override
    {
        CFMessagePortInvalidate(this);
        if (mSource != nullptr)
        {
            CFRelease(mSource);
        }
        if (mNameString != nullptr)
        {
            CFRelease(mNameString);
        }
    }

    bool mIsRemote = false;
    std::string mName; // UTF-8; empty for a local port without a name
    CFStringRef mNameString = nullptr;
    std::atomic<bool> mValid{true};
    CFMessagePortCallBack mCallout = nullptr;
    CFMessagePortContext mContext{};
    std::shared_ptr<CPortServer> mServer; // local ports
    std::shared_ptr<CPortClient> mClient; // remote ports
    CFRunLoopSourceRef mSource = nullptr; // owned; made on first request
};

namespace
{
// The ports of this process by name, not retained: a port leaves its table when it is
// invalidated, which its destruction does first.
std::mutex gRegistryLock;
std::map<std::string, __CFMessagePort*> gLocalPorts;
std::map<std::string, __CFMessagePort*> gRemotePorts;

__CFMessagePort* Port(CFMessagePortRef port, const char* function)
{
    CFRuntime::Object(port, function);
    if (port->mTypeID != CFRuntime::eTypeIDMessagePort)
    {
        Fatal(function, "not a CFMessagePort");
    }
    return port;
}

// A registered valid port of that name, retained for the caller.
__CFMessagePort* FindRegistered(std::map<std::string, __CFMessagePort*>& table,
                                const std::string& name)
{
    std::lock_guard<std::mutex> guard(gRegistryLock);
    auto found = table.find(name);
    if (found == table.end() || !found->second->mValid.load())
    {
        return nullptr;
    }
    return CFRuntime::Retained(found->second);
}

void Unregister(__CFMessagePort* port)
{
    std::lock_guard<std::mutex> guard(gRegistryLock);
    auto& table = port->mIsRemote ? gRemotePorts : gLocalPorts;
    auto found = table.find(port->mName);
    if (found != table.end() && found->second == port)
    {
        table.erase(found);
    }
}

__CFMessagePort* NewPort(CFStringRef name, bool isRemote)
{
    auto* port = new __CFMessagePort;
    port->mIsRemote = isRemote;
    if (name != nullptr)
    {
        port->mName = CFRuntime::StringUTF8(name);
        port->mNameString = CFStringCreateCopy(nullptr, name);
    }
    return port;
}

// Why a local port cannot be served, in the system log: the one place where the user of a
// program that refuses to start learns that the port directory is at fault. Said once per
// reason, not at every retry.
void ReportUnfitDirectory(const std::string& error)
{
    static std::mutex lock;
    static std::string lastReported;
    std::lock_guard<std::mutex> guard(lock);
    if (error != lastReported)
    {
        lastReported = error;
        syslog(LOG_ERR, "Message ports cannot be served: %s", error.c_str());
    }
}

// Runs the port's call-back for one request; the port stays alive through it.
CFDataRef DeliverToCallout(__CFMessagePort* port, SInt32 msgid, CFDataRef data)
{
    if (!port->mValid.load() || port->mCallout == nullptr)
    {
        return nullptr;
    }
    CFRetain(port);
    CFDataRef reply = port->mCallout(port, msgid, data, port->mContext.info);
    CFRelease(port);
    return reply;
}
} // namespace

CFMessagePortRef CFMessagePortCreateLocal(CFAllocatorRef, CFStringRef name,
                                          CFMessagePortCallBack callout,
                                          CFMessagePortContext* context, Boolean* shouldFreeInfo)
{
    if (shouldFreeInfo != nullptr)
    {
        *shouldFreeInfo = true;
    }
    std::shared_ptr<CPortServer> server;
    if (name != nullptr)
    {
        const std::string utf8 = CFRuntime::StringUTF8(name);
        if (__CFMessagePort* existing = FindRegistered(gLocalPorts, utf8))
        {
            return existing;
        }
        std::string error;
        const std::string directory = PortDirectory::Resolve(&error);
        if (directory.empty())
        {
            ReportUnfitDirectory(error);
            return nullptr;
        }
        CPortServer::EOpen result;
        server = CPortServer::Open(directory, utf8, result);
        if (!server)
        {
            return nullptr;
        }
    }
    __CFMessagePort* port = NewPort(name, false);
    port->mCallout = callout;
    if (context != nullptr)
    {
        port->mContext = *context;
        if (context->retain != nullptr)
        {
            port->mContext.info = const_cast<void*>(context->retain(context->info));
        }
    }
    if (server)
    {
        server->SetDeliver([port](SInt32 msgid, CFDataRef data)
                           { return DeliverToCallout(port, msgid, data); });
        port->mServer = std::move(server);
        std::lock_guard<std::mutex> guard(gRegistryLock);
        gLocalPorts[port->mName] = port;
    }
    if (shouldFreeInfo != nullptr)
    {
        *shouldFreeInfo = false;
    }
    return port;
}

CFMessagePortRef CFMessagePortCreateRemote(CFAllocatorRef, CFStringRef name)
{
    if (name == nullptr)
    {
        return nullptr;
    }
    const std::string utf8 = CFRuntime::StringUTF8(name);
    if (__CFMessagePort* existing = FindRegistered(gRemotePorts, utf8))
    {
        if (CFMessagePortIsValid(existing))
        {
            return existing;
        }
        CFRelease(existing); // its server went away: connect anew
    }
    std::string error;
    const std::string directory = PortDirectory::Resolve(&error);
    if (directory.empty())
    {
        return nullptr;
    }
    std::shared_ptr<CPortClient> client =
        CPortClient::Connect(directory + "/" + PortDirectory::FileName(utf8));
    if (!client)
    {
        return nullptr;
    }
    __CFMessagePort* port = NewPort(name, true);
    client->SetOnBroken([port] { CFMessagePortInvalidate(port); });
    port->mClient = std::move(client);
    std::lock_guard<std::mutex> guard(gRegistryLock);
    gRemotePorts[utf8] = port;
    return port;
}

Boolean CFMessagePortIsValid(CFMessagePortRef ms)
{
    __CFMessagePort* port = Port(ms, "CFMessagePortIsValid");
    if (port->mValid.load() && port->mClient)
    {
        port->mClient->IsAlive(); // invalidates the port if the server went away
    }
    return port->mValid.load();
}

void CFMessagePortInvalidate(CFMessagePortRef ms)
{
    __CFMessagePort* port = Port(ms, "CFMessagePortInvalidate");
    if (!port->mValid.exchange(false))
    {
        return;
    }
    // Nothing below may drop the last reference while the port is still being torn down;
    // during destruction the count is already 0 and stays untouched.
    const bool alive = port->mRetainCount.load() > 0;
    if (alive)
    {
        CFRetain(port);
    }
    Unregister(port);
    if (port->mServer)
    {
        port->mServer->Close();
    }
    if (port->mClient)
    {
        port->mClient->Close();
    }
    if (port->mSource != nullptr)
    {
        CFRunLoopSourceInvalidate(port->mSource);
    }
    if (port->mContext.release != nullptr)
    {
        port->mContext.release(port->mContext.info);
    }
    if (alive)
    {
        CFRelease(port);
    }
}

SInt32 CFMessagePortSendRequest(CFMessagePortRef remote, SInt32 msgid, CFDataRef data,
                                CFTimeInterval sendTimeout, CFTimeInterval rcvTimeout,
                                CFStringRef replyMode, CFDataRef* returnData)
{
    __CFMessagePort* port = Port(remote, "CFMessagePortSendRequest");
    // Whether the server is still there is found out by the send itself (see SendRequest).
    if (!port->mIsRemote || !port->mValid.load())
    {
        return kCFMessagePortIsInvalid;
    }
    // The client outlives the port if a call-back run during the wait releases the port.
    const std::shared_ptr<CPortClient> client = port->mClient;
    return client->SendRequest(msgid, data, sendTimeout, rcvTimeout, replyMode, returnData);
}

CFRunLoopSourceRef CFMessagePortCreateRunLoopSource(CFAllocatorRef, CFMessagePortRef local,
                                                    CFIndex order)
{
    __CFMessagePort* port = Port(local, "CFMessagePortCreateRunLoopSource");
    if (port->mIsRemote || !port->mValid.load())
    {
        return nullptr;
    }
    if (port->mSource == nullptr)
    {
        std::shared_ptr<CFRunLoopPrivate::IFdHandler> handler = port->mServer;
        if (!handler)
        {
            // A port without a name has no socket; its source never fires.
            struct SIdle : CFRunLoopPrivate::IFdHandler
            {
                void CollectWatches(std::vector<CFRunLoopPrivate::SWatch>&) override {}
                void Handle(int, short) override {}
            };
            handler = std::make_shared<SIdle>();
        }
        port->mSource = CFRunLoopPrivate::CreateFdSource(order, std::move(handler));
    }
    return CFRuntime::Retained(port->mSource);
}
