// CMacDriverMessageSendPort: a CDriverMessageSendPort over a CMacMessagingClient.
//
// SendKeltoEvent serializes the packet, sends it as 'KEPK' and decodes the reply into the
// same packet. The legacy pair (SendLegacyKeltoEvent, SendLegacyRequest) sends a packet as a
// transit record (TransitRecord.h) for drivers that predate event packets.
//
// Byte order: the driver answers 'ENDI' with one byte: 1 when it needs no byte reversal,
// any other non-zero value when its order is the reverse of ours, 0 (or nothing) when it
// does not say. SetupHostFlipper installs the matching flipper (CNotFlipper or CFlipper);
// the legacy send passes every record field through it and never reverses the data.
// Serialized packets carry their own byte order and need no flipper.
#pragma once

#include "Common/CFlipper.h"
#include "Mac/Common/Communication/CDriverMessageSendPort.h"
#include "Mac/Common/Communication/CMacMessagingClient.h"
#include "Mac/Common/Communication/TransitRecord.h"

#include <CoreFoundation/CoreFoundation.h>

#include <memory>

class CMacDriverMessageSendPort : public CDriverMessageSendPort
{
public:
    // Every port of the system waits this long for a send and for its reply, in seconds.
    static constexpr double kSendTimeout = 500.0;
    static constexpr double kReceiveTimeout = 500.0;

    CMacDriverMessageSendPort() = default;
    CMacDriverMessageSendPort(const CMacDriverMessageSendPort&) = delete;
    CMacDriverMessageSendPort& operator=(const CMacDriverMessageSendPort&) = delete;
    // Deletes the messaging client, then the flipper.
    ~CMacDriverMessageSendPort() override;

    // KELSTATUS_FAILURE without a messaging client (the packet is left alone) or when the
    // send fails (the packet's status becomes KELSTATUS_FAILURE). No reply at all sets the
    // packet's status to 0; an empty reply leaves the packet as it was sent; otherwise the
    // result of decoding the reply into the packet.
    KELSTATUS SendKeltoEvent(CEventPacket* packet_IO) override;

    // Makes the messaging client for portName_I (500 second time-outs), connected when asked.
    virtual KELSTATUS Init(CFStringRef portName_I, bool connect_I);

    // Replaces the flipper according to the driver's byte order. A driver that does not say
    // is taken to be of our order (with an assertion line) when its port is valid; with no
    // valid port the result is KELSTATUS_FAILURE and no flipper is left.
    virtual KELSTATUS SetupHostFlipper();
    virtual CMacMessagingClient* GetMessagingClient();
    // The stored code when it is non-zero (the coordinator never sets it); otherwise the
    // driver's answer to 'ENDI', asked anew each time, or 0.
    virtual unsigned char GetRemoteEndianness();
    // When a flipper is installed already, sets it up again.
    virtual void SetAutoFlipsData(bool autoFlipsData_I);

    bool IsValid() const;
    const CFlipper* GetFlipper() const { return mpFlipper.get(); }

    // Sends the packet as a transit record: keys 0 to 9, data size, source 0 and command,
    // each through the flipper, then the packet's data as it is. The driver's answer data is
    // written over the packet's data buffer in place (at most the request's size). receipt_O
    // (optional) gets the return record.
    KELSTATUS SendLegacyKeltoEvent(CEventPacket* packet_IO, TransitRecordReturn* receipt_O);

    // Sends the header of pTransitRec_IO (already in the driver's byte order) and the
    // record's data size in bytes of data_IO; reads the reply's return record, in our order,
    // into pTransitRec_IO->returnRec and, when its status is 0, the answer into data_IO (at
    // most the request's size and never beyond the reply). The result is the returned
    // status, or the send's failure (the return status is then left at 0xFFFF). A reply too
    // short to hold a return record counts as a failed send.
    KELSTATUS SendLegacyRequest(TransitRecord* pTransitRec_IO, void* data_IO);

private:
    bool mAutoFlipsData = true;
    std::unique_ptr<CFlipper> mpFlipper;
    std::unique_ptr<CMacMessagingClient> mpMessagingClient;
    unsigned char mRemoteEndianness = 0;
};
