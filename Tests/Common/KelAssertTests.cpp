#include "Common/KelAssert.h"

#include "Tests/Support/CapturedOutput.h"

#include <gtest/gtest.h>

#include <string>

using test_support::Capture;

TEST(KelAssert, OneLineWithTheSourceRelativePathAndExecutionGoesOn)
{
    int after = 0;
    auto output = Capture(
        [&]
        {
            int x = 1;
            KelAssertLine(56, x == 2);
            KelAssert(1 + 1 == 2);
            after = 1;
        });
    EXPECT_EQ(output.out, "Tests/Common/KelAssertTests:56: failed assertion: x == 2\n");
    EXPECT_EQ(after, 1);

    // An explicit path, and a string expression printed with its quotes and escapes.
    EXPECT_EQ(Capture([] { KelFailAt("Common/StringUtilities", 198, "This style"); }).out,
              "Common/StringUtilities:198: failed assertion: \"This style\"\n");
    EXPECT_EQ(Capture([] { KelAssertLine(143, !(bool)"Exists?\n"); }).out,
              "Tests/Common/KelAssertTests:143: failed assertion: !(bool)\"Exists?\\n\"\n");

    // A long report is cut to 255 characters and loses its newline.
    const std::string expr(300, 'e');
    const std::string out =
        Capture([&] { KelAssertReport("Common/param.cpp", 7, expr.c_str()); }).out;
    ASSERT_EQ(out.size(), 255u);
    EXPECT_EQ(out.rfind("Common/param:7: failed assertion: eee", 0), 0u);
    EXPECT_EQ(out.back(), 'e');
}
