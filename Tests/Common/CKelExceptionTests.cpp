#include "Common/CKelException.h"

#include <gtest/gtest.h>

#include <string>

TEST(CKelException, TextHasFileAndStatusPartsOnlyWhenGiven)
{
    EXPECT_STREQ(CKelException(nullptr, 0, "AddKey full", KELSTATUS_MEMORY_BAD).what(),
                 "Status: 100,  \"AddKey full\"");
    EXPECT_STREQ(CKelException(nullptr, 12, "plain", 0).what(), " \"plain\"");
    EXPECT_STREQ(CKelException(nullptr, 0, "x", KELSTATUS_XSETTINGS_EXPORT_ERR).what(),
                 "Status: 1110,  \"x\"");
    // Lower-case hexadecimal without leading zeros or prefix.
    EXPECT_STREQ(CKelException(nullptr, 0, "", KELSTATUS_PREFS_MISSING).what(),
                 "Status: 31b,  \"\"");
    EXPECT_STREQ(CKelException(nullptr, 0, "m", KELSTATUS_FAILURE).what(), "Status: ffff,  \"m\"");
    // The line is decimal even when it is followed by a hexadecimal status.
    EXPECT_STREQ(CKelException("Common/param", 255, "RemoveKey full", 0x0100).what(),
                 "File: Common/param, Line: 255, Status: 100,  \"RemoveKey full\"");
    EXPECT_STREQ(CKelException("f.cpp", -3, "neg", 0).what(), "File: f.cpp, Line: -3,  \"neg\"");
}

TEST(CKelException, CarriesItsValuesThroughThrowAndCatch)
{
    const char* file = "Common/param";
    try
    {
        throw CKelException(file, 42, "AddKey full", KELSTATUS_MEMORY_BAD);
    }
    catch (const std::exception& caught)
    {
        EXPECT_STREQ(caught.what(), "File: Common/param, Line: 42, Status: 100,  \"AddKey full\"");
        const auto* kel = dynamic_cast<const CKelException*>(&caught);
        ASSERT_NE(kel, nullptr);
        EXPECT_EQ(kel->File(), file); // not copied
        EXPECT_EQ(kel->Line(), 42);
        EXPECT_EQ(kel->Message(), "AddKey full");
        EXPECT_EQ(kel->Status(), KELSTATUS_MEMORY_BAD);
        CKelException copy = *kel;
        EXPECT_STREQ(copy.what(), caught.what());
        EXPECT_NE(copy.what(), caught.what()); // the copy owns its text
    }
}
