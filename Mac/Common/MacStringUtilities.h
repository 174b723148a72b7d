// Strings between CoreFoundation and C++.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <string>

namespace MacStringUtilities
{
// The UTF-8 bytes of `cfString`; a NULL string is reported as a failed assertion and gives
// the empty string.
std::string GetStringForCFString(CFStringRef cfString);

// Writes the lower-case form of `source` (C library tolower, byte by byte) into `destination`,
// never more than `destinationSize` bytes including the terminating zero: a longer source is
// cut. Nothing is written when `destinationSize` is 0 or a pointer is NULL.
void ConvertToLowercase(const char* source, char* destination, size_t destinationSize);
} // namespace MacStringUtilities
