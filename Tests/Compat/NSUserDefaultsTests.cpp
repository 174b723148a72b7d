#include <AppKit/AppKit.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <unistd.h>

namespace
{
// Points HOME at a scratch folder, without XDG_CONFIG_HOME, with a global preferences file
// in ~/.config/kelto for the test's duration.
class NSUserDefaultsTests : public testing::Test
{
protected:
    void SetUp() override
    {
        char path[] = "/tmp/kel-defaults-XXXXXX";
        ASSERT_NE(mkdtemp(path), nullptr);
        mHome = path;
        if (const char* home = std::getenv("HOME"))
        {
            mSavedHome = home;
        }
        if (const char* config = std::getenv("XDG_CONFIG_HOME"))
        {
            mSavedConfig = config;
        }
        setenv("HOME", path, 1);
        unsetenv("XDG_CONFIG_HOME");
        mFolder = mHome + "/.config/kelto";
        std::filesystem::create_directories(mFolder);
    }
    void TearDown() override
    {
        mSavedHome ? setenv("HOME", mSavedHome->c_str(), 1) : unsetenv("HOME");
        mSavedConfig ? setenv("XDG_CONFIG_HOME", mSavedConfig->c_str(), 1)
                     : unsetenv("XDG_CONFIG_HOME");
        std::filesystem::remove_all(mHome);
        NSUserDefaults::standardUserDefaults()->synchronize();
    }

    void WriteGlobalDomain(const std::string& entries)
    {
        std::ofstream(mFolder + "/.GlobalPreferences.plist")
            << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
               "<plist version=\"1.0\"><dict>"
            << entries << "</dict></plist>\n";
        NSUserDefaults::standardUserDefaults()->synchronize();
    }

    std::string mHome;
    std::string mFolder;
    std::optional<std::string> mSavedHome;
    std::optional<std::string> mSavedConfig;
};

TEST_F(NSUserDefaultsTests, DoubleClickIntervalComesFromTheGlobalDomainOrDefaultsToHalfASecond)
{
    WriteGlobalDomain("<key>com.apple.mouse.doubleClickThreshold</key><real>0.25</real>");
    EXPECT_DOUBLE_EQ(NSEvent::doubleClickInterval(), 0.25);
    WriteGlobalDomain("");
    EXPECT_DOUBLE_EQ(NSEvent::doubleClickInterval(), 0.5);
    std::filesystem::remove(mFolder + "/.GlobalPreferences.plist");
    EXPECT_TRUE(NSUserDefaults::standardUserDefaults()->synchronize());
    EXPECT_DOUBLE_EQ(NSEvent::doubleClickInterval(), 0.5);
    // $XDG_CONFIG_HOME/kelto, when it is set (and absolute), rather than ~/.config/kelto.
    WriteGlobalDomain("<key>com.apple.mouse.doubleClickThreshold</key><real>0.25</real>");
    std::filesystem::rename(mHome + "/.config", mHome + "/elsewhere");
    for (const char* config : {"", "relative/path"})
    {
        setenv("XDG_CONFIG_HOME", config, 1);
        NSUserDefaults::standardUserDefaults()->synchronize();
        EXPECT_DOUBLE_EQ(NSEvent::doubleClickInterval(), 0.5) << config;
    }
    setenv("XDG_CONFIG_HOME", (mHome + "/elsewhere").c_str(), 1);
    NSUserDefaults::standardUserDefaults()->synchronize();
    EXPECT_DOUBLE_EQ(NSEvent::doubleClickInterval(), 0.25);
}

TEST_F(NSUserDefaultsTests, BoolValueFollowsTheFoundationRules)
{
    WriteGlobalDomain("<key>yes</key><string>YES</string>"
                      "<key>no</key><string>no</string>"
                      "<key>signed</key><string>  +0007</string>"
                      "<key>zero</key><string>-0</string>"
                      "<key>t</key><string>true</string>"
                      "<key>n0</key><integer>0</integer>"
                      "<key>n2</key><integer>2</integer>"
                      "<key>bt</key><true/>"
                      "<key>bf</key><false/>"
                      "<key>dict</key><dict/>");
    NSUserDefaults* defaults = NSUserDefaults::standardUserDefaults();
    EXPECT_TRUE(defaults->boolForKey(CFSTR("yes")));
    EXPECT_FALSE(defaults->boolForKey(CFSTR("no")));
    EXPECT_TRUE(defaults->boolForKey(CFSTR("signed")));
    EXPECT_FALSE(defaults->boolForKey(CFSTR("zero")));
    EXPECT_TRUE(defaults->boolForKey(CFSTR("t")));
    EXPECT_FALSE(defaults->boolForKey(CFSTR("n0")));
    EXPECT_TRUE(defaults->boolForKey(CFSTR("n2")));
    EXPECT_TRUE(defaults->boolForKey(CFSTR("bt")));
    EXPECT_FALSE(defaults->boolForKey(CFSTR("bf")));
    EXPECT_FALSE(defaults->boolForKey(CFSTR("dict")));
    EXPECT_NE(defaults->objectForKey(CFSTR("dict")), nullptr);
    EXPECT_FALSE(defaults->boolForKey(CFSTR("missing")));
    EXPECT_EQ(defaults->objectForKey(CFSTR("missing")), nullptr);
    EXPECT_DOUBLE_EQ(defaults->doubleForKey(CFSTR("signed")), 7.0);
}
} // namespace
