#include "Install/InstallTestSupport.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>

namespace InstallTest
{
std::filesystem::path SInstalledTree::OnDisk(const std::filesystem::path& location_I) const
{
    const std::filesystem::path named = Named(location_I);
    return mRoot.empty() ? named : mRoot / named.relative_path();
}

std::filesystem::path SInstalledTree::Named(const std::filesystem::path& location_I) const
{
    return (mPrefix / location_I).lexically_normal();
}

const std::vector<SInstalledTree>& InstalledTrees()
{
    static const std::vector<SInstalledTree> trees = []
    {
        const std::filesystem::path stage = KEL_INSTALL_STAGE_DIR;
        return std::vector<SInstalledTree>{
            {"prefix", "", stage / "prefix", true},
            {"destdir", stage / "destdir", "/opt/kelto", true},
            {"odd", "", stage / "odd 100%$& x", false},
        };
    }();
    return trees;
}

const SInstalledTree& InstalledTree(const std::string& name_I)
{
    for (const SInstalledTree& tree : InstalledTrees())
    {
        if (tree.mName == name_I)
        {
            return tree;
        }
    }
    throw std::invalid_argument("no installed tree " + name_I);
}

namespace Layout
{
std::filesystem::path Coordinator()
{
    return std::filesystem::path(KEL_INSTALL_APPDIR) /
           "TabletDriver.app/Contents/MacOS/TabletDriver";
}
std::filesystem::path InfoPlist()
{
    return std::filesystem::path(KEL_INSTALL_APPDIR) / "TabletDriver.app/Contents/Info.plist";
}
std::filesystem::path BinDir()
{
    return KEL_INSTALL_BINDIR;
}
std::filesystem::path LibDir()
{
    return KEL_INSTALL_LIBDIR;
}
std::filesystem::path IncludeDir()
{
    return KEL_INSTALL_INCLUDEDIR;
}
std::filesystem::path CMakeDir()
{
    return KEL_INSTALL_CMAKEDIR;
}
std::filesystem::path PkgConfigDir()
{
    return KEL_INSTALL_PKGCONFIGDIR;
}
std::filesystem::path SystemdUnit()
{
    return std::filesystem::path(KEL_INSTALL_SYSTEMDUSERUNITDIR) / "kelto-coordinator.service";
}
std::filesystem::path LaunchAgent()
{
    return std::filesystem::path(KEL_INSTALL_LAUNCHAGENTSDIR) / "com.kelto.TabletDriver.plist";
}
std::filesystem::path ExamplesDir()
{
    return KEL_INSTALL_EXAMPLESDIR;
}
std::filesystem::path ManDir()
{
    return KEL_INSTALL_MANDIR;
}
} // namespace Layout

std::string ReadFile(const std::filesystem::path& path_I)
{
    std::ifstream in(path_I, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

SCommandResult RunCommand(const std::string& commandLine_I)
{
    SCommandResult result;
    FILE* pipe = popen(commandLine_I.c_str(), "r");
    if (pipe == nullptr)
    {
        return result;
    }
    char buffer[4096];
    size_t count = 0;
    while ((count = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
    {
        result.mOutput.append(buffer, count);
    }
    const int status = pclose(pipe);
    result.mStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::string ShellQuote(const std::string& text_I)
{
    std::string quoted = "'";
    for (char c : text_I)
    {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

PlistPtr ReadPlist(const std::filesystem::path& path_I)
{
    const std::string bytes = ReadFile(path_I);
    if (bytes.empty())
    {
        return nullptr;
    }
    plist_t root = nullptr;
    plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &root);
    return PlistPtr(root);
}

std::optional<std::string> PlistString(plist_t node_I)
{
    if (node_I == nullptr || plist_get_node_type(node_I) != PLIST_STRING)
    {
        return std::nullopt;
    }
    char* value = nullptr;
    plist_get_string_val(node_I, &value);
    std::string text = value != nullptr ? value : "";
    std::free(value); // libplist 2.2 hands out malloc()ed strings
    return text;
}

std::optional<bool> PlistBool(plist_t node_I)
{
    if (node_I == nullptr || plist_get_node_type(node_I) != PLIST_BOOLEAN)
    {
        return std::nullopt;
    }
    uint8_t value = 0;
    plist_get_bool_val(node_I, &value);
    return value != 0;
}

std::optional<std::string> UnitValue(const std::string& unit_I, const std::string& section_I,
                                     const std::string& key_I)
{
    std::istringstream lines(unit_I);
    std::string line;
    std::string section;
    std::optional<std::string> value;
    while (std::getline(lines, line))
    {
        if (line.empty() || line[0] == '#' || line[0] == ';')
        {
            continue;
        }
        if (line.front() == '[' && line.back() == ']')
        {
            section = line.substr(1, line.size() - 2);
            continue;
        }
        const size_t equals = line.find('=');
        if (section == section_I && equals != std::string::npos && line.substr(0, equals) == key_I)
        {
            value = line.substr(equals + 1);
        }
    }
    return value;
}
} // namespace InstallTest
