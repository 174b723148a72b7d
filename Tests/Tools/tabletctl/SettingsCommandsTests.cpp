// Runs the built tabletctl on real files in a scratch directory.
#include "Common/Settings/CSettingsMap.h"
#include "Tests/Tools/tabletctl/TabletctlRunner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
using tabletctl_test::SRun;

class TabletctlSettings : public testing::Test
{
protected:
    void SetUp() override
    {
        mDir = std::filesystem::path(KEL_TEST_BINARY_DIR) /
               ("tabletctl_settings_" + std::to_string(getpid()) + "_" +
                testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(mDir);
        std::filesystem::create_directories(mDir);
    }
    void TearDown() override { std::filesystem::remove_all(mDir); }

    std::string PathOf(const std::string& name) const { return (mDir / name).string(); }

    void Write(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(PathOf(name), std::ios::binary) << bytes;
    }

    std::string Contents(const std::string& name) const
    {
        std::ifstream in(PathOf(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    SRun Run(const std::string& arguments, const std::string& input = "") const
    {
        return tabletctl_test::RunTabletctl(arguments, mDir.string(), input);
    }

private:
    std::filesystem::path mDir;
};

const char* kCapabilities = "// touch capabilities of one tablet\n"
                            "[\n\t{\n\t\t\"Blob\": {\"SbyteS\":\"AAEC\"},\n"
                            "\t\t\"MaxFingers\": 10,\n\t\t\"Name\": \"Touch\",\n"
                            "\t\t\"Scale\": 2.500000\n\t}\n]\n";
} // namespace

TEST_F(TabletctlSettings, JSONToArchiveToJSONKeepsTheDocument)
{
    Write("caps.json", kCapabilities);
    SRun run = Run("settings to-archive caps.json caps.bin");
    ASSERT_EQ(run.status, 0) << run.err;
    std::string archive = Contents("caps.bin");
    ASSERT_GE(archive.size(), 8u);
    EXPECT_EQ(archive.substr(0, 8), std::string("\x02\x04Kelm\x62\x80", 8));
    EXPECT_EQ(run.out, "");

    run = Run("settings to-json caps.bin caps2.json");
    ASSERT_EQ(run.status, 0) << run.err;
    // The comment is gone; the rest is the writer's own layout, byte for byte.
    EXPECT_EQ(Contents("caps2.json"),
              std::string(kCapabilities).substr(std::string(kCapabilities).find('[')));

    run = Run("settings to-json caps.bin -");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, Contents("caps2.json"));
}

TEST_F(TabletctlSettings, TraceReadsEitherFormat)
{
    Write("caps.json", kCapabilities);
    ASSERT_EQ(Run("settings to-archive caps.json caps.bin").status, 0);
    const std::string trace = "array[0:map[Blob:bytes[AAEC], MaxFingers:integer[10], "
                              "Name:string[Touch], Scale:double[2.500000]]]\n";
    EXPECT_EQ(Run("settings trace caps.json").out, trace);
    EXPECT_EQ(Run("settings trace caps.bin").out, trace);
    EXPECT_EQ(Run("settings trace --format archive caps.bin").out, trace);
    EXPECT_EQ(Run("settings trace -", "caps.bin").out, trace);
    // The kestring identity survives only in the archive.
    auto map = CSettingsMap::New();
    map->SetKeyAndKEString("k", "v");
    std::vector<uint8_t> bytes = map->GetASN1Binary();
    Write("ke.bin", std::string(bytes.begin(), bytes.end()));
    EXPECT_EQ(Run("settings trace ke.bin").out, "map[k:kestring[v]]\n");
}

TEST_F(TabletctlSettings, BadInputGivesOneLineAndAFailingStatus)
{
    Write("broken.json", "{\"a\": [1, 2");
    Write("caps.json", kCapabilities);
    ASSERT_EQ(Run("settings to-archive caps.json caps.bin").status, 0);
    Write("cut.bin", Contents("caps.bin").substr(0, 20));
    std::vector<uint8_t> single = {0x02, 0x04, 'K', 'e', 'l', 'm', 0x02, 0x01, 0x05};
    Write("single.bin", std::string(single.begin(), single.end()));

    struct SCase
    {
        const char* arguments;
        const char* message;
    };
    const SCase cases[] = {
        {"settings to-archive broken.json out.bin",
         "tabletctl: broken.json: not a settings JSON document"},
        {"settings to-json cut.bin out.json",
         "tabletctl: cut.bin: not a settings archive: ASN1 archive ended unexpectedly"},
        {"settings to-json caps.json out.json",
         "tabletctl: caps.json: not a settings archive: no settings archive header"},
        {"settings to-json single.bin out.json",
         "tabletctl: single.bin: the archive holds a single integer"},
        {"settings trace --format json caps.bin", "tabletctl: caps.bin: not a settings JSON"},
        {"settings trace absent.json", "tabletctl: cannot read absent.json: No such file"},
        {"settings to-archive caps.json no/such/dir/out.bin",
         "tabletctl: cannot write no/such/dir/out.bin: No such file"},
    };
    for (const SCase& c : cases)
    {
        SRun run = Run(c.arguments);
        EXPECT_EQ(run.status, 1) << c.arguments;
        EXPECT_TRUE(run.err.starts_with(c.message)) << c.arguments << ": " << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    }
    EXPECT_FALSE(std::filesystem::exists(PathOf("out.bin")));
    EXPECT_FALSE(std::filesystem::exists(PathOf("out.json")));

    // Usage errors come from the parser, with a non-zero status too.
    EXPECT_NE(Run("settings").status, 0);
    EXPECT_NE(Run("settings trace --format xml caps.json").status, 0);
    EXPECT_NE(Run("settings to-json caps.bin").status, 0);
}
