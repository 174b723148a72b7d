#include <CoreFoundation/CFData.h>

#include "Compat/CFRuntime.h"

#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <string_view>
#include <vector>

using CFRuntime::Fatal;

// Keeps its bytes in one of three places:
// - right behind the object, in the same allocation (mInline): immutable copies, and mutable
//   data of a fixed capacity up to kInlineCapacityLimit, allocated at that capacity. Every
//   message a port receives or answers is such a copy, so this saves an allocation and a free
//   per message;
// - in a vector (mBytes): mutable data without a fixed capacity, or with a very large one;
// - at bytes it was given without a copy (mExternal), freed at the end when asked to.
struct __CFData : CFRuntime::CFObject
{
    static constexpr CFIndex kInlineCapacityLimit = 64 * 1024;

    __CFData() : CFObject(CFRuntime::eTypeIDData) {}
    // An object with `capacity` octets of its own behind it.
    static __CFData* NewInline(CFIndex capacity)
    {
        void* block = ::operator new(sizeof(__CFData) + static_cast<size_t>(capacity));
        auto* data = new (block) __CFData;
        data->mInline = static_cast<UInt8*>(block) + sizeof(__CFData);
        return data;
    }
    // Unsized, so that an object allocated with its bytes behind it is freed as the block it
    // is (a sized delete would pass sizeof(__CFData)).
    static void operator delete(void* block) { ::operator delete(block); }
    ~__CFData() override
    {
        if (mExternal != nullptr && mFreeExternal)
        {
            std::free(const_cast<UInt8*>(mExternal));
        }
    }

    const UInt8* Bytes() const
    {
        if (mInline != nullptr)
        {
            return mInline;
        }
        if (mExternal != nullptr)
        {
            return mExternal;
        }
        // Never NULL, so that callers may pass it to memcpy with a length of 0.
        static const UInt8 empty = 0;
        return mBytes.empty() ? &empty : mBytes.data();
    }
    CFIndex Length() const
    {
        if (mInline != nullptr)
        {
            return mInlineLength;
        }
        return mExternal != nullptr ? mExternalLength : static_cast<CFIndex>(mBytes.size());
    }

    bool Equals(const CFObject& other) const override
    {
        const auto& data = static_cast<const __CFData&>(other);
        return Length() == data.Length() &&
               std::memcmp(Bytes(), data.Bytes(), static_cast<size_t>(Length())) == 0;
    }
    CFHashCode Hash() const override
    {
        return std::hash<std::string_view>()(std::string_view(
            reinterpret_cast<const char*>(Bytes()), static_cast<size_t>(Length())));
    }

    UInt8* mInline = nullptr;
    CFIndex mInlineLength = 0;
    std::vector<UInt8> mBytes;
    const UInt8* mExternal = nullptr;
    CFIndex mExternalLength = 0;
    bool mFreeExternal = false;
    bool mMutable = false;
    CFIndex mCapacity = 0; // 0: unbounded
};

namespace
{
const __CFData* Data(CFDataRef data, const char* function)
{
    CFRuntime::Object(data, function);
    if (data->mTypeID != CFRuntime::eTypeIDData)
    {
        Fatal(function, "not a CFData");
    }
    return data;
}

__CFData* MutableData(CFMutableDataRef data, const char* function)
{
    Data(data, function);
    if (!data->mMutable)
    {
        Fatal(function, "the data is immutable");
    }
    return data;
}

void CheckLength(__CFData* data, CFIndex length, const char* function)
{
    if (length < 0)
    {
        Fatal(function, "negative length");
    }
    if (data->mCapacity > 0 && length > data->mCapacity)
    {
        Fatal(function, "length beyond the capacity of the data");
    }
}

__CFData* NewCopy(const UInt8* bytes, CFIndex length, bool isMutable, CFIndex capacity)
{
    // A fixed capacity is allocated whole, used or not: only up to the limit.
    const CFIndex inlineCapacity = isMutable ? capacity : length;
    if (inlineCapacity > 0 && (!isMutable || capacity <= __CFData::kInlineCapacityLimit))
    {
        __CFData* data = __CFData::NewInline(inlineCapacity);
        if (length > 0)
        {
            std::memcpy(data->mInline, bytes, static_cast<size_t>(length));
        }
        data->mInlineLength = length;
        data->mMutable = isMutable;
        data->mCapacity = capacity;
        return data;
    }
    auto* data = new __CFData;
    if (length > 0)
    {
        data->mBytes.assign(bytes, bytes + length);
    }
    data->mMutable = isMutable;
    data->mCapacity = capacity;
    return data;
}
} // namespace

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex length)
{
    if (length < 0 || (length > 0 && bytes == nullptr))
    {
        return nullptr;
    }
    return NewCopy(bytes, length, false, 0);
}

CFDataRef CFDataCreateWithBytesNoCopy(CFAllocatorRef, const UInt8* bytes, CFIndex length,
                                      CFAllocatorRef bytesDeallocator)
{
    if (length < 0 || (length > 0 && bytes == nullptr))
    {
        return nullptr;
    }
    auto* data = new __CFData;
    if (bytes != nullptr)
    {
        data->mExternal = bytes;
        data->mExternalLength = length;
        data->mFreeExternal = CFRuntime::AllocatorFreesBytes(bytesDeallocator);
    }
    return data;
}

CFDataRef CFDataCreateCopy(CFAllocatorRef, CFDataRef theData)
{
    const __CFData* source = Data(theData, "CFDataCreateCopy");
    return NewCopy(source->Bytes(), source->Length(), false, 0);
}

CFMutableDataRef CFDataCreateMutable(CFAllocatorRef, CFIndex capacity)
{
    if (capacity < 0)
    {
        return nullptr;
    }
    return NewCopy(nullptr, 0, true, capacity);
}

CFIndex CFDataGetLength(CFDataRef theData)
{
    return Data(theData, "CFDataGetLength")->Length();
}

const UInt8* CFDataGetBytePtr(CFDataRef theData)
{
    return Data(theData, "CFDataGetBytePtr")->Bytes();
}

UInt8* CFDataGetMutableBytePtr(CFMutableDataRef theData)
{
    return const_cast<UInt8*>(MutableData(theData, "CFDataGetMutableBytePtr")->Bytes());
}

void CFDataSetLength(CFMutableDataRef theData, CFIndex length)
{
    __CFData* data = MutableData(theData, "CFDataSetLength");
    CheckLength(data, length, "CFDataSetLength");
    if (data->mInline != nullptr)
    {
        // Within the capacity (checked above); new octets are zero as in a vector.
        if (length > data->mInlineLength)
        {
            std::memset(data->mInline + data->mInlineLength, 0,
                        static_cast<size_t>(length - data->mInlineLength));
        }
        data->mInlineLength = length;
        return;
    }
    data->mBytes.resize(static_cast<size_t>(length), 0);
}

void CFDataAppendBytes(CFMutableDataRef theData, const UInt8* bytes, CFIndex length)
{
    __CFData* data = MutableData(theData, "CFDataAppendBytes");
    CheckLength(data, data->Length() + length, "CFDataAppendBytes");
    if (length <= 0)
    {
        return;
    }
    if (data->mInline != nullptr)
    {
        // memmove: `bytes` may point into the data itself.
        std::memmove(data->mInline + data->mInlineLength, bytes, static_cast<size_t>(length));
        data->mInlineLength += length;
        return;
    }
    data->mBytes.insert(data->mBytes.end(), bytes, bytes + length);
}
