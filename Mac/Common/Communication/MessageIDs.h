// The message ids of every port of the system (the msgid of a port request). A
// four-character id is the 32-bit value of its four characters read as a big-endian number.
//
//   id      value       direction                      payload             reply
//   0       0x00000000  coordinator to driver, and     one transit record  a transit record
//                       any sender to the coordinator  (TransitRecord.h)   return
//   'KEPK'  0x4B45504B  both ways                      one serialized      the same packet,
//                                                      event packet        serialized again
//                                                                          after processing
//   'ENDI'  0x454E4449  coordinator to driver          none                at least one byte:
//                                                                          the driver's byte
//                                                                          order
//   'AEVT'  0x41455654  coordinator to driver          one flattened       one flattened
//                                                      Apple Event         Apple Event (the
//                                                                          reply), or nothing
#pragma once

#include <cstdint>

constexpr std::int32_t kMessageIDTransitRecord = 0;
constexpr std::int32_t kMessageIDEventPacket = 'KEPK';
constexpr std::int32_t kMessageIDEndianness = 'ENDI';
constexpr std::int32_t kMessageIDAppleEvent = 'AEVT';

static_assert(kMessageIDEventPacket == 0x4B45504B);
static_assert(kMessageIDEndianness == 0x454E4449);
static_assert(kMessageIDAppleEvent == 0x41455654);
