#include "Common/EventQueuePayload.h"

#include <cstring>

namespace
{
thread_local const SEventQueue* tSource = nullptr;
thread_local SEventQueue* tSink = nullptr;

std::uint32_t WholeEvents(const SEventQueue& queue)
{
    return queue.mEventSize == 0
               ? 0
               : static_cast<std::uint32_t>(queue.mEvents.size() / queue.mEventSize);
}
} // namespace

StEventQueueSource::StEventQueueSource(const SEventQueue& queue_I) : mpPrevious(tSource)
{
    tSource = &queue_I;
}

StEventQueueSource::~StEventQueueSource()
{
    tSource = mpPrevious;
}

StEventQueueSink::StEventQueueSink(SEventQueue& queue_IO) : mpPrevious(tSink)
{
    tSink = &queue_IO;
}

StEventQueueSink::~StEventQueueSink()
{
    tSink = mpPrevious;
}

unsigned int EventQueueSizeHandler(const void* /*data*/)
{
    const std::uint32_t events = tSource ? WholeEvents(*tSource) : 0;
    const std::uint32_t eventSize = tSource ? tSource->mEventSize : 0;
    return static_cast<unsigned int>(sizeof(SEventQueuePayloadHeader) + events * eventSize);
}

bool EventQueueSerializeHandler(const void* /*data*/, FixupEntry* entry, unsigned int offset,
                                void* writePosition)
{
    if (entry == nullptr)
    {
        return false;
    }
    if (writePosition == nullptr)
    {
        *entry = FixupEntry{eFixupSpecial, 0, 0, 0};
        return true;
    }
    const SEventQueuePayloadHeader header{kEventQueueMagic, tSource ? tSource->mEventSize : 0,
                                          tSource ? WholeEvents(*tSource) : 0};
    const std::uint64_t eventBytes = std::uint64_t{header.mEventSize} * header.mEventCount;
    const std::uint64_t room = entry->mSize > offset ? entry->mSize - offset : 0;
    if (sizeof(header) + eventBytes > room)
    {
        return false;
    }
    unsigned char* out = static_cast<unsigned char*>(writePosition);
    std::memcpy(out, &header, sizeof(header));
    if (eventBytes != 0)
    {
        std::memcpy(out + sizeof(header), tSource->mEvents.data(), eventBytes);
    }
    entry->mOffset = offset;
    entry->mSize = static_cast<std::uint32_t>(sizeof(header) + eventBytes);
    return true;
}

bool EventQueueCopyHandler(const void* /*data*/, FixupEntry* entry, void* specialData)
{
    if (entry == nullptr || specialData == nullptr || tSink == nullptr ||
        entry->mSize < sizeof(SEventQueuePayloadHeader))
    {
        return false;
    }
    SEventQueuePayloadHeader header;
    std::memcpy(&header, specialData, sizeof(header));
    if (header.mMagic == __builtin_bswap32(kEventQueueMagic))
    {
        header.mEventSize = __builtin_bswap32(header.mEventSize);
        header.mEventCount = __builtin_bswap32(header.mEventCount);
    }
    else if (header.mMagic != kEventQueueMagic)
    {
        return false;
    }
    const std::uint64_t eventBytes = std::uint64_t{header.mEventSize} * header.mEventCount;
    if (eventBytes > entry->mSize - sizeof(header))
    {
        return false;
    }
    if (eventBytes == 0)
    {
        return true;
    }
    if (tSink->mEventSize == 0 && tSink->mEvents.empty())
    {
        tSink->mEventSize = header.mEventSize;
    }
    if (tSink->mEventSize != header.mEventSize)
    {
        return false;
    }
    const unsigned char* events = static_cast<const unsigned char*>(specialData) + sizeof(header);
    tSink->mEvents.insert(tSink->mEvents.end(), events, events + eventBytes);
    return true;
}
