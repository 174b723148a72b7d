// Fuzz target for the simulated driver's port: any bytes under any message id, for a driver
// of either byte order, with or without packet messaging. Besides staying within the bytes
// and never throwing, a transit record reply is the 8-byte return record and exactly the
// room the request gave, and a packet reply decodes again.
//
// Input: byte 0 picks the message id (0 transit record, 1 'KEPK', 2 'ENDI', 3 'AEVT', other:
// an unknown id), byte 1 the driver (bit 0: other byte order, bit 1: no packet messaging),
// the rest is the message body.
#include "Fuzz/FuzzCheck.h"
#include "Mac/Common/Communication/MessageIDs.h"
#include "Mac/Common/Communication/TransitRecord.h"
#include "Tools/SimulatedDriver/CSimDriverResponder.h"
#include "Tools/SimulatedDriver/CSimulatedDriver.h"
#include "Tools/SimulatedDriver/SimPacketWire.h"

#include "Common/Settings/CSettingsMap.h"

#include <cstddef>
#include <cstdint>

namespace
{
SSimDriverConfig Config(std::uint8_t flags)
{
    SSimDriverConfig config;
    config.name = "fuzz";
    config.portName = kSimKeltoDriverPortName;
    config.version = FileVersion(6, 3, 0, FileVersion::EFinalVersion, 0);
    config.otherByteOrder = (flags & 1) != 0;
    config.endiannessCode = config.otherByteOrder ? 2 : 1;
    config.packetMessaging = (flags & 2) == 0;
    SSimTablet tablet;
    tablet.touchCapabilities = CSettingsMap::New();
    tablet.touchCapabilities->SetKeyAndInteger("MultiTouchMaxFingers", 10);
    config.tablets = {tablet, SSimTablet{}};
    config.lastTabletUsed = 0;
    config.appleEventErrorNumber =
        (flags & 4) != 0 ? std::optional<std::int32_t>(-1708) : std::nullopt;
    return config;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2)
    {
        return 0;
    }
    static constexpr std::int32_t kIDs[] = {kMessageIDTransitRecord, kMessageIDEventPacket,
                                            kMessageIDEndianness, kMessageIDAppleEvent};
    const std::int32_t msgid = data[0] < 4 ? kIDs[data[0]] : 'XXXX';
    CSimulatedDriver driver(Config(data[1]));
    CSimDriverResponder responder(driver);

    // The body in a buffer of exactly its size, so that any read beyond it is caught.
    std::vector<std::uint8_t> body(data + 2, data + size);
    SSimMessage message;
    responder.Read(msgid, body.empty() ? nullptr : body.data(), body.size(), message);
    std::string outcome;
    std::optional<std::vector<std::uint8_t>> reply = responder.Answer(message, outcome);
    if (!reply)
    {
        return 0;
    }
    if (msgid == kMessageIDTransitRecord)
    {
        Check(reply->size() == kTransitRecordReturnSize + message.dataRoom);
    }
    else if (msgid == kMessageIDEventPacket)
    {
        CEventPacket again;
        Check(DecodeSimPacket(reply->data(), reply->size(), again));
        Check(again.Command() == message.packet.Command());
    }
    return 0;
}
