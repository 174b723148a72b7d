// The tablet block: the route table's whole tablet list as one byte buffer, sent to every
// driver as the data of a packet after each synchronisation and read back from them when a
// coordinator starts again, so that tablets keep their system IDs across restarts.
//
// All fields are unsigned 32-bit in host byte order (drivers run on the same machine):
//
//   | Offset    | Field        | Value                                                  |
//   |-----------|--------------|--------------------------------------------------------|
//   | 0         | header size  | 16                                                     |
//   | 4         | record size  | 16                                                     |
//   | 8         | version      | 0x00010001                                             |
//   | 12        | record count | n                                                      |
//   | 16 + 16·k | record k     | STabletRec: driver ID, tablet index, system ID, reserved |
//
// A block is exactly 16 + 16·n bytes.
//
// A block read back comes from another process: Parse never reads outside the bytes it was
// given, whatever the header says.
#pragma once

#include "Common/Coordinator/STabletRec.h"
#include "Common/KelStatus.h"

#include <cstddef>
#include <cstdint>
#include <vector>

class CTabletBlock
{
public:
    static constexpr std::uint32_t kHeaderSize = 16;
    static constexpr std::uint32_t kRecordSize = 16;
    static constexpr std::uint32_t kVersion = 0x00010001;

    // The block of the records, in their order.
    static std::vector<unsigned char> Build(const std::vector<STabletRec>& records_I);

    // The records of a block, in their order. KELSTATUS_INTERNAL_UNEXPECTED, with nothing
    // in `records_O`, when the header is not 16, 16, 0x00010001, when the record count is 0,
    // or when the block is too short for its header or for the records it announces. Bytes
    // after the announced records are ignored.
    static KELSTATUS Parse(const std::vector<unsigned char>& block_I,
                           std::vector<STabletRec>& records_O);
};
