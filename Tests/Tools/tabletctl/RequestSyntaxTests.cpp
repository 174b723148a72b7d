// How tabletctl reads commands, identifiers, keys, data and four-character codes.
#include "Tools/tabletctl/RequestSyntax.h"

#include "Common/Settings/CSettingsInteger.h"
#include "Common/Settings/CSettingsMap.h"
#include "Tools/tabletctl/CCommandError.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace RequestSyntax;

namespace
{
// The message of the CCommandError that `parse` throws; empty when it throws none.
template <typename F> std::string ErrorOf(F&& parse)
{
    try
    {
        parse();
    }
    catch (const CCommandError& error)
    {
        return error.what();
    }
    return "";
}

template <typename T> std::vector<unsigned char> Bytes(T value)
{
    std::vector<unsigned char> bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}
} // namespace

TEST(RequestSyntax, NamesShortNamesAndNumbers)
{
    EXPECT_EQ(ParseCommand("ECommandGet"), ECommandGet);
    EXPECT_EQ(ParseCommand("flush"), ECommandFlush);
    EXPECT_EQ(ParseCommand("getdefault"), ECommandGetDefault);
    EXPECT_EQ(ParseCommand("4"), ECommandDestroy);

    EXPECT_EQ(ParseIdentifier("EObjectIDTablet"), EObjectIDTablet);
    EXPECT_EQ(ParseIdentifier("ObjectIDTablet"), EObjectIDTablet);
    EXPECT_EQ(ParseIdentifier("parameteridcount"), EParameterIDCount);
    EXPECT_EQ(ParseIdentifier("TabletMultiTouchCapabilities"),
              EParameterIDTabletMultiTouchCapabilities);
    EXPECT_EQ(ParseIdentifier("508"), static_cast<EEventIdentifier>(508));
    EXPECT_EQ(ParseIdentifier("0x1FF"), EObjectIDMultiTouchAPI);
    // Two names of one value are one answer, not an ambiguity.
    EXPECT_EQ(ParseIdentifier("MenuArea"), EObjectIDMenuArea);
    EXPECT_EQ(ParseIdentifier("TabletControls"), EObjectIDTabletControls);

    EXPECT_EQ(ParseMode("EAddrModeByLocalIndex"), EAddrModeByLocalIndex);
    EXPECT_EQ(ParseMode("ByID"), EAddrModeByID);
    EXPECT_EQ(ParseMode("id"), EAddrModeByID);
    EXPECT_EQ(ParseMode("All"), EAddrModeAllSubordinate);
    EXPECT_EQ(ParseMode("6"), EAddrModeByString);

    EXPECT_EQ(IdentifierName(EParameterIDCount), "EParameterIDCount");
    EXPECT_EQ(IdentifierName(static_cast<EEventIdentifier>(508)), "508");
    EXPECT_EQ(IdentifierName(EObjectIDMenuArea), "EObjectIDTabletControls");
    EXPECT_EQ(CommandName(ECommandSet), "ECommandSet");
    EXPECT_EQ(ModeName(EAddrModeAllSubordinate), "EAddrModeAllSubordinate");
}

TEST(RequestSyntax, BadWordsAreNamedInTheError)
{
    EXPECT_EQ(ErrorOf([] { ParseCommand("fetch"); }), "unknown command 'fetch'");
    EXPECT_EQ(ErrorOf([] { ParseIdentifier("Transducer"); }),
              "ambiguous identifier 'Transducer': EObjectIDTransducer, EParameterIDTransducer");
    EXPECT_EQ(ErrorOf([] { ParseIdentifier("621"); }), "number out of range: '621'");
    EXPECT_EQ(ErrorOf([] { ParseMode("7"); }), "number out of range: '7'");
    EXPECT_EQ(ErrorOf([] { ParseMode("9"); }), "number out of range: '9'");
    EXPECT_EQ(ErrorOf([] { ParseNumber("12x", 100); }), "not a number: '12x'");
    EXPECT_EQ(ErrorOf([] { ParseNumber("0x", 100); }), "not a number: '0x'");
    EXPECT_EQ(ErrorOf([] { ParseNumber("18446744073709551616", UINT64_MAX); }),
              "number out of range: '18446744073709551616'");
    EXPECT_EQ(ParseNumber("18446744073709551615", UINT64_MAX), UINT64_MAX);
    EXPECT_EQ(ErrorOf([] { ParseKey("Nothing"); }),
              "ambiguous identifier 'Nothing': EObjectIDNothing, EParameterIDNothing");
    EXPECT_EQ(ErrorOf([] { ParseKey("ObjectIDNothing"); }),
              "a key cannot be EObjectIDNothing: it ends the chain");
}

TEST(RequestSyntax, KeysTakeAModeAndAReference)
{
    CKeltoClient::SKey key = ParseKey("Tablet");
    EXPECT_EQ(key.mIdentifier, EObjectIDTablet);
    EXPECT_EQ(key.mMode, EAddrModeByIndex);
    EXPECT_EQ(key.mReference, 0u);

    key = ParseKey("Tablet@ByID=0x10");
    EXPECT_EQ(key.mMode, EAddrModeByID);
    EXPECT_EQ(key.mReference, 16u);

    // The reference of a count is the identifier of what is counted.
    key = ParseKey("Count=Tablet");
    EXPECT_EQ(key.mIdentifier, EParameterIDCount);
    EXPECT_EQ(key.mReference, static_cast<std::uint32_t>(EObjectIDTablet));

    // A string key keeps everything after the first '=' as it is.
    key = ParseKey("Name@String=a=b@c");
    EXPECT_EQ(key.mMode, EAddrModeByString);
    EXPECT_EQ(key.mText, "a=b@c");
    EXPECT_EQ(key.mReference, 0u);

    EXPECT_EQ(ErrorOf([] { ParseKey("Tablet=4294967296"); }), "number out of range: '4294967296'");
    EXPECT_EQ(ErrorOf([] { ParseKey("Tablet@Sideways"); }), "unknown addressing mode 'Sideways'");
}

TEST(RequestSyntax, DataInEveryType)
{
    EXPECT_EQ(ParseData("u8:255"), Bytes<std::uint8_t>(255));
    EXPECT_EQ(ParseData("u16:0xFFFF"), Bytes<std::uint16_t>(0xFFFF));
    EXPECT_EQ(ParseData("u32:4294967295"), Bytes<std::uint32_t>(4294967295u));
    EXPECT_EQ(ParseData("u64:1"), Bytes<std::uint64_t>(1));
    EXPECT_EQ(ParseData("i8:-128"), Bytes<std::int8_t>(-128));
    EXPECT_EQ(ParseData("i16:-2"), Bytes<std::int16_t>(-2));
    EXPECT_EQ(ParseData("i32:-2147483648"), Bytes<std::int32_t>(INT32_MIN));
    EXPECT_EQ(ParseData("i64:-9223372036854775808"), Bytes<std::int64_t>(INT64_MIN));
    EXPECT_EQ(ParseData("bool:TRUE"), std::vector<unsigned char>{1});
    EXPECT_EQ(ParseData("bool:0"), std::vector<unsigned char>{0});
    EXPECT_EQ(ParseData("string:ab"), (std::vector<unsigned char>{'a', 'b', 0}));
    EXPECT_EQ(ParseData("string:"), std::vector<unsigned char>{0});
    EXPECT_EQ(ParseData("hex:00 ff 7A"), (std::vector<unsigned char>{0x00, 0xFF, 0x7A}));
    EXPECT_EQ(ParseData("hex:"), std::vector<unsigned char>{});

    auto integer = CSettingsObject::ReadFromASN1Binary(ParseData("integer:-5"));
    ASSERT_TRUE(CSettingsInteger::CastToInteger(integer));
    EXPECT_EQ(CSettingsInteger::CastToInteger(integer)->GetValue(), -5);
    auto map =
        CSettingsMap::CastToMap(CSettingsObject::ReadFromASN1Binary(ParseData(
                                    "settings:{\"MultiTouchAPIClientRegistrationType\": 2}")),
                                false);
    ASSERT_TRUE(map);
    EXPECT_EQ(map->IntegerForKeyWithDefault("MultiTouchAPIClientRegistrationType", 0), 2);

    struct SCase
    {
        const char* text;
        const char* error;
    };
    const SCase bad[] = {
        {"u8:256", "number out of range: '256'"},
        {"i8:-129", "number out of range: '-129'"},
        {"i8:128", "number out of range: '128'"},
        {"u16:-1", "not a number: '-1'"},
        {"bool:yes", "not a truth value (true, false, 1, 0): 'yes'"},
        {"hex:abc", "not hexadecimal bytes: 'abc'"},
        {"hex:zz", "not hexadecimal bytes: 'zz'"},
        {"settings:{\"a\": ", "not settings JSON text (a map or an array): '{\"a\": '"},
        {"float:1.5", "unknown data type 'float'"},
        {"1234", "data must be TYPE:VALUE: '1234'"},
        {"file:/no/such/file", "cannot read /no/such/file: No such file or directory"},
    };
    for (const SCase& c : bad)
    {
        EXPECT_EQ(ErrorOf([&] { ParseData(c.text); }), c.error) << c.text;
    }
}

TEST(RequestSyntax, FourCharacterCodes)
{
    EXPECT_EQ(ParseFourCharCode("core"), static_cast<std::uint32_t>('core'));
    EXPECT_EQ(ParseFourCharCode("'----'"), static_cast<std::uint32_t>('----'));
    EXPECT_EQ(ParseFourCharCode("1234"), static_cast<std::uint32_t>('1234'));
    EXPECT_EQ(ParseFourCharCode("0x636F7265"), static_cast<std::uint32_t>('core'));
    EXPECT_EQ(ErrorOf([] { ParseFourCharCode("cor"); }), "not a four-character code: 'cor'");
    EXPECT_EQ(ErrorOf([] { ParseFourCharCode("cores"); }), "not a four-character code: 'cores'");
    EXPECT_EQ(FourCharCodeText('Tblt'), "Tblt");
    EXPECT_EQ(FourCharCodeText(0x00000001), "0x00000001");
}
