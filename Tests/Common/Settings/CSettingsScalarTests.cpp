#include "SettingsTestSupport.h"

using namespace SettingsTest;

TEST(CSettingsScalar, DeepCopyIsIndependentAndSetValueChangesOnlyTheOriginal)
{
    auto text = CSettingsString::New("before");
    auto copy = CSettingsString::CastToString(text->DeepCopy());
    ASSERT_TRUE(copy);
    EXPECT_NE(copy.get(), text.get());
    text->SetValue("after");
    EXPECT_EQ(copy->GetValue(), "before");

    auto bytes = CSettingsBytes::New({9});
    auto bytesCopy = CSettingsBytes::CastToBytes(bytes->DeepCopy());
    bytes->SetValue({});
    EXPECT_EQ(bytesCopy->GetValue(), std::vector<uint8_t>{9});
    EXPECT_EQ(
        CSettingsKEString::CastToKEString(CSettingsKEString::New("k")->DeepCopy())->GetValue(),
        "k");
}

TEST(CSettingsScalar, CheckedCastsReturnTheSameObjectOrReportTheSourceType)
{
    auto integer = CSettingsInteger::New(4);
    EXPECT_EQ(CSettingsInteger::CastToInteger(integer).get(), integer.get());
    EXPECT_EQ(CSettingsInteger::CastToInteger(nullptr), nullptr);

    struct SCase
    {
        std::function<bool()> castFails;
        const char* message;
    };
    auto dbl = CSettingsDouble::New(1);
    auto kestring = CSettingsKEString::New("x");
    const SCase cases[] = {
        {[&] { return !CSettingsInteger::CastToInteger(dbl); },
         "CSettingsInteger::CastToInteger got source object of type double\n"},
        {[&] { return !CSettingsString::CastToString(kestring); },
         "CSettingsString::CastToString got source object of type kestring\n"},
        {[&] { return !CSettingsBool::CastToBool(integer); },
         "CSettingsBool::CastToBool got source object of type integer\n"},
        {[&] { return !CSettingsDouble::CastToDouble(integer); },
         "CSettingsDouble::CastToDouble got source object of type integer\n"},
        {[&] { return !CSettingsKEString::CastToKEString(CSettingsString::New("x")); },
         "CSettingsKEString::CastToKEString got source object of type string\n"},
        {[&] { return !CSettingsBytes::CastToBytes(CSettingsMap::New()); },
         "CSettingsBytes::CastToBytes got source object of type map\n"},
    };
    for (const auto& c : cases)
    {
        bool failed = false;
        SOutput output = Capture([&] { failed = c.castFails(); });
        EXPECT_TRUE(failed);
        EXPECT_EQ(output.err, c.message);
    }
    // CastTo never prints.
    SOutput output = Capture([&] { EXPECT_EQ(integer->CastTo<CSettingsDouble>(), nullptr); });
    EXPECT_EQ(output.err, "");
}

TEST(CSettingsScalar, StringToBoolAcceptsWordsAndIntegers)
{
    EXPECT_TRUE(CSettingsBool::StringToBool("TRUE", false));
    EXPECT_FALSE(CSettingsBool::StringToBool("fAlSe", true));
    EXPECT_TRUE(CSettingsBool::StringToBool("2", false));
    EXPECT_TRUE(CSettingsBool::StringToBool("  -1xyz", false));
    EXPECT_FALSE(CSettingsBool::StringToBool("0", true));
    bool result = false;
    SOutput output = Capture([&] { result = CSettingsBool::StringToBool("yes", true); });
    EXPECT_TRUE(result);
    EXPECT_TRUE(output.err.starts_with("StringToBool: "));
    EXPECT_NE(output.err.find(" a string to "), std::string::npos);
    // An int that does not fit is no number either.
    output = Capture([&] { result = CSettingsBool::StringToBool("99999999999", false); });
    EXPECT_FALSE(result);
    EXPECT_TRUE(output.err.starts_with("StringToBool: "));
}

TEST(CSettingsScalar, IsIntegerAllowsOnlyDigitsAndOneLeadingMinus)
{
    EXPECT_TRUE(CSettingsInteger::IsInteger("-12"));
    EXPECT_TRUE(CSettingsInteger::IsInteger("0123"));
    EXPECT_TRUE(CSettingsInteger::IsInteger("-"));
    EXPECT_FALSE(CSettingsInteger::IsInteger(""));
    EXPECT_FALSE(CSettingsInteger::IsInteger("1-2"));
    EXPECT_FALSE(CSettingsInteger::IsInteger("--1"));
    EXPECT_FALSE(CSettingsInteger::IsInteger("+1"));
    EXPECT_FALSE(CSettingsInteger::IsInteger(" 1"));
    EXPECT_FALSE(CSettingsInteger::IsInteger("1.0"));
}

TEST(CSettingsScalar, LanguageAndPlatformFilters)
{
    struct SRestore
    {
        ~SRestore()
        {
            CSettingsObject::SetLanguageIDFilter("");
            CSettingsObject::SetPlatformIDFilter("");
        }
    } restore;
    // Empty filters accept every tag.
    EXPECT_TRUE(CSettingsObject::ValidForCurrentLangAndPlat("fr", "mac"));

    CSettingsObject::SetLanguageIDFilter("de");
    EXPECT_EQ(CSettingsObject::LanguageIDFilter(), "de");
    EXPECT_FALSE(CSettingsObject::ValidForCurrentLangAndPlat("fr", ""));
    EXPECT_FALSE(CSettingsObject::ValidForCurrentLangAndPlat("fr", "x"));
    EXPECT_FALSE(CSettingsObject::ValidForCurrentLangAndPlat("DE", ""));
    EXPECT_TRUE(CSettingsObject::ValidForCurrentLangAndPlat("", "x"));
    EXPECT_TRUE(CSettingsObject::ValidForCurrentLangAndPlat("de", "x"));

    CSettingsObject::SetPlatformIDFilter("mac");
    EXPECT_EQ(CSettingsObject::PlatformIDFilter(), "mac");
    EXPECT_TRUE(CSettingsObject::ValidForCurrentLangAndPlat("de", "mac"));
    EXPECT_TRUE(CSettingsObject::ValidForCurrentLangAndPlat("de", ""));
    EXPECT_FALSE(CSettingsObject::ValidForCurrentLangAndPlat("de", "win"));
    EXPECT_FALSE(CSettingsObject::ValidForCurrentLangAndPlat("", "Mac"));
}
