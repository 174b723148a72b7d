// The transit record body (message id 0) of a simulated driver: the legacy request form,
// read and answered in the byte order the driver presents. Layout in
// Mac/Common/Communication/TransitRecord.h.
//
// The driver answers within the room the request gave: the reply is the return record
// followed by exactly the request's sizeOfData bytes, holding the answer when it fits (the
// rest zero) and nothing when it does not; returnDataSize is the answer's own size either
// way. An old driver cannot give back more than it was sent, so a request sent without data
// gets no data back.
#pragma once

#include "Common/KelStatus.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class CEventPacket;

// Decodes one transit record (header fields reversed when otherByteOrder_I) into packet_O
// and gives the request's data size in dataRoom_O. False, with the reason in error_O, for a
// record that is short, announces more data than it carries or 0x10000 bytes or more, or
// holds a command or key that no packet can hold; a string key arrives as an empty string,
// since only its reference travels.
bool DecodeSimTransitRecord(const std::uint8_t* bytes_I, std::size_t size_I, bool otherByteOrder_I,
                            CEventPacket& packet_O, std::uint32_t& dataRoom_O,
                            std::string& error_O);

// The reply to a transit record: the return record (status, the answer's size) and
// dataRoom_I bytes of answer.
std::vector<std::uint8_t> EncodeSimTransitReply(const CEventPacket& answer_I, KELSTATUS status_I,
                                                std::uint32_t dataRoom_I, bool otherByteOrder_I);
