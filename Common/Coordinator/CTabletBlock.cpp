#include "Common/Coordinator/CTabletBlock.h"

#include <cstring>

namespace
{
// Field offsets of the header (see the table in CTabletBlock.h).
constexpr std::size_t kHeaderSizeOffset = 0;
constexpr std::size_t kRecordSizeOffset = 4;
constexpr std::size_t kVersionOffset = 8;
constexpr std::size_t kRecordCountOffset = 12;

void Put32(std::vector<unsigned char>& block_IO, std::size_t offset_I, std::uint32_t value_I)
{
    std::memcpy(block_IO.data() + offset_I, &value_I, sizeof(value_I));
}

std::uint32_t Get32(const std::vector<unsigned char>& block_I, std::size_t offset_I)
{
    std::uint32_t value;
    std::memcpy(&value, block_I.data() + offset_I, sizeof(value));
    return value;
}
} // namespace

std::vector<unsigned char> CTabletBlock::Build(const std::vector<STabletRec>& records_I)
{
    std::vector<unsigned char> block(kHeaderSize + kRecordSize * records_I.size(), 0);
    Put32(block, kHeaderSizeOffset, kHeaderSize);
    Put32(block, kRecordSizeOffset, kRecordSize);
    Put32(block, kVersionOffset, kVersion);
    Put32(block, kRecordCountOffset, static_cast<std::uint32_t>(records_I.size()));
    std::size_t offset = kHeaderSize;
    for (const STabletRec& record : records_I)
    {
        Put32(block, offset, static_cast<std::uint32_t>(record.mDriverID));
        Put32(block, offset + 4, static_cast<std::uint32_t>(record.mTabletIndex));
        Put32(block, offset + 8, record.mSystemID);
        // The reserved field stays 0 whatever the record holds.
        offset += kRecordSize;
    }
    return block;
}

KELSTATUS CTabletBlock::Parse(const std::vector<unsigned char>& block_I,
                              std::vector<STabletRec>& records_O)
{
    records_O.clear();
    if (block_I.size() < kHeaderSize)
    {
        return KELSTATUS_INTERNAL_UNEXPECTED;
    }
    const std::uint32_t count = Get32(block_I, kRecordCountOffset);
    if (Get32(block_I, kHeaderSizeOffset) != kHeaderSize ||
        Get32(block_I, kRecordSizeOffset) != kRecordSize ||
        Get32(block_I, kVersionOffset) != kVersion || count == 0)
    {
        return KELSTATUS_INTERNAL_UNEXPECTED;
    }
    // A count the bytes cannot hold is refused whole: a truncated list would hand out
    // system IDs that the missing records may already own.
    if ((block_I.size() - kHeaderSize) / kRecordSize < count)
    {
        return KELSTATUS_INTERNAL_UNEXPECTED;
    }
    records_O.reserve(count);
    for (std::size_t offset = kHeaderSize; records_O.size() < count; offset += kRecordSize)
    {
        STabletRec record;
        record.mDriverID = static_cast<std::int32_t>(Get32(block_I, offset));
        record.mTabletIndex = static_cast<std::int32_t>(Get32(block_I, offset + 4));
        record.mSystemID = Get32(block_I, offset + 8);
        record.mReserved = Get32(block_I, offset + 12);
        records_O.push_back(record);
    }
    return KELSTATUS_SUCCESS;
}
