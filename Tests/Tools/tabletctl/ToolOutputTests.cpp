// What tabletctl prints for settings trees, for reply data of unknown meaning and for Apple
// Event parameters, and how it reads the parameters it sends.
#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsBytes.h"
#include "Common/Settings/CSettingsMap.h"
#include "Common/Settings/CSettingsNULL.h"
#include "Tools/tabletctl/AppleEventSyntax.h"
#include "Tools/tabletctl/CCommandError.h"
#include "Tools/tabletctl/RawReplyOutput.h"
#include "Tools/tabletctl/SettingsOutput.h"

#include <gtest/gtest.h>

#include <cstring>

namespace
{
std::shared_ptr<CSettingsArray> Capabilities()
{
    auto tablet = CSettingsMap::New();
    tablet->SetKeyAndInteger("MultiTouchDeviceID", 0);
    tablet->SetKeyAndString("MultiTouchDeviceName", "Kelto \"Pro\" M");
    tablet->SetKeyAndDouble("Scale", 2.5);
    tablet->SetKeyAndBool("Palm", true);
    tablet->SetKeyAndObject("Blob", CSettingsBytes::New({0, 1, 2}));
    auto sizes = CSettingsArray::New();
    sizes->AddInteger(224);
    sizes->AddObject(CSettingsNULL::New());
    tablet->SetKeyAndObject("Sizes", sizes);
    auto array = CSettingsArray::New();
    array->AddObject(tablet);
    return array;
}

template <typename F> std::string ErrorOf(F&& action)
{
    try
    {
        action();
    }
    catch (const CCommandError& error)
    {
        return error.what();
    }
    return "";
}
} // namespace

TEST(ToolOutput, SettingsTreesAsJSONAndAsText)
{
    EXPECT_EQ(SettingsOutput::ToJSON(Capabilities()).dump(),
              "[{\"Blob\":{\"SbyteS\":\"AAEC\"},\"MultiTouchDeviceID\":0,"
              "\"MultiTouchDeviceName\":\"Kelto \\\"Pro\\\" M\",\"Palm\":true,\"Scale\":2.5,"
              "\"Sizes\":[224,null]}]");
    EXPECT_EQ(SettingsOutput::ToText(Capabilities(), 2),
              "  [0]:\n"
              "    Blob: bytes AAEC\n"
              "    MultiTouchDeviceID: 0\n"
              "    MultiTouchDeviceName: Kelto \"Pro\" M\n"
              "    Palm: true\n"
              "    Scale: 2.5\n"
              "    Sizes:\n"
              "      [0]: 224\n"
              "      [1]: null\n");
    EXPECT_EQ(SettingsOutput::ToJSON(CSettingsArray::New()).dump(), "[]");
    EXPECT_EQ(SettingsOutput::ToText(CSettingsArray::New(), 0), "");
    EXPECT_TRUE(SettingsOutput::ToJSON(nullptr).is_null());
}

TEST(ToolOutput, ReplyDataShownByTypeOrByGuess)
{
    using RawReplyOutput::Show;
    // (An archive cannot hold a null, so the tree here has none.)
    auto tree = CSettingsMap::New();
    tree->SetKeyAndInteger("MultiTouchDeviceID", 1);
    const std::vector<unsigned char> archive = tree->GetASN1Binary();
    EXPECT_EQ(Show(archive, "auto").mType, "settings");
    EXPECT_EQ(Show(archive, "auto").mValue.dump(), "{\"MultiTouchDeviceID\":1}");
    EXPECT_EQ(Show(archive, "settings").mText, "  MultiTouchDeviceID: 1\n");
    EXPECT_EQ(Show({'o', 'k', 0}, "auto").mType, "string");
    EXPECT_EQ(Show({'o', 'k', 0}, "auto").mText, "ok");
    EXPECT_EQ(Show({2, 0}, "auto").mType, "u16");
    EXPECT_EQ(Show({2, 0}, "auto").mValue, 2);
    EXPECT_EQ(Show({0, 0, 1, 0}, "auto").mValue, 65536);
    EXPECT_EQ(Show({1, 2, 3}, "auto").mType, "");
    EXPECT_EQ(Show({}, "auto").mType, "");
    EXPECT_EQ(Show({2, 0}, "hex").mType, "");

    EXPECT_EQ(Show({0xFF, 0xFF}, "i16").mValue, -1);
    EXPECT_EQ(Show({0xFE, 0xFF, 0xFF, 0xFF}, "i32").mText, "-2");
    EXPECT_EQ(Show({7}, "bool").mText, "true");
    EXPECT_EQ(ErrorOf([] { Show({1, 2, 3}, "u16"); }), "the reply holds 3 bytes, not the 2 of u16");
    EXPECT_EQ(ErrorOf(
                  [] {
                      Show({'o', 'k'}, "string");
                  }),
              "the reply holds no text with its terminating 0");
    EXPECT_EQ(ErrorOf([] { Show({}, "settings"); }),
              "the reply holds no settings archive: no data");
    EXPECT_EQ(RawReplyOutput::Hex({0x02, 0x00, 0xFF}), "02 00 ff");
}

TEST(ToolOutput, AppleEventParametersBothWays)
{
    using AppleEventSyntax::ParseParameter;
    using AppleEventSyntax::Value;
    auto roundTrip = [](const std::string& text) { return Value(ParseParameter(text)); };

    CKeltoClient::SAppleEventParameter kocl = ParseParameter("kocl:type:Tblt");
    EXPECT_EQ(kocl.mKeyword, static_cast<std::uint32_t>('kocl'));
    EXPECT_EQ(kocl.mType, static_cast<std::uint32_t>('type'));
    std::uint32_t code = 0;
    ASSERT_EQ(kocl.mData.size(), sizeof code);
    std::memcpy(&code, kocl.mData.data(), sizeof code);
    EXPECT_EQ(code, static_cast<std::uint32_t>('Tblt'));

    EXPECT_EQ(roundTrip("kocl:type:Tblt"), "Tblt");
    EXPECT_EQ(roundTrip("----:long:-1728"), -1728);
    EXPECT_EQ(roundTrip("----:shor:-2"), -2);
    EXPECT_EQ(roundTrip("----:magn:4294967295"), 4294967295u);
    EXPECT_EQ(roundTrip("----:comp:-9000000000"), -9000000000LL);
    EXPECT_EQ(roundTrip("----:bool:true"), true);
    EXPECT_EQ(roundTrip("----:TEXT:a:b"), "a:b"); // the value keeps its colons
    EXPECT_EQ(roundTrip("----:blob:00ff"), "00 ff");
    // A number of the wrong size for its type shows as bytes.
    EXPECT_EQ(Value({'----', 'long', {1, 2}}), "01 02");

    EXPECT_EQ(ErrorOf([] { ParseParameter("kocl:type"); }),
              "an Apple Event parameter is KEYWORD:TYPE:VALUE: 'kocl:type'");
    EXPECT_EQ(ErrorOf([] { ParseParameter("----:shor:40000"); }), "number out of range: '40000'");
    EXPECT_EQ(ErrorOf([] { ParseParameter("kocl:type:Tab"); }), "not a four-character code: 'Tab'");
}
