// The bytes of a message port connection, and their decoder.
//
// A connection carries frames: a 16-byte header and a payload. Integers are little-endian.
//
//   offset  size  request (client to server)         reply (server to client)
//   0       4     magic 'KPRQ' (0x4B505251)           magic 'KPRP' (0x4B505250)
//   4       4     tag: 0 one-way (no reply), else     the tag of the request answered;
//                 the sender's number for it          0 for a refusal before any request
//   8       4     message id (SInt32)                 status: 0 data follows; 1 no data
//                                                     (the call-back gave NULL; length 0);
//                                                     2 refused, the payload says why
//   12      4     payload length n, at most           likewise
//                 kPortMaxPayload
//   16      n     the request's bytes                 the reply's bytes
//
// A refusal ("too many connections", "frame too large") is the server's last frame on the
// connection: it closes it after.
//
// The peer is untrusted: the decoder keeps only the bytes received, never allocates by a
// length it was told, and calls anything else malformed, after which the connection is
// dropped.
#pragma once

#include <MacTypes.h>

#include <cstddef>
#include <vector>

constexpr UInt32 kPortRequestMagic = 0x4B505251; // 'KPRQ'
constexpr UInt32 kPortReplyMagic = 0x4B505250;   // 'KPRP'
constexpr size_t kPortFrameHeaderSize = 16;
constexpr UInt32 kPortMaxPayload = 16u << 20;
constexpr UInt32 kPortReplyWithData = 0;
constexpr UInt32 kPortReplyNoData = 1;
constexpr UInt32 kPortReplyRefused = 2;

struct SPortFrame
{
    UInt32 mTag = 0;
    UInt32 mWord = 0; // the message id of a request, the status of a reply
    std::vector<UInt8> mPayload;
};

// Header and payload, ready to write.
std::vector<UInt8> EncodePortFrame(UInt32 magic, UInt32 tag, UInt32 word, const UInt8* payload,
                                   size_t length);
// The same, appended to `out` (which keeps its earlier bytes and its capacity).
void AppendPortFrame(std::vector<UInt8>& out, UInt32 magic, UInt32 tag, UInt32 word,
                     const UInt8* payload, size_t length);

// A frame as it lies in the decoder: the payload is the decoder's own bytes, valid until the
// next call of Append or Next.
struct SPortFrameView
{
    UInt32 mTag = 0;
    UInt32 mWord = 0;
    const UInt8* mPayload = nullptr;
    size_t mLength = 0;
};

class CPortFrameDecoder
{
public:
    enum class EResult
    {
        eFrame,
        eNeedMore,
        eMalformed,
        eTooLarge // a well-formed header announcing more than kPortMaxPayload; the frame's
                  // tag is given, and the bytes are malformed from then on
    };

    // Decodes requests (kPortRequestMagic) or replies (kPortReplyMagic).
    explicit CPortFrameDecoder(UInt32 magic) : mMagic(magic) {}

    void Append(const UInt8* bytes, size_t length);
    // Takes the next whole frame out of the bytes received. Once malformed, always malformed.
    EResult Next(SPortFrame& frame);
    // The same without copying the payload out.
    EResult Next(SPortFrameView& frame);
    // A whole frame is waiting (or the bytes are malformed): Next() would not say eNeedMore.
    bool HasFrame() const;
    // Bytes of a frame not yet whole are waiting.
    bool HasPartialFrame() const { return mBuffer.size() > mStart && !HasFrame(); }

private:
    EResult Peek(UInt32& tag, UInt32& word, UInt32& length) const;

    UInt32 mMagic;
    std::vector<UInt8> mBuffer;
    size_t mStart = 0; // bytes before this were consumed
    bool mMalformed = false;
};
