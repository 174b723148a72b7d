#include "Common/FileVersion.h"

#include "Common/KelAssert.h"

#include <cctype>

namespace
{
// Failed requirements are reported as coming from Common/StringUtilities, the file that first
// held this class, at fixed lines, so that a report reads the same whichever file holds the
// code. Lines 83, 198 and 354 are the long-standing ones; the per-style lines were assigned
// with them in mind and must not change either.
const char kReportPath[] = "Common/StringUtilities";
constexpr unsigned kLineParseWebShort = 83;
constexpr unsigned kLineUnpackStyle = 198;
constexpr unsigned kLineDottedFinal = 262;
constexpr unsigned kLineLongTextFinal = 268;
constexpr unsigned kLineLongTextBuild = 269;
constexpr unsigned kLineOldShortTextUnknown = 275;
constexpr unsigned kLineSimpleShortVariation = 281;
constexpr unsigned kLineSimpleShortBuild = 282;
constexpr unsigned kLineSimpleShortUnknown = 283;
constexpr unsigned kLineUnreleasedTextUnknown = 289;
constexpr unsigned kLineLongPackedFinal = 329;
constexpr unsigned kLineOldShortPackedMinor = 335;
constexpr unsigned kLineOldShortPackedVariation = 336;
constexpr unsigned kLineOldShortPackedUnknown = 337;
constexpr unsigned kLineUnreleasedPackedUnknown = 347;
constexpr unsigned kLinePackStyle = 354;

// Reads one decimal integer at pos, after white space, with an optional sign. Stops the way
// a formatted read does: on the first text that is not a number, nothing is read and false
// is returned (later numbers are then not read either). Digits beyond 64 bits wrap, which
// keeps the low byte exact.
bool ReadNumber(const std::string& text, std::size_t& pos, long long& value)
{
    while (pos < text.size() && std::isspace(static_cast<unsigned char>(text[pos])))
    {
        ++pos;
    }
    bool negative = false;
    std::size_t at = pos;
    if (at < text.size() && (text[at] == '-' || text[at] == '+'))
    {
        negative = text[at] == '-';
        ++at;
    }
    if (at >= text.size() || !std::isdigit(static_cast<unsigned char>(text[at])))
    {
        return false;
    }
    unsigned long long magnitude = 0;
    while (at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])))
    {
        magnitude = magnitude * 10 + static_cast<unsigned long long>(text[at] - '0');
        ++at;
    }
    pos = at;
    value = static_cast<long long>(negative ? 0 - magnitude : magnitude);
    return true;
}

FileVersion::ERELEASE ReleaseFromLetter(char letter)
{
    switch (letter)
    {
    case 'A':
    case 'a':
        return FileVersion::EAlphaVersion;
    case 'B':
    case 'b':
        return FileVersion::EBetaVersion;
    case 'W':
    case 'w':
        return FileVersion::EWebVersion;
    case 'D':
    case 'd':
        return FileVersion::EDevelopmentVersion;
    case '?':
        return FileVersion::EUnknownVersion;
    default: // 'F', 'f', '-', '.'
        return FileVersion::EFinalVersion;
    }
}

char LetterFromRelease(FileVersion::ERELEASE release)
{
    switch (release)
    {
    case FileVersion::EAlphaVersion:
        return 'a';
    case FileVersion::EBetaVersion:
        return 'b';
    case FileVersion::EWebVersion:
        return 'w';
    case FileVersion::EDevelopmentVersion:
        return 'd';
    case FileVersion::EFinalVersion:
        return '-';
    default:
        return '?';
    }
}

unsigned char Byte(long long value)
{
    return static_cast<unsigned char>(value);
}
} // namespace

FileVersion::FileVersion(unsigned char major_I, unsigned char minor_I, unsigned char variation_I,
                         ERELEASE release_I, unsigned char build_I)
    : mMajor(major_I), mMinor(minor_I), mVariation(variation_I), mRelease(release_I),
      mBuild(build_I)
{
}

FileVersion::FileVersion(const std::string& text_I, bool bIsWeb_I)
{
    std::string text = text_I;
    const std::size_t firstDot = text.find('.');
    if (firstDot == std::string::npos)
    {
        return;
    }
    text[firstDot] = ' ';
    const std::size_t secondDot = text.find('.', firstDot + 1);
    std::size_t pos = 0;
    long long numbers[4] = {0, 0, 0, 0};
    if (secondDot == std::string::npos)
    {
        // The old short form: 6.12 is 6.1.2.
        if (ReadNumber(text, pos, numbers[0]))
        {
            ReadNumber(text, pos, numbers[1]);
        }
        mMajor = Byte(numbers[0]);
        mMinor = Byte(numbers[1] / 10);
        mVariation = Byte(numbers[1] % 10);
        KelAssertAt(kReportPath, kLineParseWebShort, !bIsWeb_I);
        return;
    }
    text[secondDot] = ' ';
    const std::size_t letter = text.find_first_of("AaBbWwFfDd-.?", secondDot);
    if (letter != std::string::npos)
    {
        mRelease = ReleaseFromLetter(text[letter]);
        text[letter] = ' ';
    }
    else
    {
        mRelease = EFinalVersion;
        text += " 0";
    }
    for (long long& number : numbers)
    {
        if (!ReadNumber(text, pos, number))
        {
            break;
        }
    }
    mMajor = Byte(numbers[0]);
    mMinor = Byte(numbers[1]);
    mVariation = Byte(numbers[2]);
    mBuild = Byte(numbers[3]);
    if (bIsWeb_I)
    {
        mRelease = EWebVersion;
    }
}

FileVersion::FileVersion(unsigned int packed_I, EVersionStyle style_I)
{
    switch (style_I)
    {
    case EVersionStyleLong:
    case EVersionStyleUnreleasedLong:
        mMajor = Byte(packed_I >> 16);
        mMinor = Byte(packed_I >> 8);
        mVariation = Byte(packed_I);
        mRelease = style_I == EVersionStyleLong ? EFinalVersion : EUnknownVersion;
        break;
    case EVersionStyleOldShort:
        mMajor = Byte(packed_I >> 16);
        mMinor = Byte((packed_I & 0xFFFF) / 10);
        mVariation = Byte((packed_I & 0xFFFF) % 10);
        break;
    case EVersionStyleSimpleShort:
        mMajor = Byte(packed_I >> 8);
        mMinor = Byte(packed_I);
        break;
    default:
        KelFailAt(kReportPath, kLineUnpackStyle, "This style not supported from number");
        break;
    }
}

unsigned int FileVersion::AsLong(EVersionStyle style_I) const
{
    switch (style_I)
    {
    case EVersionStyleLong:
        KelAssertAt(kReportPath, kLineLongPackedFinal, mRelease == FileVersion::EFinalVersion);
        return (unsigned{mMajor} << 16) | (unsigned{mMinor} << 8) | mVariation;
    case EVersionStyleOldShort:
        KelAssertAt(kReportPath, kLineOldShortPackedMinor, mMinor < 25);
        KelAssertAt(kReportPath, kLineOldShortPackedVariation, mVariation < 10);
        KelAssertAt(kReportPath, kLineOldShortPackedUnknown,
                    mRelease == FileVersion::EUnknownVersion);
        return (unsigned{mMajor} << 16) | (unsigned{mMinor} * 10 + mVariation);
    case EVersionStyleSimpleShort:
        return (unsigned{mMajor} << 8) | mMinor;
    case EVersionStyleUnreleasedLong:
        KelAssertAt(kReportPath, kLineUnreleasedPackedUnknown,
                    mRelease == FileVersion::EUnknownVersion);
        return (unsigned{mMajor} << 16) | (unsigned{mMinor} << 8) | mVariation;
    default:
        KelFailAt(kReportPath, kLinePackStyle, "This style not supported as number");
        return 0;
    }
}

std::string FileVersion::AsString(EVersionStyle style_I) const
{
    const std::string major = std::to_string(mMajor);
    const std::string minor = std::to_string(mMinor);
    const std::string variation = std::to_string(mVariation);
    const std::string build = std::to_string(mBuild);
    switch (style_I)
    {
    case EVersionStyleFull:
        return major + "." + minor + "." + variation + LetterFromRelease(mRelease) + build;
    case EVersionStyleDotted:
        KelAssertAt(kReportPath, kLineDottedFinal, mRelease == FileVersion::EFinalVersion);
        return major + "." + minor + "." + variation + "." + build;
    case EVersionStyleLong:
        KelAssertAt(kReportPath, kLineLongTextFinal, mRelease == FileVersion::EFinalVersion);
        KelAssertAt(kReportPath, kLineLongTextBuild, mBuild == 0);
        return major + "." + minor + "." + variation;
    case EVersionStyleOldShort:
        KelAssertAt(kReportPath, kLineOldShortTextUnknown,
                    mRelease == FileVersion::EUnknownVersion);
        return major + "." + minor + variation;
    case EVersionStyleSimpleShort:
        KelAssertAt(kReportPath, kLineSimpleShortVariation, mVariation == 0);
        KelAssertAt(kReportPath, kLineSimpleShortBuild, mBuild == 0);
        KelAssertAt(kReportPath, kLineSimpleShortUnknown, mRelease == FileVersion::EUnknownVersion);
        return major + (mMinor < 10 ? ".0" : ".") + minor;
    case EVersionStyleUnreleasedLong:
        KelAssertAt(kReportPath, kLineUnreleasedTextUnknown,
                    mRelease == FileVersion::EUnknownVersion);
        return major + "." + minor + variation;
    default:
        return std::string();
    }
}

bool FileVersion::Released() const
{
    return mRelease == EFinalVersion || mRelease == EWebVersion;
}

bool FileVersion::IsValid() const
{
    return mMajor != 0 || mMinor != 0 || mVariation != 0 || mRelease != 0 || mBuild != 0;
}

bool FileVersion::operator==(const FileVersion& other_I) const
{
    return mMajor == other_I.mMajor && mMinor == other_I.mMinor &&
           mVariation == other_I.mVariation && mRelease == other_I.mRelease &&
           mBuild == other_I.mBuild;
}

bool FileVersion::operator!=(const FileVersion& other_I) const
{
    return !(*this == other_I);
}

bool FileVersion::operator>(const FileVersion& other_I) const
{
    if (mMajor != other_I.mMajor)
    {
        return mMajor > other_I.mMajor;
    }
    if (mMinor != other_I.mMinor)
    {
        return mMinor > other_I.mMinor;
    }
    if (mVariation != other_I.mVariation)
    {
        return mVariation > other_I.mVariation;
    }
    if (Released() && other_I.Released())
    {
        if (mBuild != other_I.mBuild)
        {
            return mBuild > other_I.mBuild;
        }
        return mRelease > other_I.mRelease;
    }
    if (mRelease != other_I.mRelease)
    {
        return mRelease > other_I.mRelease;
    }
    return mBuild > other_I.mBuild;
}

bool FileVersion::operator>=(const FileVersion& other_I) const
{
    return *this == other_I || *this > other_I;
}

bool FileVersion::operator<(const FileVersion& other_I) const
{
    return !(*this >= other_I);
}

bool FileVersion::operator<=(const FileVersion& other_I) const
{
    return !(*this > other_I);
}

void FileVersion::OldStyleToSimpleShort()
{
    if (!IsValid() || mRelease != EUnknownVersion || mBuild != 0 || mVariation > 9)
    {
        return;
    }
    mMinor = static_cast<unsigned char>(mMinor * 10 + mVariation);
    mVariation = 0;
}
