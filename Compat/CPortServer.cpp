#include "Compat/CPortServer.h"

#include "Compat/PortDirectory.h"
#include "Compat/PortFiles.h"
#include "Compat/SPortTransport.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <set>

#include <fcntl.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{
// Writes a refusal frame (best effort, without waiting): the server's last word on a
// connection.
void SendRefusal(int fd, UInt32 tag, const std::string& why)
{
    const std::vector<UInt8> frame =
        EncodePortFrame(kPortReplyMagic, tag, kPortReplyRefused,
                        reinterpret_cast<const UInt8*>(why.data()), why.size());
    (void)PortTransport().send(fd, frame.data(), frame.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

// Bytes read from one connection per wake-up, so that one busy client cannot starve the
// others.
constexpr size_t kReadChunk = 256 * 1024;

// The peer's process when it is of our user; 0 otherwise.
pid_t PeerOfOurUser(int fd)
{
    ucred credentials = {};
    socklen_t length = sizeof credentials;
    if (PortTransport().getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0 ||
        credentials.uid != geteuid())
    {
        return 0;
    }
    return credentials.pid > 0 ? credentials.pid : 1;
}
} // namespace

std::shared_ptr<CPortServer> CPortServer::Open(const std::string& directory,
                                               const std::string& portName, EOpen& result)
{
    result = EOpen::eFailed;
    const std::string file = PortDirectory::FileName(portName);
    std::shared_ptr<CPortServer> server(new CPortServer);
    server->mSocketPath = directory + "/" + file;
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (file.empty() || server->mSocketPath.size() >= sizeof address.sun_path)
    {
        return nullptr;
    }
    std::memcpy(address.sun_path, server->mSocketPath.c_str(), server->mSocketPath.size() + 1);

    PortFiles::RemoveUnservedPorts(directory);
    server->mLockPath = directory + "/." + file + ".lock";
    bool served = false;
    server->mLockFd = PortFiles::TakeLock(server->mLockPath, served);
    if (server->mLockFd < 0)
    {
        result = served ? EOpen::eNameServed : EOpen::eFailed;
        return nullptr;
    }
    // We hold the name: whatever socket is there was left by a dead owner.
    unlink(server->mSocketPath.c_str());

    const SPortTransport& transport = PortTransport();
    server->mListenFd = transport.socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (server->mListenFd < 0 ||
        transport.bind(server->mListenFd, reinterpret_cast<const sockaddr*>(&address),
                       sizeof address) != 0)
    {
        return nullptr;
    }
    if (transport.listen(server->mListenFd, SOMAXCONN) != 0)
    {
        unlink(server->mSocketPath.c_str());
        return nullptr;
    }
    PortFiles::RemoveAtExit(server->mSocketPath, server->mLockPath);
    result = EOpen::eOpened;
    return server;
}

CPortServer::~CPortServer()
{
    Close();
}

void CPortServer::Close()
{
    mDeliver = nullptr;
    for (const int fd : mRefused)
    {
        PortTransport().close(fd);
    }
    mRefused.clear();
    while (!mConnections.empty())
    {
        const std::shared_ptr<SConnection> connection = mConnections.back();
        Drop(connection);
    }
    if (mListenFd >= 0)
    {
        // Unlinked while the lock is still held, so a new owner's socket is never removed.
        unlink(mSocketPath.c_str());
        PortTransport().close(mListenFd);
        mListenFd = -1;
    }
    if (mLockFd >= 0)
    {
        PortFiles::ForgetAtExit(mSocketPath, mLockPath);
        unlink(mLockPath.c_str());
        close(mLockFd);
        mLockFd = -1;
    }
}

void CPortServer::CollectWatches(std::vector<CFRunLoopPrivate::SWatch>& watches)
{
    if (mListenFd >= 0)
    {
        watches.push_back({mListenFd, POLLIN});
    }
    for (const int fd : mRefused)
    {
        watches.push_back({fd, POLLIN});
    }
    // At the nesting limit nothing is read (the sockets hold the requests back) and only
    // replies still to be written are watched, so that a waiting level is not woken for
    // work it may not take.
    const bool mayDeliverAny = mDeliveries < kMaxNestedDeliveries;
    for (const auto& connection : mConnections)
    {
        const bool pendingOut = connection->mOutStart < connection->mOut.size();
        const bool mayDeliver = mayDeliverAny && connection->mInFlight < kMaxRequestsInFlight;
        if (!mayDeliver && !pendingOut)
        {
            continue;
        }
        watches.push_back(
            {connection->mFd,
             static_cast<short>((mayDeliver ? POLLIN : 0) | (pendingOut ? POLLOUT : 0)),
             mayDeliver && connection->mDecoder.HasFrame()});
    }
}

void CPortServer::Handle(int fd, short revents)
{
    if (fd == mListenFd && mListenFd >= 0)
    {
        Accept();
        return;
    }
    if (const auto refused = std::find(mRefused.begin(), mRefused.end(), fd);
        refused != mRefused.end())
    {
        // Its client wrote or hung up: it has had the refusal in front of it.
        PortTransport().close(fd);
        mRefused.erase(refused);
        return;
    }
    std::shared_ptr<SConnection> connection = Find(fd);
    if (!connection)
    {
        return; // closed by an earlier call-back of this pass
    }
    if ((revents & (POLLOUT | POLLHUP | POLLERR)) != 0)
    {
        Flush(connection);
    }
    if (mDeliveries >= kMaxNestedDeliveries || connection->mInFlight >= kMaxRequestsInFlight)
    {
        return; // read once a level returns
    }
    if ((revents & (POLLIN | POLLHUP | POLLERR)) != 0)
    {
        Read(connection);
    }
    DeliverFrames(connection);
    if (!connection->mDecoder.HasPartialFrame())
    {
        connection->mPartialSince = CFRunLoopPrivate::Clock::time_point::max();
    }
    else if (connection->mPartialSince == CFRunLoopPrivate::Clock::time_point::max())
    {
        connection->mPartialSince = CFRunLoopPrivate::Clock::now();
    }
}

void CPortServer::Accept()
{
    while (mListenFd >= 0)
    {
        const int fd =
            PortTransport().accept4(mListenFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0)
        {
            if (errno == EINTR)
            {
                continue;
            }
            return; // EAGAIN, or a connection that went away before it was taken
        }
        Adopt(fd);
    }
}

void CPortServer::Adopt(int fd)
{
    const pid_t pid = PeerOfOurUser(fd);
    if (pid == 0)
    {
        PortTransport().close(fd);
        return;
    }
    auto full = [this, pid]
    {
        return mConnections.size() >= kMaxConnections ||
               static_cast<size_t>(std::count_if(mConnections.begin(), mConnections.end(),
                                                 [pid](const auto& connection) {
                                                     return connection->mPid == pid;
                                                 })) >= kMaxConnectionsPerProcess;
    };
    if (full())
    {
        DropStalledConnections(); // a slot held by half a frame for long is freed first
    }
    if (full())
    {
        // Said once per process, not once per connection it tries.
        static std::set<pid_t> told;
        if (told.size() < 1024 && told.insert(pid).second)
        {
            std::fprintf(stderr, "%s: refusing connections of process %d: too many connections\n",
                         mSocketPath.c_str(), static_cast<int>(pid));
        }
        SendRefusal(fd, 0, "too many connections");
        KeepRefused(fd);
        return;
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    auto connection = std::make_shared<SConnection>();
    connection->mFd = fd;
    connection->mPid = pid;
    mConnections.push_back(std::move(connection));
}

void CPortServer::DropStalledConnections()
{
    const auto limit = CFRunLoopPrivate::Clock::now() - kPartialFrameTimeout;
    const std::vector<std::shared_ptr<SConnection>> connections = mConnections;
    for (const auto& connection : connections)
    {
        if (connection->mPartialSince < limit && connection->mInFlight == 0)
        {
            Drop(connection);
        }
    }
}

void CPortServer::KeepRefused(int fd)
{
    if (mRefused.size() >= kMaxRefusedKept)
    {
        PortTransport().close(mRefused.front());
        mRefused.erase(mRefused.begin());
    }
    mRefused.push_back(fd);
}

std::shared_ptr<CPortServer::SConnection> CPortServer::Find(int fd) const
{
    for (const auto& connection : mConnections)
    {
        if (connection->mFd == fd)
        {
            return connection;
        }
    }
    return nullptr;
}

void CPortServer::Read(const std::shared_ptr<SConnection>& connection)
{
    UInt8 buffer[16384];
    size_t total = 0;
    while (connection->mFd >= 0 && total < kReadChunk)
    {
        const ssize_t count = PortTransport().recv(connection->mFd, buffer, sizeof buffer, 0);
        if (count > 0)
        {
            connection->mDecoder.Append(buffer, static_cast<size_t>(count));
            total += static_cast<size_t>(count);
            if (static_cast<size_t>(count) < sizeof buffer)
            {
                return; // drained; what comes later (or the end) wakes the loop again
            }
            continue;
        }
        if (count < 0 && errno == EINTR)
        {
            continue;
        }
        if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
        {
            return;
        }
        // End of stream or an error: serve what arrived whole, then let the client go.
        DeliverFrames(connection);
        Drop(connection);
        return;
    }
}

void CPortServer::DeliverFrames(const std::shared_ptr<SConnection>& connection)
{
    SPortFrameView frame;
    while (connection->mFd >= 0 && mDeliveries < kMaxNestedDeliveries &&
           connection->mInFlight < kMaxRequestsInFlight)
    {
        const CPortFrameDecoder::EResult result = connection->mDecoder.Next(frame);
        if (result == CPortFrameDecoder::EResult::eTooLarge)
        {
            // The sender is told why before the connection goes.
            const int fd = connection->mFd;
            connection->mFd = -1;
            Drop(connection);
            SendRefusal(fd, frame.mTag, "frame too large");
            PortTransport().close(fd);
            return;
        }
        if (result == CPortFrameDecoder::EResult::eMalformed)
        {
            Drop(connection);
            return;
        }
        if (result == CPortFrameDecoder::EResult::eNeedMore || !mDeliver)
        {
            return;
        }
        // Copied out before the call-back, which may read more into the decoder.
        CFDataRef data = CFDataCreate(nullptr, frame.mPayload, static_cast<CFIndex>(frame.mLength));
        // The call-back may run the loop, which may deliver further frames of this very
        // connection, or close it, or close the whole server.
        Deliver deliver = mDeliver;
        ++mDeliveries;
        ++connection->mInFlight;
        CFDataRef reply = deliver(static_cast<SInt32>(frame.mWord), data);
        --connection->mInFlight;
        --mDeliveries;
        CFRelease(data);
        if (frame.mTag != 0)
        {
            Reply(connection, frame.mTag, reply);
        }
        if (reply != nullptr)
        {
            CFRelease(reply);
        }
    }
}

void CPortServer::Reply(const std::shared_ptr<SConnection>& connection, UInt32 tag, CFDataRef reply)
{
    if (connection->mFd < 0)
    {
        return;
    }
    const UInt8* bytes = reply != nullptr ? CFDataGetBytePtr(reply) : nullptr;
    const size_t length = reply != nullptr ? static_cast<size_t>(CFDataGetLength(reply)) : 0;
    if (length > kPortMaxPayload)
    {
        Drop(connection); // the client could not accept it; it sees the port go invalid
        return;
    }
    if (connection->mOutStart == connection->mOut.size())
    {
        connection->mOut.clear();
        connection->mOutStart = 0;
    }
    AppendPortFrame(connection->mOut, kPortReplyMagic, tag,
                    reply != nullptr ? kPortReplyWithData : kPortReplyNoData, bytes, length);
    Flush(connection);
    const size_t queued = connection->mOut.size() - connection->mOutStart;
    if (connection->mFd >= 0 && queued > kMaxQueuedReplyBytes &&
        queued > kPortFrameHeaderSize + length)
    {
        Drop(connection); // it stopped reading
    }
}

void CPortServer::Flush(const std::shared_ptr<SConnection>& connection)
{
    while (connection->mFd >= 0 && connection->mOutStart < connection->mOut.size())
    {
        const ssize_t count = PortTransport().send(
            connection->mFd, connection->mOut.data() + connection->mOutStart,
            connection->mOut.size() - connection->mOutStart, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count > 0)
        {
            connection->mOutStart += static_cast<size_t>(count);
            continue;
        }
        if (count < 0 && errno == EINTR)
        {
            continue;
        }
        if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
        {
            return; // the rest goes when poll() says the socket can take it
        }
        Drop(connection);
        return;
    }
}

void CPortServer::Drop(const std::shared_ptr<SConnection>& connection)
{
    if (connection->mFd >= 0)
    {
        PortTransport().close(connection->mFd);
        connection->mFd = -1;
    }
    mConnections.erase(std::remove(mConnections.begin(), mConnections.end(), connection),
                       mConnections.end());
}
