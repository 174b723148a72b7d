#include "SettingsTestSupport.h"

#include <cmath>
#include <limits>

using namespace SettingsTest;

namespace
{
std::vector<std::shared_ptr<CSettingsObject>> OneOfEachScalar()
{
    return {CSettingsNULL::New(),          CSettingsBool::New(true),
            CSettingsInteger::New(-5),     CSettingsDouble::New(1.5),
            CSettingsString::New("abc"),   CSettingsKEString::New("abc"),
            CSettingsBytes::New({0, 1, 2})};
}
} // namespace

TEST(CSettingsScalar, TypeNamesStringValuesAndTraces)
{
    struct SExpected
    {
        const char* typeName;
        const char* stringValue;
        const char* trace;
    };
    const SExpected expected[] = {
        {"null", "", "null[]"},           {"bool", "true", "bool[true]"},
        {"integer", "-5", "integer[-5]"}, {"double", "1.500000", "double[1.500000]"},
        {"string", "abc", "string[abc]"}, {"kestring", "abc", "kestring[abc]"},
        {"bytes", "AAEC", "bytes[AAEC]"},
    };
    auto objects = OneOfEachScalar();
    for (size_t i = 0; i < objects.size(); ++i)
    {
        EXPECT_EQ(objects[i]->GetTypeName(), expected[i].typeName);
        EXPECT_EQ(objects[i]->GetStringValue(), expected[i].stringValue);
        EXPECT_EQ(objects[i]->GetTraceString(), expected[i].trace);
    }
    EXPECT_EQ(CSettingsDouble::New(0.1)->GetTraceString(), "double[0.100000]");
    EXPECT_EQ(CSettingsBool::New(false)->GetStringValue(), "false");
    EXPECT_EQ(CSettingsInteger::New(std::numeric_limits<long long>::min())->GetStringValue(),
              "-9223372036854775808");
    EXPECT_EQ(CSettingsBytes::GetClassTypeName(), "bytes");
    EXPECT_EQ(CSettingsKEString::GetClassTypeName(), "kestring");
}

TEST(CSettingsScalar, EqualityIsByExactClassAndValue)
{
    auto objects = OneOfEachScalar();
    for (size_t i = 0; i < objects.size(); ++i)
    {
        for (size_t j = 0; j < objects.size(); ++j)
        {
            EXPECT_EQ(objects[i]->IsEqualTo(objects[j]), i == j) << i << " vs " << j;
        }
        EXPECT_FALSE(objects[i]->IsEqualTo(nullptr));
        EXPECT_TRUE(objects[i]->IsEqualTo(objects[i]->DeepCopy()));
    }
    // The same number as integer and double, the same text as string and kestring, differ.
    EXPECT_FALSE(CSettingsInteger::New(2)->IsEqualTo(CSettingsDouble::New(2.0)));
    EXPECT_FALSE(CSettingsString::New("a")->IsEqualTo(CSettingsKEString::New("a")));
    EXPECT_FALSE(CSettingsString::New("a")->IsEqualTo(CSettingsString::New("A")));
    EXPECT_FALSE(CSettingsBytes::New({1})->IsEqualTo(CSettingsBytes::New({1, 0})));
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(CSettingsDouble::New(nan)->IsEqualTo(CSettingsDouble::New(nan)));
    EXPECT_TRUE(CSettingsDouble::New(0.0)->IsEqualTo(CSettingsDouble::New(-0.0)));
}

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

TEST(CSettingsScalar, StringToIntegerComplainsButParsesWhatItCan)
{
    long long result = 0;
    SOutput output = Capture([&] { result = CSettingsInteger::StringToInteger("12abc", 7); });
    EXPECT_EQ(result, 12);
    EXPECT_EQ(output.err, "CSettingsInteger::StringToInteger: ERROR: bad integer: 12abc\n");

    output = Capture([&] { result = CSettingsInteger::StringToInteger("-", 7); });
    EXPECT_EQ(result, 7);
    EXPECT_TRUE(output.err.starts_with("StringToInteger: ")) << output.err;

    output =
        Capture([&] { result = CSettingsInteger::StringToInteger("99999999999999999999", 3); });
    EXPECT_EQ(result, 3);
    EXPECT_TRUE(output.err.starts_with("StringToInteger: ")) << output.err;

    output =
        Capture([&] { result = CSettingsInteger::StringToInteger("-9223372036854775808", 0); });
    EXPECT_EQ(result, std::numeric_limits<long long>::min());
    EXPECT_EQ(output.err, "");
}

TEST(CSettingsScalar, StringToDoubleFallsBackToTheDefault)
{
    EXPECT_DOUBLE_EQ(CSettingsDouble::StringToDouble("-3e2", 0), -300.0);
    EXPECT_DOUBLE_EQ(CSettingsDouble::StringToDouble("2.5xyz", 0), 2.5);
    double result = 0;
    SOutput output = Capture([&] { result = CSettingsDouble::StringToDouble("e", 4.25); });
    EXPECT_EQ(result, 4.25);
    EXPECT_TRUE(output.err.starts_with("StringToDouble: ")) << output.err;
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
