// The sending side of a remote message port: one connection to the serving process, and the
// requests on it that wait for their replies.
//
// Requests are tagged with a number of their own, so replies may come back in any order:
// a request sent from a call-back while another request on the same connection waits
// (nested sends) gets its own reply, and a reply whose request has stopped waiting (timed
// out) matches nothing and is dropped.
#pragma once

#include "Compat/CFRunLoopPrivate.h"
#include "Compat/CPortFrameDecoder.h"

#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFString.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

class CPortClient : public CFRunLoopPrivate::IFdHandler,
                    public std::enable_shared_from_this<CPortClient>
{
public:
    // Connects to the socket of a served name; NULL when nobody serves it, or when the
    // process serving it is another user's.
    static std::shared_ptr<CPortClient> Connect(const std::string& socketPath);
    ~CPortClient() override;

    // Called once when the connection breaks (the server went away or misbehaved).
    void SetOnBroken(std::function<void()> onBroken) { mOnBroken = std::move(onBroken); }
    // False once broken; notices a server that hung up while nothing was being sent.
    bool IsAlive();
    void Close();

    // Sends a request and, with a reply mode, waits for its reply; returns a
    // kCFMessagePort... result. `*returnData` gets the reply (NULL for "no data").
    SInt32 SendRequest(SInt32 msgid, CFDataRef data, CFTimeInterval sendTimeout,
                       CFTimeInterval rcvTimeout, CFStringRef replyMode, CFDataRef* returnData);

    void CollectWatches(std::vector<CFRunLoopPrivate::SWatch>& watches) override;
    void Handle(int fd, short revents) override;

private:
    struct SPending
    {
        SPending() = default;
        SPending(const SPending&) = delete;
        SPending& operator=(const SPending&) = delete;
        ~SPending()
        {
            if (mReply != nullptr)
            {
                CFRelease(mReply);
            }
        }
        bool mArrived = false;
        CFDataRef mReply = nullptr; // owned; NULL for "no data"
    };
    enum class EWrite
    {
        eWritten,
        eTimedOutUnwritten,
        eTimedOutPartly,
        eFailedUnwritten,
        eFailed
    };

    CPortClient() = default;
    EWrite WriteAll(const std::vector<UInt8>& frame, CFRunLoopPrivate::Clock::time_point deadline);
    void Break();
    // Reads what the server still sent and takes the frames out of the decoder: replies go to
    // their requests, a refusal is noted. False when the stream ended or is malformed.
    bool ReadAvailable();
    bool TakeFrames();
    SInt32 Exchange(SInt32 msgid, CFDataRef data, CFTimeInterval sendTimeout,
                    CFTimeInterval rcvTimeout, CFStringRef replyMode, CFDataRef* returnData);

    int mFd = -1;
    bool mBroken = false;
    bool mRefused = false; // the server's last frame was a refusal
    UInt32 mNextTag = 1;
    CPortFrameDecoder mDecoder{kPortReplyMagic};
    std::map<UInt32, SPending> mPending;
    std::vector<UInt8> mFrame; // the request being written; kept for its capacity
    std::function<void()> mOnBroken;
};
