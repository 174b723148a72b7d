// The basic scalar types of the macOS headers, for the code written against them.
#pragma once

#include <stddef.h>
#include <stdint.h>

typedef uint8_t UInt8;
typedef int8_t SInt8;
typedef uint16_t UInt16;
typedef int16_t SInt16;
typedef uint32_t UInt32;
typedef int32_t SInt32;
typedef uint64_t UInt64;
typedef int64_t SInt64;
typedef float Float32;
typedef double Float64;

typedef unsigned char Boolean;
typedef UInt16 UniChar;
typedef UInt32 FourCharCode;
typedef FourCharCode OSType;
typedef FourCharCode ResType;
typedef SInt16 OSErr;
typedef SInt32 OSStatus;
typedef char* Ptr;
typedef Ptr* Handle;
typedef long Size;

enum
{
    noErr = 0
};

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif
