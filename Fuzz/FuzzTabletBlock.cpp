// Fuzz target for the tablet block that the route table reads back from a driver: whatever
// the bytes, parsing stays within them, and a block that parses is rebuilt to the same
// header and records (the reserved fields are written as 0).
#include "Common/Coordinator/CTabletBlock.h"
#include "Fuzz/FuzzCheck.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::vector<unsigned char> block(data, data + size);
    std::vector<STabletRec> records;
    if (CTabletBlock::Parse(block, records) != KELSTATUS_SUCCESS)
    {
        Check(records.empty());
        return 0;
    }
    const std::vector<unsigned char> rebuilt = CTabletBlock::Build(records);
    Check(rebuilt.size() <= block.size());
    for (size_t offset = 0; offset < rebuilt.size(); offset += 4)
    {
        const bool reserved = offset >= 16 && offset % 16 == 12;
        uint32_t expected = 0;
        if (!reserved)
        {
            std::memcpy(&expected, block.data() + offset, 4);
        }
        uint32_t actual;
        std::memcpy(&actual, rebuilt.data() + offset, 4);
        Check(actual == expected);
    }
    return 0;
}
