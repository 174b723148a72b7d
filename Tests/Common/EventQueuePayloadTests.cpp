#include "Common/CEventPacket.h"
#include "Common/EventQueuePayload.h"

#include "ParamTestSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using param_test::BlockWriter;
using param_test::Capture;
using param_test::ReadU32;

namespace
{
// A Get of the queue of tablet 0, with four bytes of the requester's own data.
void FillQueueRequest(CEventPacket& packet)
{
    packet.AddKeyInt(EObjectIDTablet, 0, EAddrModeByIndex);
    packet.AddKeyInt(EParameterIDQueue, 0, EAddrModeByIndex);
    packet.SetCommand(ECommandGet);
    packet.PackData(4, "mine");
}

SEventQueue ThreeEvents()
{
    SEventQueue queue;
    queue.mEventSize = 6;
    const std::string bytes = "event1event2event3";
    queue.mEvents.assign(bytes.begin(), bytes.end());
    queue.mEvents.push_back('x'); // not a whole event: not sent
    return queue;
}
} // namespace

TEST(EventQueuePayload, WriterRefusesWhenThePayloadDoesNotFit)
{
    CEventPacket packet;
    FillQueueRequest(packet);
    const SEventQueue source = ThreeEvents();
    StEventQueueSource publish(source);
    const unsigned int size = packet.GetSerializedSize(EventQueueSizeHandler);
    std::vector<std::uint8_t> block(size);
    bool written = true;
    auto output = Capture(
        [&] {
            written = packet.SerializeToBuffer(block.data(), size - 1, EventQueueSerializeHandler);
        });
    EXPECT_FALSE(written);
    EXPECT_EQ(output.out, "") << "the handler's refusal is silent";
}

TEST(EventQueuePayload, ReaderTakesEitherByteOrderAndRefusesWhatDoesNotAddUp)
{
    SEventQueue received;
    StEventQueueSink sink(received);
    auto deliver = [](std::vector<std::uint8_t> payload, std::uint32_t entrySize)
    {
        FixupEntry entry{eFixupSpecial, 0, entrySize, 0};
        return EventQueueCopyHandler(nullptr, &entry, payload.data());
    };

    BlockWriter big(true);
    big.U32(kEventQueueMagic).U32(2).U32(2).Bytes("abcd");
    EXPECT_TRUE(deliver(big.Block(), 16));
    EXPECT_EQ(std::string(received.mEvents.begin(), received.mEvents.end()), "abcd")
        << "the header is swapped, the events are not";

    BlockWriter little(false);
    little.U32(kEventQueueMagic).U32(2).U32(1).Bytes("ef");
    EXPECT_TRUE(deliver(little.Block(), 14));
    EXPECT_EQ(received.mEvents.size(), 6u);

    BlockWriter tooMany(false);
    tooMany.U32(kEventQueueMagic).U32(2).U32(0x80000001).Bytes("gh");
    EXPECT_FALSE(deliver(tooMany.Block(), 14));
    BlockWriter otherSize(false);
    otherSize.U32(kEventQueueMagic).U32(3).U32(1).Bytes("ijk");
    EXPECT_FALSE(deliver(otherSize.Block(), 15));
    BlockWriter foreign(false);
    foreign.U32('XXXX').U32(2).U32(1).Bytes("lm");
    EXPECT_FALSE(deliver(foreign.Block(), 14));
    EXPECT_FALSE(deliver(little.Block(), 11)) << "shorter than its header";
    EXPECT_EQ(received.mEvents.size(), 6u);
}
