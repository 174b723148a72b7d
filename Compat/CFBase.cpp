#include "Compat/CFRuntime.h"

#include <cstdio>
#include <cstdlib>

struct __CFAllocator
{
    int mKind;
};

namespace
{
const __CFAllocator gSystemDefault{1};
const __CFAllocator gMalloc{2};
const __CFAllocator gNull{3};
} // namespace

const CFAllocatorRef kCFAllocatorDefault = nullptr;
const CFAllocatorRef kCFAllocatorSystemDefault = &gSystemDefault;
const CFAllocatorRef kCFAllocatorMalloc = &gMalloc;
const CFAllocatorRef kCFAllocatorNull = &gNull;

namespace CFRuntime
{
void Fatal(const char* function, const char* message)
{
    std::fprintf(stderr, "%s: %s\n", function, message);
    std::fflush(stderr);
    std::abort();
}

const CFObject* Object(CFTypeRef cf, const char* function)
{
    if (cf == nullptr)
    {
        Fatal(function, "NULL argument");
    }
    return static_cast<const CFObject*>(cf);
}

bool AllocatorFreesBytes(CFAllocatorRef bytesDeallocator)
{
    return bytesDeallocator != kCFAllocatorNull;
}
} // namespace CFRuntime

using CFRuntime::CFObject;

CFTypeRef CFRetain(CFTypeRef cf)
{
    auto* object = const_cast<CFObject*>(CFRuntime::Object(cf, "CFRetain"));
    if (!object->mImmortal)
    {
        object->mRetainCount.fetch_add(1, std::memory_order_relaxed);
    }
    return cf;
}

void CFRelease(CFTypeRef cf)
{
    auto* object = const_cast<CFObject*>(CFRuntime::Object(cf, "CFRelease"));
    if (object->mImmortal)
    {
        return;
    }
    if (object->mRetainCount.fetch_sub(1, std::memory_order_acq_rel) == 1)
    {
        delete object;
    }
}

CFIndex CFGetRetainCount(CFTypeRef cf)
{
    return CFRuntime::Object(cf, "CFGetRetainCount")->mRetainCount.load();
}

CFTypeID CFGetTypeID(CFTypeRef cf)
{
    return CFRuntime::Object(cf, "CFGetTypeID")->mTypeID;
}

Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2)
{
    const CFObject* a = CFRuntime::Object(cf1, "CFEqual");
    const CFObject* b = CFRuntime::Object(cf2, "CFEqual");
    if (a == b)
    {
        return true;
    }
    return a->mTypeID == b->mTypeID && a->Equals(*b);
}

CFHashCode CFHash(CFTypeRef cf)
{
    return CFRuntime::Object(cf, "CFHash")->Hash();
}
