// A session with the system's dynamic store, for the console user.
//
// There are no notifications on this platform: the callout is kept but never called.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

CF_EXTERN_C_BEGIN

typedef const struct __SCDynamicStore* SCDynamicStoreRef;

typedef struct
{
    CFIndex version;
    void* info;
    const void* (*retain)(const void* info);
    void (*release)(const void* info);
    CFStringRef (*copyDescription)(const void* info);
} SCDynamicStoreContext;

typedef void (*SCDynamicStoreCallBack)(SCDynamicStoreRef store, CFArrayRef changedKeys, void* info);

// A new session (owned by the caller) labelled `name`, which may be NULL.
SCDynamicStoreRef SCDynamicStoreCreate(CFAllocatorRef allocator, CFStringRef name,
                                       SCDynamicStoreCallBack callout,
                                       SCDynamicStoreContext* context);

CF_EXTERN_C_END
