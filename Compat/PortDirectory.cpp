#include "Compat/PortDirectory.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace PortDirectory
{
namespace
{
std::string Variable(const char* name)
{
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

// mkdir -p, the last level with mode 0700 and every level it makes private too.
bool MakePrivateDirectories(const std::string& path)
{
    for (size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1))
    {
        if (mkdir(path.substr(0, slash).c_str(), 0700) != 0 && errno != EEXIST)
        {
            return false;
        }
    }
    return mkdir(path.c_str(), 0700) == 0 || errno == EEXIST;
}
} // namespace

SPlaces PlacesOfThisProcess()
{
    return {Variable("KELTO_PORT_DIR"), Variable("XDG_RUNTIME_DIR"), Variable("TMPDIR"),
            Variable("HOME")};
}

std::string PathFor(const SPlaces& places)
{
    if (!places.mPortDir.empty())
    {
        return places.mPortDir;
    }
    if (!places.mRuntimeDir.empty())
    {
        return places.mRuntimeDir + "/com.kelto.ports";
    }
    const std::string shared = (places.mTmpDir.empty() ? std::string("/tmp") : places.mTmpDir) +
                               "/com.kelto.ports." + std::to_string(geteuid());
    struct stat info = {};
    std::string error;
    if (lstat(shared.c_str(), &info) != 0 || Check(shared, &error) || places.mHome.empty())
    {
        return shared;
    }
    return places.mHome + "/.local/state/kelto/ports";
}

bool Check(const std::string& path, std::string* error)
{
    struct stat info = {};
    if (lstat(path.c_str(), &info) != 0)
    {
        *error = path + ": " + std::strerror(errno);
        return false;
    }
    if (!S_ISDIR(info.st_mode))
    {
        *error = path + ": not a directory";
        return false;
    }
    if (info.st_uid != geteuid())
    {
        *error = path + ": owned by another user";
        return false;
    }
    if ((info.st_mode & 077) != 0)
    {
        *error = path + ": open to group or others";
        return false;
    }
    return true;
}

std::string Resolve(std::string* error)
{
    const std::string path = PathFor(PlacesOfThisProcess());
    if (!MakePrivateDirectories(path))
    {
        *error = path + ": " + std::strerror(errno);
        return std::string();
    }
    return Check(path, error) ? path : std::string();
}

std::string FileName(const std::string& portName)
{
    static const char kHex[] = "0123456789ABCDEF";
    std::string name;
    for (size_t i = 0; i < portName.size(); ++i)
    {
        const auto byte = static_cast<unsigned char>(portName[i]);
        const bool plain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                           (byte >= '0' && byte <= '9') || byte == '_' || byte == '-' ||
                           (byte == '.' && i > 0);
        if (plain)
        {
            name.push_back(static_cast<char>(byte));
        }
        else
        {
            name.push_back('%');
            name.push_back(kHex[byte >> 4]);
            name.push_back(kHex[byte & 0xF]);
        }
    }
    return name;
}
} // namespace PortDirectory
