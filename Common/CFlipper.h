// Byte-order converters for data exchanged with a process of the other byte order.
//
// The messaging layer probes each driver's byte order once and then holds either a
// CFlipper (the driver's order differs: every value is byte-reversed) or a CNotFlipper
// (same order: every value passes unchanged), and calls the same FlipPrivate overloads
// either way. The order of the virtual operations is part of the class: keep it.
#pragma once

class CFlipper
{
public:
    virtual ~CFlipper();

    // Each returns its argument with the order of its bytes reversed. Floating-point
    // values are reversed as their bit pattern, so a swapped value need not be a number.
    virtual unsigned short FlipPrivate(unsigned short value) const;
    virtual unsigned int FlipPrivate(unsigned int value) const;
    virtual unsigned long long FlipPrivate(unsigned long long value) const;
    virtual float FlipPrivate(float value) const;
    virtual double FlipPrivate(double value) const;
};
