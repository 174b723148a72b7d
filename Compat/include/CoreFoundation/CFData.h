// Byte buffers, immutable and mutable.
#pragma once

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFData* CFDataRef;
typedef struct __CFData* CFMutableDataRef;

CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
// Wraps `bytes` without copying. The bytes are freed with `bytesDeallocator` when the data
// goes away (kCFAllocatorNull: never; NULL or any other allocator: free()).
CFDataRef CFDataCreateWithBytesNoCopy(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length,
                                      CFAllocatorRef bytesDeallocator);
CFDataRef CFDataCreateCopy(CFAllocatorRef allocator, CFDataRef theData);
// `capacity` 0 means unbounded; otherwise the data may never grow beyond it.
CFMutableDataRef CFDataCreateMutable(CFAllocatorRef allocator, CFIndex capacity);

CFIndex CFDataGetLength(CFDataRef theData);
const UInt8* CFDataGetBytePtr(CFDataRef theData);
UInt8* CFDataGetMutableBytePtr(CFMutableDataRef theData);

// Growing fills the new bytes with zeros.
void CFDataSetLength(CFMutableDataRef theData, CFIndex length);
void CFDataAppendBytes(CFMutableDataRef theData, const UInt8* bytes, CFIndex length);

CF_EXTERN_C_END
