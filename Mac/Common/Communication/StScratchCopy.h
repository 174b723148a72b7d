// A writable copy of a received message, for the length of one decode.
//
// A serialized packet is decoded in place (a block of the other byte order is swapped where
// it lies), so the received bytes, which are not ours to write, are copied first. Nearly
// every message fits in kInlineSize octets and is copied into this object itself, on the
// stack of the decoding call, instead of into a new CFData (two allocations and two frees per
// message, on every request and every reply); a larger message is copied to the heap.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

class StScratchCopy
{
public:
    static constexpr std::size_t kInlineSize = 512;

    StScratchCopy(const std::uint8_t* pBytes_I, std::size_t size_I) : mSize(size_I)
    {
        if (size_I > kInlineSize)
        {
            mHeap = std::make_unique_for_overwrite<std::uint8_t[]>(size_I);
            mpBytes = mHeap.get();
        }
        if (size_I != 0)
        {
            std::memcpy(mpBytes, pBytes_I, size_I);
        }
    }
    StScratchCopy(const StScratchCopy&) = delete;
    StScratchCopy& operator=(const StScratchCopy&) = delete;

    // Aligned as a block from malloc is: the decoder reads the header's fields where they lie.
    std::uint8_t* Bytes() { return mpBytes; }
    std::size_t Size() const { return mSize; }

private:
    alignas(std::max_align_t) std::uint8_t mInline[kInlineSize];
    std::unique_ptr<std::uint8_t[]> mHeap;
    std::uint8_t* mpBytes = mInline;
    std::size_t mSize;
};
