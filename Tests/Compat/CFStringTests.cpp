#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
std::string UTF8(CFStringRef string)
{
    std::vector<char> buffer(static_cast<size_t>(CFStringGetMaximumSizeForEncoding(
                                 CFStringGetLength(string), kCFStringEncodingUTF8)) +
                             1);
    EXPECT_TRUE(CFStringGetCString(string, buffer.data(), static_cast<CFIndex>(buffer.size()),
                                   kCFStringEncodingUTF8));
    return buffer.data();
}

TEST(CFStringTests, LengthCountsUTF16UnitsRoundTripsUTF8AndRefusesInvalidText)
{
    // "é" is one unit, "😀" (U+1F600) a surrogate pair of two.
    const char* text = "a\xC3\xA9\xF0\x9F\x98\x80";
    CFStringRef string = CFStringCreateWithCString(nullptr, text, kCFStringEncodingUTF8);
    ASSERT_NE(string, nullptr);
    EXPECT_EQ(CFStringGetLength(string), 4);
    EXPECT_EQ(UTF8(string), text);
    CFRelease(string);

    // Invalid bytes and text the encoding cannot hold are refused.
    // Over-long form, encoded surrogate, truncated sequence, stray continuation byte.
    for (const char* bad : {"\xC0\xAF", "\xED\xA0\x80", "ab\xE2\x82", "\x80"})
    {
        EXPECT_EQ(CFStringCreateWithCString(nullptr, bad, kCFStringEncodingUTF8), nullptr) << bad;
    }
    EXPECT_EQ(CFStringCreateWithCString(nullptr, "\xE9", kCFStringEncodingASCII), nullptr);
    EXPECT_EQ(CFStringCreateWithCString(nullptr, "x", 0x7777), nullptr); // unknown encoding

    CFStringRef latin = CFStringCreateWithCString(nullptr, "caf\xE9", kCFStringEncodingISOLatin1);
    ASSERT_NE(latin, nullptr);
    EXPECT_EQ(UTF8(latin), "caf\xC3\xA9");
    char ascii[16];
    EXPECT_FALSE(CFStringGetCString(latin, ascii, sizeof ascii, kCFStringEncodingASCII));
    CFRelease(latin);

    // GetCString needs room for the terminator.
    char port[5];
    EXPECT_FALSE(CFStringGetCString(CFSTR("port"), port, 4, kCFStringEncodingUTF8));
    EXPECT_TRUE(CFStringGetCString(CFSTR("port"), port, 5, kCFStringEncodingUTF8));
    EXPECT_STREQ(port, "port");
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(4, kCFStringEncodingUTF8), 12);
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(4, kCFStringEncodingASCII), 4);
}

} // namespace
