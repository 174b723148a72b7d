#include <CoreFoundation/CoreFoundation.h>

#include "Compat/CFBundlePrivate.h"

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace
{
namespace fs = std::filesystem;

const char* const kInfoPlist = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
    <key>CFBundleIdentifier</key><string>com.kelto.TabletDriver</string>
    <key>CFBundleVersion</key><string>6.3.0</string>
    <key>Protocal</key><integer>3</integer>
    <key>Negative</key><integer>-12</integer>
    <key>Ratio</key><real>0.5</real>
    <key>Enabled</key><true/>
    <key>Blob</key><data>AAEC</data>
    <key>List</key><array><string>a</string><integer>2</integer></array>
    <key>Nested</key><dict><key>Inner</key><string>deep</string></dict>
    <key>When</key><date>2020-01-01T00:00:00Z</date>
</dict>
</plist>
)";

class CFBundleTests : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/kel_bundle_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        mRoot = pattern;
    }
    void TearDown() override { fs::remove_all(mRoot); }

    // Lays out Name.app/Contents/{MacOS,Info.plist}; returns the executable's path.
    std::string MakeBundle(const std::string& plist)
    {
        const fs::path contents = mRoot / "TabletDriver.app" / "Contents";
        fs::create_directories(contents / "MacOS");
        std::ofstream(contents / "Info.plist", std::ios::binary) << plist;
        return (contents / "MacOS" / "TabletDriver").string();
    }

    fs::path mRoot;
};

TEST_F(CFBundleTests, InfoDictionaryIsReadFromTheBundlesPlist)
{
    CFBundleRef bundle = CFBundlePrivate::CreateForExecutable(MakeBundle(kInfoPlist));
    ASSERT_NE(bundle, nullptr);
    CFStringRef identifier = CFBundleGetIdentifier(bundle);
    ASSERT_NE(identifier, nullptr);
    EXPECT_TRUE(CFEqual(identifier, CFSTR("com.kelto.TabletDriver")));

    auto protocol =
        static_cast<CFNumberRef>(CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("Protocal")));
    ASSERT_NE(protocol, nullptr);
    SInt32 version = 0;
    EXPECT_TRUE(CFNumberGetValue(protocol, kCFNumberSInt32Type, &version));
    EXPECT_EQ(version, 3);

    auto negative =
        static_cast<CFNumberRef>(CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("Negative")));
    EXPECT_TRUE(CFNumberGetValue(negative, kCFNumberSInt32Type, &version));
    EXPECT_EQ(version, -12);
    auto ratio =
        static_cast<CFNumberRef>(CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("Ratio")));
    double fraction = 0;
    EXPECT_TRUE(CFNumberGetValue(ratio, kCFNumberDoubleType, &fraction));
    EXPECT_EQ(fraction, 0.5);
    EXPECT_EQ(CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("Enabled")), kCFBooleanTrue);

    auto blob = static_cast<CFDataRef>(CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("Blob")));
    ASSERT_EQ(CFDataGetLength(blob), 3);
    EXPECT_EQ(CFDataGetBytePtr(blob)[2], 2);

    const SInt32 two = 2;
    CFNumberRef number = CFNumberCreate(nullptr, kCFNumberSInt32Type, &two);
    const void* items[] = {CFSTR("a"), number};
    CFArrayRef list = CFArrayCreate(nullptr, items, 2, &kCFTypeArrayCallBacks);
    EXPECT_TRUE(CFEqual(CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("List")), list));
    CFRelease(list);
    CFRelease(number);
    auto nested =
        static_cast<CFDictionaryRef>(CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("Nested")));
    EXPECT_TRUE(CFEqual(CFDictionaryGetValue(nested, CFSTR("Inner")), CFSTR("deep")));

    // Dates have no type here and are left out; absent keys give NULL.
    EXPECT_EQ(CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("When")), nullptr);
    EXPECT_EQ(CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("KeltoVersion")), nullptr);
    CFRelease(bundle);
}

} // namespace
