#include "Common/AtomicFileWrite.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
bool WriteAll(int fd_I, const char* bytes_I, std::size_t size_I)
{
    std::size_t done = 0;
    while (done < size_I)
    {
        const ssize_t put = write(fd_I, bytes_I + done, size_I - done);
        if (put < 0 && errno == EINTR)
        {
            continue;
        }
        if (put <= 0)
        {
            return false;
        }
        done += static_cast<std::size_t>(put);
    }
    return true;
}

mode_t ModeFor(const std::string& path_I)
{
    struct stat old = {};
    if (stat(path_I.c_str(), &old) == 0)
    {
        return old.st_mode & 07777;
    }
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}
} // namespace

bool WriteFileAtomically(const std::string& path_I, const void* bytes_I, std::size_t size_I,
                         std::string& error_O)
{
    std::string temporary = path_I + ".XXXXXX";
    const int fd = mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0)
    {
        error_O = std::strerror(errno);
        return false;
    }
    bool done = fchmod(fd, ModeFor(path_I)) == 0 &&
                WriteAll(fd, static_cast<const char*>(bytes_I), size_I) && fsync(fd) == 0;
    int failure = done ? 0 : errno;
    if (close(fd) != 0 && done)
    {
        done = false;
        failure = errno;
    }
    if (done && rename(temporary.c_str(), path_I.c_str()) != 0)
    {
        done = false;
        failure = errno;
    }
    if (!done)
    {
        unlink(temporary.c_str());
        error_O = std::strerror(failure != 0 ? failure : EIO);
    }
    return done;
}
