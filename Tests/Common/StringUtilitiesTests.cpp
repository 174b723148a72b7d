#include "Common/StringUtilities.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace StringUtilities;

namespace
{
using Bytes = std::vector<uint8_t>;
using Strings = std::vector<std::string>;
using WStrings = std::vector<std::wstring>;

std::string Hex(const std::string& bytes)
{
    std::string out;
    char two[4];
    for (unsigned char c : bytes)
    {
        std::snprintf(two, sizeof(two), "%02X ", c);
        out += two;
    }
    return out.empty() ? out : out.substr(0, out.size() - 1);
}
} // namespace

TEST(StringUtilitiesTokenize, EmptiesKeptOrRemovedAndNoTrailingEmptyToken)
{
    EXPECT_EQ(Tokenize(",a,,b,", ",", false), (Strings{"", "a", "", "b"}));
    EXPECT_EQ(Tokenize(",a,,b,", ",", true), (Strings{"a", "b"}));
    EXPECT_EQ(Tokenize("", ",", false), Strings{});
    EXPECT_EQ(Tokenize(",", ",", false), Strings{""});
    EXPECT_EQ(Tokenize("abc", "", false), Strings{"abc"});
    // Every character of the delimiter text separates on its own.
    EXPECT_EQ(Tokenize("a; b,c", ";, ", false), (Strings{"a", "", "b", "c"}));
    EXPECT_EQ(Tokenize(L",a,,b,", L",", true), (WStrings{L"a", L"b"}));
}

TEST(StringUtilitiesCase, ConversionAndTrimmingInPlaceAndAsCopies)
{
    std::string text = "MiXeD 123 \xE9";
    ToLower(text);
    EXPECT_EQ(text, "mixed 123 \xE9");
    ToUpper(text);
    EXPECT_EQ(text, "MIXED 123 \xE9");
    EXPECT_EQ(ToLower_Copy("ABC"), "abc");
    EXPECT_EQ(ToUpper_Copy("abc"), "ABC");
    std::wstring wide = L"MiXeD";
    ToLower(wide);
    EXPECT_EQ(wide, L"mixed");
    ToUpper(wide);
    EXPECT_EQ(wide, L"MIXED");
    EXPECT_EQ(ToUpper_Copy(std::wstring(L"ab")), L"AB");

    std::string padded = " \t\r\n a b \v\f ";
    Trim(padded);
    EXPECT_EQ(padded, "a b");
    EXPECT_EQ(Trim_Copy("   "), "");
    EXPECT_EQ(Trim_Copy("x"), "x");
    EXPECT_EQ(Trim_Copy(std::wstring(L"\t w \n")), L"w");
}

TEST(StringUtilitiesCompare, CaseInsensitiveAndExactTests)
{
    EXPECT_TRUE(IEquals("ABC", "abc"));
    EXPECT_FALSE(IEquals("abc", "abcd"));
    EXPECT_TRUE(IEquals(std::wstring(L"True"), std::wstring(L"tRUE")));

    EXPECT_EQ(IFindFirst("Hello World", "WORLD"), 6u);
    EXPECT_EQ(IFindFirst("Hello World", "planet"), std::string::npos);
    EXPECT_EQ(IFindFirst(std::wstring(L"aXbX"), std::wstring(L"x")), 1u);
    EXPECT_TRUE(IContains("Hello", "ELL"));
    EXPECT_FALSE(Contains("Hello", "ELL"));
    EXPECT_TRUE(Contains("Hello", "ell"));
    EXPECT_TRUE(Contains(std::wstring(L"Hello"), std::wstring(L"ell")));

    EXPECT_FALSE(StartsWith("", ""));
    EXPECT_TRUE(StartsWith("abc", ""));
    EXPECT_FALSE(StartsWith("abc", "AB"));
    EXPECT_FALSE(StartsWith("ab", "abc"));
    EXPECT_FALSE(StartsWith(std::wstring(), std::wstring()));
    EXPECT_FALSE(EndsWith("file.txt", ".TXT"));
    EXPECT_FALSE(EndsWith("txt", "file.txt"));
    EXPECT_TRUE(IEndsWith("file.TXT", ".txt"));
    EXPECT_FALSE(IEndsWith("file.txt", ".doc"));
    EXPECT_TRUE(IEndsWith(std::wstring(L"A.PLIST"), std::wstring(L".plist")));
}

TEST(StringUtilitiesCompare, ReplaceAllIgnoresCaseAndTerminates)
{
    std::string text = "aXbxc";
    IReplaceAll(text, "x", "--");
    EXPECT_EQ(text, "a--b--c");
    // A replacement that contains what it replaces is not replaced again.
    text = "abAB";
    IReplaceAll(text, "a", "Aa");
    EXPECT_EQ(text, "AabAaB");
    text = "aaa";
    IReplaceAll(text, "aa", "b");
    EXPECT_EQ(text, "ba");
    text = "unchanged";
    IReplaceAll(text, "", "x");
    EXPECT_EQ(text, "unchanged");
    IReplaceAll(text, "CHANGED", "");
    EXPECT_EQ(text, "un");
    std::wstring wide = L"One one ONE";
    IReplaceAll(wide, L"one", L"1");
    EXPECT_EQ(wide, L"1 1 1");
}

TEST(StringUtilitiesBase64, EncodesWithoutPaddingAndRefusesAnyOtherCharacter)
{
    EXPECT_EQ(GetBase64(Bytes{0x00, 0x01, 0x02}), "AAEC");
    EXPECT_EQ(GetBase64(Bytes{0xFF}), "/w");
    EXPECT_EQ(GetBase64(Bytes{0xFF, 0xFE}), "//4");
    EXPECT_EQ(GetBase64(Bytes{0xFB, 0xEF, 0xBE, 0x00}), "++++AA");

    EXPECT_EQ(GetBytesFromBase64("++++AA"), (Bytes{0xFB, 0xEF, 0xBE, 0x00}));
    EXPECT_EQ(GetBytesFromBase64("/w"), (Bytes{0xFF}));
    EXPECT_EQ(GetBytesFromBase64("//4"), (Bytes{0xFF, 0xFE}));
    EXPECT_EQ(GetBytesFromBase64("AAE="), Bytes{});
    EXPECT_EQ(GetBytesFromBase64("AA EC"), Bytes{});
    EXPECT_EQ(GetBytesFromBase64("AAEC-"), Bytes{});
    // A lone last character carries no whole byte.
    EXPECT_EQ(GetBytesFromBase64("AAECA"), (Bytes{0x00, 0x01, 0x02}));
}

TEST(StringUtilitiesUTF8, EncodingAtEveryLengthBoundary)
{
    EXPECT_EQ(Hex(EncodeUnicodePointToUTF8(0x00)), "00");
    EXPECT_EQ(Hex(EncodeUnicodePointToUTF8(0x7F)), "7F");
    EXPECT_EQ(Hex(EncodeUnicodePointToUTF8(0x80)), "C2 80");
    EXPECT_EQ(Hex(EncodeUnicodePointToUTF8(0x7FF)), "DF BF");
    EXPECT_EQ(Hex(EncodeUnicodePointToUTF8(0x800)), "E0 A0 80");
    EXPECT_EQ(Hex(EncodeUnicodePointToUTF8(0xFFFF)), "EF BF BF");
    // Above 0xFFFF the high bits are dropped on purpose.
    EXPECT_EQ(Hex(EncodeUnicodePointToUTF8(0x10000)), "E0 80 80 80");
    EXPECT_EQ(Hex(EncodeUnicodePointToUTF8(0x10FFFF)), "E0 80 BF BF");
    EXPECT_EQ(EncodeUnicodePointToUTF8(0x110000), "");
    EXPECT_EQ(EncodeUnicodePointToUTF8(-1), "");
}

TEST(StringUtilitiesUTF8, DecodingRoundTripsTheBasicPlane)
{
    for (int cp = 0; cp <= 0xFFFF; ++cp)
    {
        std::string text = EncodeUnicodePointToUTF8(cp);
        std::size_t pos = 0;
        bool ok = false;
        ASSERT_EQ(DecodeUTF8ToUnicodePoint(text, pos, &ok), cp);
        ASSERT_TRUE(ok) << cp;
        ASSERT_EQ(pos, text.size()) << cp;
    }
    std::string four = "\xF0\x9F\x98\x80";
    std::size_t pos = 0;
    EXPECT_EQ(DecodeUTF8ToUnicodePoint(four, pos, nullptr), 0x1F600);
    EXPECT_EQ(pos, 4u);
}

TEST(StringUtilitiesDeviceIDs, RemoteAndWirelessTextForms)
{
    EXPECT_EQ(StringFromRemoteID(0x12ABCDEF), "R#12-ABCDEF");
    EXPECT_EQ(StringFromRemoteID(0x0A00000B), "R#0A-00000B");

    EXPECT_EQ(StringToRemoteID("R#12-ABCDEF"), 0x12ABCDEFu);
    EXPECT_EQ(StringToRemoteID("R#FF-FFFFFF"), 0xFFFFFFFFu);
    EXPECT_EQ(StringToRemoteID("R#ab-cdef01"), 0xABCDEF01u);
    EXPECT_EQ(StringToRemoteID("R#12xABCDEF"), 0x12ABCDEFu); // the separator is not checked
    EXPECT_EQ(StringToRemoteID("R#12-ABCDE"), 0u);
    EXPECT_EQ(StringToRemoteID("R#12-ABCDEF0"), 0u);
    EXPECT_EQ(StringToRemoteID("r#12-ABCDEF"), 0u);
    for (uint32_t id : {0u, 0x00FFFFFFu, 0x01000000u})
    {
        EXPECT_EQ(StringToRemoteID(StringFromRemoteID(id)), id);
    }

    EXPECT_EQ(StringFromWirelessID(0x1A2B), "WL#001A2B");
    EXPECT_EQ(StringFromWirelessID(0x12345678), "WL#12345678");
}
