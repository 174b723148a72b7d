#include "Tools/tabletctl/ToolFiles.h"

#include "Tools/tabletctl/CCommandError.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ToolFiles
{
namespace
{
std::string Reason(int error_I)
{
    return error_I != 0 ? std::strerror(error_I) : "input/output error";
}

// Reads `fd_I` to its end; errno is left set on failure.
bool ReadAll(int fd_I, std::vector<uint8_t>& bytes_O)
{
    uint8_t chunk[65536];
    for (;;)
    {
        const ssize_t got = read(fd_I, chunk, sizeof chunk);
        if (got == 0)
        {
            return true;
        }
        if (got < 0)
        {
            if (errno == EINTR)
            {
                continue;
            }
            return false;
        }
        bytes_O.insert(bytes_O.end(), chunk, chunk + got);
    }
}

bool WriteAll(int fd_I, const std::vector<uint8_t>& bytes_I)
{
    size_t done = 0;
    while (done < bytes_I.size())
    {
        const ssize_t put = write(fd_I, bytes_I.data() + done, bytes_I.size() - done);
        if (put < 0 && errno == EINTR)
        {
            continue;
        }
        if (put <= 0)
        {
            return false;
        }
        done += static_cast<size_t>(put);
    }
    return true;
}
} // namespace

std::vector<uint8_t> ReadBytes(const std::string& path_I)
{
    std::vector<uint8_t> bytes;
    const bool standardInput = path_I == "-";
    const int fd = standardInput ? STDIN_FILENO : open(path_I.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status = {};
    if (fd < 0 || fstat(fd, &status) != 0)
    {
        throw CCommandError("cannot read " + path_I + ": " + Reason(errno));
    }
    if (S_ISDIR(status.st_mode))
    {
        close(fd);
        throw CCommandError("cannot read " + path_I + ": " + Reason(EISDIR));
    }
    const bool read = ReadAll(fd, bytes);
    const int error = errno;
    if (!standardInput)
    {
        close(fd);
    }
    if (!read)
    {
        throw CCommandError("cannot read " + (standardInput ? "standard input" : path_I) + ": " +
                            Reason(error));
    }
    return bytes;
}

void WriteBytes(const std::string& path_I, const std::vector<uint8_t>& bytes_I)
{
    if (path_I == "-")
    {
        std::fflush(stdout);
        if (!WriteAll(STDOUT_FILENO, bytes_I))
        {
            throw CCommandError("cannot write to standard output: " + Reason(errno));
        }
        return;
    }
    // A temporary file beside the target, flushed to the disk, then renamed over it: a full
    // disk or a crash leaves the old file whole.
    std::string temporary = path_I + ".XXXXXX";
    const int fd = mkstemp(temporary.data());
    if (fd < 0)
    {
        throw CCommandError("cannot write " + path_I + ": " + Reason(errno));
    }
    struct stat old = {};
    const mode_t mode = stat(path_I.c_str(), &old) == 0 ? (old.st_mode & 07777)
                                                        : 0666 & ~[]
    {
        const mode_t mask = umask(0);
        umask(mask);
        return mask;
    }();
    const bool written = fchmod(fd, mode) == 0 && WriteAll(fd, bytes_I) && fsync(fd) == 0;
    const int error = errno;
    if (close(fd) != 0 || !written || rename(temporary.c_str(), path_I.c_str()) != 0)
    {
        const int failure = written ? errno : error;
        unlink(temporary.c_str());
        throw CCommandError("cannot write " + path_I + ": " + Reason(failure));
    }
}
} // namespace ToolFiles
