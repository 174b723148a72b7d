// The 'KEPK' body of a simulated driver: a serialized event packet (layout in
// Common/SerializedEventPacket.h) read in either byte order and written in the order the
// driver presents.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class CEventPacket;

// Decodes exactly [bytes_I, bytes_I + size_I) into packet_O, in either byte order; false for
// anything that is not one whole block (the packet is then unusable). Never reads outside
// the bytes given.
bool DecodeSimPacket(const std::uint8_t* bytes_I, std::size_t size_I, CEventPacket& packet_O);

// The packet as a block. With otherByteOrder_I every field of the header, every key record
// and every fixup is written byte-reversed, as a process of the other byte order writes
// them; strings and data are never reversed. Empty if the packet cannot be serialized.
std::vector<std::uint8_t> EncodeSimPacket(const CEventPacket& packet_I, bool otherByteOrder_I);

// Reverses, in place, the fixed parts of a block written in this process's order.
void ReverseSimPacketBlock(std::vector<std::uint8_t>& block_IO);
