#include "Bench/Support/UnixSockets.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{
bool Address(const std::string& path_I, sockaddr_un& address_O)
{
    address_O = {};
    address_O.sun_family = AF_UNIX;
    if (path_I.size() >= sizeof address_O.sun_path)
    {
        return false;
    }
    std::memcpy(address_O.sun_path, path_I.c_str(), path_I.size() + 1);
    return true;
}
} // namespace

namespace UnixSockets
{
int Listen(const std::string& path_I)
{
    sockaddr_un address;
    if (!Address(path_I, address))
    {
        return -1;
    }
    unlink(path_I.c_str());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
    {
        return -1;
    }
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(fd, SOMAXCONN) != 0)
    {
        close(fd);
        return -1;
    }
    return fd;
}

int Connect(const std::string& path_I, double seconds_I)
{
    sockaddr_un address;
    if (!Address(path_I, address))
    {
        return -1;
    }
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                              std::chrono::duration<double>(seconds_I));
    for (;;)
    {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd < 0)
        {
            return -1;
        }
        if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        {
            return fd;
        }
        close(fd);
        if (std::chrono::steady_clock::now() >= deadline)
        {
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

bool WriteAll(int fd_I, const void* bytes_I, size_t length_I)
{
    const auto* bytes = static_cast<const char*>(bytes_I);
    while (length_I > 0)
    {
        const ssize_t count = send(fd_I, bytes, length_I, MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR)
        {
            continue;
        }
        if (count <= 0)
        {
            return false;
        }
        bytes += count;
        length_I -= static_cast<size_t>(count);
    }
    return true;
}

bool ReadExactly(int fd_I, void* bytes_O, size_t length_I)
{
    auto* bytes = static_cast<char*>(bytes_O);
    while (length_I > 0)
    {
        const ssize_t count = recv(fd_I, bytes, length_I, MSG_WAITALL);
        if (count < 0 && errno == EINTR)
        {
            continue;
        }
        if (count <= 0)
        {
            return false;
        }
        bytes += count;
        length_I -= static_cast<size_t>(count);
    }
    return true;
}
} // namespace UnixSockets
