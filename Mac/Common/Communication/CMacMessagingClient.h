// CMacMessagingClient: a connection to another process's named message port, with send and
// receive time-outs.
//
// A client is connected or disconnected. It connects at creation when asked to, and on the
// next send after its port became invalid (the other process quit or restarted) it
// reconnects by itself, once. While a send waits for its reply, the calling thread runs its
// run loop in the mode returned by the virtual GetRunLoopMode(): by default the private mode
// below, to which every CMacMessagingServer's port is attached as well, so that the thread
// keeps serving its own port while it waits (re-entrancy on one thread, no locks).
//
// At most kMaxWaitingRequests sends wait on one client at once (each further one is nested
// in the wait of the one before). Past that a send fails at once with KELSTATUS_FAILURE
// instead of waiting too: a stopped or stuck peer (a driver under SIGSTOP) then holds only
// that many levels of the thread's nesting, and everything else it serves (its own queries,
// requests for the other driver) is still answered at once.
//
// Used only on the thread that owns the run loop.
#pragma once

#include "Common/KelStatus.h"

#include <CoreFoundation/CoreFoundation.h>

#include <memory>

// "CMacMessagingClientMode": the run loop mode shared by clients and servers.
extern const CFStringRef kMacMessagingClientRunLoopMode;

class CMacMessagingClient
{
public:
    // Makes a client, stores it into client_O at once, sets both time-outs, copies the name
    // and sets the run loop mode to "CMacMessagingClientMode". With connect_I the result is
    // that of Connect(); otherwise 0 and no connection.
    static KELSTATUS AllocateAndInitInstance(std::unique_ptr<CMacMessagingClient>& client_O,
                                             CFStringRef portName_I, double sendTimeout_I,
                                             double receiveTimeout_I, bool connect_I);

    CMacMessagingClient() = default;
    CMacMessagingClient(const CMacMessagingClient&) = delete;
    CMacMessagingClient& operator=(const CMacMessagingClient&) = delete;
    // Disconnects and releases the name and the mode.
    virtual ~CMacMessagingClient();

    // The mode in which SendRawRequest waits for replies.
    virtual CFStringRef GetRunLoopMode() const;

    // The settings of AllocateAndInitInstance for an existing object; never connects.
    KELSTATUS Init(CFStringRef portName_I, double sendTimeout_I, double receiveTimeout_I);

    // KELSTATUS_DEVICE_ALREADY_OPEN (with an assertion line) when a port is held, which is
    // kept; KELSTATUS_FAILURE when no valid port of that name can be had.
    KELSTATUS Connect();
    void Disconnect();
    bool IsValid() const;

    // Sends one request and waits for the reply. On success *pReply_O holds the reply,
    // owned by the caller, or null when the other side answered nothing; on failure it is
    // left untouched. Results: 0; KELSTATUS_OS_BAD_RESOURCE for a send time-out or an
    // invalid port; KELSTATUS_RESOURCE_FULL when the other side refused the connection or
    // the request (too many connections, a frame too large); KELSTATUS_FAILURE for no
    // port, a receive time-out and every other transport failure. That the two time-outs map
    // differently is old behaviour that callers rely on, and it is kept.
    KELSTATUS SendRawRequest(SInt32 msgid_I, CFDataRef data_I, CFDataRef* pReply_O);

    // Retains the new mode before releasing the old one, so setting the same mode is safe;
    // null is allowed.
    void SetRunLoopMode(CFStringRef mode_I);
    void GetSendReceiveTimeouts(double& sendTimeout_O, double& receiveTimeout_O) const;
    void SetSendReceiveTimeouts(double sendTimeout_I, double receiveTimeout_I);

    // The KELSTATUS of a CFMessagePortSendRequest result, as SendRawRequest reports it.
    static KELSTATUS StatusForPortResult(SInt32 portResult_I);

    // Sends waiting on one client at once: above what eight busy clients of one driver
    // need, and with both drivers stopped still well inside the port server's 32 nested
    // deliveries.
    static constexpr int kMaxWaitingRequests = 12;

private:
    // Shared with each send under way, which may outlive the object (a call-back run during
    // the wait may destroy it).
    std::shared_ptr<int> mWaiting = std::make_shared<int>(0);
    double mSendTimeout = 0.0;
    double mReceiveTimeout = 0.0;
    CFMessagePortRef mMessagePortRef = nullptr;
    CFStringRef mPortName = nullptr;
    CFStringRef mRunLoopMode = nullptr;
};
