// The byte-order converter for a peer of the same byte order: every value passes unchanged.
#pragma once

#include "Common/CFlipper.h"

class CNotFlipper : public CFlipper
{
public:
    unsigned short FlipPrivate(unsigned short value) const override { return value; }
    unsigned int FlipPrivate(unsigned int value) const override { return value; }
    unsigned long long FlipPrivate(unsigned long long value) const override { return value; }
    float FlipPrivate(float value) const override { return value; }
    double FlipPrivate(double value) const override { return value; }
};
