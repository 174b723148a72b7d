// CKeltoTouchPort: the message port a touch client serves, by which the coordinator
// delivers touch capabilities to it.
//
// The port is named by the client's identifier and served on the run loop of the thread
// that opened it, in the common modes and in the messaging client's private reply mode, so
// that capabilities the coordinator sends while that thread waits for one of its own
// requests (a synchronisation it asked for, typically) are still taken.
//
// On the port, a 'KEPK' packet that delivers capabilities (see
// KeltoClientPackets::IsCapabilitiesDelivery) calls the handler with the array and is
// answered with status 0 and no data; a delivery whose data is no settings array is
// answered KELSTATUS_API_CORRUPT_DATA, any other packet KELSTATUS_METHOD_NOT_IMPLEMENTED,
// and bytes that are no packet, or other message ids, get no reply at all. The coordinator
// counts only a failed exchange against the client, so an odd packet never costs the
// registration.
//
// The object may be closed or released from inside its handler: it stays alive until the
// handler returns, and the delivery then goes unanswered (the port is gone). An exception thrown by
// the handler is caught here: nothing may unwind through the run loop.
#pragma once

#include "Client/CKeltoClient.h"

#include <CoreFoundation/CoreFoundation.h>

#include <memory>
#include <string>
#include <vector>

class CKeltoTouchPort : public std::enable_shared_from_this<CKeltoTouchPort>
{
public:
    using Handler = CKeltoClient::TouchCapabilitiesHandler;

    // Serves name_I on the current thread's run loop. KELSTATUS_RESOURCE_EXISTS when a port
    // of that name is served already (here or by another process), KELSTATUS_CANT_OPEN_PORT
    // when it cannot be made; port_O is set only on success.
    static KELSTATUS Open(const std::string& name_I, Handler handler_I,
                          std::shared_ptr<CKeltoTouchPort>& port_O);

    // Close().
    ~CKeltoTouchPort();
    CKeltoTouchPort(const CKeltoTouchPort&) = delete;
    CKeltoTouchPort& operator=(const CKeltoTouchPort&) = delete;

    // Stops serving the port; the name is free again at once. Idempotent.
    void Close();
    bool IsOpen() const { return mPort != nullptr; }
    const std::string& Name() const { return mName; }
    // Capability deliveries handed to the handler so far.
    unsigned int Deliveries() const { return mDeliveries; }
    // Whether the handler is running (the coordinator is waiting for this port's answer).
    bool InHandler() const { return mInHandler; }

    // The reply to one request on the port (empty: no reply); calls the handler for a
    // delivery. Public so that the decoding can be fuzzed without a port.
    std::vector<unsigned char> Answer(SInt32 messageID_I, const unsigned char* bytes_I,
                                      std::size_t size_I);

    // An object that serves nothing yet (Open serves one); it must be owned by a
    // std::shared_ptr. Public for the fuzz target, which drives Answer without a port.
    CKeltoTouchPort(std::string name_I, Handler handler_I);

private:
    static CFDataRef PortCallBack(CFMessagePortRef port_I, SInt32 messageID_I, CFDataRef data_I,
                                  void* info_I);

    std::string mName;
    Handler mHandler;
    CFMessagePortRef mPort = nullptr;
    CFRunLoopSourceRef mSource = nullptr;
    CFRunLoopRef mRunLoop = nullptr;
    unsigned int mDeliveries = 0;
    bool mInHandler = false;
};
