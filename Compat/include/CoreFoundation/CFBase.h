// Reference-counted objects: the type every CoreFoundation object shares, and its rules.
//
// Ownership follows the real rules: a function with Create or Copy in its name returns an
// object the caller owns (one reference, given back with CFRelease); a Get function returns
// an object the caller does not own. CFRetain and CFRelease on NULL abort the process, as
// they crash on macOS. Strings made by CFSTR live for the whole process; retaining and
// releasing them is allowed and does nothing.
#pragma once

#include <MacTypes.h>

#ifdef __cplusplus
#define CF_EXTERN_C_BEGIN                                                                          \
    extern "C"                                                                                     \
    {
#define CF_EXTERN_C_END }
#else
#define CF_EXTERN_C_BEGIN
#define CF_EXTERN_C_END
#endif

CF_EXTERN_C_BEGIN

typedef long CFIndex;
typedef unsigned long CFOptionFlags;
typedef unsigned long CFHashCode;
typedef unsigned long CFTypeID;
typedef double CFTimeInterval;
typedef CFTimeInterval CFAbsoluteTime;

typedef const void* CFTypeRef;
typedef const struct __CFString* CFStringRef;
typedef struct __CFString* CFMutableStringRef;
typedef const struct __CFAllocator* CFAllocatorRef;

typedef struct
{
    CFIndex location;
    CFIndex length;
} CFRange;

static inline CFRange CFRangeMake(CFIndex location, CFIndex length)
{
    CFRange range = {location, length};
    return range;
}

enum
{
    kCFNotFound = -1
};

// NULL means the default allocator. Allocators are accepted everywhere and used only to
// free the bytes given to CFDataCreateWithBytesNoCopy: kCFAllocatorNull frees nothing,
// the others free with free().
extern const CFAllocatorRef kCFAllocatorDefault;
extern const CFAllocatorRef kCFAllocatorSystemDefault;
extern const CFAllocatorRef kCFAllocatorMalloc;
extern const CFAllocatorRef kCFAllocatorNull;

CFTypeRef CFRetain(CFTypeRef cf);
void CFRelease(CFTypeRef cf);
CFIndex CFGetRetainCount(CFTypeRef cf);
CFTypeID CFGetTypeID(CFTypeRef cf);
Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2);
CFHashCode CFHash(CFTypeRef cf);

CF_EXTERN_C_END
