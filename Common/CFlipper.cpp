#include "Common/CFlipper.h"

#include <bit>
#include <cstdint>

static_assert(sizeof(unsigned short) == 2 && sizeof(unsigned int) == 4 &&
                  sizeof(unsigned long long) == 8 && sizeof(float) == 4 && sizeof(double) == 8,
              "the wire sizes of the flipped types");

CFlipper::~CFlipper() = default;

unsigned short CFlipper::FlipPrivate(unsigned short value) const
{
    return __builtin_bswap16(value);
}

unsigned int CFlipper::FlipPrivate(unsigned int value) const
{
    return __builtin_bswap32(value);
}

unsigned long long CFlipper::FlipPrivate(unsigned long long value) const
{
    return __builtin_bswap64(value);
}

float CFlipper::FlipPrivate(float value) const
{
    return std::bit_cast<float>(__builtin_bswap32(std::bit_cast<std::uint32_t>(value)));
}

double CFlipper::FlipPrivate(double value) const
{
    return std::bit_cast<double>(__builtin_bswap64(std::bit_cast<std::uint64_t>(value)));
}
