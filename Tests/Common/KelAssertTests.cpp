#include "Common/KelAssert.h"
#include "Common/KelStatus.h"

#include <gtest/gtest.h>

#include <string>

namespace
{
std::string Capture(void (*action)())
{
    testing::internal::CaptureStdout();
    action();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}
} // namespace

TEST(KelAssert, FailedCheckPrintsOneLineWithSourceRelativePathAndContinues)
{
    static int after = 0;
    std::string out = Capture(
        []
        {
            int x = 1;
            KelAssertLine(56, x == 2);
            after = 1;
        });
    EXPECT_EQ(out, "Tests/Common/KelAssertTests:56: failed assertion: x == 2\n");
    EXPECT_EQ(after, 1);
}

TEST(KelAssert, PassingCheckPrintsNothing)
{
    EXPECT_EQ(Capture([] { KelAssert(1 + 1 == 2); }), "");
}

TEST(KelAssert, ExplicitPathAndStringExpressionKeepTheirText)
{
    EXPECT_EQ(Capture([] { KelFailAt("Common/StringUtilities", 198, "This style"); }),
              "Common/StringUtilities:198: failed assertion: \"This style\"\n");
    EXPECT_EQ(Capture([] { KelAssertLine(143, !(bool)"Exists?\n"); }),
              "Tests/Common/KelAssertTests:143: failed assertion: !(bool)\"Exists?\\n\"\n");
}

TEST(KelAssert, LongReportIsCutTo255CharactersAndLosesItsNewline)
{
    static std::string expr(300, 'e');
    std::string out = Capture([] { KelAssertReport("Common/param.cpp", 7, expr.c_str()); });
    ASSERT_EQ(out.size(), 255u);
    EXPECT_EQ(out.rfind("Common/param:7: failed assertion: eee", 0), 0u);
    EXPECT_EQ(out.back(), 'e');
}

TEST(KelStatus, ValuesKeptAsTheWireHasThem)
{
    static_assert(KELSTATUS_FAILURE == 0xFFFF);
    static_assert(KELSTATUS_PREFS_MISSING == 0x031B);
    static_assert(KELSTATUS_DATA_SUPRESSED == 0x0802);
    static_assert(KELSTATUS_XSETTINGS_EXPORT_ERR == 0x1110);
    EXPECT_EQ(kKelStatusCount, 126u);
}
