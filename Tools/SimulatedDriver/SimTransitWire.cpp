#include "Tools/SimulatedDriver/SimTransitWire.h"

#include "Common/CEventPacket.h"
#include "Common/CKelException.h"
#include "Common/ECommand.h"
#include "Mac/Common/Communication/TransitRecord.h"

#include <cstring>

namespace
{
std::uint32_t Order32(std::uint32_t value_I, bool reverse_I)
{
    return reverse_I ? __builtin_bswap32(value_I) : value_I;
}

std::uint16_t Order16(std::uint16_t value_I, bool reverse_I)
{
    return reverse_I ? __builtin_bswap16(value_I) : value_I;
}
} // namespace

bool DecodeSimTransitRecord(const std::uint8_t* bytes_I, std::size_t size_I, bool otherByteOrder_I,
                            CEventPacket& packet_O, std::uint32_t& dataRoom_O, std::string& error_O)
{
    if (bytes_I == nullptr || size_I < kTransitRecordHeaderSize)
    {
        error_O = "transit record of " + std::to_string(size_I) + " bytes, shorter than its " +
                  std::to_string(kTransitRecordHeaderSize) + "-byte header";
        return false;
    }
    TransitRecord record{};
    std::memcpy(&record, bytes_I, kTransitRecordHeaderSize);
    const bool reverse = otherByteOrder_I;
    const std::uint32_t sizeOfData = Order32(record.sizeOfData, reverse);
    const std::uint32_t command = Order32(record.command, reverse);
    if (sizeOfData >= 0x10000)
    {
        error_O = "transit record announces " + std::to_string(sizeOfData) + " bytes of data";
        return false;
    }
    if (size_I - kTransitRecordHeaderSize < sizeOfData)
    {
        error_O = "transit record announces " + std::to_string(sizeOfData) +
                  " bytes of data and carries " + std::to_string(size_I - kTransitRecordHeaderSize);
        return false;
    }
    if (command > MAX_COMMAND)
    {
        error_O = "transit record with command " + std::to_string(command);
        return false;
    }

    packet_O.ClearEvent();
    packet_O.SetCommand(static_cast<ECommand>(command));
    packet_O.SetSourceOfRequest(
        static_cast<ESourceOfRequest>(Order32(record.sourceOfRequest, reverse)));
    for (const TransitKeyRecord& key : record.keys)
    {
        const std::uint16_t identifier = Order16(key.identifier, reverse);
        if (identifier == EObjectIDNothing)
        {
            break;
        }
        const std::uint32_t mode = Order32(key.mode, reverse);
        const std::uint32_t reference = Order32(key.reference, reverse);
        // The identifier is checked on a key of a plain mode; the mode is checked here.
        OBJECT_KEY check(static_cast<EEventIdentifier>(identifier), nullptr, EAddrModeByIndex);
        if (mode >= MAX_ADDRESSING_MODE || check.IsValid() != KELSTATUS_SUCCESS)
        {
            error_O = "transit record with key " + std::to_string(identifier) + " in mode " +
                      std::to_string(mode);
            return false;
        }
        try
        {
            if (mode == EAddrModeByString)
            {
                packet_O.AddKeyString(static_cast<EEventIdentifier>(identifier), "", false);
            }
            else
            {
                packet_O.AddKeyInt(static_cast<EEventIdentifier>(identifier), reference,
                                   static_cast<EAddressingMode>(mode));
            }
        }
        catch (const CKelException&)
        {
            error_O = "transit record with more keys than a packet holds";
            return false;
        }
    }
    packet_O.PackData(sizeOfData, bytes_I + kTransitRecordHeaderSize);
    dataRoom_O = sizeOfData;
    return true;
}

std::vector<std::uint8_t> EncodeSimTransitReply(const CEventPacket& answer_I, KELSTATUS status_I,
                                                std::uint32_t dataRoom_I, bool otherByteOrder_I)
{
    const std::uint32_t answerSize = answer_I.Buffer() == nullptr ? 0 : answer_I.SizeOfData();
    TransitRecordReturn returnRecord{};
    returnRecord.wStatus = Order32(status_I, otherByteOrder_I);
    returnRecord.returnDataSize = Order32(answerSize, otherByteOrder_I);

    std::vector<std::uint8_t> reply(kTransitRecordReturnSize + dataRoom_I, 0);
    std::memcpy(reply.data(), &returnRecord, kTransitRecordReturnSize);
    if (answerSize != 0 && answerSize <= dataRoom_I)
    {
        std::memcpy(reply.data() + kTransitRecordReturnSize, answer_I.Buffer(), answerSize);
    }
    return reply;
}
