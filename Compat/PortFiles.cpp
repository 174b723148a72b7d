#include "Compat/PortFiles.h"

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <set>
#include <string_view>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace PortFiles
{
namespace
{
// The files of the ports this process serves, removed when it exits: exit() does not run
// the destructors of ports that live as long as the process.
std::mutex gServedLock;
std::set<std::pair<std::string, std::string>>& ServedFiles()
{
    static auto* files = new std::set<std::pair<std::string, std::string>>;
    return *files;
}

void RemoveServedFilesAtExit()
{
    std::lock_guard<std::mutex> guard(gServedLock);
    // Still holding each lock: a new owner's files are never removed.
    for (const auto& [socketPath, lockPath] : ServedFiles())
    {
        unlink(socketPath.c_str());
        unlink(lockPath.c_str());
    }
}

// Whether the lock file `fd_I` was opened as is still the one at `path_I`: a holder removes
// it on close, and then somebody who opened it before must not count it as taken.
bool StillAtPath(int fd_I, const std::string& path_I)
{
    struct stat opened = {};
    struct stat named = {};
    return fstat(fd_I, &opened) == 0 && lstat(path_I.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

} // namespace

int TakeLock(const std::string& lockPath_I, bool& served_O)
{
    served_O = false;
    for (int attempt = 0; attempt < 8; ++attempt)
    {
        const int fd = open(lockPath_I.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (fd < 0)
        {
            return -1;
        }
        if (flock(fd, LOCK_EX | LOCK_NB) != 0)
        {
            served_O = errno == EWOULDBLOCK;
            close(fd);
            return -1;
        }
        if (StillAtPath(fd, lockPath_I))
        {
            return fd;
        }
        // Removed by its last holder after we opened it: take the new one.
        close(fd);
    }
    return -1;
}

void RemoveUnservedPorts(const std::string& directory_I)
{
    static std::mutex lock;
    static std::set<std::string> cleaned;
    {
        std::lock_guard<std::mutex> guard(lock);
        if (!cleaned.insert(directory_I).second)
        {
            return;
        }
    }
    DIR* directory = opendir(directory_I.c_str());
    if (directory == nullptr)
    {
        return;
    }
    constexpr std::string_view kSuffix = ".lock";
    while (const dirent* entry = readdir(directory))
    {
        const std::string name = entry->d_name;
        if (name.size() <= kSuffix.size() + 1 || name[0] != '.' || !name.ends_with(kSuffix))
        {
            continue;
        }
        const std::string lockPath = directory_I + "/" + name;
        const int fd = open(lockPath.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
        if (fd < 0)
        {
            continue;
        }
        if (flock(fd, LOCK_EX | LOCK_NB) == 0 && StillAtPath(fd, lockPath))
        {
            unlink((directory_I + "/" + name.substr(1, name.size() - 1 - kSuffix.size())).c_str());
            unlink(lockPath.c_str());
        }
        close(fd);
    }
    closedir(directory);
}

void RemoveAtExit(const std::string& socketPath_I, const std::string& lockPath_I)
{
    std::lock_guard<std::mutex> guard(gServedLock);
    static const bool registered = std::atexit(RemoveServedFilesAtExit) == 0;
    (void)registered;
    ServedFiles().emplace(socketPath_I, lockPath_I);
}

void ForgetAtExit(const std::string& socketPath_I, const std::string& lockPath_I)
{
    std::lock_guard<std::mutex> guard(gServedLock);
    ServedFiles().erase({socketPath_I, lockPath_I});
}
} // namespace PortFiles
