// The event-queue payload: the special area of a serialized event packet.
//
// A Get whose last key is EParameterIDQueue and that has a data buffer may carry, behind
// its data, the events of a queue. The packet's data stays the requester's own and is not
// read here. The writer publishes its queue with an StEventQueueSource and passes
// EventQueueSizeHandler / EventQueueSerializeHandler to GetSerializedSize /
// SerializeToBuffer; the reader names where the events go with an StEventQueueSink and
// passes EventQueueCopyHandler to DeserializeFromBuffer. The handlers are plain function
// pointers, so the queue they work on is the one the innermost guard of the calling thread
// names.
//
// Special area layout (in the writer's byte order, like the rest of the block):
//
// | Offset | Size                     | Field       | Content                              |
// |--------|--------------------------|-------------|--------------------------------------|
// | 0      | 4                        | mMagic      | 'KTEQ', tells the reader the order   |
// | 4      | 4                        | mEventSize  | bytes of one event                   |
// | 8      | 4                        | mEventCount | events that follow                   |
// | 12     | mEventSize x mEventCount | events      | oldest first, opaque (never swapped) |
#pragma once

#include "Common/SerializedEventPacket.h"

#include <cstdint>
#include <vector>

constexpr std::uint32_t kEventQueueMagic = 'KTEQ';

struct __attribute__((packed)) SEventQueuePayloadHeader
{
    std::uint32_t mMagic;
    std::uint32_t mEventSize;
    std::uint32_t mEventCount;
};
static_assert(sizeof(SEventQueuePayloadHeader) == 12);

// A queue of fixed-size events, kept as their bytes. Bytes after the last whole event are
// not sent.
struct SEventQueue
{
    std::uint32_t mEventSize = 0;
    std::vector<unsigned char> mEvents;
};

// While alive, the serialization handlers of this thread send `queue_I`.
class StEventQueueSource
{
public:
    explicit StEventQueueSource(const SEventQueue& queue_I);
    ~StEventQueueSource();
    StEventQueueSource(const StEventQueueSource&) = delete;
    StEventQueueSource& operator=(const StEventQueueSource&) = delete;

private:
    const SEventQueue* mpPrevious;
};

// While alive, the copy handler of this thread appends received events to `queue_IO`. An
// empty queue with mEventSize 0 takes the sender's event size.
class StEventQueueSink
{
public:
    explicit StEventQueueSink(SEventQueue& queue_IO);
    ~StEventQueueSink();
    StEventQueueSink(const StEventQueueSink&) = delete;
    StEventQueueSink& operator=(const StEventQueueSink&) = delete;

private:
    SEventQueue* mpPrevious;
};

// Bytes of the special area for the current source (an empty queue without one).
unsigned int EventQueueSizeHandler(const void* data);

// Called twice by SerializeToBuffer: with a null write position to claim the fixup entry,
// then with the position and, in entry->mSize, the block's size. False when the payload
// does not fit behind `offset`.
bool EventQueueSerializeHandler(const void* data, FixupEntry* entry, unsigned int offset,
                                void* writePosition);

// Appends the events of the special area (entry->mSize bytes at specialData) to the current
// sink. False, with the sink unchanged, for a payload that is short, foreign, larger than
// the entry says, of another event size than the sink's, or without a sink.
bool EventQueueCopyHandler(const void* data, FixupEntry* entry, void* specialData);
