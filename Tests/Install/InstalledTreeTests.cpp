// The trees that `cmake --install` made (test install.stage): the bundle and its link, the
// session files, the manifest, the development files, the simulated driver's examples.
#include "Install/InstallTestSupport.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <sstream>

using namespace InstallTest;
namespace fs = std::filesystem;

namespace
{
// ExecStart's program as systemd reads it: one double-quoted word, '%%' standing for '%'.
std::string UnitProgram(const std::string& execStart_I)
{
    std::string word = execStart_I;
    if (word.size() >= 2 && word.front() == '"' && word.back() == '"')
    {
        word = word.substr(1, word.size() - 2);
    }
    std::string program;
    for (size_t i = 0; i < word.size(); ++i)
    {
        program += word[i];
        if (word[i] == '%' && i + 1 < word.size() && word[i + 1] == '%')
        {
            ++i;
        }
    }
    return program;
}

std::set<fs::path> FilesUnder(const fs::path& directory_I)
{
    std::set<fs::path> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(directory_I))
    {
        if (entry.is_symlink() || entry.is_regular_file())
        {
            files.insert(entry.path());
        }
    }
    return files;
}
} // namespace

TEST(InstalledTree, TheLinkInBinReachesTheBundleWhoseInfoPlistNamesTheProgram)
{
    for (const SInstalledTree& tree : InstalledTrees())
    {
        SCOPED_TRACE(tree.mName);
        const fs::path program = tree.OnDisk(Layout::Coordinator());
        ASSERT_TRUE(fs::is_regular_file(program)) << program;
        EXPECT_NE(fs::status(program).permissions() & fs::perms::owner_exec, fs::perms::none);

        PlistPtr info = ReadPlist(tree.OnDisk(Layout::InfoPlist()));
        ASSERT_NE(info, nullptr);
        EXPECT_EQ(PlistString(plist_dict_get_item(info.get(), "CFBundleExecutable")),
                  program.filename().string());
        EXPECT_EQ(PlistString(plist_dict_get_item(info.get(), "CFBundleIdentifier")),
                  "com.kelto.TabletDriver");

        // Relative, so that it holds in the DESTDIR tree too; it resolves to the bundle's
        // program, whose own path is what the program finds its Info.plist from.
        const fs::path link = tree.OnDisk(Layout::BinDir() / "TabletDriver");
        ASSERT_TRUE(fs::is_symlink(link)) << link;
        EXPECT_TRUE(fs::read_symlink(link).is_relative()) << fs::read_symlink(link);
        EXPECT_EQ(fs::canonical(link), fs::canonical(program));
    }
}

TEST(InstalledTree, SessionFilesStartTheProgramWhereThePrefixPutsIt)
{
    for (const SInstalledTree& tree : InstalledTrees())
    {
        SCOPED_TRACE(tree.mName);
        // The installed files name the program under the prefix, never under DESTDIR.
        const std::string program = tree.Named(Layout::Coordinator()).string();

        const std::string unit = ReadFile(tree.OnDisk(Layout::SystemdUnit()));
        ASSERT_FALSE(unit.empty());
        const std::optional<std::string> execStart = UnitValue(unit, "Service", "ExecStart");
        ASSERT_TRUE(execStart.has_value());
        EXPECT_EQ(UnitProgram(*execStart), program);
        EXPECT_EQ(UnitValue(unit, "Service", "Restart"), "on-failure");
        EXPECT_EQ(UnitValue(unit, "Install", "WantedBy"), "default.target");

        PlistPtr agent = ReadPlist(tree.OnDisk(Layout::LaunchAgent()));
        ASSERT_NE(agent, nullptr) << "not a property list";
        ASSERT_EQ(plist_get_node_type(agent.get()), PLIST_DICT);
        EXPECT_EQ(PlistString(plist_dict_get_item(agent.get(), "Label")), "com.kelto.TabletDriver");
        plist_t arguments = plist_dict_get_item(agent.get(), "ProgramArguments");
        ASSERT_NE(arguments, nullptr);
        ASSERT_EQ(plist_get_node_type(arguments), PLIST_ARRAY);
        ASSERT_EQ(plist_array_get_size(arguments), 1u);
        EXPECT_EQ(PlistString(plist_array_get_item(arguments, 0)), program);
        EXPECT_EQ(PlistBool(plist_dict_get_item(agent.get(), "RunAtLoad")), true);
        // Kept alive as the unit is restarted: only when it ends with a failure.
        plist_t keepAlive = plist_dict_get_item(agent.get(), "KeepAlive");
        ASSERT_NE(keepAlive, nullptr);
        ASSERT_EQ(plist_get_node_type(keepAlive), PLIST_DICT);
        EXPECT_EQ(PlistBool(plist_dict_get_item(keepAlive, "SuccessfulExit")), false);
    }
}

// install_manifest.txt is what packagers and `xargs rm` go by: the files written at install
// time (the link, the unit, the agent) must be in it like the others, and nothing else. It
// names the files without DESTDIR.
TEST(InstalledTree, ManifestListsExactlyTheInstalledFiles)
{
    for (const SInstalledTree& tree : InstalledTrees())
    {
        SCOPED_TRACE(tree.mName);
        std::istringstream manifest(
            ReadFile(fs::path(KEL_INSTALL_STAGE_DIR) / (tree.mName + ".manifest")));
        std::set<fs::path> listed;
        for (std::string line; std::getline(manifest, line);)
        {
            if (!line.empty())
            {
                listed.insert(tree.mRoot.empty() ? fs::path(line)
                                                 : tree.mRoot / fs::path(line).relative_path());
            }
        }
        EXPECT_EQ(listed, FilesUnder(tree.OnDisk("")));
    }
}

// A path of the build machine in an installed file breaks the package elsewhere (an exported
// include directory, a configured path). Executables and archives are not text and are left
// out: their debug information names the sources on purpose.
TEST(InstalledTree, TextFilesNameNeitherTheSourceNorTheBuildTree)
{
    const SInstalledTree& tree = InstalledTree("destdir");
    size_t textFiles = 0;
    for (const fs::path& file : FilesUnder(tree.OnDisk("")))
    {
        if (fs::is_symlink(file))
        {
            continue;
        }
        const std::string text = ReadFile(file);
        if (text.find('\0') != std::string::npos)
        {
            continue;
        }
        ++textFiles;
        EXPECT_EQ(text.find(KEL_TEST_SOURCE_DIR), std::string::npos) << file;
        EXPECT_EQ(text.find(KEL_TEST_BINARY_DIR), std::string::npos) << file;
    }
    EXPECT_GT(textFiles, 10u);
}

// Every header the installed ones include by their project path ("Common/KelStatus.h") is
// installed too, starting from the client's.
TEST(InstalledTree, HeadersIncludeOnlyInstalledHeaders)
{
    const SInstalledTree& tree = InstalledTree("prefix");
    const fs::path includeDir = tree.OnDisk(Layout::IncludeDir());
    ASSERT_TRUE(fs::is_regular_file(includeDir / "Client/CKeltoClient.h"));
    ASSERT_TRUE(fs::is_regular_file(includeDir / "Common/Settings/CSettingsArray.h"));

    const std::regex projectInclude(R"re(^\s*#\s*include\s*"([^"]+)")re");
    size_t headers = 0;
    for (const fs::path& header : FilesUnder(includeDir))
    {
        ++headers;
        std::istringstream lines(ReadFile(header));
        for (std::string line; std::getline(lines, line);)
        {
            std::smatch match;
            if (std::regex_search(line, match, projectInclude))
            {
                EXPECT_TRUE(fs::is_regular_file(includeDir / match[1].str()))
                    << header << " includes " << match[1];
            }
        }
    }
    EXPECT_GT(headers, 10u);
}

// The module finds the prefix from its own place: the plain tree and the DESTDIR tree both
// give directories that hold the header and the archive, and the system libraries it
// requires are known to pkg-config.
TEST(InstalledTree, PkgConfigModuleGivesTheInstalledDirectoriesWhereverTheTreeIs)
{
    for (const char* name : {"prefix", "destdir"})
    {
        const SInstalledTree& tree = InstalledTree(name);
        SCOPED_TRACE(tree.mName);
        const std::string pkgConfig =
            "PKG_CONFIG_PATH=" + ShellQuote(tree.OnDisk(Layout::PkgConfigDir()).string()) +
            " pkg-config ";
        auto variable = [&](const std::string& name_I)
        {
            SCommandResult result =
                RunCommand(pkgConfig + "--variable=" + name_I + " kelto-client");
            EXPECT_EQ(result.mStatus, 0) << name_I;
            while (!result.mOutput.empty() && result.mOutput.back() == '\n')
            {
                result.mOutput.pop_back();
            }
            return fs::path(result.mOutput);
        };
        EXPECT_TRUE(fs::is_regular_file(variable("includedir") / "Client/CKeltoClient.h"));
        EXPECT_TRUE(fs::is_regular_file(variable("libdir") / "libkelto-client.a"));

        const SCommandResult version = RunCommand(pkgConfig + "--modversion kelto-client");
        EXPECT_EQ(version.mOutput, std::string(KEL_PROJECT_VERSION) + "\n");
        const SCommandResult flags = RunCommand(pkgConfig + "--cflags --libs kelto-client");
        EXPECT_EQ(flags.mStatus, 0) << flags.mOutput;
        EXPECT_NE(flags.mOutput.find("-lkelto-client"), std::string::npos) << flags.mOutput;
    }
}

// The examples a user starts the simulated driver with are all installed and all read
// without a problem by the installed driver.
TEST(InstalledTree, EveryExampleConfigurationIsInstalledAndAccepted)
{
    const SInstalledTree& tree = InstalledTree("prefix");
    const fs::path examples = tree.OnDisk(Layout::ExamplesDir());
    std::set<std::string> expected;
    for (const fs::directory_entry& entry :
         fs::directory_iterator(fs::path(KEL_TEST_SOURCE_DIR) / "Tools/SimulatedDriver/examples"))
    {
        if (entry.path().extension() == ".json")
        {
            expected.insert(entry.path().filename().string());
        }
    }
    ASSERT_FALSE(expected.empty());
    std::set<std::string> installed;
    for (const fs::directory_entry& entry : fs::directory_iterator(examples))
    {
        installed.insert(entry.path().filename().string());
    }
    EXPECT_EQ(installed, expected);

    const fs::path simdriver = tree.OnDisk(Layout::BinDir() / "simdriver");
    for (const std::string& example : installed)
    {
        const SCommandResult check =
            RunCommand(ShellQuote(simdriver.string()) + " --check " +
                       ShellQuote((examples / example).string()) + " 2>&1");
        EXPECT_EQ(check.mStatus, 0) << example << ": " << check.mOutput;
    }
}
