#include "Tools/tabletctl/ToolFiles.h"

#include "Common/AtomicFileWrite.h"
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
        const size_t written = std::fwrite(bytes_I.data(), 1, bytes_I.size(), stdout);
        if (std::fflush(stdout) != 0 || written != bytes_I.size())
        {
            throw CCommandError("cannot write to standard output: " + Reason(errno));
        }
        return;
    }
    std::string error;
    if (!WriteFileAtomically(path_I, bytes_I.data(), bytes_I.size(), error))
    {
        throw CCommandError("cannot write " + path_I + ": " + error);
    }
}
} // namespace ToolFiles
