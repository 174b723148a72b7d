#include "Bench/Support/CRawRelay.h"

#include "Bench/Support/UnixSockets.h"

#include <cstdint>
#include <deque>
#include <stdexcept>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
struct SClient
{
    int mFd;
    std::uint64_t mSerial; // replies are matched by serial: a new client may reuse an fd
    std::vector<unsigned char> mIn;
};

// Appends what one recv gives; false when the peer is gone.
bool ReadSome(int fd_I, std::vector<unsigned char>& in_IO, std::vector<unsigned char>& chunk_I)
{
    const ssize_t count = recv(fd_I, chunk_I.data(), chunk_I.size(), 0);
    if (count <= 0)
    {
        return false;
    }
    in_IO.insert(in_IO.end(), chunk_I.begin(), chunk_I.begin() + count);
    return true;
}

void Consume(std::vector<unsigned char>& in_IO, size_t used_I)
{
    in_IO.erase(in_IO.begin(), in_IO.begin() + static_cast<std::ptrdiff_t>(used_I));
}

int Relay(int listenFd_I, int serverFd_I, size_t requestSize_I, size_t replySize_I)
{
    std::vector<SClient> clients;
    std::deque<std::uint64_t> waiting; // serials of the requests the server has, oldest first
    std::vector<unsigned char> fromServer;
    std::vector<unsigned char> chunk(64 * 1024);
    std::vector<pollfd> fds;
    std::uint64_t nextSerial = 1;
    for (;;)
    {
        fds.assign({{listenFd_I, POLLIN, 0}, {serverFd_I, POLLIN, 0}});
        for (const SClient& client : clients)
        {
            fds.push_back({client.mFd, POLLIN, 0});
        }
        if (poll(fds.data(), fds.size(), -1) < 0)
        {
            continue;
        }
        if (fds[1].revents != 0)
        {
            if (!ReadSome(serverFd_I, fromServer, chunk))
            {
                return 1; // the server is gone: nothing left to relay
            }
            size_t used = 0;
            for (; fromServer.size() - used >= replySize_I && !waiting.empty(); used += replySize_I)
            {
                const std::uint64_t serial = waiting.front();
                waiting.pop_front();
                for (SClient& client : clients)
                {
                    if (client.mSerial == serial)
                    {
                        UnixSockets::WriteAll(client.mFd, fromServer.data() + used, replySize_I);
                        break;
                    }
                }
            }
            Consume(fromServer, used);
        }
        for (size_t i = fds.size(); i-- > 2;)
        {
            if (fds[i].revents == 0)
            {
                continue;
            }
            SClient& client = clients[i - 2];
            bool alive = ReadSome(client.mFd, client.mIn, chunk);
            size_t used = 0;
            for (; alive && client.mIn.size() - used >= requestSize_I; used += requestSize_I)
            {
                if (!UnixSockets::WriteAll(serverFd_I, client.mIn.data() + used, requestSize_I))
                {
                    return 1;
                }
                waiting.push_back(client.mSerial);
            }
            Consume(client.mIn, used);
            if (!alive)
            {
                close(client.mFd);
                clients.erase(clients.begin() + static_cast<std::ptrdiff_t>(i - 2));
            }
        }
        if (fds[0].revents != 0)
        {
            const int fd = accept4(listenFd_I, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd >= 0)
            {
                clients.push_back({fd, nextSerial++, {}});
            }
        }
    }
}
} // namespace

CRawRelay::CRawRelay(const std::string& path_I, const std::string& serverPath_I,
                     size_t requestSize_I, size_t replySize_I)
    : mPath(path_I)
{
    if (requestSize_I == 0 || replySize_I == 0)
    {
        throw std::runtime_error("requests and replies have at least one byte");
    }
    const int serverFd = UnixSockets::Connect(serverPath_I);
    const int listenFd = serverFd >= 0 ? UnixSockets::Listen(path_I) : -1;
    if (listenFd < 0)
    {
        if (serverFd >= 0)
        {
            close(serverFd);
        }
        throw std::runtime_error("cannot reach " + serverPath_I + " or listen on " + path_I);
    }
    mProcess =
        CChildProcess::Fork([&] { return Relay(listenFd, serverFd, requestSize_I, replySize_I); });
    close(listenFd);
    close(serverFd);
    if (!mProcess)
    {
        throw std::runtime_error("cannot start the relay");
    }
}
