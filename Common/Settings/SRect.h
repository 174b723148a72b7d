// A rectangle as the settings tree stores it (CSettingsObject::FromComplexType<SRect>).
//
// `epsilon` is the offset between the size and the far edge: the far edges are
// x + width - epsilon and y + height - epsilon, so with epsilon 1 "Right" and "Bottom" name
// the last unit inside the rectangle and with 0 the first unit outside it.
#pragma once

#include <cstdint>

struct SRect
{
    int32_t x = 0;
    int32_t y = 0;
    int32_t width = 0;
    int32_t height = 0;
    int32_t epsilon = 0;

    bool operator==(const SRect&) const = default;
};
