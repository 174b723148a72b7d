#include "Mac/Common/MacStringUtilities.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace
{
TEST(MacStringUtilitiesTests, CFStringBecomesItsUTF8Bytes)
{
    CFStringRef text =
        CFStringCreateWithCString(nullptr, "Tablette \xC3\xA9\xE2\x82\xAC", kCFStringEncodingUTF8);
    EXPECT_EQ(MacStringUtilities::GetStringForCFString(text), "Tablette \xC3\xA9\xE2\x82\xAC");
    CFRelease(text);
    EXPECT_EQ(MacStringUtilities::GetStringForCFString(CFSTR("")), "");
}

TEST(MacStringUtilitiesTests, NullStringIsReportedAndGivesNothing)
{
    testing::internal::CaptureStdout();
    std::string result = MacStringUtilities::GetStringForCFString(nullptr);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(result, "");
    EXPECT_EQ(out.rfind("Mac/Common/MacStringUtilities:", 0), 0u) << out;
    EXPECT_NE(out.find(": failed assertion: cfString\n"), std::string::npos) << out;
}

TEST(MacStringUtilitiesTests, LowercaseCopyStaysInsideTheDestination)
{
    char buffer[8];
    MacStringUtilities::ConvertToLowercase("TabletDRIVER", buffer, sizeof buffer);
    EXPECT_STREQ(buffer, "tabletd"); // cut to seven bytes and the zero

    std::memset(buffer, 'x', sizeof buffer);
    MacStringUtilities::ConvertToLowercase("AB", buffer, sizeof buffer);
    EXPECT_STREQ(buffer, "ab");
    EXPECT_EQ(buffer[3], 'x'); // nothing written past the zero

    MacStringUtilities::ConvertToLowercase("AB", buffer, 1);
    EXPECT_STREQ(buffer, "");
    buffer[0] = 'q';
    MacStringUtilities::ConvertToLowercase("AB", buffer, 0);
    EXPECT_EQ(buffer[0], 'q');
    MacStringUtilities::ConvertToLowercase("\xC9T\xE9", buffer, sizeof buffer);
    EXPECT_EQ(std::string(buffer), "\xC9t\xE9"); // bytes above 127 stay as they are
}
} // namespace
