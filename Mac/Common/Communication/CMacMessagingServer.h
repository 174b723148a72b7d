// CMacMessagingServer: a named local message port served on the run loop of the thread that
// made it.
//
// The port's callback (given by the owner, which passes this server as `info`) hands each
// request to ProcessRequest: a serialized event packet ('KEPK') or a transit record
// (message id 0) is rebuilt into a CEventPacket, given to the process-event callback, and the
// answered packet goes back as the reply. The port's run loop source is added to the common
// modes and to "CMacMessagingClientMode", so requests are also served while the same thread
// waits in a CMacMessagingClient send for a reply of its own.
//
// Destroying the server invalidates its port, removes the source from the common modes (not
// from the private mode) and stops the run loop it served: the server's end ends that loop,
// deliberately.
#pragma once

#include "Common/KelStatus.h"

#include <CoreFoundation/CoreFoundation.h>

#include <memory>

class CEventPacket;

// Handles one request packet in place; the outcome travels in the packet's status.
using ProcessEventCallbackProc = KELSTATUS (*)(CEventPacket* packet_IO, void* userData_I);

class CMacMessagingServer
{
public:
    // Makes a server with every field cleared, stores it into server_O before anything else,
    // then aborts the process when callBackFunction_I is null and otherwise returns Init().
    static KELSTATUS AllocateAndInitInstance(CFStringRef name_I,
                                             CFMessagePortCallBack callBackFunction_I,
                                             std::unique_ptr<CMacMessagingServer>& server_O,
                                             void* info_I);

    CMacMessagingServer() = default;
    CMacMessagingServer(const CMacMessagingServer&) = delete;
    CMacMessagingServer& operator=(const CMacMessagingServer&) = delete;
    virtual ~CMacMessagingServer();

    // Creates the local port (every request calls callBackFunction_I with info_I) and
    // attaches it to the current thread's run loop. A name already served shows as three
    // failed attempts one second apart, each with an assertion line, and KELSTATUS_FAILURE.
    KELSTATUS Init(CFStringRef name_I, CFMessagePortCallBack callBackFunction_I, void* info_I);

    void SetProcessEventCallback(ProcessEventCallbackProc callback_I, void* userData_I);
    CFRunLoopRef GetRunLoop() const { return mRunLoop; }

    // The reply to one request, owned by the caller (the port releases it), or null for an
    // empty reply: 'KEPK' and 0 are handled below, every other id gets null.
    CFDataRef ProcessRequest(CFDataRef data_I, SInt32 msgid_I);

    // Decodes the packet from a copy of the data (bounded by the bytes received), runs the
    // process-event callback on it and answers the packet serialized again. A block that
    // does not decode leaves the packet empty, and the empty packet is processed and answered.
    CFDataRef ProcessEventPacketMessage(CFDataRef data_I);

    // Serves one transit record (layout in TransitRecord.h). A malformed record gets no
    // reply at all and one line in the system log. Two checks on the answer abort the
    // process, as they always have: an answer smaller than the request's data, and an answer
    // of 1000 bytes or more.
    CFDataRef ProcessTransitRecordMessage(CFDataRef data_I);

private:
    CFMessagePortRef mMessagePort = nullptr;
    CFRunLoopSourceRef mRunLoopSource = nullptr;
    CFRunLoopRef mRunLoop = nullptr;
    ProcessEventCallbackProc mProcessEventCallback = nullptr;
    void* mCallbackUserData = nullptr;
};
