#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <cstdlib>
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
    EXPECT_EQ(CFRetain(data), data);
    CFRelease(data);
    CFDataRef copy = CFDataCreateCopy(nullptr, data);
    EXPECT_NE(copy, data);
    EXPECT_TRUE(CFEqual(copy, data));
    CFRelease(data);
    EXPECT_EQ(Bytes(copy), "abc");
    CFRelease(copy);

    // An empty data still has a usable byte pointer; a negative length is refused.
    CFDataRef empty = CFDataCreate(nullptr, nullptr, 0);
    ASSERT_NE(empty, nullptr);
    EXPECT_NE(CFDataGetBytePtr(empty), nullptr);
    CFRelease(empty);
    EXPECT_EQ(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>("x"), -1), nullptr);
}

TEST(CFDataTests, NoCopyDataSeesTheCallersBytesAndFreesOnlyWhenAsked)
{
    UInt8 buffer[4] = {1, 2, 3, 4};
    CFDataRef wrapped = CFDataCreateWithBytesNoCopy(nullptr, buffer, 4, kCFAllocatorNull);
    buffer[1] = 9;
    EXPECT_EQ(CFDataGetBytePtr(wrapped)[1], 9);
    CFRelease(wrapped); // must not free the stack buffer (ASan would report it)

    auto* heap = static_cast<UInt8*>(std::malloc(8));
    CFRelease(CFDataCreateWithBytesNoCopy(nullptr, heap, 8, kCFAllocatorDefault)); // frees it
}

TEST(CFDataTests, MutableDataGrowsWithZeros)
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
        CFDataAppendBytes(data, reinterpret_cast<const UInt8*>("ell"), 3);
        EXPECT_EQ(Bytes(data), "jelloell");
        CFRelease(data);
    }
}

} // namespace
