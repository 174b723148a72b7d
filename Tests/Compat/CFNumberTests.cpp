#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace
{
TEST(CFNumberTests, IntegersConvertAndReportLoss)
{
    const SInt64 big = (SInt64(1) << 40) + 5;
    CFNumberRef number = CFNumberCreate(nullptr, kCFNumberSInt64Type, &big);
    EXPECT_EQ(CFNumberGetType(number), kCFNumberSInt64Type);
    EXPECT_FALSE(CFNumberIsFloatType(number));

    SInt64 wide = 0;
    EXPECT_TRUE(CFNumberGetValue(number, kCFNumberSInt64Type, &wide));
    EXPECT_EQ(wide, big);
    SInt32 narrow = 0;
    EXPECT_FALSE(CFNumberGetValue(number, kCFNumberSInt32Type, &narrow));
    EXPECT_EQ(narrow, 5); // truncated, stored all the same
    double asDouble = 0;
    EXPECT_TRUE(CFNumberGetValue(number, kCFNumberDoubleType, &asDouble));
    EXPECT_EQ(asDouble, static_cast<double>(big));
    CFRelease(number);

    const SInt8 small = -3;
    number = CFNumberCreate(nullptr, kCFNumberSInt8Type, &small);
    SInt32 widened = 0;
    EXPECT_TRUE(CFNumberGetValue(number, kCFNumberIntType, &widened));
    EXPECT_EQ(widened, -3);
    CFRelease(number);

    // The largest 64-bit value has no exact double.
    const SInt64 maximum = std::numeric_limits<SInt64>::max();
    number = CFNumberCreate(nullptr, kCFNumberLongLongType, &maximum);
    EXPECT_FALSE(CFNumberGetValue(number, kCFNumberFloat64Type, &asDouble));
    CFRelease(number);
}

TEST(CFNumberTests, FloatsTruncateTowardZeroAndSaturate)
{
    const double fraction = -2.75;
    CFNumberRef number = CFNumberCreate(nullptr, kCFNumberDoubleType, &fraction);
    EXPECT_TRUE(CFNumberIsFloatType(number));
    SInt32 value = 0;
    EXPECT_FALSE(CFNumberGetValue(number, kCFNumberSInt32Type, &value));
    EXPECT_EQ(value, -2);
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

    const double whole = 7.0;
    number = CFNumberCreate(nullptr, kCFNumberFloat64Type, &whole);
    EXPECT_TRUE(CFNumberGetValue(number, kCFNumberSInt32Type, &value));
    EXPECT_EQ(value, 7);
    const SInt32 seven = 7;
    CFNumberRef integer = CFNumberCreate(nullptr, kCFNumberSInt32Type, &seven);
    EXPECT_TRUE(CFEqual(number, integer));
    EXPECT_EQ(CFHash(number), CFHash(integer));
    CFRelease(integer);
    CFRelease(number);
}

TEST(CFNumberTests, BooleansAreSharedConstants)
{
    EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
    EXPECT_FALSE(CFBooleanGetValue(kCFBooleanFalse));
    EXPECT_EQ(CFGetTypeID(kCFBooleanTrue), CFBooleanGetTypeID());
    CFRelease(kCFBooleanTrue);
    EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
}

TEST(CFCollectionTests, ArraysAndDictionariesRetainWhatTheyHold)
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
    // Keys are found by equality, not identity.
    EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("Protocal")), value);
    EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("Protocol")), nullptr);
    EXPECT_TRUE(CFDictionaryContainsKey(dictionary, CFSTR("Protocal")));
    const void* found = nullptr;
    EXPECT_FALSE(CFDictionaryGetValueIfPresent(dictionary, CFSTR("x"), &found));
    EXPECT_EQ(found, nullptr);

    CFRelease(array);
    EXPECT_EQ(CFGetRetainCount(value), 1);
    CFRelease(dictionary); // releases the last references; a leak fails the sanitizer build
}

TEST(CFCollectionTests, ADuplicateKeyKeepsTheLastValue)
{
    const void* keys[] = {CFSTR("k"), CFSTR("k")};
    const void* values[] = {CFSTR("first"), CFSTR("second")};
    CFDictionaryRef dictionary = CFDictionaryCreate(
        nullptr, keys, values, 2, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    EXPECT_EQ(CFDictionaryGetCount(dictionary), 1);
    EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("k")), CFSTR("second"));
    CFRelease(dictionary);
}
} // namespace
