#include "Common/CKelException.h"

#include <gtest/gtest.h>

TEST(CKelException, TextHasFileLineAndHexadecimalStatusOnlyWhenGiven)
{
    EXPECT_STREQ(CKelException(nullptr, 12, "plain", 0).what(), " \"plain\"");
    EXPECT_STREQ(CKelException(nullptr, 0, "", KELSTATUS_PREFS_MISSING).what(),
                 "Status: 31b,  \"\"");
    EXPECT_STREQ(CKelException("f.cpp", -3, "neg", 0).what(), "File: f.cpp, Line: -3,  \"neg\"");

    const char* file = "Common/param";
    try
    {
        throw CKelException(file, 255, "RemoveKey full", KELSTATUS_MEMORY_BAD);
    }
    catch (const std::exception& caught)
    {
        EXPECT_STREQ(caught.what(),
                     "File: Common/param, Line: 255, Status: 100,  \"RemoveKey full\"");
        const auto* kel = dynamic_cast<const CKelException*>(&caught);
        ASSERT_NE(kel, nullptr);
        EXPECT_EQ(kel->File(), file); // not copied
        EXPECT_EQ(kel->Line(), 255);
        EXPECT_EQ(kel->Message(), "RemoveKey full");
        EXPECT_EQ(kel->Status(), KELSTATUS_MEMORY_BAD);
        CKelException copy = *kel;
        EXPECT_STREQ(copy.what(), caught.what());
        EXPECT_NE(copy.what(), caught.what()); // the copy owns its text
    }
}
