#include "Common/FileVersion.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <type_traits>

namespace
{
using FV = FileVersion;

std::string Captured(const std::function<void()>& action)
{
    testing::internal::CaptureStdout();
    action();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

std::string Report(unsigned line, const std::string& expression)
{
    return "Common/StringUtilities:" + std::to_string(line) + ": failed assertion: " + expression +
           "\n";
}

// Major.minor.variation, release and build in one comparable text.
std::string Parts(const FV& v)
{
    return std::to_string(v.Major()) + "." + std::to_string(v.Minor()) + "." +
           std::to_string(v.Variation()) + " r" + std::to_string(v.Release()) + " b" +
           std::to_string(v.Build());
}

// Parses without the web flag; the parse must not report anything.
std::string Parsed(const std::string& text)
{
    std::string parts;
    EXPECT_EQ(Captured([&] { parts = Parts(FV(text, false)); }), "") << text;
    return parts;
}
} // namespace

TEST(FileVersionParse, ShortFullAndLetterForms)
{
    EXPECT_EQ(Parsed("6.12"), "6.1.2 r0 b0");
    EXPECT_EQ(Parsed("6.5"), "6.0.5 r0 b0");
    EXPECT_EQ(Parsed("2.4.7w12"), "2.4.7 r3 b12");
    EXPECT_EQ(Parsed("2.4.7"), "2.4.7 r5 b0");
    EXPECT_EQ(Parsed("7"), "0.0.0 r0 b0");
    EXPECT_EQ(Parsed(""), "0.0.0 r0 b0");
    // Each release letter in either case (the lower-case a, b, w and d are read back from
    // their printed form below).
    EXPECT_EQ(Parsed("1.2.3A4"), "1.2.3 r1 b4");
    EXPECT_EQ(Parsed("1.2.3B4"), "1.2.3 r2 b4");
    EXPECT_EQ(Parsed("1.2.3W4"), "1.2.3 r3 b4");
    EXPECT_EQ(Parsed("1.2.3D4"), "1.2.3 r4 b4");
    EXPECT_EQ(Parsed("1.2.3f4"), "1.2.3 r5 b4");
    EXPECT_EQ(Parsed("1.2.3F4"), "1.2.3 r5 b4");
    EXPECT_EQ(Parsed("1.2.3.4"), "1.2.3 r5 b4");
    // A letter outside the set ends the reading; the release is final.
    EXPECT_EQ(Parsed("1.2.3x4"), "1.2.3 r5 b0");
    // A leading dot is the first one.
    EXPECT_EQ(Parsed(".5.1"), "5.1.0 r5 b0");
    // The letter is searched for only from the second dot on.
    EXPECT_EQ(Parsed("2.4b.7"), "2.4.0 r5 b0");
    // Numbers above 255 are kept modulo 256; the short form splits the whole number.
    EXPECT_EQ(Parsed("256.300.2b513"), "0.44.2 r2 b1");
    EXPECT_EQ(Parsed("6.2551"), "6.255.1 r0 b0");
}

TEST(FileVersionPacked, UnpackingEveryStyle)
{
    EXPECT_EQ(Parts(FV(0x00060102u, FV::EVersionStyleLong)), "6.1.2 r5 b0");
    EXPECT_EQ(Parts(FV(0x0006000Cu, FV::EVersionStyleOldShort)), "6.1.2 r0 b0");
    EXPECT_EQ(Parts(FV(0x0006FFFFu, FV::EVersionStyleOldShort)), "6.153.5 r0 b0"); // 6553 % 256
    EXPECT_EQ(Parts(FV(0x00000605u, FV::EVersionStyleSimpleShort)), "6.5.0 r0 b0");
    EXPECT_EQ(Parts(FV(0x00060102u, FV::EVersionStyleUnreleasedLong)), "6.1.2 r0 b0");

    const std::string refused = Report(198, "\"This style not supported from number\"");
    for (int style : {0, 1, 6, -1})
    {
        std::string parts;
        EXPECT_EQ(
            Captured([&]
                     { parts = Parts(FV(0x00060102u, static_cast<FV::EVersionStyle>(style))); }),
            refused);
        EXPECT_EQ(parts, "0.0.0 r0 b0");
    }
}

TEST(FileVersionPacked, PackingChecksItsRequirementsAndGoesOn)
{
    const FV unknown(6, 1, 2, FV::EUnknownVersion, 0);
    const FV final(6, 1, 2, FV::EFinalVersion, 0);
    unsigned packed = 0;
    EXPECT_EQ(Captured([&] { packed = unknown.AsLong(FV::EVersionStyleOldShort); }), "");
    EXPECT_EQ(packed, 0x6000Cu);
    EXPECT_EQ(Captured([&] { packed = final.AsLong(FV::EVersionStyleLong); }), "");
    EXPECT_EQ(packed, 0x60102u);
    EXPECT_EQ(Captured([&] { packed = unknown.AsLong(FV::EVersionStyleUnreleasedLong); }), "");
    EXPECT_EQ(packed, 0x60102u);
    EXPECT_EQ(FV(6, 5, 0, FV::EFinalVersion, 9).AsLong(FV::EVersionStyleSimpleShort), 0x605u);

    EXPECT_EQ(Captured([&] { packed = unknown.AsLong(FV::EVersionStyleLong); }),
              Report(329, "mRelease == FileVersion::EFinalVersion"));
    EXPECT_EQ(packed, 0x60102u);
    EXPECT_EQ(Captured([&] { packed = final.AsLong(FV::EVersionStyleUnreleasedLong); }),
              Report(347, "mRelease == FileVersion::EUnknownVersion"));
    EXPECT_EQ(
        Captured(
            [&] { packed = FV(6, 25, 10, FV::EBetaVersion, 0).AsLong(FV::EVersionStyleOldShort); }),
        Report(335, "mMinor < 25") + Report(336, "mVariation < 10") +
            Report(337, "mRelease == FileVersion::EUnknownVersion"));
    EXPECT_EQ(packed, 0x60000u + 260u);
    for (auto style : {FV::EVersionStyleFull, FV::EVersionStyleDotted})
    {
        EXPECT_EQ(Captured([&] { packed = final.AsLong(style); }),
                  Report(354, "\"This style not supported as number\""));
        EXPECT_EQ(packed, 0u);
    }
}

TEST(FileVersionText, UnmetRequirementsReportEachLineAndGoOn)
{
    const FV beta(6, 5, 1, FV::EBetaVersion, 2);
    std::string text;
    EXPECT_EQ(Captured([&] { text = beta.AsString(FV::EVersionStyleSimpleShort); }),
              Report(281, "mVariation == 0") + Report(282, "mBuild == 0") +
                  Report(283, "mRelease == FileVersion::EUnknownVersion"));
    EXPECT_EQ(text, "6.05");
    EXPECT_EQ(Captured([&] { text = beta.AsString(FV::EVersionStyleLong); }),
              Report(268, "mRelease == FileVersion::EFinalVersion") + Report(269, "mBuild == 0"));
    EXPECT_EQ(text, "6.5.1");
    EXPECT_EQ(Captured([&] { text = beta.AsString(FV::EVersionStyleDotted); }),
              Report(262, "mRelease == FileVersion::EFinalVersion"));
    EXPECT_EQ(text, "6.5.1.2");
    EXPECT_EQ(Captured([&] { text = beta.AsString(FV::EVersionStyleOldShort); }),
              Report(275, "mRelease == FileVersion::EUnknownVersion"));
    EXPECT_EQ(text, "6.51");
    EXPECT_EQ(Captured([&] { text = beta.AsString(FV::EVersionStyleUnreleasedLong); }),
              Report(289, "mRelease == FileVersion::EUnknownVersion"));
    EXPECT_EQ(Captured([&] { text = beta.AsString(FV::EVersionStyleFull); }), "");
}

TEST(FileVersionOrder, ReleasedBuildsThenReleaseValues)
{
    const FV final12(6, 1, 2, FV::EFinalVersion, 12);
    const FV web12(6, 1, 2, FV::EWebVersion, 12);
    const FV web13(6, 1, 2, FV::EWebVersion, 13);
    const FV alpha9(6, 1, 2, FV::EAlphaVersion, 9);
    const FV beta1(6, 1, 2, FV::EBetaVersion, 1);
    const FV unknown99(6, 1, 2, FV::EUnknownVersion, 99);
    EXPECT_TRUE(final12 > web12);
    EXPECT_FALSE(web12 > final12);
    EXPECT_TRUE(web13 > final12); // between released versions the build decides first
    EXPECT_TRUE(beta1 > alpha9);  // otherwise the release value does
    EXPECT_TRUE(final12 > unknown99);
    EXPECT_TRUE(alpha9 > unknown99);
    EXPECT_TRUE(FV(6, 1, 2, FV::EBetaVersion, 2) > beta1);
    // Bytes compare unsigned, and major before minor before variation.
    EXPECT_TRUE(FV(200, 0, 0, FV::EUnknownVersion, 0) > FV(100, 255, 255, FV::EFinalVersion, 255));
    EXPECT_TRUE(FV(1, 200, 0, FV::EUnknownVersion, 0) > FV(1, 100, 255, FV::EFinalVersion, 255));
    EXPECT_TRUE(FV(1, 1, 200, FV::EUnknownVersion, 0) > FV(1, 1, 100, FV::EFinalVersion, 255));
}

TEST(FileVersionValue, OldStyleToSimpleShortAndFlags)
{
    FV v(6, 1, 2, FV::EUnknownVersion, 0);
    v.OldStyleToSimpleShort();
    EXPECT_EQ(Parts(v), "6.12.0 r0 b0");
    EXPECT_EQ(v.AsString(FV::EVersionStyleSimpleShort), "6.12");
    for (FV untouched : {FV(), FV(6, 1, 2, FV::EFinalVersion, 0),
                         FV(6, 1, 2, FV::EUnknownVersion, 1), FV(6, 1, 10, FV::EUnknownVersion, 0)})
    {
        const FV before = untouched;
        untouched.OldStyleToSimpleShort();
        EXPECT_EQ(untouched, before) << Parts(before);
    }
    FV edge(0, 0, 9, FV::EUnknownVersion, 0);
    edge.OldStyleToSimpleShort();
    EXPECT_EQ(Parts(edge), "0.9.0 r0 b0");

    EXPECT_FALSE(FV().IsValid());
    EXPECT_TRUE(FV(0, 0, 0, FV::EUnknownVersion, 1).IsValid());
    EXPECT_TRUE(FV(0, 0, 0, FV::EAlphaVersion, 0).IsValid());
    EXPECT_TRUE(FV(0, 0, 0, FV::EFinalVersion, 0).Released());
    EXPECT_TRUE(FV(0, 0, 0, FV::EWebVersion, 0).Released());
    EXPECT_FALSE(FV(0, 0, 0, FV::EDevelopmentVersion, 0).Released());
    EXPECT_FALSE(FV(0, 0, 0, FV::EUnknownVersion, 0).Released());
}
