// A file descriptor watched by a run loop. Call-backs are one-shot, as on macOS: after a
// call-back of a type has run, that type stays disabled until CFFileDescriptorEnableCallBacks
// enables it again.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFRunLoop.h>

CF_EXTERN_C_BEGIN

typedef int CFFileDescriptorNativeDescriptor;
typedef struct __CFFileDescriptor* CFFileDescriptorRef;

enum
{
    kCFFileDescriptorReadCallBack = 1UL << 0,
    kCFFileDescriptorWriteCallBack = 1UL << 1
};

typedef void (*CFFileDescriptorCallBack)(CFFileDescriptorRef f, CFOptionFlags callBackTypes,
                                         void* info);

typedef struct
{
    CFIndex version;
    void* info;
    void* (*retain)(void* info);
    void (*release)(void* info);
    CFStringRef (*copyDescription)(void* info);
} CFFileDescriptorContext;

CFFileDescriptorRef CFFileDescriptorCreate(CFAllocatorRef allocator,
                                           CFFileDescriptorNativeDescriptor fd,
                                           Boolean closeOnInvalidate,
                                           CFFileDescriptorCallBack callout,
                                           const CFFileDescriptorContext* context);
CFFileDescriptorNativeDescriptor CFFileDescriptorGetNativeDescriptor(CFFileDescriptorRef f);
void CFFileDescriptorEnableCallBacks(CFFileDescriptorRef f, CFOptionFlags callBackTypes);
void CFFileDescriptorInvalidate(CFFileDescriptorRef f);
CFRunLoopSourceRef CFFileDescriptorCreateRunLoopSource(CFAllocatorRef allocator,
                                                       CFFileDescriptorRef f, CFIndex order);

CF_EXTERN_C_END
