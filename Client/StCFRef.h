// StCFRef: owns one reference to a CoreFoundation object and releases it at the end of the
// scope. Made from the result of a Create or Copy function (which hands over one reference);
// a null result is allowed and owns nothing.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

template <typename T> class StCFRef
{
public:
    explicit StCFRef(T object_I = nullptr) : mObject(object_I) {}
    ~StCFRef()
    {
        if (mObject != nullptr)
        {
            CFRelease(mObject);
        }
    }
    StCFRef(const StCFRef&) = delete;
    StCFRef& operator=(const StCFRef&) = delete;

    T Get() const { return mObject; }
    explicit operator bool() const { return mObject != nullptr; }
    // Gives the reference up to the caller.
    T Release() { return std::exchange(mObject, nullptr); }

private:
    T mObject;
};
