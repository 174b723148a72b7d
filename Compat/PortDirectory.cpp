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
std::string DefaultPath()
{
    if (const char* override = std::getenv("KELTO_PORT_DIR"); override != nullptr && *override)
    {
        return override;
    }
    if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime != nullptr && *runtime)
    {
        return std::string(runtime) + "/com.kelto.ports";
    }
    return "/tmp/com.kelto.ports." + std::to_string(geteuid());
}
} // namespace

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
    const std::string path = DefaultPath();
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
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
