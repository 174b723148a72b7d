#include "Common/CEventPacket.h"
#include "Common/CKelException.h"

#include "ParamTestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <string>
#include <vector>

using param_test::Assertions;
using param_test::BlockWriter;
using param_test::Capture;
using param_test::ReadU16;
using param_test::ReadU32;
using testing::ElementsAre;

// The expected bytes below are written for the byte order of the machines this runs on.
static_assert(std::endian::native == std::endian::little);

namespace
{
void* Ref(std::uintptr_t value)
{
    return reinterpret_cast<void*>(value);
}

std::vector<std::uint8_t> Serialize(const CEventPacket& packet, SerializeHandler handler = nullptr,
                                    SerializedSizeHandler sizer = nullptr)
{
    std::vector<std::uint8_t> block(packet.GetSerializedSize(sizer));
    EXPECT_TRUE(packet.SerializeToBuffer(block.data(), block.size(), handler));
    return block;
}

// Tablet 1 by index, then the name parameter "abc" by string, with 8 data bytes.
void FillStringPacket(CEventPacket& packet)
{
    packet.AddKeyString(EParameterIDName, "abc", false);
    packet.PackData(8, "\x01\x02\x03\x04\x05\x06\x07\x08");
}

// The same request as a block written by a big-endian writer: command Set, status 0x0105,
// tablet 1 by index, the name "abc" by string, data 01 02 03 04.
std::vector<std::uint8_t> ForeignBlock()
{
    BlockWriter w(true);
    w.U32(0x4B54534D).U32(1).U32(188).U16(0x0105).U32(ECommandSet);
    w.Key(EAddrModeByIndex, EObjectIDTablet, 1).Key(EAddrModeByString, EParameterIDName, 0);
    w.Zeros(9 * 10);
    w.U32(4).U32(7).U32(0xA1B2C3D4).U32(2).U32(4);
    w.Fixup(eFixupString, 1, 4, 180).Fixup(eFixupEventBuffer, 0, 4, 184);
    w.Bytes(std::string("abc\0", 4)).Bytes("\x01\x02\x03\x04");
    return w.Block();
}

void ExpectForeignRequest(const CEventPacket& packet)
{
    EXPECT_EQ(packet.Command(), ECommandSet);
    EXPECT_EQ(packet.Status(), KELSTATUS_MEMORY_OVERRUN);
    EXPECT_EQ(packet.SourceOfRequest(), 7u);
    EXPECT_EQ(packet.RequestWord(), 0xA1B2C3D4u);
    EXPECT_EQ(packet.ObjectKey(0)->Identifier(), EObjectIDTablet);
    EXPECT_EQ(packet.ObjectKey(0)->mReference, Ref(1));
    EXPECT_EQ(packet.ObjectKey(1)->mAddressingMode, EAddrModeByString);
    EXPECT_STREQ(packet.ObjectKey(1)->String(), "abc");
    EXPECT_EQ(packet.ObjectKey(2)->Identifier(), EObjectIDNothing);
    ASSERT_EQ(packet.SizeOfData(), 4u);
    EXPECT_EQ(std::memcmp(packet.Buffer(), "\x01\x02\x03\x04", 4), 0) << "data is never swapped";
}

// Through the checked entry (bounded by the block's size) or the trusted one.
KELSTATUS Decode(CEventPacket& packet, std::vector<std::uint8_t>& bytes, bool checked)
{
    return checked ? packet.DeserializeFromBuffer(bytes.data(), bytes.size())
                   : packet.DeserializeFromBuffer(bytes.data(), nullptr);
}

} // namespace

TEST(SerializedEventPacket, TwoIndexKeysWithoutBufferMake148BytesAndNoFixups)
{
    CEventPacket packet;
    packet.AddKeyInt(EObjectIDTablet, 3, EAddrModeByIndex);
    packet.AddKeyInt(EParameterIDPressCurveKelto, 0x11223344, EAddrModeByID);
    packet.SetCommand(ECommandGet);
    packet.SetStatus(0x0501);
    packet.SetSourceOfRequest(static_cast<ESourceOfRequest>(9));
    packet.SetRequestWord(0xDEADBEEF);
    ASSERT_EQ(packet.GetSerializedSize(nullptr), 148u);
    std::vector<std::uint8_t> block;
    auto output = Capture([&] { block = Serialize(packet); });
    EXPECT_EQ(output.out, "");

    EXPECT_EQ(std::string(block.begin(), block.begin() + 4), "MSTK") << "'KTSM' as a host integer";
    EXPECT_EQ(ReadU32(block, 4), 1u);
    EXPECT_EQ(ReadU32(block, 8), 148u);
    EXPECT_EQ(ReadU16(block, 12), 0x0501);
    EXPECT_EQ(ReadU32(block, 14), static_cast<std::uint32_t>(ECommandGet));
    EXPECT_EQ(ReadU32(block, 18), static_cast<std::uint32_t>(EAddrModeByIndex));
    EXPECT_EQ(ReadU16(block, 22), EObjectIDTablet);
    EXPECT_EQ(ReadU32(block, 24), 3u);
    EXPECT_EQ(ReadU32(block, 28), static_cast<std::uint32_t>(EAddrModeByID));
    EXPECT_EQ(ReadU16(block, 32), EParameterIDPressCurveKelto);
    EXPECT_EQ(ReadU32(block, 34), 0x11223344u);
    EXPECT_EQ(std::vector<std::uint8_t>(block.begin() + 38, block.begin() + 128),
              std::vector<std::uint8_t>(90, 0));
    EXPECT_EQ(ReadU32(block, 128), 0u);
    EXPECT_EQ(ReadU32(block, 132), 9u);
    EXPECT_EQ(ReadU32(block, 136), 0xDEADBEEFu);
    EXPECT_EQ(ReadU32(block, 140), 0u);
    EXPECT_EQ(ReadU32(block, 144), 0u);
}

TEST(SerializedEventPacket, StringKeyAndEightBytesMake192BytesWithOffsets180And184)
{
    CEventPacket packet;
    FillStringPacket(packet);
    ASSERT_EQ(packet.GetSerializedSize(nullptr), 192u);
    const auto block = Serialize(packet);
    EXPECT_EQ(ReadU32(block, 128), 8u);
    EXPECT_EQ(ReadU32(block, 140), 2u);
    EXPECT_EQ(ReadU32(block, 144), 4u);
    EXPECT_EQ(ReadU32(block, 24), 0u) << "a string key's reference is not sent";
    const std::uint32_t fixups[] = {eFixupString, 0, 4, 180, eFixupEventBuffer, 0, 8, 184};
    for (unsigned i = 0; i < 8; ++i)
    {
        EXPECT_EQ(ReadU32(block, 148 + 4 * i), fixups[i]) << "fixup word " << i;
    }
    EXPECT_EQ(std::string(block.begin() + 180, block.end()),
              std::string("abc\0\x01\x02\x03\x04\x05\x06\x07\x08", 12));

    auto copy = block;
    EXPECT_EQ(CEventPacket::GetFixup(eFixupEventBuffer, 0,
                                     reinterpret_cast<SerializedEventPacket*>(copy.data()))
                  ->mOffset,
              184u);
    EXPECT_EQ(CEventPacket::GetFixup(eFixupString, 1,
                                     reinterpret_cast<SerializedEventPacket*>(copy.data())),
              nullptr);
    EXPECT_EQ(CEventPacket::GetFixup(eFixupString, 0, nullptr), nullptr);

    for (bool checked : {false, true})
    {
        CEventPacket decoded;
        auto bytes = block;
        EXPECT_EQ(Decode(decoded, bytes, checked), KELSTATUS_SUCCESS);
        EXPECT_STREQ(decoded.ObjectKey(0)->String(), "abc");
        EXPECT_NE(decoded.ObjectKey(0)->mReference, static_cast<void*>(bytes.data() + 180))
            << "the key copies its string out of the block";
        EXPECT_TRUE(decoded.OwnsBuffer());
        EXPECT_EQ(decoded.UnPackData_<std::vector<unsigned char>>({}),
                  std::vector<unsigned char>({1, 2, 3, 4, 5, 6, 7, 8}));
    }
}

TEST(SerializedEventPacket, BlockOfTheOtherByteOrderDecodesToTheSameRequest)
{
    auto foreign = ForeignBlock();
    EXPECT_TRUE(CEventPacket::ValidSerializedBuffer(foreign.data()));
    EXPECT_EQ(CEventPacket::SerializedBufferVersion(foreign.data()), 1u);
    EXPECT_EQ(CEventPacket::SerializedBufferSize(foreign.data()), 188u);

    for (bool checked : {false, true})
    {
        auto bytes = ForeignBlock();
        CEventPacket packet;
        KELSTATUS status = KELSTATUS_FAILURE;
        auto output = Capture([&] { status = Decode(packet, bytes, checked); });
        EXPECT_EQ(status, KELSTATUS_SUCCESS);
        EXPECT_EQ(output.out, "");
        ExpectForeignRequest(packet);
    }

    // Swapped in place, the fixed parts read as this machine would have written them.
    CEventPacket same;
    same.AddKeyInt(EObjectIDTablet, 1, EAddrModeByIndex);
    same.AddKeyString(EParameterIDName, "abc", false);
    same.PackData(4, "\x01\x02\x03\x04");
    same.SetCommand(ECommandSet);
    same.SetStatus(KELSTATUS_MEMORY_OVERRUN);
    same.SetSourceOfRequest(static_cast<ESourceOfRequest>(7));
    same.SetRequestWord(0xA1B2C3D4);
    const auto host = Serialize(same);
    CEventPacket::FlipToHost(reinterpret_cast<SerializedEventPacket*>(foreign.data()));
    EXPECT_EQ(foreign, host);
}

TEST(SerializedEventPacket, ForeignOrWrongVersionBlocksFailAndLeaveThePacket)
{
    CEventPacket source;
    auto block = Serialize(source);
    block[4] = 2; // version 2
    CEventPacket packet;
    packet.AddKeyInt(EObjectIDTablet, 5, EAddrModeByIndex);
    for (bool checked : {false, true})
    {
        auto bytes = block;
        KELSTATUS status = KELSTATUS_SUCCESS;
        auto output = Capture([&] { status = Decode(packet, bytes, checked); });
        EXPECT_EQ(status, KELSTATUS_FAILURE);
        EXPECT_THAT(Assertions(output.out), ElementsAre("ValidSerializedBuffer(pBuffer_I)"));
        EXPECT_EQ(packet.ObjectKey(0)->mReference, Ref(5));
    }
    EXPECT_FALSE(CEventPacket::ValidSerializedBuffer(block.data()));
    EXPECT_TRUE(CEventPacket::ValidSerializedBuffer(block.data(), 2));
    EXPECT_FALSE(CEventPacket::ValidSerializedBuffer(nullptr));
    EXPECT_EQ(packet.DeserializeFromBuffer(nullptr, nullptr), KELSTATUS_FAILURE);
    EXPECT_EQ(CEventPacket::SerializedBufferSize(nullptr), 0u);
    EXPECT_EQ(CEventPacket::SerializedBufferVersion(nullptr), 0u);

    block[0] = 'X'; // not a packet at all
    unsigned int version = 0;
    auto output = Capture([&] { version = CEventPacket::SerializedBufferVersion(block.data()); });
    EXPECT_THAT(Assertions(output.out), ElementsAre("ValidSerializedBuffer(pBuffer_I)"));
    EXPECT_EQ(version, 2u);
}

TEST(SerializedEventPacket, EveryBlockTooSmallStopsWithTheTextOfItsStep)
{
    CEventPacket packet;
    FillStringPacket(packet);
    std::vector<std::uint8_t> block(192);
    for (unsigned long size = 0; size < 192; ++size)
    {
        bool written = true;
        auto output =
            Capture([&] { written = packet.SerializeToBuffer(block.data(), size, nullptr); });
        EXPECT_FALSE(written) << size;
        const auto texts = Assertions(output.out);
        ASSERT_EQ(texts.size(), 1u) << size;
        const char* expected = size < 148 ? "(size_t)(dataRef - bufferRef) <= size_I"
                               : size < 180 && size >= 164 ? "\"Data too large for buffer\""
                                                           : "\"Data to large for buffer\"";
        EXPECT_EQ(texts[0], expected) << size;
    }
    EXPECT_FALSE(packet.SerializeToBuffer(nullptr, 192, nullptr));
    EXPECT_TRUE(packet.SerializeToBuffer(block.data(), 192, nullptr));

    // The size field holds what the caller gave, not the bytes used.
    std::vector<std::uint8_t> larger(300);
    EXPECT_TRUE(packet.SerializeToBuffer(larger.data(), larger.size(), nullptr));
    EXPECT_EQ(ReadU32(larger, 8), 300u);
    EXPECT_EQ(CEventPacket::SerializedBufferSize(larger.data()), 300u);
}

TEST(SerializedEventPacket, TenKeysThrowFromTheTrustedEntryAndAreRefusedByTheCheckedOne)
{
    // Nine keys are the most a packet takes.
    BlockWriter nine(false);
    nine.U32(0x4B54534D).U32(1).U32(0).U16(0).U32(ECommandGet);
    for (int i = 0; i < 9; ++i)
    {
        nine.Key(EAddrModeByIndex, EObjectIDTablet, i);
    }
    nine.Zeros(20).U32(0).U32(0).U32(0).U32(0).U32(0);
    auto nineBytes = nine.Block();
    CEventPacket ninePacket;
    EXPECT_EQ(ninePacket.DeserializeFromBuffer(nineBytes.data(), nineBytes.size()),
              KELSTATUS_SUCCESS);
    EXPECT_EQ(ninePacket.ObjectKey(8)->mReference, Ref(8));

    BlockWriter w(false);
    w.U32(0x4B54534D).U32(1).U32(0).U16(0).U32(ECommandGet);
    for (int i = 0; i < 10; ++i)
    {
        w.Key(EAddrModeByIndex, EObjectIDTablet, i);
    }
    w.Zeros(10).U32(0).U32(0).U32(0).U32(0).U32(0);
    auto bytes = w.Block();
    CEventPacket packet;
    Capture(
        [&]
        {
            EXPECT_THAT([&] { packet.DeserializeFromBuffer(bytes.data(), nullptr); },
                        testing::Throws<CKelException>(
                            testing::Property(&CKelException::Message, "AddKey full")));
        });

    CEventPacket checked;
    checked.AddKeyInt(EObjectIDContext, 1, EAddrModeByIndex);
    KELSTATUS status = KELSTATUS_SUCCESS;
    auto output =
        Capture([&] { status = checked.DeserializeFromBuffer(bytes.data(), bytes.size()); });
    EXPECT_EQ(status, KELSTATUS_FAILURE);
    EXPECT_EQ(output.err, "CEventPacket::DeserializeFromBuffer: malformed block\n");
    EXPECT_EQ(checked.ObjectKey(0)->Identifier(), EObjectIDContext);
}

TEST(SerializedEventPacket, CheckedEntryRefusesEveryTruncationAndEveryPartOutsideTheBlock)
{
    CEventPacket source;
    FillStringPacket(source);
    const auto whole = Serialize(source);
    const auto foreignWhole = ForeignBlock();
    for (const auto* original : {&whole, &foreignWhole})
    {
        for (std::size_t size = 0; size < original->size(); ++size)
        {
            // An exact-size copy, so that the sanitizer sees any read past `size`.
            std::vector<std::uint8_t> bytes(original->begin(), original->begin() + size);
            CEventPacket packet;
            packet.AddKeyInt(EObjectIDContext, 1, EAddrModeByIndex);
            KELSTATUS status = KELSTATUS_SUCCESS;
            Capture([&] { status = packet.DeserializeFromBuffer(bytes.data(), size); });
            EXPECT_EQ(status, KELSTATUS_FAILURE) << size;
            EXPECT_EQ(packet.ObjectKey(0)->Identifier(), EObjectIDContext) << size;
        }
    }

    struct Spoil
    {
        std::size_t offset;
        std::uint32_t value;
        const char* what;
    };
    const Spoil spoils[] = {
        {140, 0xFFFFFFFF, "fixup count beyond the block"},
        {148 + 4, 5, "string fixup for another place"},
        {148 + 12, 192, "string offset at the end"},
        {148 + 12, 0xFFFFFFF0, "string offset far outside"},
        {128, 9, "data size beyond the block"},
        {164 + 12, 185, "data offset beyond the block"},
    };
    for (const Spoil& spoil : spoils)
    {
        auto bytes = whole;
        std::memcpy(bytes.data() + spoil.offset, &spoil.value, 4);
        CEventPacket packet;
        KELSTATUS status = KELSTATUS_SUCCESS;
        Capture([&] { status = packet.DeserializeFromBuffer(bytes.data(), bytes.size()); });
        EXPECT_EQ(status, KELSTATUS_FAILURE) << spoil.what;
    }

    // A string whose terminator is not among the bytes received.
    auto unterminated = whole;
    unterminated.resize(184);
    unterminated[183] = 'd';
    std::memset(unterminated.data() + 164, 0, 16); // no data fixup
    unterminated[140] = 1;
    CEventPacket packet;
    EXPECT_EQ(Capture([&] { packet.DeserializeFromBuffer(unterminated.data(), 184); }).err,
              "CEventPacket::DeserializeFromBuffer: malformed block\n");
    unterminated[183] = 0;
    EXPECT_EQ(packet.DeserializeFromBuffer(unterminated.data(), 184), KELSTATUS_SUCCESS);
}
