#include "Compat/CPortClient.h"

#include "Compat/SPortTransport.h"

#include <CoreFoundation/CFMessagePort.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include <sys/un.h>
#include <unistd.h>

using CFRunLoopPrivate::Clock;

std::shared_ptr<CPortClient> CPortClient::Connect(const std::string& socketPath)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (socketPath.size() >= sizeof address.sun_path)
    {
        return nullptr;
    }
    std::memcpy(address.sun_path, socketPath.c_str(), socketPath.size() + 1);

    const SPortTransport& transport = PortTransport();
    const int fd = transport.socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0)
    {
        return nullptr;
    }
    for (;;)
    {
        if (transport.connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        {
            break;
        }
        if (errno == EINTR)
        {
            continue; // a Unix socket connects at once or not at all; EISCONN ends it
        }
        if (errno == EISCONN)
        {
            break;
        }
        // ENOENT or ECONNREFUSED: nobody serves the name. EAGAIN: the server's queue is
        // full; it is not answering, which macOS reports as no port as well.
        transport.close(fd);
        return nullptr;
    }
    ucred credentials = {};
    socklen_t length = sizeof credentials;
    if (transport.getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0 ||
        credentials.uid != geteuid())
    {
        transport.close(fd);
        return nullptr;
    }
    std::shared_ptr<CPortClient> client(new CPortClient);
    client->mFd = fd;
    return client;
}

CPortClient::~CPortClient()
{
    Close();
}

void CPortClient::Close()
{
    mOnBroken = nullptr;
    if (mFd >= 0)
    {
        PortTransport().close(mFd);
        mFd = -1;
    }
    mBroken = true;
}

void CPortClient::Break()
{
    if (mFd >= 0)
    {
        // A server that refused us wrote why before it closed: keep that.
        if (!mRefused)
        {
            ReadAvailable();
            TakeFrames();
        }
        PortTransport().close(mFd);
        mFd = -1;
    }
    mBroken = true;
    if (auto onBroken = std::move(mOnBroken))
    {
        mOnBroken = nullptr;
        onBroken();
    }
}

bool CPortClient::IsAlive()
{
    if (mBroken)
    {
        return false;
    }
    pollfd fd = {mFd, static_cast<short>(POLLIN | POLLRDHUP), 0};
    if (PortTransport().poll(&fd, 1, 0) > 0 && (fd.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0)
    {
        Break();
        return false;
    }
    return true;
}

CPortClient::EWrite CPortClient::WriteAll(const std::vector<UInt8>& frame,
                                          Clock::time_point deadline)
{
    const SPortTransport& transport = PortTransport();
    size_t written = 0;
    while (written < frame.size())
    {
        const ssize_t count = transport.send(mFd, frame.data() + written, frame.size() - written,
                                             MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count > 0)
        {
            written += static_cast<size_t>(count);
            continue;
        }
        if (count < 0 && errno == EINTR)
        {
            continue;
        }
        if (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK)
        {
            return written == 0 ? EWrite::eFailedUnwritten : EWrite::eFailed;
        }
        // The server is not reading: wait for room until the send time-out.
        const auto now = Clock::now();
        if (now >= deadline)
        {
            return written == 0 ? EWrite::eTimedOutUnwritten : EWrite::eTimedOutPartly;
        }
        int timeout = -1;
        if (deadline != Clock::time_point::max())
        {
            const auto ms = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
            timeout = ms > INT_MAX ? INT_MAX : static_cast<int>(ms);
        }
        pollfd fd = {mFd, POLLOUT, 0};
        transport.poll(&fd, 1, timeout);
    }
    return EWrite::eWritten;
}

SInt32 CPortClient::SendRequest(SInt32 msgid, CFDataRef data, CFTimeInterval sendTimeout,
                                CFTimeInterval rcvTimeout, CFStringRef replyMode,
                                CFDataRef* returnData)
{
    // Keeps this client alive even if a call-back run during the exchange releases the port.
    const std::shared_ptr<CPortClient> self = shared_from_this();
    const SInt32 result = Exchange(msgid, data, sendTimeout, rcvTimeout, replyMode, returnData);
    return result != kCFMessagePortSuccess && mRefused ? kCFMessagePortRefused : result;
}

SInt32 CPortClient::Exchange(SInt32 msgid, CFDataRef data, CFTimeInterval sendTimeout,
                             CFTimeInterval rcvTimeout, CFStringRef replyMode,
                             CFDataRef* returnData)
{
    // A server that hung up is noticed by the write below, which fails on a connection whose
    // other end is closed; only then is the connection polled. That saves a poll() per
    // request and answers as the poll before the write did.
    if (mBroken)
    {
        return kCFMessagePortIsInvalid;
    }
    const UInt8* bytes = data != nullptr ? CFDataGetBytePtr(data) : nullptr;
    const size_t length = data != nullptr ? static_cast<size_t>(CFDataGetLength(data)) : 0;
    if (length > kPortMaxPayload)
    {
        return IsAlive() ? kCFMessagePortTransportError : kCFMessagePortIsInvalid;
    }
    UInt32 tag = 0;
    if (replyMode != nullptr)
    {
        tag = mNextTag++;
        if (mNextTag == 0)
        {
            mNextTag = 1;
        }
        mPending.erase(tag); // a tag is reused only after 2^32 requests
        mPending.try_emplace(tag);
    }
    // Keeps this client alive even if a call-back run below releases the port.
    const std::shared_ptr<CPortClient> self = shared_from_this();

    // A call-back run while this request waits may send on this client and reuse mFrame:
    // by then this frame is written.
    mFrame.clear();
    AppendPortFrame(mFrame, kPortRequestMagic, tag, static_cast<UInt32>(msgid), bytes, length);
    const EWrite written = WriteAll(mFrame, CFRunLoopPrivate::DeadlineAfter(sendTimeout));
    if (written != EWrite::eWritten)
    {
        mPending.erase(tag);
        if (written == EWrite::eTimedOutUnwritten)
        {
            return kCFMessagePortSendTimeout;
        }
        if (written == EWrite::eFailedUnwritten && !IsAlive())
        {
            return kCFMessagePortIsInvalid; // the server had gone: nothing was sent
        }
        // Half a frame is on the wire: the stream cannot carry another request.
        Break();
        return written == EWrite::eTimedOutPartly ? kCFMessagePortSendTimeout
                                                  : kCFMessagePortTransportError;
    }
    if (replyMode == nullptr)
    {
        return kCFMessagePortSuccess;
    }

    CFRunLoopRef rl = CFRunLoopGetCurrent();
    CFRunLoopPrivate::AddWatcher(rl, self);
    CFRunLoopPrivate::RunUntil(replyMode, CFRunLoopPrivate::DeadlineAfter(rcvTimeout),
                               [this, tag] { return mPending[tag].mArrived || mBroken; });
    CFRunLoopPrivate::RemoveWatcher(rl, this);

    auto pending = mPending.find(tag);
    const bool arrived = pending != mPending.end() && pending->second.mArrived;
    if (arrived && returnData != nullptr)
    {
        *returnData = pending->second.mReply; // handed over
        pending->second.mReply = nullptr;
    }
    if (pending != mPending.end())
    {
        mPending.erase(pending);
    }
    if (arrived)
    {
        return kCFMessagePortSuccess;
    }
    return mBroken ? kCFMessagePortBecameInvalidError : kCFMessagePortReceiveTimeout;
}

void CPortClient::CollectWatches(std::vector<CFRunLoopPrivate::SWatch>& watches)
{
    if (mFd >= 0)
    {
        watches.push_back({mFd, POLLIN, mDecoder.HasFrame()});
    }
}

void CPortClient::Handle(int, short)
{
    const std::shared_ptr<CPortClient> self = shared_from_this();
    const bool open = ReadAvailable();
    const bool wellFormed = TakeFrames();
    if (!open || !wellFormed || mRefused)
    {
        Break();
    }
}

bool CPortClient::ReadAvailable()
{
    UInt8 buffer[16384];
    while (mFd >= 0)
    {
        const ssize_t count = PortTransport().recv(mFd, buffer, sizeof buffer, MSG_DONTWAIT);
        if (count > 0)
        {
            mDecoder.Append(buffer, static_cast<size_t>(count));
            if (static_cast<size_t>(count) < sizeof buffer)
            {
                return true; // drained; what comes later wakes the loop again
            }
            continue;
        }
        if (count < 0 && errno == EINTR)
        {
            continue;
        }
        return count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
    }
    return false;
}

bool CPortClient::TakeFrames()
{
    SPortFrameView frame;
    for (;;)
    {
        const CPortFrameDecoder::EResult result = mDecoder.Next(frame);
        if (result != CPortFrameDecoder::EResult::eFrame)
        {
            return result == CPortFrameDecoder::EResult::eNeedMore;
        }
        if (frame.mWord == kPortReplyRefused)
        {
            mRefused = true; // the connection ends with it
            continue;
        }
        auto pending = mPending.find(frame.mTag);
        if (pending == mPending.end() || pending->second.mArrived)
        {
            continue; // a late reply to a request that timed out, or a duplicate
        }
        pending->second.mArrived = true;
        if (frame.mWord == kPortReplyWithData)
        {
            pending->second.mReply =
                CFDataCreate(nullptr, frame.mPayload, static_cast<CFIndex>(frame.mLength));
        }
    }
}
