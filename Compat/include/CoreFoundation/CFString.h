// Unicode strings. A string holds UTF-16 code units, as on macOS: CFStringGetLength counts
// them, not bytes or code points.
#pragma once

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef UInt32 CFStringEncoding;

// The encodings understood here. Others make creation return NULL and conversion fail.
enum
{
    kCFStringEncodingASCII = 0x0600,
    kCFStringEncodingUTF8 = 0x08000100,
    kCFStringEncodingISOLatin1 = 0x0201,
    kCFStringEncodingUTF16 = 0x0100,
    kCFStringEncodingUnicode = 0x0100
};

CFTypeID CFStringGetTypeID(void);

// A string constant that lives for the whole process; equal literals give the same object.
#define CFSTR(cStr) __CFStringMakeConstantString("" cStr "")
CFStringRef __CFStringMakeConstantString(const char* cStr);

CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char* cStr,
                                      CFStringEncoding encoding);
CFStringRef CFStringCreateCopy(CFAllocatorRef alloc, CFStringRef theString);

CFIndex CFStringGetLength(CFStringRef theString);
// The most bytes `length` UTF-16 units can take in `encoding`, without the terminating
// zero; kCFNotFound for an unknown encoding.
CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);
// Writes the string and a terminating zero; false (and nothing usable) when it does not fit
// in `bufferSize` bytes or cannot be represented in `encoding`.
Boolean CFStringGetCString(CFStringRef theString, char* buffer, CFIndex bufferSize,
                           CFStringEncoding encoding);
// As on macOS this may return NULL at any time; callers fall back to CFStringGetCString.
const char* CFStringGetCStringPtr(CFStringRef theString, CFStringEncoding encoding);

CF_EXTERN_C_END
