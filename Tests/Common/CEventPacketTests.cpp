#include "Common/CEventPacket.h"
#include "Common/CKelException.h"
#include "Common/StObjectKeyPlaceKeeper.h"

#include "ParamTestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using param_test::Assertions;
using param_test::Capture;
using testing::ElementsAre;
using testing::HasSubstr;

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
