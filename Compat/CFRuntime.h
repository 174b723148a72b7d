// The object model behind every CF type here: a C++ object with an atomic reference count.
//
// Each public opaque type (struct __CFData, struct __CFString, ...) derives from CFObject,
// is defined in the .cpp of its type, and is deleted when its count falls to zero.
// Immortal objects (CFSTR constants, the boolean constants, the main bundle) ignore
// retain and release.
#pragma once

#include <CoreFoundation/CFBase.h>

#include <atomic>
#include <string>

namespace CFRuntime
{
// Type ids, stable for the life of the process.
enum ETypeID : CFTypeID
{
    eTypeIDString = 7,
    eTypeIDData = 20,
    eTypeIDNumber = 22,
    eTypeIDBoolean = 21,
    eTypeIDArray = 19,
    eTypeIDDictionary = 18,
    eTypeIDBundle = 31,
    eTypeIDRunLoop = 43,
    eTypeIDRunLoopSource = 46,
    eTypeIDRunLoopTimer = 47,
    eTypeIDMessagePort = 35,
    eTypeIDFileDescriptor = 51,
};

struct CFObject
{
    explicit CFObject(CFTypeID typeID) : mTypeID(typeID) {}
    CFObject(const CFObject&) = delete;
    CFObject& operator=(const CFObject&) = delete;
    virtual ~CFObject() = default;

    // CFEqual is only asked for objects of the same type.
    virtual bool Equals(const CFObject& other) const { return this == &other; }
    virtual CFHashCode Hash() const { return reinterpret_cast<CFHashCode>(this); }

    std::atomic<CFIndex> mRetainCount{1};
    const CFTypeID mTypeID;
    bool mImmortal = false;
};

// The object behind a reference; aborts with a message on NULL, as a crash on macOS would.
const CFObject* Object(CFTypeRef cf, const char* function);

// Aborts the process with "function: message"; for misuse that crashes on macOS.
[[noreturn]] void Fatal(const char* function, const char* message);

// The UTF-8 form of a string (unpaired surrogates become U+FFFD); "" for NULL.
std::string StringUTF8(CFStringRef string);
// The same without a copy: valid as long as the string is (strings never change).
const std::string& StringUTF8Ref(CFStringRef string);

// CFRetain with the reference's own type: `return Retained(source);`.
template <typename T> T Retained(T ref)
{
    CFRetain(ref);
    return ref;
}

// Bytes given to CFDataCreateWithBytesNoCopy are freed unless this says otherwise.
bool AllocatorFreesBytes(CFAllocatorRef bytesDeallocator);
} // namespace CFRuntime
