#include <CoreServices/CoreServices.h>

#include <gtest/gtest.h>

#include <cstring>

namespace
{
// Disposes of the descriptors a test made, whatever it asserts.
struct SDescs
{
    AEDesc a{typeNull, nullptr}, b{typeNull, nullptr}, c{typeNull, nullptr};
    ~SDescs()
    {
        AEDisposeDesc(&a);
        AEDisposeDesc(&b);
        AEDisposeDesc(&c);
    }
};

SInt32 LongOf(const AEDesc& desc)
{
    SInt32 value = 0;
    EXPECT_EQ(AEGetDescDataSize(&desc), 4);
    AEGetDescData(&desc, &value, sizeof value);
    return value;
}

TEST(AppleEventDescTests, ParametersAreReadBackWithCoercionWithinRange)
{
    SDescs d;
    ASSERT_EQ(
        AECreateAppleEvent('core', 'cnte', nullptr, kAutoGenerateReturnID, kAnyTransactionID, &d.a),
        noErr);
    SInt32 big = 70000;
    SInt32 negative = -5;
    OSType tblt = 'Tblt';
    ASSERT_EQ(AEPutParamPtr(&d.a, 'big ', typeSInt32, &big, 4), noErr);
    ASSERT_EQ(AEPutParamPtr(&d.a, 'neg ', typeSInt32, &negative, 4), noErr);
    ASSERT_EQ(AEPutParamPtr(&d.a, keyAEObjectClass, typeType, &tblt, 4), noErr);

    DescType type = 0;
    SInt32 asLong = 0;
    Size actual = 0;
    EXPECT_EQ(AEGetParamPtr(&d.a, 'big ', typeWildCard, &type, &asLong, 4, &actual), noErr);
    EXPECT_EQ(type, DescType(typeSInt32));
    EXPECT_EQ(asLong, 70000);
    EXPECT_EQ(actual, 4);

    SInt16 asShort = 0;
    EXPECT_EQ(AEGetParamPtr(&d.a, 'neg ', typeSInt16, &type, &asShort, 2, &actual), noErr);
    EXPECT_EQ(asShort, -5);
    EXPECT_EQ(type, DescType(typeSInt16));
    EXPECT_EQ(actual, 2);
    SInt64 asComp = 0;
    EXPECT_EQ(AEGetParamPtr(&d.a, 'big ', typeSInt64, &type, &asComp, 8, &actual), noErr);
    EXPECT_EQ(asComp, 70000);

    // Values that do not fit the desired type are refused, not truncated.
    EXPECT_EQ(AEGetParamPtr(&d.a, 'big ', typeSInt16, &type, &asShort, 2, &actual),
              errAECoercionFail);
    UInt32 asUnsigned = 0;
    EXPECT_EQ(AEGetParamPtr(&d.a, 'neg ', typeUInt32, &type, &asUnsigned, 4, &actual),
              errAECoercionFail);

    // Four-character codes convert among their own kind only.
    OSType code = 0;
    EXPECT_EQ(AEGetParamPtr(&d.a, keyAEObjectClass, typeEnumerated, &type, &code, 4, &actual),
              noErr);
    EXPECT_EQ(code, OSType('Tblt'));
    EXPECT_EQ(AEGetParamPtr(&d.a, keyAEObjectClass, typeSInt32, &type, &asLong, 4, &actual),
              errAECoercionFail);

    EXPECT_EQ(AEGetParamPtr(&d.a, 'none', typeWildCard, &type, &asLong, 4, &actual),
              errAEDescNotFound);
}

TEST(AppleEventDescTests, ShortBuffersGetThePrefixAndTheFullSize)
{
    SDescs d;
    const char text[] = "abcdefgh";
    ASSERT_EQ(AECreateAppleEvent('Kelm', 'KSnd', nullptr, 7, 0, &d.a), noErr);
    ASSERT_EQ(AEPutParamPtr(&d.a, keyDirectObject, typeUTF8Text, text, 8), noErr);
    char buffer[4] = {'-', '-', '-', '-'};
    Size actual = 0;
    DescType type = 0;
    EXPECT_EQ(AEGetParamPtr(&d.a, keyDirectObject, typeWildCard, &type, buffer, 3, &actual), noErr);
    EXPECT_EQ(actual, 8);
    EXPECT_EQ(std::memcmp(buffer, "abc-", 4), 0);

    ASSERT_EQ(AEGetParamDesc(&d.a, keyDirectObject, typeWildCard, &d.b), noErr);
    EXPECT_EQ(AEGetDescDataSize(&d.b), 8);
    std::memset(buffer, '-', sizeof buffer);
    EXPECT_EQ(AEGetDescData(&d.b, buffer, 2), noErr);
    EXPECT_EQ(std::memcmp(buffer, "ab--", 4), 0);
    EXPECT_EQ(AEGetDescData(&d.b, nullptr, 4), paramErr);
}

TEST(AppleEventDescTests, ListsAppendReplaceAndRefuseBadIndexes)
{
    SDescs d;
    ASSERT_EQ(AECreateList(nullptr, 0, false, &d.a), noErr);
    EXPECT_EQ(d.a.descriptorType, DescType(typeAEList));
    SInt32 one = 1, two = 2, three = 3;
    EXPECT_EQ(AEPutPtr(&d.a, 0, typeSInt32, &one, 4), noErr); // 0 appends
    EXPECT_EQ(AEPutPtr(&d.a, 2, typeSInt32, &two, 4), noErr); // count + 1 appends
    EXPECT_EQ(AEPutPtr(&d.a, 4, typeSInt32, &three, 4), errAEIllegalIndex);
    EXPECT_EQ(AEPutPtr(&d.a, 1, typeSInt32, &three, 4), noErr); // replaces the first
    long count = 0;
    EXPECT_EQ(AECountItems(&d.a, &count), noErr);
    EXPECT_EQ(count, 2);

    AEKeyword key = 0;
    ASSERT_EQ(AEGetNthDesc(&d.a, 1, typeWildCard, &key, &d.b), noErr);
    EXPECT_EQ(key, AEKeyword(typeWildCard));
    EXPECT_EQ(LongOf(d.b), 3);
    SInt32 value = 0;
    EXPECT_EQ(AEGetNthPtr(&d.a, 2, typeSInt32, &key, nullptr, &value, 4, nullptr), noErr);
    EXPECT_EQ(value, 2);
    EXPECT_EQ(AEGetNthDesc(&d.a, 0, typeWildCard, &key, &d.c), errAEIllegalIndex);
    EXPECT_EQ(AEGetNthDesc(&d.a, 3, typeWildCard, &key, &d.c), errAEIllegalIndex);
    EXPECT_EQ(d.c.descriptorType, DescType(typeNull));

    // Only lists, records and events have items.
    EXPECT_EQ(AECountItems(&d.b, &count), errAEWrongDataType);
    EXPECT_EQ(AEPutPtr(&d.b, 0, typeSInt32, &one, 4), errAEWrongDataType);
}

TEST(AppleEventDescTests, ParametersKeepTheirPlaceWhenReplacedAndCountAsItems)
{
    // A reply whose first item is keyErrorNumber is how an answering process reports failure.
    SDescs d;
    ASSERT_EQ(AECreateAppleEvent(kCoreEventClass, kAEAnswer, nullptr, 1, 0, &d.a), noErr);
    SInt32 first = -1700, second = 42, replaced = -50;
    ASSERT_EQ(AEPutParamPtr(&d.a, keyErrorNumber, typeSInt32, &first, 4), noErr);
    ASSERT_EQ(AEPutParamPtr(&d.a, keyDirectObject, typeSInt32, &second, 4), noErr);
    ASSERT_EQ(AEPutParamPtr(&d.a, keyErrorNumber, typeSInt32, &replaced, 4), noErr);

    long count = 0;
    EXPECT_EQ(AECountItems(&d.a, &count), noErr);
    EXPECT_EQ(count, 2);
    AEKeyword key = 0;
    ASSERT_EQ(AEGetNthDesc(&d.a, 1, typeWildCard, &key, &d.b), noErr);
    EXPECT_EQ(key, AEKeyword(keyErrorNumber));
    EXPECT_EQ(LongOf(d.b), -50);

    EXPECT_EQ(AEDeleteKeyDesc(&d.a, keyErrorNumber), noErr);
    EXPECT_EQ(AEDeleteKeyDesc(&d.a, keyErrorNumber), errAEDescNotFound);
    EXPECT_EQ(AECountItems(&d.a, &count), noErr);
    EXPECT_EQ(count, 1);

    // Records take keyed items the same way; parameters need a record or an event.
    ASSERT_EQ(AECreateList(nullptr, 0, true, &d.c), noErr);
    EXPECT_EQ(AEPutKeyPtr(&d.c, 'abcd', typeSInt32, &second, 4), noErr);
    SInt32 value = 0;
    EXPECT_EQ(AEGetKeyPtr(&d.c, 'abcd', typeSInt32, nullptr, &value, 4, nullptr), noErr);
    EXPECT_EQ(value, 42);
    EXPECT_EQ(AEPutParamPtr(&d.b, keyDirectObject, typeSInt32, &value, 4), errAEWrongDataType);
}

TEST(AppleEventDescTests, CopiesAreDeepAndDisposalResetsToNull)
{
    SDescs d;
    ASSERT_EQ(AECreateList(nullptr, 0, false, &d.a), noErr);
    SInt32 value = 5;
    ASSERT_EQ(AECreateDesc(typeSInt32, &value, 4, &d.b), noErr);
    ASSERT_EQ(AEPutDesc(&d.a, 0, &d.b), noErr);
    AEDisposeDesc(&d.b); // the list holds its own copy
    EXPECT_EQ(d.b.descriptorType, DescType(typeNull));
    EXPECT_EQ(d.b.dataHandle, nullptr);

    ASSERT_EQ(AEDuplicateDesc(&d.a, &d.c), noErr);
    SInt32 other = 6;
    ASSERT_EQ(AEPutPtr(&d.a, 1, typeSInt32, &other, 4), noErr);
    AEDisposeDesc(&d.a);
    SInt32 read = 0;
    EXPECT_EQ(AEGetNthPtr(&d.c, 1, typeSInt32, nullptr, nullptr, &read, 4, nullptr), noErr);
    EXPECT_EQ(read, 5);

    // Lists, records and events have no plain data to hand out.
    EXPECT_EQ(AEGetDescDataSize(&d.c), 0);
    // Creation refuses inconsistent arguments and leaves a null descriptor.
    EXPECT_EQ(AECreateDesc(typeSInt32, nullptr, 4, &d.b), paramErr);
    EXPECT_EQ(AECreateDesc(typeAEList, &value, 4, &d.b), errAEWrongDataType);
    EXPECT_EQ(d.b.descriptorType, DescType(typeNull));
    EXPECT_EQ(AECreateDesc(typeNull, &value, 4, &d.b), noErr);
    EXPECT_EQ(d.b.dataHandle, nullptr);
}
} // namespace
