#include "Mac/Common/OSUtils.h"

#include "Compat/CFBundlePrivate.h"

#include <AppKit/AppKit.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

namespace
{
namespace fs = std::filesystem;

TEST(OSUtilsTests, AppKitVersionMapsToTheReleaseAtEveryBoundary)
{
    const std::pair<double, unsigned> cases[] = {
        {2000, 0x10A0}, {1343, 0x10A0},  {1342.9, 0x1090}, {1342, 0x1090},
        {1265, 0x1090}, {1264, 0x1080},  {1187, 0x1080},   {1186, 0x1070},
        {1138, 0x1070}, {1137, 0x1060},  {1038, 0x1060},   {1037, 0x1050},
        {949, 0x1050},  {948.9, 0x1040}, {948, 0x1040},    {0, 0x1040}};
    for (const auto& [appKit, release] : cases)
    {
        EXPECT_EQ(OSUtils::GetSystemVersionForAppKitVersion(appKit), release) << appKit;
    }
    // This platform presents itself as 10.10: no identity change at start-up, preferences read.
    EXPECT_EQ(OSUtils::GetSystemVersion(), 0x10A0u);
}

TEST(OSUtilsTests, PackedVersionNumberUnpacksEveryField)
{
    FileVersion version = OSUtils::GetVersionFromVersNumber(0x06128003);
    EXPECT_EQ(version, FileVersion(6, 1, 2, FileVersion::EFinalVersion, 3));
    EXPECT_EQ(OSUtils::GetVersionFromVersNumber(0xFFF720FF),
              FileVersion(255, 15, 7, FileVersion::EDevelopmentVersion, 255));
    EXPECT_EQ(OSUtils::GetVersionFromVersNumber(0x01004000).Release(), FileVersion::EAlphaVersion);
    EXPECT_EQ(OSUtils::GetVersionFromVersNumber(0x01006000).Release(), FileVersion::EBetaVersion);
    EXPECT_EQ(OSUtils::GetVersionFromVersNumber(0x01008100).Release(),
              FileVersion::EUnknownVersion);
    EXPECT_EQ(OSUtils::GetVersionFromVersNumber(0x01000500).Release(),
              FileVersion::EUnknownVersion);
}

// Scratch bundles, and a scratch HOME for the user's defaults.
class OSUtilsFilesTests : public testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/kel_osutils_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        mRoot = pattern;
        const char* home = std::getenv("HOME");
        mHadHome = home != nullptr;
        mSavedHome = home ? home : "";
        setenv("HOME", mRoot.c_str(), 1);
        const char* config = std::getenv("XDG_CONFIG_HOME");
        mSavedConfig = config ? std::optional<std::string>(config) : std::nullopt;
        setenv("XDG_CONFIG_HOME", mRoot.c_str(), 1);
        fs::create_directories(mRoot / "kelto");
    }
    void TearDown() override
    {
        if (mHadHome)
        {
            setenv("HOME", mSavedHome.c_str(), 1);
        }
        else
        {
            unsetenv("HOME");
        }
        mSavedConfig ? setenv("XDG_CONFIG_HOME", mSavedConfig->c_str(), 1)
                     : unsetenv("XDG_CONFIG_HOME");
        fs::remove_all(mRoot);
        NSUserDefaults::standardUserDefaults()->synchronize();
    }

    CFBundleRef MakeBundle(const std::string& name, const std::string& entries)
    {
        fs::path contents = mRoot / (name + ".app") / "Contents";
        fs::create_directories(contents / "MacOS");
        std::ofstream(contents / "Info.plist") << Plist(entries);
        return CFBundlePrivate::CreateForExecutable((contents / "MacOS" / name).string());
    }

    void WriteGlobalDefaults(const std::string& entries)
    {
        std::ofstream(mRoot / "kelto" / ".GlobalPreferences.plist") << Plist(entries);
        NSUserDefaults::standardUserDefaults()->synchronize();
    }

    static std::string Plist(const std::string& entries)
    {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" +
               entries + "</dict></plist>\n";
    }

    fs::path mRoot;
    std::string mSavedHome;
    std::optional<std::string> mSavedConfig;
    bool mHadHome = false;
};

TEST_F(OSUtilsFilesTests, BundleVersionIsParsedAndMarkedWebByTheVendorKey)
{
    CFBundleRef plain = MakeBundle("Plain", "<key>CFBundleVersion</key><string>6.1.2</string>");
    EXPECT_EQ(OSUtils::GetVersionFromBundle(plain),
              FileVersion(6, 1, 2, FileVersion::EFinalVersion, 0));

    CFBundleRef web = MakeBundle("Web", "<key>CFBundleVersion</key><string>2.4.7b12</string>"
                                        "<key>KeltoVersion</key><string>x</string>");
    EXPECT_EQ(OSUtils::GetVersionFromBundle(web),
              FileVersion(2, 4, 7, FileVersion::EWebVersion, 12));

    CFBundleRef number = MakeBundle("Number", "<key>CFBundleVersion</key><integer>6</integer>");
    CFBundleRef missing = MakeBundle("Missing", "<key>Other</key><string>1.2.3</string>");
    EXPECT_EQ(OSUtils::GetVersionFromBundle(number), FileVersion());
    EXPECT_EQ(OSUtils::GetVersionFromBundle(missing), FileVersion());
    EXPECT_EQ(OSUtils::GetVersionFromBundle(nullptr), FileVersion());
    // This test program is no bundle.
    EXPECT_EQ(OSUtils::GetMainBundleVersion(), FileVersion());
    for (CFBundleRef bundle : {plain, web, number, missing})
    {
        CFRelease(bundle);
    }
}

TEST_F(OSUtilsFilesTests, ScrollDirectionDefaultsToTrueUnlessTheUserSaidOtherwise)
{
    // A value that has no boolean meaning (a dictionary) counts as not set. Strings and
    // numbers follow Foundation's boolValue: Y, y, T, t or a non-zero number after spaces.
    const std::pair<const char*, bool> cases[] = {{nullptr, true},
                                                  {"<false/>", false},
                                                  {"<string>NO</string>", false},
                                                  {"<string>YES</string>", true},
                                                  {"<string>true</string>", true},
                                                  {"<string>  +0007</string>", true},
                                                  {"<string>-0</string>", false},
                                                  {"<integer>0</integer>", false},
                                                  {"<integer>2</integer>", true},
                                                  {"<real>0.5</real>", true},
                                                  {"<true/>", true},
                                                  {"<dict/>", true}};
    for (const auto& [value, expected] : cases)
    {
        WriteGlobalDefaults(value == nullptr
                                ? ""
                                : "<key>com.apple.swipescrolldirection</key>" + std::string(value));
        EXPECT_EQ(OSUtils::GetScrollDirectionMatchesContentMovement(), expected)
            << (value ? value : "unset");
    }
}

TEST_F(OSUtilsFilesTests, DoubleClickTimeIsTheUsersSettingOrHalfASecond)
{
    WriteGlobalDefaults("<key>com.apple.mouse.doubleClickThreshold</key><real>0.8</real>");
    EXPECT_DOUBLE_EQ(OSUtils::GetDoubleClickTime(), 0.8);
    WriteGlobalDefaults("");
    EXPECT_DOUBLE_EQ(OSUtils::GetDoubleClickTime(), 0.5);
    // $XDG_CONFIG_HOME/kelto when it is set and absolute, else ~/.config/kelto.
    WriteGlobalDefaults("<key>com.apple.mouse.doubleClickThreshold</key><real>0.8</real>");
    for (const char* config : {"", "relative/path"})
    {
        setenv("XDG_CONFIG_HOME", config, 1);
        NSUserDefaults::standardUserDefaults()->synchronize();
        EXPECT_DOUBLE_EQ(OSUtils::GetDoubleClickTime(), 0.5) << config;
    }
    fs::create_directories(mRoot / ".config");
    fs::rename(mRoot / "kelto", mRoot / ".config" / "kelto");
    NSUserDefaults::standardUserDefaults()->synchronize();
    EXPECT_DOUBLE_EQ(OSUtils::GetDoubleClickTime(), 0.8);
}
} // namespace
