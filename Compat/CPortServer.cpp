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
#include <sys/epoll.h>
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

// Ready descriptors taken from the epoll set per pass; the rest stay ready for the next.
constexpr int kEventsPerPass = 64;

void EpollControl(int epollFd, int operation, int fd, UInt32 events)
{
    epoll_event event = {};
    event.events = events;
    event.data.fd = fd;
    epoll_ctl(epollFd, operation, fd, &event);
}

// Whether a refused connection's client has written or hung up (not merely that an event
// was left over from before a nested pass reused its descriptor).
bool PeerActed(int fd)
{
    char byte;
    const ssize_t count = PortTransport().recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return count >= 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR);
}

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
    server->mEpollFd = epoll_create1(EPOLL_CLOEXEC);
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.fd = server->mListenFd;
    if (transport.listen(server->mListenFd, SOMAXCONN) != 0 || server->mEpollFd < 0 ||
        epoll_ctl(server->mEpollFd, EPOLL_CTL_ADD, server->mListenFd, &event) != 0)
    {
        unlink(server->mSocketPath.c_str());
        return nullptr;
    }
    server->mSpareFd = open("/dev/null", O_RDONLY | O_CLOEXEC);
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
    while (!mRefused.empty())
    {
        CloseRefused(mRefused.begin());
    }
    while (!mConnections.empty())
    {
        const std::shared_ptr<SConnection> connection = mConnections.begin()->second;
        Drop(connection);
    }
    mRevisit.clear();
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
    for (int* fd : {&mEpollFd, &mSpareFd})
    {
        if (*fd >= 0)
        {
            close(*fd);
            *fd = -1;
        }
    }
}

void CPortServer::CollectWatches(std::vector<CFRunLoopPrivate::SWatch>& watches)
{
    if (mEpollFd < 0)
    {
        return;
    }
    // Whole frames already read, or input left waiting at the nesting limit, are taken
    // without waiting for the descriptors.
    const bool ready = HasWorkWaiting();
    const size_t descriptors = mConnections.size() + mRefused.size();
    if (descriptors > kDirectWatchLimit || (mUseEpoll && descriptors > kDirectWatchLimit / 2))
    {
        UseEpoll(true);
        watches.push_back({mEpollFd, POLLIN, ready});
        return;
    }
    // A few descriptors are cheaper to poll than to wait on the set and then ask it which
    // one is ready (a system call more per request), and a socket outside the set wakes
    // nothing more than its poller. The epoll events are poll's bits.
    UseEpoll(false);
    watches.push_back({mListenFd, POLLIN, ready});
    for (const int fd : mRefused)
    {
        watches.push_back({fd, POLLIN});
    }
    for (const auto& entry : mConnections)
    {
        if (entry.second->mWatched != 0)
        {
            watches.push_back({entry.first, static_cast<short>(entry.second->mWatched)});
        }
    }
}

bool CPortServer::HasWorkWaiting() const
{
    if (!mDeliver || mDeliveries >= kMaxNestedDeliveries)
    {
        return false;
    }
    return std::any_of(mRevisit.begin(), mRevisit.end(),
                       [this](const auto& connection) { return MayDeliver(*connection); });
}

void CPortServer::Handle(int fd, short revents)
{
    if (HasWorkWaiting())
    {
        std::vector<std::shared_ptr<SConnection>> revisit;
        revisit.swap(mRevisit);
        for (const auto& connection : revisit)
        {
            connection->mRevisit = false;
        }
        for (const auto& connection : revisit)
        {
            // Watched again for input, and its whole frames delivered; one that still may
            // not deliver goes back on the list.
            if (MayDeliver(*connection))
            {
                HandleConnection(connection, 0);
            }
            else
            {
                Watch(connection);
            }
        }
    }
    if (mEpollFd < 0)
    {
        return;
    }
    if (fd != mEpollFd)
    {
        // Polled directly (see CollectWatches).
        if (const std::shared_ptr<SConnection> connection = Find(fd))
        {
            HandleConnection(connection, static_cast<UInt32>(revents));
        }
        else if (fd == mListenFd)
        {
            if ((revents & POLLIN) != 0)
            {
                Accept();
            }
        }
        else
        {
            HandleRefused(fd);
        }
        return;
    }
    epoll_event events[kEventsPerPass];
    const int count = epoll_wait(mEpollFd, events, kEventsPerPass, 0);
    // A call-back below may run the loop, which handles further events of the set, closes
    // connections or the server: every event is looked up again when its turn comes.
    for (int i = 0; i < count && mEpollFd >= 0; ++i)
    {
        const int ready = events[i].data.fd;
        if (const std::shared_ptr<SConnection> connection = Find(ready))
        {
            HandleConnection(connection, events[i].events);
        }
        else if (ready == mListenFd)
        {
            Accept();
        }
        else
        {
            HandleRefused(ready);
        }
    }
}

void CPortServer::HandleRefused(int fd)
{
    const auto refused = std::find(mRefused.begin(), mRefused.end(), fd);
    if (refused != mRefused.end() && PeerActed(fd))
    {
        // Its client wrote or hung up: it has had the refusal in front of it.
        CloseRefused(refused);
    }
}

void CPortServer::CloseRefused(std::vector<int>::iterator refused)
{
    if (mUseEpoll)
    {
        EpollControl(mEpollFd, EPOLL_CTL_DEL, *refused, 0);
    }
    PortTransport().close(*refused);
    mRefused.erase(refused);
}

void CPortServer::HandleConnection(const std::shared_ptr<SConnection>& connection, UInt32 events)
{
    if ((events & (EPOLLOUT | EPOLLHUP | EPOLLERR)) != 0)
    {
        Flush(connection);
    }
    if (connection->mFd >= 0 && MayDeliver(*connection))
    {
        if ((events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0)
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
    Watch(connection);
}

void CPortServer::Watch(const std::shared_ptr<SConnection>& connection)
{
    if (connection->mFd < 0 || mEpollFd < 0)
    {
        return;
    }
    const bool mayDeliver = MayDeliver(*connection);
    if (!connection->mRevisit &&
        ((!mayDeliver && mDeliveries >= kMaxNestedDeliveries) || connection->mDecoder.HasFrame()))
    {
        connection->mRevisit = true;
        mRevisit.push_back(connection);
    }
    // At a limit nothing is read (the socket holds the requests back) and only replies still
    // to be written are watched, so that a waiting level is not woken for work it may not
    // take.
    const UInt32 wanted = (mayDeliver ? UInt32{EPOLLIN} : 0) |
                          (connection->mOutStart < connection->mOut.size() ? UInt32{EPOLLOUT} : 0);
    if (wanted == connection->mWatched)
    {
        return;
    }
    if (mUseEpoll)
    {
        // A descriptor watched for nothing would still report a hang-up at every pass, so
        // it leaves the set instead (and is not polled either).
        const int operation = wanted == 0                 ? EPOLL_CTL_DEL
                              : connection->mWatched == 0 ? EPOLL_CTL_ADD
                                                          : EPOLL_CTL_MOD;
        EpollControl(mEpollFd, operation, connection->mFd, wanted);
    }
    connection->mWatched = wanted;
}

void CPortServer::UseEpoll(bool use)
{
    if (use == mUseEpoll)
    {
        return;
    }
    mUseEpoll = use;
    const int operation = use ? EPOLL_CTL_ADD : EPOLL_CTL_DEL;
    for (const int fd : mRefused)
    {
        EpollControl(mEpollFd, operation, fd, EPOLLIN);
    }
    for (const auto& entry : mConnections)
    {
        if (entry.second->mWatched != 0)
        {
            EpollControl(mEpollFd, operation, entry.first, entry.second->mWatched);
        }
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
            if (errno == EMFILE || errno == ENFILE)
            {
                RefuseWithoutDescriptor();
            }
            return; // EAGAIN, or a connection that went away before it was taken
        }
        Adopt(fd);
    }
}

void CPortServer::RefuseWithoutDescriptor()
{
    // Left in the backlog, the connection would keep the listening socket ready at every
    // pass and its client waiting for nothing.
    if (mSpareFd < 0)
    {
        return;
    }
    close(mSpareFd);
    const int fd = PortTransport().accept4(mListenFd, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0)
    {
        static bool told = false;
        if (!told)
        {
            told = true;
            std::fprintf(stderr, "%s: refusing connections: out of file descriptors\n",
                         mSocketPath.c_str());
        }
        SendRefusal(fd, 0, "too many connections");
        PortTransport().close(fd);
    }
    mSpareFd = open("/dev/null", O_RDONLY | O_CLOEXEC);
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
        const auto ofProcess = mConnectionsOfProcess.find(pid);
        return mConnections.size() >= kMaxConnections ||
               (ofProcess != mConnectionsOfProcess.end() &&
                ofProcess->second >= kMaxConnectionsPerProcess);
    };
    if (full())
    {
        DropStalledConnections(); // a slot held by half a frame for long is freed first
    }
    if (full())
    {
        RefuseOverLimit(fd, pid);
        return;
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    auto connection = std::make_shared<SConnection>();
    connection->mFd = fd;
    connection->mPid = pid;
    mConnections.emplace(fd, connection);
    ++mConnectionsOfProcess[pid];
    Watch(connection);
}

void CPortServer::RefuseOverLimit(int fd, pid_t pid)
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
}

void CPortServer::DropStalledConnections()
{
    const auto limit = CFRunLoopPrivate::Clock::now() - kPartialFrameTimeout;
    std::vector<std::shared_ptr<SConnection>> stalled;
    for (const auto& entry : mConnections)
    {
        if (entry.second->mPartialSince < limit && entry.second->mInFlight == 0)
        {
            stalled.push_back(entry.second);
        }
    }
    for (const auto& connection : stalled)
    {
        Drop(connection);
    }
}

void CPortServer::KeepRefused(int fd)
{
    if (mRefused.size() >= kMaxRefusedKept)
    {
        CloseRefused(mRefused.begin());
    }
    if (mUseEpoll)
    {
        EpollControl(mEpollFd, EPOLL_CTL_ADD, fd, EPOLLIN);
    }
    mRefused.push_back(fd);
}

std::shared_ptr<CPortServer::SConnection> CPortServer::Find(int fd) const
{
    const auto found = mConnections.find(fd);
    return found != mConnections.end() ? found->second : nullptr;
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
            SendRefusal(connection->mFd, frame.mTag, "frame too large");
            Drop(connection);
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
        Watch(connection);
        CFDataRef reply = deliver(static_cast<SInt32>(frame.mWord), data);
        --connection->mInFlight;
        --mDeliveries;
        Watch(connection);
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
    const size_t before = connection->mOut.size();
    AppendPortFrame(connection->mOut, kPortReplyMagic, tag,
                    reply != nullptr ? kPortReplyWithData : kPortReplyNoData, bytes, length);
    mQueuedInAll += connection->mOut.size() - before;
    Flush(connection);
    // More than this reply waits: it stopped reading. Past the bound of all connections
    // together, any such connection goes, not only one past its own bound.
    const size_t queued = connection->mOut.size() - connection->mOutStart;
    if (connection->mFd >= 0 && queued > kPortFrameHeaderSize + length &&
        (queued > kMaxQueuedReplyBytes || mQueuedInAll > kMaxQueuedReplyBytesInAll))
    {
        Drop(connection);
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
            mQueuedInAll -= static_cast<size_t>(count);
            continue;
        }
        if (count < 0 && errno == EINTR)
        {
            continue;
        }
        if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
        {
            break; // the rest goes when the socket can take it
        }
        Drop(connection);
        return;
    }
    Watch(connection);
}

void CPortServer::Drop(const std::shared_ptr<SConnection>& connection)
{
    if (connection->mFd < 0)
    {
        return;
    }
    if (mUseEpoll && connection->mWatched != 0)
    {
        EpollControl(mEpollFd, EPOLL_CTL_DEL, connection->mFd, 0);
    }
    if (connection->mRevisit)
    {
        mRevisit.erase(std::remove(mRevisit.begin(), mRevisit.end(), connection), mRevisit.end());
        connection->mRevisit = false;
    }
    mConnections.erase(connection->mFd);
    if (const auto ofProcess = mConnectionsOfProcess.find(connection->mPid);
        ofProcess != mConnectionsOfProcess.end() && --ofProcess->second == 0)
    {
        mConnectionsOfProcess.erase(ofProcess);
    }
    PortTransport().close(connection->mFd);
    connection->mFd = -1;
    mQueuedInAll -= connection->mOut.size() - connection->mOutStart;
    connection->mOut.clear();
    connection->mOutStart = 0;
}
