// Who asked for an event packet. The coordinator only carries the value (it travels in the
// packet and on the wire as a 32-bit number) and never interprets it, so any 32-bit value a
// client sends is kept as it is.
#pragma once

#include <cstdint>

enum ESourceOfRequest : std::uint32_t
{
    // What the coordinator itself puts into the packets it builds.
    ESourceOfRequestUnspecified = 0
};
