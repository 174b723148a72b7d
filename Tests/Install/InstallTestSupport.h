// What the tests of the installed tree share: the trees that install.stage made
// (Tests/Install/StageInstall.cmake), the layout they were installed with, and small readers
// for the files found there.
#pragma once

#include <plist/plist.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace InstallTest
{
// One install run. `mRoot` is DESTDIR (empty for none): files lie at mRoot + mPrefix, while
// the files themselves name paths under mPrefix.
struct SInstalledTree
{
    std::string mName;
    std::filesystem::path mRoot;
    std::filesystem::path mPrefix;
    bool mHasDevelopment = true;

    // Where a location of the layout (relative to the prefix) lies on disk now.
    std::filesystem::path OnDisk(const std::filesystem::path& location_I) const;
    // The same location as the installed files name it.
    std::filesystem::path Named(const std::filesystem::path& location_I) const;
};

// The three trees: "prefix" (everything, a plain prefix), "destdir" (everything, DESTDIR
// staged for /opt/kelto), "odd" (coordinator and tools, a prefix with a space, '%', '$', '&').
const std::vector<SInstalledTree>& InstalledTrees();
const SInstalledTree& InstalledTree(const std::string& name_I);

// The layout the build was configured with, relative to the prefix.
namespace Layout
{
std::filesystem::path Coordinator(); // .../TabletDriver.app/Contents/MacOS/TabletDriver
std::filesystem::path InfoPlist();
std::filesystem::path BinDir();
std::filesystem::path LibDir();
std::filesystem::path IncludeDir(); // include/kelto
std::filesystem::path CMakeDir();
std::filesystem::path PkgConfigDir();
std::filesystem::path SystemdUnit();
std::filesystem::path LaunchAgent();
std::filesystem::path ExamplesDir();
std::filesystem::path ManDir(); // share/man
} // namespace Layout

std::string ReadFile(const std::filesystem::path& path_I);

// Runs a shell command line; standard output and the exit status (-1: not run).
struct SCommandResult
{
    int mStatus = -1;
    std::string mOutput;
};
SCommandResult RunCommand(const std::string& commandLine_I);
// `text_I` quoted for the shell.
std::string ShellQuote(const std::string& text_I);

// A property list read with libplist; null when the file is missing or not a property list.
struct SPlistFree
{
    void operator()(plist_t node_I) const { plist_free(node_I); }
};
using PlistPtr = std::unique_ptr<std::remove_pointer_t<plist_t>, SPlistFree>;
PlistPtr ReadPlist(const std::filesystem::path& path_I);
std::optional<std::string> PlistString(plist_t node_I);
std::optional<bool> PlistBool(plist_t node_I);

// The value of `key_I` in section `section_I` of a systemd unit; the last one when repeated.
std::optional<std::string> UnitValue(const std::string& unit_I, const std::string& section_I,
                                     const std::string& key_I);
} // namespace InstallTest
