#include "Bench/Support/CRawEchoServer.h"

#include "Bench/Support/UnixSockets.h"

#include <stdexcept>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
struct SConnection
{
    int mFd;
    std::vector<unsigned char> mIn;
};

int Serve(int listenFd_I, size_t requestSize_I, size_t replySize_I)
{
    std::vector<SConnection> connections;
    std::vector<pollfd> fds;
    std::vector<unsigned char> reply(replySize_I);
    std::vector<unsigned char> chunk(64 * 1024);
    for (;;)
    {
        fds.assign(1, {listenFd_I, POLLIN, 0});
        for (const SConnection& connection : connections)
        {
            fds.push_back({connection.mFd, POLLIN, 0});
        }
        if (poll(fds.data(), fds.size(), -1) < 0)
        {
            continue;
        }
        for (size_t i = fds.size(); i-- > 1;)
        {
            if (fds[i].revents == 0)
            {
                continue;
            }
            SConnection& connection = connections[i - 1];
            const ssize_t count = recv(connection.mFd, chunk.data(), chunk.size(), 0);
            bool alive = count > 0;
            if (alive)
            {
                connection.mIn.insert(connection.mIn.end(), chunk.begin(), chunk.begin() + count);
                size_t used = 0;
                while (alive && connection.mIn.size() - used >= requestSize_I)
                {
                    CRawEchoServer::FillReply(connection.mIn.data() + used, requestSize_I,
                                              reply.data(), replySize_I);
                    alive = UnixSockets::WriteAll(connection.mFd, reply.data(), replySize_I);
                    used += requestSize_I;
                }
                connection.mIn.erase(connection.mIn.begin(),
                                     connection.mIn.begin() + static_cast<std::ptrdiff_t>(used));
            }
            if (!alive)
            {
                close(connection.mFd);
                connections.erase(connections.begin() + static_cast<std::ptrdiff_t>(i - 1));
            }
        }
        if (fds[0].revents != 0)
        {
            const int fd = accept4(listenFd_I, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd >= 0)
            {
                connections.push_back({fd, {}});
            }
        }
    }
}
} // namespace

CRawEchoServer::CRawEchoServer(const std::string& path_I, size_t requestSize_I, size_t replySize_I)
    : mPath(path_I)
{
    if (requestSize_I == 0)
    {
        throw std::runtime_error("a request has at least one byte");
    }
    const int listenFd = UnixSockets::Listen(path_I);
    if (listenFd < 0)
    {
        throw std::runtime_error("cannot listen on " + path_I);
    }
    mProcess = CChildProcess::Fork([&] { return Serve(listenFd, requestSize_I, replySize_I); });
    close(listenFd);
    if (!mProcess)
    {
        throw std::runtime_error("cannot start the echo server");
    }
}

void CRawEchoServer::FillReply(const unsigned char* request_I, size_t requestSize_I,
                               unsigned char* reply_O, size_t replySize_I)
{
    for (size_t i = 0; i < replySize_I; ++i)
    {
        reply_O[i] = request_I[i % requestSize_I];
    }
}
