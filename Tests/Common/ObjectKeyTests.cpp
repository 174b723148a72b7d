#include "Common/OBJECT_KEY.h"

#include "ParamTestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using param_test::Assertions;
using param_test::Capture;
using testing::ElementsAre;

namespace
{
char* Text(const char* literal)
{
    return const_cast<char*>(literal);
}

void* Ref(std::uintptr_t value)
{
    return reinterpret_cast<void*>(value);
}
} // namespace

TEST(ObjectKey, CopiesAreDeepAndSelfAssignmentChangesNothing)
{
    OBJECT_KEY original(EParameterIDName, Text("pen"), EAddrModeByString);
    OBJECT_KEY copy(original);
    OBJECT_KEY assigned(EObjectIDTablet, Ref(3), EAddrModeByIndex);
    assigned = original;
    for (const OBJECT_KEY* key : {&copy, &assigned})
    {
        EXPECT_NE(key->mpStringBuffer, original.mpStringBuffer);
        EXPECT_EQ(key->mReference, key->mpStringBuffer);
        EXPECT_STREQ(key->String(), "pen");
        EXPECT_EQ(key->Identifier(), EParameterIDName);
    }
    original.Set(EParameterIDName, Text("eraser"), EAddrModeByString);
    EXPECT_STREQ(copy.String(), "pen");

    char* before = assigned.mpStringBuffer;
    OBJECT_KEY& self = assigned;
    assigned = self;
    EXPECT_EQ(assigned.mpStringBuffer, before);
    EXPECT_STREQ(assigned.String(), "pen");
}

TEST(ObjectKey, IsValidChecksInOrderAndNamesTheFirstFault)
{
    struct Case
    {
        const char* what;
        void (*spoil)(OBJECT_KEY&);
        const char* message;
    };
    const Case cases[] = {
        {"mode before identifier",
         [](OBJECT_KEY& k)
         {
             k.mAddressingMode = MAX_ADDRESSING_MODE;
             k.mIdentifier = MAX_KEY_ID;
         },
         "OBJECT_KEY::IsValid: AddressingMode invalid\n"},
        {"identifier", [](OBJECT_KEY& k) { k.mIdentifier = MAX_KEY_ID; },
         "OBJECT_KEY::IsValid: Identifier invalid\n"},
        {"size without buffer",
         [](OBJECT_KEY& k)
         {
             k.Set(EParameterIDName, nullptr, EAddrModeByIndex);
             k.mStringBufferSize = 4;
         },
         "OBJECT_KEY::IsValid: claims a string size with no buffer\n"},
        {"buffer without size", [](OBJECT_KEY& k) { k.mStringBufferSize = 0; },
         "OBJECT_KEY::IsValid: has string buffer with no size\n"},
        {"empty string", [](OBJECT_KEY& k) { k.mEmptyString = 'x'; },
         "OBJECT_KEY::IsValid: The empty string is not empty\n"},
    };
    for (const Case& c : cases)
    {
        OBJECT_KEY key(EParameterIDName, Text("abc"), EAddrModeByString);
        c.spoil(key);
        KELSTATUS status = KELSTATUS_SUCCESS;
        auto output = Capture([&] { status = key.IsValid(); });
        EXPECT_EQ(status, KELSTATUS_RESOURCE_BAD) << c.what;
        EXPECT_EQ(output.err, c.message) << c.what;
        // Leave the key in a state its destructor can free.
        key.mStringBufferSize = key.mpStringBuffer ? 4 : 0;
    }

    OBJECT_KEY sentinel;
    // The highest mode (a string key) with the highest identifier.
    OBJECT_KEY last(static_cast<EEventIdentifier>(MAX_KEY_ID - 1), Text("x"),
                    static_cast<EAddressingMode>(MAX_ADDRESSING_MODE - 1));
    EXPECT_EQ(sentinel.IsValid(), KELSTATUS_SUCCESS);
    EXPECT_EQ(last.IsValid(), KELSTATUS_SUCCESS);
}

TEST(ObjectKey, ResetChainClearsExactlyTheCountGiven)
{
    OBJECT_KEY chain[4] = {OBJECT_KEY(EObjectIDTablet, Ref(1), EAddrModeByIndex),
                           OBJECT_KEY(EParameterIDName, Text("x"), EAddrModeByString),
                           OBJECT_KEY(EObjectIDContext, Ref(3), EAddrModeByID), OBJECT_KEY()};
    ResetObjectKey(chain, 0);
    EXPECT_EQ(chain[0].Identifier(), EObjectIDTablet);
    ResetObjectKey(chain, 2);
    EXPECT_EQ(chain[0].Identifier(), EObjectIDNothing);
    EXPECT_EQ(chain[1].mpStringBuffer, nullptr);
    EXPECT_EQ(chain[2].Identifier(), EObjectIDContext);

    auto output = Capture([] { ResetObjectKey(nullptr, 3); });
    EXPECT_THAT(Assertions(output.out), ElementsAre("pObjectKey_I"));
}

TEST(ObjectKey, CopyChainCopiesThroughTheSentinelOnly)
{
    OBJECT_KEY source[11] = {OBJECT_KEY(EObjectIDTablet, Ref(1), EAddrModeByIndex),
                             OBJECT_KEY(EParameterIDName, Text("grip"), EAddrModeByString)};
    source[2].Set(EObjectIDNothing, Ref(9), EAddrModeByID);
    OBJECT_KEY dest[11];
    for (auto& key : dest)
    {
        key.Set(EObjectIDContext, Ref(5), EAddrModeByIndex);
    }
    CopyObjectKey(dest, source);
    EXPECT_EQ(dest[0].Identifier(), EObjectIDTablet);
    EXPECT_STREQ(dest[1].String(), "grip");
    EXPECT_NE(dest[1].mpStringBuffer, source[1].mpStringBuffer);
    EXPECT_EQ(dest[2].Identifier(), EObjectIDNothing);
    EXPECT_EQ(dest[2].mReference, Ref(9)) << "the sentinel is copied whole";
    EXPECT_EQ(dest[3].Identifier(), EObjectIDContext) << "places after the sentinel stay";

    auto output = Capture([&] { CopyObjectKey(source, source); });
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
    EXPECT_STREQ(source[1].String(), "grip");

    output = Capture([&] { CopyObjectKey(nullptr, source); });
    EXPECT_THAT(Assertions(output.out), ElementsAre("pDest_O"));

    // Without a sentinel, eleven places are copied and no more.
    OBJECT_KEY full[12];
    OBJECT_KEY copy[12];
    for (unsigned i = 0; i < 12; ++i)
    {
        full[i].Set(EObjectIDTablet, Ref(i + 1), EAddrModeByIndex);
    }
    Capture([&] { CopyObjectKey(copy, full); });
    EXPECT_EQ(copy[10].mReference, Ref(11));
    EXPECT_EQ(copy[11].Identifier(), EObjectIDNothing);

    // An invalid source is reported and still copied.
    source[0].mAddressingMode = MAX_ADDRESSING_MODE;
    output = Capture([&] { CopyObjectKey(dest, source); });
    EXPECT_THAT(Assertions(output.out),
                ElementsAre("IsObjectKeyValid(pSource_I) == KELSTATUS_SUCCESS"));
    EXPECT_EQ(dest[0].mAddressingMode, MAX_ADDRESSING_MODE);
    EXPECT_THAT(Assertions(Capture([&] { CopyObjectKey(dest, nullptr); }).out),
                ElementsAre("IsObjectKeyValid(pSource_I) == KELSTATUS_SUCCESS"));
}

TEST(ObjectKey, ChainNeedsASentinelWithinItsFirstTenPlaces)
{
    OBJECT_KEY chain[11];
    for (unsigned i = 0; i < 11; ++i)
    {
        chain[i].Set(EObjectIDTablet, Ref(i), EAddrModeByIndex);
    }
    chain[10].ResetObjectKey(); // a sentinel in the eleventh place is one too late
    KELSTATUS status = KELSTATUS_SUCCESS;
    auto output = Capture([&] { status = IsObjectKeyValid(chain); });
    EXPECT_EQ(status, KELSTATUS_RESOURCE_BAD);
    EXPECT_EQ(output.err, "IsObjectKeyValid: Sentinel value missing\n");

    chain[9].ResetObjectKey(); // nine keys and a sentinel
    EXPECT_EQ(IsObjectKeyValid(chain), KELSTATUS_SUCCESS);

    // Keys after the sentinel are not looked at; a bad key before it is answered with its code.
    chain[10].mIdentifier = MAX_KEY_ID;
    EXPECT_EQ(IsObjectKeyValid(chain), KELSTATUS_SUCCESS);
    chain[4].mAddressingMode = MAX_ADDRESSING_MODE;
    output = Capture([&] { status = IsObjectKeyValid(chain); });
    EXPECT_EQ(status, KELSTATUS_RESOURCE_BAD);
    EXPECT_EQ(output.err, "OBJECT_KEY::IsValid: AddressingMode invalid\n");

    output = Capture([&] { status = IsObjectKeyValid(nullptr); });
    EXPECT_EQ(status, KELSTATUS_MEMORY_NULL_PTR);
    EXPECT_EQ(output.err, "IsObjectKeyValid: Null key pointer\n");
}
