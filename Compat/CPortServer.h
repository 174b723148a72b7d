// The serving side of a local message port: the listening socket, the name lock and the
// connections of its clients, all driven by the run loop the port's source is added to.
//
// The descriptors (listening socket, connections) sit in one epoll set of the server; past
// a few connections the run loop watches only that set, so a pass costs what is ready, not
// what is connected, and a connection is found by its descriptor in one step. A connection is
// watched for exactly what it may do next (reading while it may deliver, writing while replies
// wait), so a level-triggered event never repeats for work that cannot be taken.
//
// Each request is delivered on the run loop's thread; its reply is queued and written
// without blocking. A client that stops reading is dropped once more than
// kMaxQueuedReplyBytes wait for it (more than one reply, that is), and a client that sends anything
// malformed is dropped at once; neither can stall the loop or the other clients. Connections from
// another user are closed as soon as they are accepted.
//
// A call-back that runs the loop while it waits (for a driver, say) lets further requests
// in, of other clients and of its own connection, each one a level deeper on the same
// stack. At most kMaxNestedDeliveries are under way at once, and at most
// kMaxRequestsInFlight of one connection; further requests stay unread in their sockets
// until one of them returns, so a client that pipelines thousands of requests can neither
// run the thread out of stack nor take every level for itself.
#pragma once

#include "Compat/CFRunLoopPrivate.h"
#include "Compat/CPortFrameDecoder.h"

#include <CoreFoundation/CFData.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

class CPortServer : public CFRunLoopPrivate::IFdHandler
{
public:
    // Connections in all, and of one process (by its credentials). Past either, a new
    // connection is accepted, refused with a frame that says so ("too many connections")
    // and closed: the client learns at once instead of waiting in the listen backlog.
    static constexpr size_t kMaxConnections = 16384;
    static constexpr size_t kMaxConnectionsPerProcess = 64;
    // A connection holding part of a frame this long is let go when its slot is needed.
    static constexpr std::chrono::seconds kPartialFrameTimeout{10};
    // Reply bytes waiting for one connection, beside those in its socket: about the socket's
    // own buffer. One reply larger than that is still queued whole.
    static constexpr size_t kMaxQueuedReplyBytes = 256 * 1024;
    // Reply bytes waiting for all connections together: past it, a connection with more
    // than one reply waiting goes at its next reply.
    static constexpr size_t kMaxQueuedReplyBytesInAll = 32 * 1024 * 1024;
    // Up to this many connections (refused ones included) the run loop polls them one by
    // one; beyond, they join the server's epoll set and the run loop waits on the set alone
    // (until they are down to half as many).
    static constexpr size_t kDirectWatchLimit = 16;
    static constexpr size_t kMaxNestedDeliveries = 32;
    static constexpr size_t kMaxRequestsInFlight = 4;

    // Called for each request with its message id and bytes (the data belongs to the
    // caller); returns the reply, owned by the server, or NULL for "no data".
    using Deliver = std::function<CFDataRef(SInt32 msgid, CFDataRef data)>;

    enum class EOpen
    {
        eOpened,
        eNameServed, // a live process holds the name
        eFailed
    };

    // Takes the name `portName` in `directory`: its lock, then a fresh listening socket
    // (replacing one a dead owner left behind).
    static std::shared_ptr<CPortServer> Open(const std::string& directory,
                                             const std::string& portName, EOpen& result);
    ~CPortServer() override;

    void SetDeliver(Deliver deliver) { mDeliver = std::move(deliver); }
    // Serves a connected socket as if it had been accepted (after the same user check).
    void Adopt(int fd);
    // Gives the name back and closes every connection; the server serves nothing after.
    void Close();
    size_t ConnectionCount() const { return mConnections.size(); }

    void CollectWatches(std::vector<CFRunLoopPrivate::SWatch>& watches) override;
    void Handle(int fd, short revents) override;

private:
    struct SConnection
    {
        int mFd = -1;
        pid_t mPid = 0;
        UInt32 mWatched = 0;   // the epoll events it is registered for; 0: not in the set
        bool mRevisit = false; // in mRevisit
        // Since when it holds part of a frame; time_point::max() when it holds none.
        CFRunLoopPrivate::Clock::time_point mPartialSince =
            CFRunLoopPrivate::Clock::time_point::max();
        CPortFrameDecoder mDecoder{kPortRequestMagic};
        std::vector<UInt8> mOut; // reply bytes not yet written, from mOutStart
        size_t mOutStart = 0;
        size_t mInFlight = 0; // its requests being delivered, each nested in the one before
    };

    CPortServer() = default;
    void Accept();
    void Read(const std::shared_ptr<SConnection>& connection);
    void DeliverFrames(const std::shared_ptr<SConnection>& connection);
    void Reply(const std::shared_ptr<SConnection>& connection, UInt32 tag, CFDataRef reply);
    void Flush(const std::shared_ptr<SConnection>& connection);
    void Drop(const std::shared_ptr<SConnection>& connection);
    void HandleConnection(const std::shared_ptr<SConnection>& connection, UInt32 events);
    void HandleRefused(int fd);
    // Brings the connection's epoll registration in line with what it may do next.
    void Watch(const std::shared_ptr<SConnection>& connection);
    // Whether a connection on mRevisit may deliver now (no descriptor says so).
    bool HasWorkWaiting() const;
    bool MayDeliver(const SConnection& connection) const
    {
        return connection.mFd >= 0 && mDeliveries < kMaxNestedDeliveries &&
               connection.mInFlight < kMaxRequestsInFlight;
    }
    void RefuseOverLimit(int fd, pid_t pid);
    // Registers every watched descriptor in the epoll set, or takes them all out of it.
    void UseEpoll(bool use);
    // Takes connections the descriptor limit would have left in the backlog: accepts one
    // with a spare descriptor and refuses it.
    void RefuseWithoutDescriptor();
    // Lets go of the connections that have held part of a frame for kPartialFrameTimeout.
    void DropStalledConnections();
    // A connection refused at once is kept open (unread) until its client writes or hangs
    // up, at most kMaxRefusedKept of them: a client that checks its connection before its
    // first request would otherwise find it closed and take the server for gone, never
    // reading why.
    void KeepRefused(int fd);
    void CloseRefused(std::vector<int>::iterator refused);
    static constexpr size_t kMaxRefusedKept = 64;
    std::shared_ptr<SConnection> Find(int fd) const;

    int mEpollFd = -1;
    int mListenFd = -1;
    int mSpareFd = -1;      // kept open for RefuseWithoutDescriptor
    bool mUseEpoll = false; // connections and refused ones are in the set
    int mLockFd = -1;
    std::string mSocketPath;
    std::string mLockPath;
    Deliver mDeliver;
    size_t mDeliveries = 0;  // call-backs under way, each nested in the one before
    size_t mQueuedInAll = 0; // reply bytes waiting, over all connections
    std::unordered_map<int, std::shared_ptr<SConnection>> mConnections; // by descriptor
    std::unordered_map<pid_t, size_t> mConnectionsOfProcess;
    // Connections with whole frames already read, or told to wait while
    // kMaxNestedDeliveries were under way: work no descriptor will announce, looked at at
    // every pass.
    std::vector<std::shared_ptr<SConnection>> mRevisit;
    std::vector<int> mRefused; // oldest first
};
