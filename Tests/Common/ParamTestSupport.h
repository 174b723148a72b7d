// Helpers shared by the tests of object keys, event packets and their wire form.
#pragma once

#include "Tests/Support/CapturedOutput.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

namespace param_test
{
using test_support::Capture;
using test_support::Output;

// The texts of the assertion lines in `out`, each checked to name "Common/param".
inline std::vector<std::string> Assertions(const std::string& out)
{
    std::vector<std::string> texts;
    std::istringstream lines(out);
    std::string line;
    const std::string marker = ": failed assertion: ";
    while (std::getline(lines, line))
    {
        EXPECT_EQ(line.rfind("Common/param:", 0), 0u) << line;
        const auto at = line.find(marker);
        texts.push_back(at == std::string::npos ? line : line.substr(at + marker.size()));
    }
    return texts;
}

// Builds a block byte by byte in either byte order, independently of the code under test.
class BlockWriter
{
public:
    explicit BlockWriter(bool bigEndian) : mBigEndian(bigEndian) {}

    BlockWriter& U16(std::uint16_t value) { return Put(value, 2); }
    BlockWriter& U32(std::uint32_t value) { return Put(value, 4); }
    BlockWriter& Bytes(const std::string& bytes)
    {
        mBytes.insert(mBytes.end(), bytes.begin(), bytes.end());
        return *this;
    }
    BlockWriter& Zeros(std::size_t count)
    {
        mBytes.insert(mBytes.end(), count, 0);
        return *this;
    }
    // One key record: mode, identifier, reference.
    BlockWriter& Key(std::uint32_t mode, std::uint16_t identifier, std::uint32_t reference)
    {
        return U32(mode).U16(identifier).U32(reference);
    }
    BlockWriter& Fixup(std::uint32_t type, std::uint32_t index, std::uint32_t size,
                       std::uint32_t offset)
    {
        return U32(type).U32(index).U32(size).U32(offset);
    }
    std::vector<std::uint8_t>& Block() { return mBytes; }

private:
    BlockWriter& Put(std::uint64_t value, int size)
    {
        for (int i = 0; i < size; ++i)
        {
            const int shift = 8 * (mBigEndian ? size - 1 - i : i);
            mBytes.push_back(static_cast<std::uint8_t>(value >> shift));
        }
        return *this;
    }

    bool mBigEndian;
    std::vector<std::uint8_t> mBytes;
};

inline std::uint32_t ReadU32(const std::vector<std::uint8_t>& block, std::size_t offset)
{
    std::uint32_t value = 0;
    for (int i = 3; i >= 0; --i)
    {
        value = (value << 8) | block.at(offset + i);
    }
    return value;
}

inline std::uint16_t ReadU16(const std::vector<std::uint8_t>& block, std::size_t offset)
{
    return static_cast<std::uint16_t>(block.at(offset) | (block.at(offset + 1) << 8));
}
} // namespace param_test
