// One tablet as the route table knows it: which driver owns it, its index within that driver
// and the coordinator-wide system ID it was given.
//
// The four fields are 32 bits each and stand in this order in a record of the tablet block
// (CTabletBlock.h), so the order of the members is part of the wire form.
#pragma once

#include <cstdint>

struct STabletRec
{
    // System ID of "no tablet"; also what a lookup that finds nothing answers.
    static constexpr std::uint32_t kNoSystemID = 0xFFFFFFFF;

    std::int32_t mDriverID;    // key of the owning driver in the route table's drivers
    std::int32_t mTabletIndex; // the tablet's index within its driver: 0, 1, 2, ...
    std::uint32_t mSystemID;   // coordinator-wide ID, counted up from 0, never reused
    std::uint32_t mReserved;   // always written as 0

    bool operator==(const STabletRec&) const = default;
};

static_assert(sizeof(STabletRec) == 16, "a tablet record is 16 bytes on the wire");
