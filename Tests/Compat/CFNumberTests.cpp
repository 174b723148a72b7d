#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace
{
TEST(CFNumberTests, ConversionsReportLossAndStoreTheTruncatedOrSaturatedValue)
{
    const SInt64 big = (SInt64(1) << 40) + 5;
    CFNumberRef number = CFNumberCreate(nullptr, kCFNumberSInt64Type, &big);
    EXPECT_EQ(CFNumberGetType(number), kCFNumberSInt64Type);
    EXPECT_FALSE(CFNumberIsFloatType(number));
    SInt32 narrow = 0;
    EXPECT_FALSE(CFNumberGetValue(number, kCFNumberSInt32Type, &narrow));
    EXPECT_EQ(narrow, 5);
    double asDouble = 0;
    EXPECT_TRUE(CFNumberGetValue(number, kCFNumberDoubleType, &asDouble));
    EXPECT_EQ(asDouble, static_cast<double>(big));
    CFRelease(number);

    const SInt8 small = -3;
    number = CFNumberCreate(nullptr, kCFNumberSInt8Type, &small);
    EXPECT_TRUE(CFNumberGetValue(number, kCFNumberIntType, &narrow));
    EXPECT_EQ(narrow, -3);
    CFRelease(number);

    // The largest 64-bit value has no exact double.
    const SInt64 maximum = std::numeric_limits<SInt64>::max();
    number = CFNumberCreate(nullptr, kCFNumberLongLongType, &maximum);
    EXPECT_FALSE(CFNumberGetValue(number, kCFNumberFloat64Type, &asDouble));
    CFRelease(number);

    // Floats truncate toward zero and saturate.
    const double fraction = -2.75;
    number = CFNumberCreate(nullptr, kCFNumberDoubleType, &fraction);
    EXPECT_TRUE(CFNumberIsFloatType(number));
    EXPECT_FALSE(CFNumberGetValue(number, kCFNumberSInt32Type, &narrow));
    EXPECT_EQ(narrow, -2);
    float single = 0;
    EXPECT_TRUE(CFNumberGetValue(number, kCFNumberFloatType, &single));
    EXPECT_EQ(single, -2.75f);
    CFRelease(number);
    const double huge = 1e30;
    number = CFNumberCreate(nullptr, kCFNumberFloat64Type, &huge);
    SInt16 saturated = 0;
    EXPECT_FALSE(CFNumberGetValue(number, kCFNumberSInt16Type, &saturated));
    EXPECT_EQ(saturated, std::numeric_limits<SInt16>::max());
    CFRelease(number);

    // A whole double equals the same integer, hash included.
    const double whole = 7.0;
    const SInt32 seven = 7;
    number = CFNumberCreate(nullptr, kCFNumberFloat64Type, &whole);
    CFNumberRef integer = CFNumberCreate(nullptr, kCFNumberSInt32Type, &seven);
    EXPECT_TRUE(CFNumberGetValue(number, kCFNumberSInt32Type, &narrow));
    EXPECT_TRUE(CFEqual(number, integer));
    EXPECT_EQ(CFHash(number), CFHash(integer));
    CFRelease(integer);
    CFRelease(number);
    // Integers compare exactly: these two are one double apart from nothing.
    const SInt64 large = (SInt64(1) << 53) + 1;
    const SInt64 neighbour = SInt64(1) << 53;
    number = CFNumberCreate(nullptr, kCFNumberSInt64Type, &large);
    integer = CFNumberCreate(nullptr, kCFNumberSInt64Type, &neighbour);
    EXPECT_FALSE(CFEqual(number, integer));
    CFRelease(integer);
    CFRelease(number);
    // A fraction hashes as itself, so equal fractions hash alike.
    const double half = 0.5;
    number = CFNumberCreate(nullptr, kCFNumberFloat64Type, &half);
    integer = CFNumberCreate(nullptr, kCFNumberFloat64Type, &half);
    EXPECT_TRUE(CFEqual(number, integer));
    EXPECT_EQ(CFHash(number), CFHash(integer));
    CFRelease(integer);
    CFRelease(number);

    EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
    EXPECT_FALSE(CFBooleanGetValue(kCFBooleanFalse));
    EXPECT_EQ(CFGetTypeID(kCFBooleanTrue), CFBooleanGetTypeID());
    CFRelease(kCFBooleanTrue); // a shared constant
    EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
}

TEST(CFCollectionTests, ArraysAndDictionariesRetainWhatTheyHoldAndFindKeysByEquality)
{
    CFStringRef value = CFStringCreateWithCString(nullptr, "value", kCFStringEncodingUTF8);
    CFStringRef key = CFStringCreateWithCString(nullptr, "Protocal", kCFStringEncodingUTF8);
    const void* values[] = {value};
    const void* keys[] = {key};
    CFArrayRef array = CFArrayCreate(nullptr, values, 1, &kCFTypeArrayCallBacks);
    CFDictionaryRef dictionary = CFDictionaryCreate(
        nullptr, keys, values, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    EXPECT_EQ(CFGetRetainCount(value), 3);
    CFRelease(value);
    CFRelease(key);

    EXPECT_EQ(CFArrayGetCount(array), 1);
    EXPECT_EQ(CFArrayGetValueAtIndex(array, 0), value);
    EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("Protocal")), value);
    EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("Protocol")), nullptr);
    EXPECT_TRUE(CFDictionaryContainsKey(dictionary, CFSTR("Protocal")));
    const void* found = nullptr;
    EXPECT_FALSE(CFDictionaryGetValueIfPresent(dictionary, CFSTR("x"), &found));
    CFRelease(array);
    EXPECT_EQ(CFGetRetainCount(value), 1);
    CFRelease(dictionary); // releases the last references; a leak fails the sanitizer build

    // A duplicate key keeps the last value.
    const void* twice[] = {CFSTR("k"), CFSTR("k")};
    const void* both[] = {CFSTR("first"), CFSTR("second")};
    dictionary = CFDictionaryCreate(nullptr, twice, both, 2, &kCFTypeDictionaryKeyCallBacks,
                                    &kCFTypeDictionaryValueCallBacks);
    EXPECT_EQ(CFDictionaryGetCount(dictionary), 1);
    EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("k")), CFSTR("second"));
    CFRelease(dictionary);
}
} // namespace
