#include "Tools/SimulatedDriver/SimPacketWire.h"

#include "Common/CEventPacket.h"
#include "Common/EventQueuePayload.h"

namespace
{
// This driver keeps no event queue: a queue request is answered with none, and the events
// of a request that carries some are read and dropped.
const SEventQueue& EmptyQueue()
{
    static const SEventQueue queue;
    return queue;
}
} // namespace

bool DecodeSimPacket(const std::uint8_t* bytes_I, std::size_t size_I, CEventPacket& packet_O)
{
    if (bytes_I == nullptr)
    {
        return false;
    }
    // The decoder swaps a block of the other order in place: work on a copy.
    std::vector<std::uint8_t> block(bytes_I, bytes_I + size_I);
    SEventQueue dropped;
    StEventQueueSink sink(dropped);
    return packet_O.DeserializeFromBuffer(block.data(), block.size(), EventQueueCopyHandler) ==
           KELSTATUS_SUCCESS;
}

std::vector<std::uint8_t> EncodeSimPacket(const CEventPacket& packet_I, bool otherByteOrder_I)
{
    StEventQueueSource source(EmptyQueue());
    std::vector<std::uint8_t> block(packet_I.GetSerializedSize(EventQueueSizeHandler));
    if (!packet_I.SerializeToBuffer(block.data(), block.size(), EventQueueSerializeHandler))
    {
        return {};
    }
    if (otherByteOrder_I)
    {
        ReverseSimPacketBlock(block);
    }
    return block;
}

void ReverseSimPacketBlock(std::vector<std::uint8_t>& block_IO)
{
    if (block_IO.size() < sizeof(SerializedEventPacketHeader))
    {
        return;
    }
    auto* packet = reinterpret_cast<SerializedEventPacket*>(block_IO.data());
    const std::uint32_t count = packet->header.mFixupCount;
    const std::uint32_t reversedCount = __builtin_bswap32(count);
    // FlipToHost reads the fixup count after reversing it, as a reader of a foreign block
    // must. Going from this order to the other, the count is reversed beforehand so that it
    // reads right, and then written reversed like every other field.
    packet->header.mFixupCount = reversedCount;
    CEventPacket::FlipToHost(packet);
    packet->header.mFixupCount = reversedCount;
}
