#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <limits>
#include <utility>

namespace
{
// Whether the conversion was exact, and the value stored.
template <typename To, typename From>
std::pair<bool, To> Convert(CFNumberType fromType, From value, CFNumberType toType)
{
    CFNumberRef number = CFNumberCreate(nullptr, fromType, &value);
    To out{};
    const bool exact = CFNumberGetValue(number, toType, &out);
    CFRelease(number);
    return {exact, out};
}

// Whether two numbers are equal, and whether they hash alike.
template <typename A, typename B>
std::pair<bool, bool> Compare(CFNumberType aType, A a, CFNumberType bType, B b)
{
    CFNumberRef first = CFNumberCreate(nullptr, aType, &a);
    CFNumberRef second = CFNumberCreate(nullptr, bType, &b);
    const std::pair<bool, bool> result{CFEqual(first, second), CFHash(first) == CFHash(second)};
    CFRelease(second);
    CFRelease(first);
    return result;
}

TEST(CFNumberTests, ConversionsReportLossAndStoreTheTruncatedOrSaturatedValue)
{
    const SInt64 big = (SInt64(1) << 40) + 5;
    const double fraction = -2.75;

    EXPECT_EQ(Convert<SInt32>(kCFNumberSInt64Type, big, kCFNumberSInt32Type),
              std::pair(false, SInt32(5)));
    EXPECT_EQ(Convert<double>(kCFNumberSInt64Type, big, kCFNumberDoubleType),
              std::pair(true, static_cast<double>(big)));
    EXPECT_EQ(Convert<int>(kCFNumberSInt8Type, SInt8(-3), kCFNumberIntType), std::pair(true, -3));
    // The largest 64-bit value has no exact double.
    EXPECT_FALSE((Convert<double>(kCFNumberLongLongType, std::numeric_limits<SInt64>::max(),
                                  kCFNumberFloat64Type)
                      .first));
    // Floats truncate toward zero and saturate.
    EXPECT_EQ(Convert<SInt32>(kCFNumberDoubleType, fraction, kCFNumberSInt32Type),
              std::pair(false, SInt32(-2)));
    EXPECT_EQ(Convert<float>(kCFNumberDoubleType, fraction, kCFNumberFloatType),
              std::pair(true, -2.75f));
    EXPECT_EQ(Convert<SInt16>(kCFNumberFloat64Type, 1e30, kCFNumberSInt16Type),
              std::pair(false, std::numeric_limits<SInt16>::max()));
    EXPECT_TRUE((Convert<SInt32>(kCFNumberFloat64Type, 7.0, kCFNumberSInt32Type).first));

    // A whole double equals the same integer, hash included; integers compare exactly (2^53
    // and 2^53 + 1 are one double); equal fractions hash alike.
    EXPECT_EQ(Compare(kCFNumberFloat64Type, 7.0, kCFNumberSInt32Type, SInt32(7)),
              std::pair(true, true));
    EXPECT_FALSE(
        Compare(kCFNumberSInt64Type, (SInt64(1) << 53) + 1, kCFNumberSInt64Type, SInt64(1) << 53)
            .first);
    EXPECT_EQ(Compare(kCFNumberFloat64Type, 0.5, kCFNumberFloat64Type, 0.5), std::pair(true, true));

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
    CFArrayRef same = CFArrayCreate(nullptr, values, 1, &kCFTypeArrayCallBacks);
    EXPECT_TRUE(CFEqual(array, same));
    CFRelease(same);
    CFDictionaryRef dictionary = CFDictionaryCreate(
        nullptr, keys, values, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    EXPECT_EQ(CFGetRetainCount(value), 3);
    CFRelease(value);
    CFRelease(key);

    EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("Protocal")), value);
    EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("Protocol")), nullptr);
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
    EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("k")), CFSTR("second"));
    CFRelease(dictionary);
}
} // namespace
