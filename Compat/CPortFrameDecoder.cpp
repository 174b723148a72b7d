#include "Compat/CPortFrameDecoder.h"

#include <cstring>

namespace
{
void PutLE32(std::vector<UInt8>& out, UInt32 value)
{
    for (int shift = 0; shift < 32; shift += 8)
    {
        out.push_back(static_cast<UInt8>(value >> shift));
    }
}

UInt32 GetLE32(const UInt8* bytes)
{
    return static_cast<UInt32>(bytes[0]) | static_cast<UInt32>(bytes[1]) << 8 |
           static_cast<UInt32>(bytes[2]) << 16 | static_cast<UInt32>(bytes[3]) << 24;
}
} // namespace

std::vector<UInt8> EncodePortFrame(UInt32 magic, UInt32 tag, UInt32 word, const UInt8* payload,
                                   size_t length)
{
    std::vector<UInt8> frame;
    AppendPortFrame(frame, magic, tag, word, payload, length);
    return frame;
}

void AppendPortFrame(std::vector<UInt8>& out, UInt32 magic, UInt32 tag, UInt32 word,
                     const UInt8* payload, size_t length)
{
    if (out.empty())
    {
        out.reserve(kPortFrameHeaderSize + length);
    }
    PutLE32(out, magic);
    PutLE32(out, tag);
    PutLE32(out, word);
    PutLE32(out, static_cast<UInt32>(length));
    if (length > 0)
    {
        out.insert(out.end(), payload, payload + length);
    }
}

void CPortFrameDecoder::Append(const UInt8* bytes, size_t length)
{
    if (mMalformed || length == 0)
    {
        return;
    }
    if (mStart == mBuffer.size())
    {
        mBuffer.clear(); // all consumed: start again at the front, keeping the capacity
        mStart = 0;
    }
    // Drop consumed bytes before growing, so the buffer holds at most one frame in progress
    // plus what arrived with it.
    if (mStart > 0 && mStart >= mBuffer.size() / 2)
    {
        mBuffer.erase(mBuffer.begin(), mBuffer.begin() + static_cast<std::ptrdiff_t>(mStart));
        mStart = 0;
    }
    mBuffer.insert(mBuffer.end(), bytes, bytes + length);
}

CPortFrameDecoder::EResult CPortFrameDecoder::Peek(UInt32& tag, UInt32& word, UInt32& length) const
{
    if (mMalformed)
    {
        return EResult::eMalformed;
    }
    const size_t available = mBuffer.size() - mStart;
    if (available < kPortFrameHeaderSize)
    {
        // A wrong magic is known as soon as its bytes are here.
        const size_t known = available < 4 ? available : 4;
        UInt8 magic[4];
        for (size_t i = 0; i < 4; ++i)
        {
            magic[i] = static_cast<UInt8>(mMagic >> (8 * i));
        }
        if (known > 0 && std::memcmp(mBuffer.data() + mStart, magic, known) != 0)
        {
            return EResult::eMalformed;
        }
        return EResult::eNeedMore;
    }
    const UInt8* header = mBuffer.data() + mStart;
    tag = GetLE32(header + 4);
    word = GetLE32(header + 8);
    length = GetLE32(header + 12);
    if (GetLE32(header) != mMagic)
    {
        return EResult::eMalformed;
    }
    if (length > kPortMaxPayload)
    {
        return EResult::eTooLarge;
    }
    if (mMagic == kPortReplyMagic && !(word == kPortReplyWithData || word == kPortReplyRefused ||
                                       (word == kPortReplyNoData && length == 0)))
    {
        return EResult::eMalformed;
    }
    if (available - kPortFrameHeaderSize < length)
    {
        return EResult::eNeedMore;
    }
    return EResult::eFrame;
}

CPortFrameDecoder::EResult CPortFrameDecoder::Next(SPortFrameView& frame)
{
    UInt32 tag = 0;
    UInt32 word = 0;
    UInt32 length = 0;
    const EResult result = Peek(tag, word, length);
    if (result == EResult::eMalformed || result == EResult::eTooLarge)
    {
        mMalformed = true;
        mBuffer.clear();
        mStart = 0;
        frame.mTag = tag;
    }
    if (result != EResult::eFrame)
    {
        return result;
    }
    frame.mTag = tag;
    frame.mWord = word;
    frame.mPayload = mBuffer.data() + mStart + kPortFrameHeaderSize;
    frame.mLength = length;
    // The bytes stay where they are until the next call; only the start moves on.
    mStart += kPortFrameHeaderSize + length;
    return EResult::eFrame;
}

CPortFrameDecoder::EResult CPortFrameDecoder::Next(SPortFrame& frame)
{
    SPortFrameView view;
    const EResult result = Next(view);
    frame.mTag = view.mTag;
    if (result == EResult::eFrame)
    {
        frame.mWord = view.mWord;
        frame.mPayload.assign(view.mPayload, view.mPayload + view.mLength);
    }
    return result;
}

bool CPortFrameDecoder::HasFrame() const
{
    UInt32 tag = 0;
    UInt32 word = 0;
    UInt32 length = 0;
    return Peek(tag, word, length) != EResult::eNeedMore;
}
