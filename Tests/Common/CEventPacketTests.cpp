#include "Common/CEventPacket.h"
#include "Common/CKelException.h"
#include "Common/StObjectKeyPlaceKeeper.h"

#include "ParamTestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using param_test::Assertions;
using param_test::Capture;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace
{
void* Ref(std::uintptr_t value)
{
    return reinterpret_cast<void*>(value);
}

// A packet addressing tablet `tablet`, transducer 2, then `identifier`.
void AddChain(CEventPacket& packet, unsigned tablet, EEventIdentifier identifier)
{
    packet.AddKeyInt(EObjectIDTablet, tablet, EAddrModeByIndex);
    packet.AddKeyInt(EObjectIDTransducer, 2, EAddrModeByIndex);
    packet.AddKeyInt(identifier, 0, EAddrModeByIndex);
}
} // namespace

TEST(CEventPacket, TenthKeyThrowsAndLeavesTheChainAlone)
{
    CEventPacket packet;
    for (unsigned i = 0; i < 9; ++i)
    {
        packet.AddKeyInt(EObjectIDTablet, i, EAddrModeByIndex);
    }
    bool thrown = false;
    auto output = Capture(
        [&]
        {
            try
            {
                packet.AddKeyString(EParameterIDName, std::string("tenth"), false);
            }
            catch (const CKelException& e)
            {
                thrown = true;
                EXPECT_STREQ(e.what(), "Status: 100,  \"AddKey full\"");
                EXPECT_EQ(e.Status(), KELSTATUS_MEMORY_BAD);
                EXPECT_EQ(e.File(), nullptr);
                EXPECT_EQ(e.Line(), 0);
            }
        });
    EXPECT_TRUE(thrown);
    EXPECT_EQ(output.err,
              "CEventPacket::AddKey: key chain full; can not set the last key in the chain\n");
    EXPECT_EQ(packet.Status(), KELSTATUS_MEMORY_BAD);
    for (unsigned i = 0; i < 9; ++i)
    {
        EXPECT_EQ(packet.ObjectKey(i)->mReference, Ref(i));
    }
    EXPECT_EQ(packet.ObjectKey(9)->Identifier(), EObjectIDNothing);
    EXPECT_EQ(packet.ObjectKey(9)->mpStringBuffer, nullptr);
}

TEST(CEventPacket, AddKeyVariants)
{
    CEventPacket packet;
    packet.AddKeyString(EParameterIDName, "pen", true);
    packet.AddKey(EObjectIDContext, Ref(4), EAddrModeByID, false);
    EXPECT_EQ(packet.ObjectKey(0)->mAddressingMode, EAddrModeAllSubordinate);
    EXPECT_STREQ(packet.ObjectKey(0)->String(), "pen")
        << "the string was copied before the mode changed";
    EXPECT_EQ(packet.ObjectKey(1)->mReference, Ref(4));
    EXPECT_EQ(packet.LastObjectKey(), packet.ObjectKey(1));

    auto output =
        Capture([&] { packet.AddKey(EObjectIDNothing, Ref(1), EAddrModeByIndex, false); });
    EXPECT_THAT(Assertions(output.out), ElementsAre("nIdentifier_I"));
}

TEST(CEventPacket, RemoveKeyTakesTheLastKeyOrThrowsWithoutSentinel)
{
    CEventPacket packet;
    AddChain(packet, 1, EParameterIDName);
    packet.AdvanceCurrentKey();
    packet.AdvanceCurrentKey();
    packet.RemoveKey();
    EXPECT_EQ(packet.ObjectKey(2)->Identifier(), EObjectIDNothing);
    EXPECT_EQ(packet.ObjectKey(1)->Identifier(), EObjectIDTransducer);
    EXPECT_EQ(packet.CurrentKey(), packet.ObjectKey(2))
        << "RemoveKey does not move the current key";

    CEventPacket empty;
    auto output = Capture([&] { empty.RemoveKey(); });
    EXPECT_THAT(Assertions(output.out),
                ElementsAre("mObjectKey[index].Identifier() != EObjectIDNothing"));
    EXPECT_EQ(empty.ObjectKey(0)->Identifier(), EObjectIDNothing);

    // Ten keys can only arrive through a copied chain (which is reported as invalid).
    OBJECT_KEY ten[11];
    for (unsigned i = 0; i < 10; ++i)
    {
        ten[i].Set(EObjectIDTablet, Ref(i), EAddrModeByIndex);
    }
    CEventPacket full;
    Capture([&] { full.SetObjectKeys(ten); });
    output = Capture(
        [&]
        {
            EXPECT_THAT([&] { full.RemoveKey(); }, testing::Throws<CKelException>(testing::Property(
                                                       &CKelException::Message, "RemoveKey full")));
        });
    EXPECT_EQ(output.err,
              "CEventPacket::RemoveKey: key chain full; last key was set in the chain\n");
    EXPECT_EQ(full.Status(), KELSTATUS_MEMORY_BAD);
}

TEST(CEventPacket, WalkingTheChain)
{
    CEventPacket packet;
    AddChain(packet, 1, EParameterIDName);
    EXPECT_EQ(packet.NextObjectKey(), KELSTATUS_SUCCESS);
    EXPECT_EQ(packet.NextObjectKey(), KELSTATUS_SUCCESS);
    EXPECT_EQ(packet.NextObjectKey(), KELSTATUS_SUCCESS);
    EXPECT_EQ(packet.CurrentKey(), packet.ObjectKey(3));
    EXPECT_EQ(packet.NextObjectKey(), KELSTATUS_OBJECT_NOT_FOUND);
    packet.AdvanceCurrentKey();
    EXPECT_EQ(packet.CurrentKey(), packet.ObjectKey(3)) << "never past the sentinel";
    packet.ResetCurrentKey();
    packet.RetreatCurrentKey();
    EXPECT_EQ(packet.CurrentKey(), packet.ObjectKey(0));
    EXPECT_EQ(packet.LastObjectKey()->Identifier(), EParameterIDName);

    {
        StObjectKeyPlaceKeeper keeper(&packet);
        packet.NextObjectKey();
        packet.NextObjectKey();
    }
    EXPECT_EQ(packet.CurrentKey(), packet.ObjectKey(0));

    const OBJECT_KEY* clamped = nullptr;
    auto output = Capture([&] { clamped = packet.ObjectKey(11); });
    EXPECT_THAT(Assertions(output.out), ElementsAre("keyIndex_I <= MAX_KEY"));
    EXPECT_EQ(clamped, packet.ObjectKey(10));

    output = Capture([] { StObjectKeyPlaceKeeper keeper(nullptr); });
    EXPECT_THAT(Assertions(output.out), ElementsAre("pEvent_I"));
}

TEST(CEventPacket, IsValidNamesTheFirstFault)
{
    CEventPacket packet;
    AddChain(packet, 1, EParameterIDName);
    packet.SetCommand(MAX_COMMAND);
    EXPECT_EQ(packet.IsValid(), KELSTATUS_SUCCESS) << "the test is against 10";
    packet.SetCommand(static_cast<ECommand>(10));
    auto output = Capture([&] { EXPECT_EQ(packet.IsValid(), KELSTATUS_RESOURCE_BAD); });
    EXPECT_EQ(output.err, "CEventPacket::IsValid: bad command\n");
    packet.SetCommand(ECommandGet);

    // The current key may stand on the sentinel, not after it.
    output = Capture([&] { packet.SetCurrentKey(const_cast<OBJECT_KEY*>(packet.ObjectKey(3))); });
    EXPECT_EQ(output.out, "");
    output = Capture([&] { packet.SetCurrentKey(const_cast<OBJECT_KEY*>(packet.ObjectKey(4))); });
    EXPECT_THAT(Assertions(output.out), ElementsAre("IsValid() == KELSTATUS_SUCCESS"));
    EXPECT_EQ(output.err, "CEventPacket::IsValid: bad object key pointer (high)\n");
    packet.ResetCurrentKey();

    unsigned char bytes[4] = {};
    output = Capture([&] { packet.SetNewBuffer(4, nullptr); });
    EXPECT_THAT(Assertions(output.out),
                ElementsAre("(sizeOfBuffer_I && pBuffer_I) || (!sizeOfBuffer_I && !pBuffer_I)",
                            "IsValid() == KELSTATUS_SUCCESS"));
    EXPECT_EQ(output.err, "CEventPacket::IsValid: bad buffer\n");
    packet.SetNewBuffer(4, bytes);
    output = Capture([&] { packet.SetDataSize(5); });
    EXPECT_THAT(Assertions(output.out), ElementsAre("size_I <= mSizeOfBuffer"));
    EXPECT_EQ(packet.SizeOfData(), 4u);
}

TEST(CEventPacket, PackDataOwnsWhatItAllocatesAndWritesIntoAdoptedBuffers)
{
    const char eight[] = "01234567";
    for (auto pack : {+[](CEventPacket&p, const char*d) { p.PackData(0, d); },
                      +[](CEventPacket&p, const char*) { p.PackData(8, nullptr); }})
    {
        CEventPacket packet;
        packet.PackData(8, eight);
        pack(packet, eight);
        EXPECT_EQ(packet.Buffer(), nullptr);
        EXPECT_EQ(packet.SizeOfBuffer(), 0u);
        EXPECT_EQ(packet.SizeOfData(), 0u);
    }

    unsigned char adopted[16] = {};
    CEventPacket packet(sizeof(adopted), adopted);
    packet.SetStatus(KELSTATUS_FAILURE);
    packet.PackData(8, eight);
    EXPECT_EQ(packet.Buffer(), adopted);
    EXPECT_FALSE(packet.OwnsBuffer());
    EXPECT_EQ(packet.SizeOfData(), 8u);
    EXPECT_EQ(packet.SizeOfBuffer(), 16u);
    EXPECT_EQ(std::memcmp(adopted, eight, 8), 0);
    EXPECT_EQ(packet.Status(), KELSTATUS_SUCCESS);

    // Too large for the adopted buffer: the packet allocates its own and leaves the caller's.
    const std::string twenty(20, 'z');
    packet.PackData(20, twenty.data());
    EXPECT_NE(packet.Buffer(), adopted);
    EXPECT_TRUE(packet.OwnsBuffer());
    EXPECT_EQ(packet.SizeOfBuffer(), 20u);
    EXPECT_EQ(adopted[8], 0);

    // Packing the packet's own data in place copies nothing and keeps it.
    packet.PackData(4, packet.Buffer());
    EXPECT_EQ(packet.SizeOfData(), 4u);
    EXPECT_EQ(std::string(static_cast<const char*>(packet.Buffer()), 4), "zzzz");
}

TEST(CEventPacket, UnPackDataCopiesOnlyWhenThereIsRoomAndAlwaysClearsTheStatus)
{
    CEventPacket packet;
    const char eight[] = "abcdefgh";
    packet.PackData(8, eight);
    char room[8] = {'-', '-', '-', '-', '-', '-', '-', '-'};
    unsigned int size = 4;
    auto output = Capture([&] { packet.UnPackData(size, room); });
    EXPECT_EQ(output.err, "CEventPacket::UnPackData: Buffer not big enough\n");
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(room[0], '-');
    EXPECT_EQ(packet.Status(), KELSTATUS_SUCCESS);

    size = 8;
    packet.UnPackData(size, room);
    EXPECT_EQ(std::memcmp(room, eight, 8), 0);

    CEventPacket empty;
    size = 8;
    empty.UnPackData(size, room);
    EXPECT_EQ(size, 0u);
}

TEST(CEventPacket, TypedFamilyRoundTripsAndFallsBackToTheDefault)
{
    CEventPacket packet;
    packet.PackData_<unsigned int>(0xCAFEu);
    EXPECT_EQ(packet.SizeOfData(), 4u);
    EXPECT_EQ(packet.UnPackData_<unsigned int>(7u), 0xCAFEu);
    packet.PackData_(-2.5);
    EXPECT_EQ(packet.UnPackData_<double>(0.0), -2.5);

    packet.PackData_<bool>(true);
    EXPECT_EQ(packet.SizeOfData(), 1u);
    EXPECT_EQ(*static_cast<const unsigned char*>(packet.Buffer()), 1);
    EXPECT_TRUE(packet.UnPackData_<bool>(false));

    packet.PackData_<std::string>("pen");
    EXPECT_EQ(packet.SizeOfData(), 4u);
    EXPECT_EQ(packet.UnPackData_<std::string>("none"), "pen");
    packet.PackData(3, "ab");
    EXPECT_EQ(packet.UnPackData_<std::string>(""), "ab");

    const std::vector<unsigned char> bytes = {0, 1, 255};
    packet.PackData_(bytes);
    EXPECT_EQ(packet.UnPackData_<std::vector<unsigned char>>({}), bytes);
    packet.PackData_(std::vector<unsigned char>{});
    EXPECT_EQ(packet.Buffer(), nullptr) << "an empty vector drops the buffer";

    // Size mismatch: the default, and one line naming the type and both sizes.
    packet.PackData_<unsigned short>(3);
    unsigned int got = 0;
    auto output = Capture([&] { got = packet.UnPackData_<unsigned int>(99u); });
    EXPECT_EQ(got, 99u);
    EXPECT_EQ(output.err,
              std::string("CEventPacket::UnPackData - Data request size mismatch for type:") +
                  typeid(unsigned int).name() + "; expected 4, got 2\n");

    // A string without its terminator is reported and still returned.
    packet.PackData(2, "ab");
    output = Capture([&] { EXPECT_EQ(packet.UnPackData_<std::string>(""), "a"); });
    EXPECT_THAT(Assertions(output.out), ElementsAre("((char*)mpBuffer)[mSizeOfData - 1] == 0"));
}

TEST(CEventPacket, TypedUnpackWithoutBufferGivesTheDefaultAndStatus0x0210)
{
    CEventPacket packet;
    bool flag = false;
    auto output = Capture([&] { flag = packet.UnPackData_<bool>(true); });
    EXPECT_TRUE(flag);
    EXPECT_EQ(packet.Status(), 0x0210);
    EXPECT_EQ(output.err, "CEventPacket::UnPackData - Data buffer is not present\n");

    packet.SetStatus(KELSTATUS_SUCCESS);
    output = Capture([&] { EXPECT_EQ(packet.UnPackData_<std::string>("d"), "d"); });
    EXPECT_EQ(packet.Status(), 0x0210);
    EXPECT_EQ(output.err, "") << "only the scalar form says so";

    packet.SetStatus(KELSTATUS_SUCCESS);
    const std::vector<unsigned char> fallback = {9};
    EXPECT_EQ(packet.UnPackData_<std::vector<unsigned char>>(fallback), fallback);
    EXPECT_EQ(packet.Status(), 0x0210);
}

TEST(CEventPacket, CopyOwnsACopyOfTheWholeBufferAndStartsAtTheFirstKey)
{
    unsigned char adopted[16] = "0123456789abcde";
    CEventPacket source(sizeof(adopted), adopted);
    source.SetCommand(ECommandSet);
    AddChain(source, 3, EParameterIDName);
    source.PackData(5, "hello");
    source.SetRequestWord(0x12345678);
    source.SetSourceOfRequest(static_cast<ESourceOfRequest>(42));
    source.NextObjectKey();
    source.SetStatus(KELSTATUS_TABLET_TIMEOUT);

    for (int form = 0; form < 2; ++form)
    {
        CEventPacket copy;
        copy.PackData(3, "own");
        if (form == 0)
        {
            copy = source;
        }
        CEventPacket constructed(source);
        CEventPacket& c = form == 0 ? copy : constructed;
        EXPECT_EQ(c.CurrentKey(), c.ObjectKey(0));
        EXPECT_EQ(c.Command(), ECommandSet);
        EXPECT_EQ(c.RequestWord(), 0x12345678u);
        EXPECT_EQ(c.SourceOfRequest(), 42u);
        EXPECT_EQ(c.Status(), KELSTATUS_TABLET_TIMEOUT);
        EXPECT_EQ(c.LastObjectKey()->Identifier(), EParameterIDName);
        EXPECT_EQ(c.ObjectKey(0)->mReference, Ref(3));
        EXPECT_TRUE(c.OwnsBuffer());
        EXPECT_NE(c.Buffer(), adopted);
        EXPECT_EQ(c.SizeOfBuffer(), 16u);
        EXPECT_EQ(c.SizeOfData(), 5u);
        EXPECT_EQ(std::memcmp(c.Buffer(), adopted, 16), 0);
    }
    CEventPacket& self = source;
    source = self;
    EXPECT_EQ(source.CurrentKey(), source.ObjectKey(1)) << "self-assignment does nothing";
}

TEST(CEventPacket, PackEventAndClearEvent)
{
    OBJECT_KEY chain[3] = {OBJECT_KEY(EObjectIDTablet, Ref(1), EAddrModeByIndex),
                           OBJECT_KEY(EParameterIDName, const_cast<char*>("n"), EAddrModeByString)};
    CEventPacket packet;
    packet.SetRequestWord(5);
    packet.PackEvent(ECommandGet, chain, 2, "xy", static_cast<ESourceOfRequest>(3));
    EXPECT_EQ(packet.Command(), ECommandGet);
    EXPECT_EQ(packet.SourceOfRequest(), 3u);
    EXPECT_EQ(packet.RequestWord(), 0u);
    EXPECT_STREQ(packet.ObjectKey(1)->String(), "n");
    EXPECT_EQ(packet.SizeOfData(), 2u);

    void* buffer = packet.Buffer();
    packet.ClearEvent();
    EXPECT_EQ(packet.Command(), ECommandDoNothing);
    EXPECT_EQ(packet.ObjectKey(0)->Identifier(), EObjectIDNothing);
    EXPECT_EQ(packet.SizeOfData(), 0u);
    EXPECT_EQ(packet.Buffer(), buffer);
    EXPECT_EQ(packet.SizeOfBuffer(), 2u);

    OBJECT_KEY bad[11];
    bad[0].mAddressingMode = MAX_ADDRESSING_MODE;
    auto output = Capture([&] { packet.PackEvent(ECommandSet, bad, 0, nullptr, {}); });
    EXPECT_THAT(Assertions(output.out),
                ElementsAre("IsObjectKeyValid(pObjectKey_I) == KELSTATUS_SUCCESS",
                            "IsObjectKeyValid(pSource_I) == KELSTATUS_SUCCESS",
                            // PackData before and after, and SetNewBuffer within it
                            "IsValid() == KELSTATUS_SUCCESS", "IsValid() == KELSTATUS_SUCCESS",
                            "IsValid() == KELSTATUS_SUCCESS"));
}

TEST(CEventPacket, TraceNamesCommandAndKeys)
{
    CEventPacket packet;
    AddChain(packet, 1, EParameterIDPressCurveKelto);
    packet.SetCommand(ECommandGet);
    packet.NextObjectKey();
    auto output = Capture([&] { packet.TRACEEVENT("route", true); });
    EXPECT_EQ(output.err, "route: Command:ECommandGet CurrentKey:EObjectIDTransducer "
                          "EAddrModeByIndex 2 LastKey:EParameterIDPressCurveKelto\n");
    output = Capture([&] { packet.TRACEEVENT("route", false); });
    EXPECT_EQ(output.err, "");

    packet.SetCommand(static_cast<ECommand>(10));
    output = Capture([&] { packet.TRACEEVENT("odd", true); });
    EXPECT_THAT(output.err, HasSubstr("Command:_8ECommand_10 "));
}
