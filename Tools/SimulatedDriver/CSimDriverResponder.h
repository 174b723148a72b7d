// One message to a simulated driver's port, from the bytes received to the reply bytes.
//
//   'KEPK'  a serialized event packet in either byte order, answered by the driver and sent
//           back in the driver's order; an older driver (no packet messaging) and a block
//           that does not decode get no reply data
//   0       a transit record in the driver's order, answered within the room it gave
//           (SimTransitWire.h); a malformed record gets no reply data
//   'ENDI'  one byte, the driver's byte-order code; none when configured so
//   'AEVT'  a flattened Apple Event, answered with a reply event (SimAppleEventReply.h)
//   other   no reply data
//
// Reading and answering are two steps so that the port can apply a fault between them
// (knowing the request's kind before anything is answered).
#pragma once

#include "Common/CEventPacket.h"
#include "Tools/SimulatedDriver/SSimRequest.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

class CSimulatedDriver;

// One message as read.
struct SSimMessage
{
    std::int32_t msgid = 0;
    ESimRequestKind kind = ESimRequestKind::eOther;
    // The packet's command; none for 'ENDI', 'AEVT' and what was not understood.
    std::optional<int> command;
    // Whether the bytes were a well-formed message of a form the driver takes.
    bool understood = false;
    // What was wrong, or what the request asks ("get system-id tablet #0").
    std::string description;
    CEventPacket packet;
    SSimRequest request;
    std::uint32_t dataRoom = 0;
    // The received bytes ('AEVT' is answered from them); they belong to the caller.
    const std::uint8_t* bytes = nullptr;
    std::size_t size = 0;
};

class CSimDriverResponder
{
public:
    explicit CSimDriverResponder(CSimulatedDriver& driver_I) : mDriver(driver_I) {}

    void Read(std::int32_t msgid_I, const std::uint8_t* bytes_I, std::size_t size_I,
              SSimMessage& message_O) const;

    // The reply bytes, or none for no reply data. outcome_O gets the trace text of the
    // answer ("status 0x0000, 2 bytes of data").
    std::optional<std::vector<std::uint8_t>> Answer(SSimMessage& message_IO,
                                                    std::string& outcome_O);

private:
    CSimulatedDriver& mDriver;
};

// "'KEPK'" for a four-character id, the number otherwise.
std::string SimMessageIDText(std::int32_t msgid_I);
