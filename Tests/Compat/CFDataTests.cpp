#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace
{
std::string Bytes(CFDataRef data)
{
    return std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
                       static_cast<size_t>(CFDataGetLength(data)));
}

TEST(CFDataTests, CreateCopiesAndOwnershipCountsReferences)
{
    char source[] = "abc";
    CFDataRef data = CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(source), 3);
    source[0] = 'X'; // the data keeps its own copy
    EXPECT_EQ(Bytes(data), "abc");
    EXPECT_EQ(CFGetTypeID(data), CFDataGetTypeID());
    EXPECT_EQ(CFGetRetainCount(data), 1);
    EXPECT_EQ(CFRetain(data), data);
    EXPECT_EQ(CFGetRetainCount(data), 2);
    CFRelease(data);
    EXPECT_EQ(CFGetRetainCount(data), 1);

    CFDataRef copy = CFDataCreateCopy(nullptr, data);
    EXPECT_NE(copy, data);
    EXPECT_TRUE(CFEqual(copy, data));
    EXPECT_EQ(CFHash(copy), CFHash(data));
    CFRelease(data);
    EXPECT_EQ(Bytes(copy), "abc");
    CFRelease(copy);

    // An empty data still has a usable byte pointer; a negative length is refused.
    CFDataRef empty = CFDataCreate(nullptr, nullptr, 0);
    ASSERT_NE(empty, nullptr);
    EXPECT_NE(CFDataGetBytePtr(empty), nullptr);
    EXPECT_EQ(CFDataGetLength(empty), 0);
    CFRelease(empty);
    EXPECT_EQ(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>("x"), -1), nullptr);
}

TEST(CFDataTests, NoCopyDataSeesTheCallersBytesAndFreesOnlyWhenAsked)
{
    UInt8 buffer[4] = {1, 2, 3, 4};
    CFDataRef wrapped = CFDataCreateWithBytesNoCopy(nullptr, buffer, 4, kCFAllocatorNull);
    EXPECT_EQ(CFDataGetBytePtr(wrapped), buffer);
    buffer[1] = 9;
    EXPECT_EQ(CFDataGetBytePtr(wrapped)[1], 9);
    CFRelease(wrapped); // must not free the stack buffer (ASan would report it)

    auto* heap = static_cast<UInt8*>(std::malloc(8));
    std::memset(heap, 7, 8);
    CFDataRef owning = CFDataCreateWithBytesNoCopy(nullptr, heap, 8, kCFAllocatorDefault);
    EXPECT_EQ(CFDataGetLength(owning), 8);
    CFRelease(owning); // frees `heap`; a leak would fail the sanitizer build
}

TEST(CFDataTests, MutableDataGrowsWithZerosAndEditsInPlace)
{
    // Unbounded (a vector), a small fixed capacity (bytes behind the object) and a capacity
    // too large to be allocated up front (a vector with a bound).
    for (CFIndex capacity : {CFIndex(0), CFIndex(16), CFIndex(1) << 20})
    {
        SCOPED_TRACE(capacity);
        CFMutableDataRef data = CFDataCreateMutable(nullptr, capacity);
        CFDataAppendBytes(data, reinterpret_cast<const UInt8*>("hello"), 5);
        CFDataSetLength(data, 8);
        EXPECT_EQ(Bytes(data), std::string("hello\0\0\0", 8));
        CFDataGetMutableBytePtr(data)[0] = 'j';
        CFDataSetLength(data, 5);
        EXPECT_EQ(Bytes(data), "jello");

        CFDataReplaceBytes(data, CFRangeMake(1, 3), reinterpret_cast<const UInt8*>("EEEEE"), 5);
        EXPECT_EQ(Bytes(data), "jEEEEEo");
        CFDataDeleteBytes(data, CFRangeMake(0, 6));
        EXPECT_EQ(Bytes(data), "o");
        CFDataIncreaseLength(data, 2);
        EXPECT_EQ(CFDataGetLength(data), 3);

        UInt8 out[2] = {};
        CFDataAppendBytes(data, reinterpret_cast<const UInt8*>("xy"), 2);
        CFDataGetBytes(data, CFRangeMake(3, 2), out);
        EXPECT_EQ(out[0], 'x');
        EXPECT_EQ(out[1], 'y');

        // Replacing with bytes taken from the data itself.
        CFDataReplaceBytes(data, CFRangeMake(0, 1), CFDataGetBytePtr(data) + 3, 2);
        EXPECT_EQ(Bytes(data), std::string("xy\0\0xy", 6));
        CFRelease(data);
    }
}

TEST(CFDataTests, MutableCopyIsIndependentOfItsSource)
{
    CFDataRef source = CFDataCreate(nullptr, reinterpret_cast<const UInt8*>("abc"), 3);
    CFMutableDataRef copy = CFDataCreateMutableCopy(nullptr, 0, source);
    CFDataGetMutableBytePtr(copy)[0] = 'z';
    EXPECT_EQ(Bytes(source), "abc");
    EXPECT_EQ(Bytes(copy), "zbc");
    EXPECT_FALSE(CFEqual(source, copy));
    // A capacity smaller than the source cannot hold it.
    EXPECT_EQ(CFDataCreateMutableCopy(nullptr, 2, source), nullptr);
    CFRelease(copy);
    CFRelease(source);
}

TEST(CFDataDeathTests, MisuseAbortsAsOnMacOS)
{
    CFDataRef immutable = CFDataCreate(nullptr, reinterpret_cast<const UInt8*>("a"), 1);
    EXPECT_DEATH(CFDataSetLength(const_cast<CFMutableDataRef>(immutable), 4), "immutable");
    CFMutableDataRef bounded = CFDataCreateMutable(nullptr, 4);
    EXPECT_DEATH(CFDataSetLength(bounded, 5), "capacity");
    EXPECT_DEATH(CFDataGetBytes(immutable, CFRangeMake(0, 2), nullptr), "range");
    EXPECT_DEATH(CFRelease(nullptr), "CFRelease");
    EXPECT_DEATH(CFDataGetLength(reinterpret_cast<CFDataRef>(CFSTR("text"))), "not a CFData");
    CFRelease(bounded);
    CFRelease(immutable);
}
} // namespace
