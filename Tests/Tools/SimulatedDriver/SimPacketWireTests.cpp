// The 'KEPK' wire of the driver: blocks written in the other byte order are what a process
// of that order writes, and blocks of either order are read within the bytes received.
#include "Tools/SimulatedDriver/SimPacketWire.h"

#include "Tests/Tools/SimulatedDriver/SimDriverTestSupport.h"

#include <gtest/gtest.h>

#include <cstddef>

using namespace SimDriverTest;

namespace
{
std::uint32_t U32(const std::vector<std::uint8_t>& block, std::size_t offset)
{
    std::uint32_t value;
    std::memcpy(&value, block.data() + offset, 4);
    return value;
}

std::uint16_t U16(const std::vector<std::uint8_t>& block, std::size_t offset)
{
    std::uint16_t value;
    std::memcpy(&value, block.data() + offset, 2);
    return value;
}

void ExpectSamePacket(const CEventPacket& a, const CEventPacket& b)
{
    EXPECT_EQ(a.Command(), b.Command());
    EXPECT_EQ(a.Status(), b.Status());
    EXPECT_EQ(a.SourceOfRequest(), b.SourceOfRequest());
    for (unsigned int i = 0; i <= MAX_KEY; ++i)
    {
        EXPECT_EQ(a.ObjectKey(i)->Identifier(), b.ObjectKey(i)->Identifier()) << "key " << i;
        EXPECT_EQ(a.ObjectKey(i)->mAddressingMode, b.ObjectKey(i)->mAddressingMode);
        if (a.ObjectKey(i)->mAddressingMode == EAddrModeByString)
        {
            EXPECT_STREQ(a.ObjectKey(i)->String(), b.ObjectKey(i)->String());
        }
        else
        {
            EXPECT_EQ(a.ObjectKey(i)->mReference, b.ObjectKey(i)->mReference);
        }
    }
    EXPECT_EQ(Data(a), Data(b));
}

// A packet with every part a block can have: keys of both kinds, a string, data.
void Sample(CEventPacket& packet)
{
    Build(packet, ECommandSet, {{EObjectIDDriver}, {EObjectIDTablet, 0x01020304, EAddrModeByID}},
          {0x11, 0x22, 0x33, 0x44, 0x55});
    packet.AddKeyString(EParameterIDName, "pen", false);
    packet.SetStatus(0x0606);
}
} // namespace

TEST(SimPacketWire, OtherByteOrderReversesEveryHeaderFieldAndNoData)
{
    CEventPacket packet;
    Sample(packet);
    std::vector<std::uint8_t> same = EncodeSimPacket(packet, false);
    std::vector<std::uint8_t> other = EncodeSimPacket(packet, true);
    ASSERT_FALSE(same.empty());
    ASSERT_EQ(same.size(), other.size());

    // Header: magic, version, size, status, command; key 1's mode, identifier, reference.
    for (std::size_t offset : {0u, 4u, 8u, 14u, 28u, 34u, 38u, 128u, 132u, 136u, 140u, 144u})
    {
        EXPECT_EQ(U32(other, offset), __builtin_bswap32(U32(same, offset))) << offset;
    }
    for (std::size_t offset : {12u, 22u, 32u})
    {
        EXPECT_EQ(U16(other, offset), __builtin_bswap16(U16(same, offset))) << offset;
    }
    // Two fixups (the string, the data), four reversed words each.
    ASSERT_EQ(U32(same, 140), 2u);
    for (std::size_t offset = 148; offset < 148 + 2 * 16; offset += 4)
    {
        EXPECT_EQ(U32(other, offset), __builtin_bswap32(U32(same, offset))) << offset;
    }
    // The strings and the data behind the fixups are byte for byte the same.
    EXPECT_TRUE(std::equal(same.begin() + 180, same.end(), other.begin() + 180));

    // Whoever reads the reversed block, this process's own decoder among them, gets the
    // same packet back.
    CEventPacket fromOther;
    ASSERT_EQ(fromOther.DeserializeFromBuffer(other.data(), other.size()), KELSTATUS_SUCCESS);
    ExpectSamePacket(packet, fromOther);
}

TEST(SimPacketWire, DecodesEitherOrderAndRefusesWhatIsNotOneBlock)
{
    CEventPacket packet;
    Sample(packet);
    for (bool other : {false, true})
    {
        std::vector<std::uint8_t> block = EncodeSimPacket(packet, other);
        const std::vector<std::uint8_t> received = block;
        CEventPacket decoded;
        ASSERT_TRUE(DecodeSimPacket(block.data(), block.size(), decoded));
        ExpectSamePacket(packet, decoded);
        EXPECT_EQ(block, received) << "the received bytes are not written";

        // Every truncation is refused; none reads past the bytes given.
        for (std::size_t size = 0; size < block.size(); ++size)
        {
            std::vector<std::uint8_t> shorter(block.begin(), block.begin() + size);
            CEventPacket refused;
            EXPECT_FALSE(DecodeSimPacket(shorter.data(), shorter.size(), refused)) << size;
        }
    }
    EXPECT_FALSE(DecodeSimPacket(nullptr, 0, packet));
    std::vector<std::uint8_t> noise(300, 0x5A);
    EXPECT_FALSE(DecodeSimPacket(noise.data(), noise.size(), packet));
}
