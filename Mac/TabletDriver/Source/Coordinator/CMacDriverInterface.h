// CMacDriverInterface: the send port of one of the two tablet driver processes.
//
// It finds out, at the first packet, whether its driver speaks serialized event packets or
// only legacy transit records, by asking the driver's file version with a transit record,
// and sends every later packet in that form; and it forwards Apple Events to the driver.
//
//   driver ID  port name (behind "com.kelto")          event packets from version
//   'KlKT'     ".KeltoTabletDriverMessageServer"       6.1.2
//   'KlPT'     ".PenTabletDriverMessageServer"         5.2.0
//   other      any                                     never (always transit records)
//
// The messaging type moves from 'KNIN' (not known) to 0 (transit records) or 'KEPK' at the
// first probe that gets an answer and never changes afterwards, even when the driver
// restarts; a failed probe leaves 'KNIN' and the next packet probes again.
#pragma once

#include "Mac/Common/Communication/CMacDriverMessageSendPort.h"

#include <CoreServices/CoreServices.h>

#include <cstdint>

class CMacDriverInterface : public CMacDriverMessageSendPort
{
public:
    static constexpr std::uint32_t kDriverIDUnknown = 0x3F3F3F3F; // '????'
    static constexpr std::uint32_t kMessagingTypeUnknown = 'KNIN';
    static constexpr std::uint32_t kMessagingTypeLegacy = 0;
    static constexpr std::uint32_t kMessagingTypeEventPacket = 'KEPK';

    CMacDriverInterface() = default;
    ~CMacDriverInterface() override;

    // Probes the messaging type first while it is not known; then sends as an event packet
    // or as a transit record (whose status is also stored in the packet). While the type is
    // still unknown the result is KELSTATUS_FAILURE and the packet is left alone.
    KELSTATUS SendKeltoEvent(CEventPacket* packet_IO) override;
    // Keeps the driver ID.
    KELSTATUS Init(CFStringRef portName_I, bool connect_I) override;
    // The base Init, then the driver ID (stored also when Init failed).
    virtual KELSTATUS Init(std::uint32_t driverID_I, CFStringRef portName_I, bool connect_I);
    // Sends the flattened event as 'AEVT' and hands the reply event to reply_O when the
    // result is 0 (the caller then owns it). Results: 513 without a messaging client, -50
    // (paramErr) when the send fails, the error number of an 'errn' first item of the reply,
    // otherwise that of flattening or unflattening.
    virtual OSStatus ForwardAppleEvent(AEDesc* event_I, AEDesc* reply_O);

    std::uint32_t GetDriverID() const { return mDriverID; }
    std::uint32_t GetMessagingType() const { return mMessagingType; }

private:
    void DetermineMessagingType();

    std::uint32_t mDriverID = kDriverIDUnknown;
    std::uint32_t mMessagingType = kMessagingTypeUnknown;
};
