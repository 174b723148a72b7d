#include <CoreFoundation/CFArray.h>

#include "Compat/CFRuntime.h"

#include <vector>

using CFRuntime::Fatal;

namespace
{
const void* RetainValue(CFAllocatorRef, const void* value)
{
    return CFRetain(value);
}
void ReleaseValue(CFAllocatorRef, const void* value)
{
    CFRelease(value);
}
Boolean EqualValues(const void* value1, const void* value2)
{
    return CFEqual(value1, value2);
}
} // namespace

const CFArrayCallBacks kCFTypeArrayCallBacks = {0, RetainValue, ReleaseValue, nullptr, EqualValues};

struct __CFArray : CFRuntime::CFObject
{
    __CFArray() : CFObject(CFRuntime::eTypeIDArray) {}
    ~__CFArray() override
    {
        if (mCallBacks.release != nullptr)
        {
            for (const void* value : mValues)
            {
                mCallBacks.release(nullptr, value);
            }
        }
    }
    bool Equals(const CFObject& other) const override
    {
        const auto& array = static_cast<const __CFArray&>(other);
        if (mValues.size() != array.mValues.size())
        {
            return false;
        }
        for (size_t i = 0; i < mValues.size(); ++i)
        {
            const bool same = mCallBacks.equal != nullptr
                                  ? mCallBacks.equal(mValues[i], array.mValues[i])
                                  : mValues[i] == array.mValues[i];
            if (!same)
            {
                return false;
            }
        }
        return true;
    }
    CFHashCode Hash() const override { return mValues.size(); }

    std::vector<const void*> mValues;
    CFArrayCallBacks mCallBacks{};
};

CFArrayRef CFArrayCreate(CFAllocatorRef, const void** values, CFIndex numValues,
                         const CFArrayCallBacks* callBacks)
{
    if (numValues < 0 || (numValues > 0 && values == nullptr))
    {
        return nullptr;
    }
    auto* array = new __CFArray;
    if (callBacks != nullptr)
    {
        array->mCallBacks = *callBacks;
    }
    for (CFIndex i = 0; i < numValues; ++i)
    {
        const void* value = values[i];
        if (array->mCallBacks.retain != nullptr)
        {
            value = array->mCallBacks.retain(nullptr, value);
        }
        array->mValues.push_back(value);
    }
    return array;
}
