#include <CoreFoundation/CFDictionary.h>

#include "Compat/CFRuntime.h"

#include <utility>
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
CFHashCode HashValue(const void* value)
{
    return CFHash(value);
}
} // namespace

const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {0,       RetainValue, ReleaseValue,
                                                                nullptr, EqualValues, HashValue};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {0, RetainValue, ReleaseValue,
                                                                    nullptr, EqualValues};

// Entries in creation order, looked up by a linear walk: the dictionaries here are a
// bundle's information dictionary, a few dozen entries at most. A key given twice keeps
// its last value.
struct __CFDictionary : CFRuntime::CFObject
{
    __CFDictionary() : CFObject(CFRuntime::eTypeIDDictionary) {}
    ~__CFDictionary() override
    {
        for (const auto& [key, value] : mEntries)
        {
            if (mKeyCallBacks.release != nullptr)
            {
                mKeyCallBacks.release(nullptr, key);
            }
            if (mValueCallBacks.release != nullptr)
            {
                mValueCallBacks.release(nullptr, value);
            }
        }
    }

    const std::pair<const void*, const void*>* Find(const void* key) const
    {
        for (const auto& entry : mEntries)
        {
            const bool same = mKeyCallBacks.equal != nullptr ? mKeyCallBacks.equal(entry.first, key)
                                                             : entry.first == key;
            if (same)
            {
                return &entry;
            }
        }
        return nullptr;
    }

    bool Equals(const CFObject& other) const override
    {
        const auto& dictionary = static_cast<const __CFDictionary&>(other);
        if (mEntries.size() != dictionary.mEntries.size())
        {
            return false;
        }
        for (const auto& [key, value] : mEntries)
        {
            const auto* entry = dictionary.Find(key);
            if (entry == nullptr)
            {
                return false;
            }
            const bool same = mValueCallBacks.equal != nullptr
                                  ? mValueCallBacks.equal(value, entry->second)
                                  : value == entry->second;
            if (!same)
            {
                return false;
            }
        }
        return true;
    }
    CFHashCode Hash() const override { return mEntries.size(); }

    std::vector<std::pair<const void*, const void*>> mEntries;
    CFDictionaryKeyCallBacks mKeyCallBacks{};
    CFDictionaryValueCallBacks mValueCallBacks{};
};

namespace
{
const __CFDictionary* Dictionary(CFDictionaryRef dictionary, const char* function)
{
    CFRuntime::Object(dictionary, function);
    if (dictionary->mTypeID != CFRuntime::eTypeIDDictionary)
    {
        Fatal(function, "not a CFDictionary");
    }
    return dictionary;
}
} // namespace

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef, const void** keys, const void** values,
                                   CFIndex numValues, const CFDictionaryKeyCallBacks* keyCallBacks,
                                   const CFDictionaryValueCallBacks* valueCallBacks)
{
    if (numValues < 0 || (numValues > 0 && (keys == nullptr || values == nullptr)))
    {
        return nullptr;
    }
    auto* dictionary = new __CFDictionary;
    if (keyCallBacks != nullptr)
    {
        dictionary->mKeyCallBacks = *keyCallBacks;
    }
    if (valueCallBacks != nullptr)
    {
        dictionary->mValueCallBacks = *valueCallBacks;
    }
    const auto& retainKey = dictionary->mKeyCallBacks.retain;
    const auto& retainValue = dictionary->mValueCallBacks.retain;
    const auto& releaseValue = dictionary->mValueCallBacks.release;
    for (CFIndex i = 0; i < numValues; ++i)
    {
        const void* value = retainValue != nullptr ? retainValue(nullptr, values[i]) : values[i];
        auto* existing =
            const_cast<std::pair<const void*, const void*>*>(dictionary->Find(keys[i]));
        if (existing != nullptr)
        {
            if (releaseValue != nullptr)
            {
                releaseValue(nullptr, existing->second);
            }
            existing->second = value;
            continue;
        }
        const void* key = retainKey != nullptr ? retainKey(nullptr, keys[i]) : keys[i];
        dictionary->mEntries.emplace_back(key, value);
    }
    return dictionary;
}

const void* CFDictionaryGetValue(CFDictionaryRef theDict, const void* key)
{
    const auto* entry = Dictionary(theDict, "CFDictionaryGetValue")->Find(key);
    return entry != nullptr ? entry->second : nullptr;
}

Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef theDict, const void* key, const void** value)
{
    const auto* entry = Dictionary(theDict, "CFDictionaryGetValueIfPresent")->Find(key);
    if (entry != nullptr && value != nullptr)
    {
        *value = entry->second;
    }
    return entry != nullptr;
}
