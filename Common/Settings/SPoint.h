// A point as the settings tree stores it (CSettingsObject::FromComplexType<SPoint>).
#pragma once

#include <cstdint>

struct SPoint
{
    int32_t x = 0;
    int32_t y = 0;

    bool operator==(const SPoint&) const = default;
};
