// FileVersion: the version of a driver, a bundle or a packed version number.
//
// Five unsigned bytes, which are also its wire form inside event packets:
//
//   offset  size  field
//   0       1     mMajor
//   1       1     mMinor
//   2       1     mVariation
//   3       1     mRelease (ERELEASE)
//   4       1     mBuild
//
// Text and packed forms, by style. A requirement that does not hold prints an assertion line
// and the conversion goes on.
//
//   style               text             packed               requires
//   0 Full              2.4.7w12         -
//   1 Dotted            2.4.7.12         -                    final
//   2 Long              2.4.7            M<<16 | m<<8 | v     final; text: build 0
//   3 OldShort          6.12 (6.1.2)     M<<16 | (m*10 + v)   unknown; packed: m < 25, v < 10
//   4 SimpleShort       6.05 (6.5)       M<<8 | m             text: v 0, build 0, unknown
//   5 UnreleasedLong    6.12 (6.1.2)     M<<16 | m<<8 | v     unknown
//
// The default value is all zero.
#pragma once

#include <string>

class FileVersion
{
public:
    enum ERELEASE : unsigned char
    {
        EUnknownVersion = 0,     // read and written as '?'
        EAlphaVersion = 1,       // 'a' ('A' read too)
        EBetaVersion = 2,        // 'b'
        EWebVersion = 3,         // 'w'
        EDevelopmentVersion = 4, // 'd'
        EFinalVersion = 5        // written '-'; read from 'F', 'f', '-' and '.'
    };

    enum EVersionStyle : int
    {
        EVersionStyleFull = 0,
        EVersionStyleDotted = 1,
        EVersionStyleLong = 2,
        EVersionStyleOldShort = 3,
        EVersionStyleSimpleShort = 4,
        EVersionStyleUnreleasedLong = 5
    };

    FileVersion() = default;
    FileVersion(unsigned char major_I, unsigned char minor_I, unsigned char variation_I,
                ERELEASE release_I, unsigned char build_I);

    // Parses "6.12" (old short form: 6.1.2, unknown release), "2.4.7" (final, build 0),
    // "2.4.7w12", "2.4.7.12", "2.4.7-12". A text without '.' gives all zero. With bIsWeb_I
    // the release becomes EWebVersion whatever letter the text has (the old short form cannot
    // be a web version: that is reported and the release stays unknown). Numbers above 255
    // are kept modulo 256.
    FileVersion(const std::string& text_I, bool bIsWeb_I);

    // Unpacks a packed number of style 2 to 5; other styles are reported and give all zero.
    FileVersion(unsigned int packed_I, EVersionStyle style_I);

    // The packed number of style 2 to 5; other styles are reported and give 0.
    unsigned int AsLong(EVersionStyle style_I) const;
    // The text of a style; a value outside the styles gives the empty text.
    std::string AsString(EVersionStyle style_I) const;

    unsigned char Major() const { return mMajor; }
    unsigned char Minor() const { return mMinor; }
    unsigned char Variation() const { return mVariation; }
    ERELEASE Release() const { return mRelease; }
    unsigned char Build() const { return mBuild; }

    // Final and web versions are released.
    bool Released() const;
    // Any byte non-zero.
    bool IsValid() const;

    // Major, minor and variation decide first. On a tie between two released versions (web
    // or final) the builds decide, and on equal builds the larger release value; otherwise
    // the release values decide, then the builds. So an alpha orders below a beta of the same
    // numbers, and a final build above the web build of the same number, on purpose.
    bool operator==(const FileVersion& other_I) const;
    bool operator!=(const FileVersion& other_I) const;
    bool operator>(const FileVersion& other_I) const;
    bool operator>=(const FileVersion& other_I) const;
    bool operator<(const FileVersion& other_I) const;
    bool operator<=(const FileVersion& other_I) const;

    // Rewrites an unreleased 6.1.2 as the simple short 6.12 (minor 12, variation 0). Left
    // alone: all zero, a non-zero release or build, or a variation above 9.
    void OldStyleToSimpleShort();

private:
    unsigned char mMajor = 0;
    unsigned char mMinor = 0;
    unsigned char mVariation = 0;
    ERELEASE mRelease = EUnknownVersion;
    unsigned char mBuild = 0;
};

static_assert(sizeof(FileVersion) == 5, "FileVersion travels as its five bytes");
