// Fuzz target for the decoding of serialized event packets received from another process:
// the checked CEventPacket::DeserializeFromBuffer over exactly the bytes received, with the
// event-queue copy handler. Besides staying within the bytes and never throwing, whatever
// decodes must serialize again and decode to the same packet, and serializing that packet
// must give the same block again.
#include "Common/CEventPacket.h"
#include "Common/EventQueuePayload.h"
#include "Fuzz/FuzzCheck.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace
{
bool SameKey(const OBJECT_KEY& a, const OBJECT_KEY& b)
{
    if (a.mAddressingMode != b.mAddressingMode || a.mIdentifier != b.mIdentifier)
    {
        return false;
    }
    if (a.mAddressingMode == EAddrModeByString)
    {
        return std::strcmp(a.String(), b.String()) == 0;
    }
    return a.mReference == b.mReference;
}

bool SamePacket(const CEventPacket& a, const CEventPacket& b)
{
    for (unsigned int place = 0; place <= MAX_KEY; ++place)
    {
        if (!SameKey(*a.ObjectKey(place), *b.ObjectKey(place)))
        {
            return false;
        }
    }
    return a.Command() == b.Command() && a.Status() == b.Status() &&
           a.SourceOfRequest() == b.SourceOfRequest() && a.RequestWord() == b.RequestWord() &&
           a.SizeOfData() == b.SizeOfData() &&
           (a.SizeOfData() == 0 || std::memcmp(a.Buffer(), b.Buffer(), a.SizeOfData()) == 0);
}

std::vector<std::uint8_t> Serialize(const CEventPacket& packet, const SEventQueue& queue)
{
    StEventQueueSource source(queue);
    std::vector<std::uint8_t> block(packet.GetSerializedSize(EventQueueSizeHandler));
    Check(packet.SerializeToBuffer(block.data(), block.size(), EventQueueSerializeHandler));
    return block;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // An exact-size copy: the block is decoded (and maybe swapped) in place, and any access
    // past the bytes received lands outside the allocation.
    std::unique_ptr<std::uint8_t[]> received(new std::uint8_t[size == 0 ? 1 : size]);
    if (size != 0)
    {
        std::memcpy(received.get(), data, size);
    }

    CEventPacket packet;
    SEventQueue events;
    {
        StEventQueueSink sink(events);
        if (packet.DeserializeFromBuffer(received.get(), size, EventQueueCopyHandler) !=
            KELSTATUS_SUCCESS)
        {
            return 0;
        }
    }

    std::vector<std::uint8_t> block = Serialize(packet, events);
    const std::vector<std::uint8_t> written = block;
    CEventPacket again;
    SEventQueue eventsAgain;
    {
        StEventQueueSink sink(eventsAgain);
        Check(again.DeserializeFromBuffer(block.data(), block.size(), EventQueueCopyHandler) ==
              KELSTATUS_SUCCESS);
    }
    Check(SamePacket(packet, again));
    // Events travel again only with a queue request; any packet may have carried some.
    const bool queueRequest = packet.Command() == ECommandGet && packet.Buffer() != nullptr &&
                              packet.LastObjectKey()->Identifier() == EParameterIDQueue;
    Check(eventsAgain.mEvents == (queueRequest ? events.mEvents : std::vector<unsigned char>()));
    Check(Serialize(again, eventsAgain) == written);
    return 0;
}
