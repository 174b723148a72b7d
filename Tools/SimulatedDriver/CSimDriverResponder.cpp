#include "Tools/SimulatedDriver/CSimDriverResponder.h"

#include "Mac/Common/Communication/MessageIDs.h"
#include "Tools/SimulatedDriver/CSimulatedDriver.h"
#include "Tools/SimulatedDriver/SimAppleEventReply.h"
#include "Tools/SimulatedDriver/SimPacketWire.h"
#include "Tools/SimulatedDriver/SimTransitWire.h"

#include <cstdio>

namespace
{
std::string StatusText(KELSTATUS status_I)
{
    char text[16];
    std::snprintf(text, sizeof(text), "0x%04X", static_cast<unsigned>(status_I));
    return text;
}
} // namespace

std::string SimMessageIDText(std::int32_t msgid_I)
{
    std::string text = "'";
    const auto code = static_cast<std::uint32_t>(msgid_I);
    for (int shift = 24; shift >= 0; shift -= 8)
    {
        char c = static_cast<char>((code >> shift) & 0xFF);
        if (c < 0x20 || c >= 0x7F)
        {
            return std::to_string(msgid_I);
        }
        text += c;
    }
    return text + "'";
}

void CSimDriverResponder::Read(std::int32_t msgid_I, const std::uint8_t* bytes_I,
                               std::size_t size_I, SSimMessage& message_O) const
{
    message_O.msgid = msgid_I;
    message_O.bytes = bytes_I;
    message_O.size = size_I;
    message_O.understood = false;
    message_O.command.reset();
    message_O.kind = ESimRequestKind::eOther;

    switch (msgid_I)
    {
    case kMessageIDEventPacket:
    case kMessageIDTransitRecord:
    {
        std::string error;
        bool decoded =
            msgid_I == kMessageIDEventPacket
                ? DecodeSimPacket(bytes_I, size_I, message_O.packet)
                : DecodeSimTransitRecord(bytes_I, size_I, mDriver.Config().otherByteOrder,
                                         message_O.packet, message_O.dataRoom, error);
        if (!decoded)
        {
            message_O.description = error.empty() ? "not a serialized event packet (" +
                                                        std::to_string(size_I) + " bytes)"
                                                  : error;
            return;
        }
        message_O.request = ClassifySimRequest(message_O.packet);
        message_O.kind = message_O.request.kind;
        message_O.command = message_O.request.command;
        message_O.description = DescribeSimRequest(message_O.request);
        message_O.understood =
            msgid_I == kMessageIDTransitRecord || mDriver.Config().packetMessaging;
        if (!message_O.understood)
        {
            message_O.description += " (this driver takes transit records only)";
        }
        return;
    }
    case kMessageIDEndianness:
        message_O.kind = ESimRequestKind::eByteOrder;
        message_O.understood = true;
        message_O.description = "byte order";
        return;
    case kMessageIDAppleEvent:
        message_O.kind = ESimRequestKind::eAppleEvent;
        message_O.understood = true;
        message_O.description = "apple event";
        return;
    default:
        message_O.description = "unknown message id";
        return;
    }
}

std::optional<std::vector<std::uint8_t>> CSimDriverResponder::Answer(SSimMessage& message_IO,
                                                                     std::string& outcome_O)
{
    if (!message_IO.understood)
    {
        outcome_O = "no reply";
        return std::nullopt;
    }
    const SSimDriverConfig& config = mDriver.Config();
    switch (message_IO.msgid)
    {
    case kMessageIDEndianness:
        if (config.endiannessCode < 0)
        {
            outcome_O = "no reply";
            return std::nullopt;
        }
        outcome_O = "code " + std::to_string(config.endiannessCode);
        return std::vector<std::uint8_t>{static_cast<std::uint8_t>(config.endiannessCode)};

    case kMessageIDAppleEvent:
    {
        SSimAppleEventAnswer answer =
            AnswerSimAppleEvent(message_IO.bytes, message_IO.size, config);
        if (!answer.understood)
        {
            outcome_O = "not a flattened Apple Event, no reply";
            return std::nullopt;
        }
        outcome_O = answer.eventName;
        if (!answer.reply)
        {
            outcome_O += ", no reply";
            return std::nullopt;
        }
        if (config.appleEventErrorNumber)
        {
            outcome_O += ", errn " + std::to_string(*config.appleEventErrorNumber);
        }
        return answer.reply;
    }

    case kMessageIDEventPacket:
    {
        KELSTATUS status = mDriver.Process(message_IO.packet, message_IO.request);
        std::vector<std::uint8_t> block = EncodeSimPacket(message_IO.packet, config.otherByteOrder);
        outcome_O = "status " + StatusText(status) + ", " +
                    std::to_string(message_IO.packet.SizeOfData()) + " bytes of data";
        if (block.empty())
        {
            outcome_O += ", cannot be serialized, no reply";
            return std::nullopt;
        }
        return block;
    }

    default: // kMessageIDTransitRecord
    {
        KELSTATUS status = mDriver.Process(message_IO.packet, message_IO.request);
        outcome_O = "status " + StatusText(status) + ", " +
                    std::to_string(message_IO.packet.SizeOfData()) + " bytes of data in " +
                    std::to_string(message_IO.dataRoom) + " bytes of room";
        return EncodeSimTransitReply(message_IO.packet, status, message_IO.dataRoom,
                                     config.otherByteOrder);
    }
    }
}
