#include "Mac/Common/Communication/StScratchCopy.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace
{
std::vector<std::uint8_t> Pattern(std::size_t size)
{
    std::vector<std::uint8_t> bytes(size);
    for (std::size_t i = 0; i < size; ++i)
    {
        bytes[i] = static_cast<std::uint8_t>(i * 31 + 7);
    }
    return bytes;
}
} // namespace

// Either side of the inline room: the copy holds the bytes, in a block of its own that the
// decoder may write without touching the message, aligned for the packet header.
TEST(StScratchCopyTests, CopiesEverySizeIntoWritableAlignedRoomOfItsOwn)
{
    for (std::size_t size : {std::size_t(1), std::size_t(189), StScratchCopy::kInlineSize,
                             StScratchCopy::kInlineSize + 1, std::size_t(70000)})
    {
        const std::vector<std::uint8_t> message = Pattern(size);
        StScratchCopy scratch(message.data(), message.size());
        ASSERT_EQ(scratch.Size(), size);
        EXPECT_EQ(std::vector<std::uint8_t>(scratch.Bytes(), scratch.Bytes() + size), message)
            << size;
        EXPECT_NE(scratch.Bytes(), message.data());
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(scratch.Bytes()) % alignof(std::max_align_t),
                  0u);
        scratch.Bytes()[size - 1] ^= 0xFF;
        EXPECT_EQ(message, Pattern(size)) << "the message was written";
    }
}

// An empty message still gives a pointer (the decoder then reports a short block rather
// than taking it for no block at all).
TEST(StScratchCopyTests, AnEmptyMessageGivesAPointerAndNoBytes)
{
    StScratchCopy scratch(nullptr, 0);
    EXPECT_NE(scratch.Bytes(), nullptr);
    EXPECT_EQ(scratch.Size(), 0u);
}
