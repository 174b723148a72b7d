#include <CoreFoundation/CFNumber.h>

#include "Compat/CFRuntime.h"

#include <cmath>
#include <cstring>
#include <limits>

using CFRuntime::Fatal;

// Integers are kept as 64-bit signed values, floating-point numbers as doubles.
struct __CFNumber : CFRuntime::CFObject
{
    __CFNumber() : CFObject(CFRuntime::eTypeIDNumber) {}
    bool Equals(const CFObject& other) const override
    {
        const auto& number = static_cast<const __CFNumber&>(other);
        if (mIsFloat || number.mIsFloat)
        {
            return AsDouble() == number.AsDouble();
        }
        return mInteger == number.mInteger;
    }
    CFHashCode Hash() const override
    {
        const double value = AsDouble();
        if (value == std::floor(value) && std::fabs(value) < 9.0e18)
        {
            return static_cast<CFHashCode>(static_cast<SInt64>(value));
        }
        return std::hash<double>()(value);
    }
    double AsDouble() const { return mIsFloat ? mDouble : static_cast<double>(mInteger); }

    bool mIsFloat = false;
    SInt64 mInteger = 0;
    double mDouble = 0;
};

struct __CFBoolean : CFRuntime::CFObject
{
    explicit __CFBoolean(bool value) : CFObject(CFRuntime::eTypeIDBoolean), mValue(value)
    {
        mImmortal = true;
    }
    const bool mValue;
};

namespace
{
const __CFNumber* Number(CFNumberRef number, const char* function)
{
    CFRuntime::Object(number, function);
    if (number->mTypeID != CFRuntime::eTypeIDNumber)
    {
        Fatal(function, "not a CFNumber");
    }
    return number;
}

// Size in bytes and kind of each number type, for this platform (LP64).
struct STypeInfo
{
    size_t size;
    bool isFloat;
};

bool TypeInfo(CFNumberType type, STypeInfo& info)
{
    switch (type)
    {
    case kCFNumberSInt8Type:
    case kCFNumberCharType:
        info = {1, false};
        return true;
    case kCFNumberSInt16Type:
    case kCFNumberShortType:
        info = {2, false};
        return true;
    case kCFNumberSInt32Type:
    case kCFNumberIntType:
        info = {4, false};
        return true;
    case kCFNumberSInt64Type:
    case kCFNumberLongType:
    case kCFNumberLongLongType:
    case kCFNumberCFIndexType:
        info = {8, false};
        return true;
    case kCFNumberFloat32Type:
    case kCFNumberFloatType:
        info = {4, true};
        return true;
    case kCFNumberFloat64Type:
    case kCFNumberDoubleType:
        info = {8, true};
        return true;
    }
    return false;
}

template <typename T> T Load(const void* valuePtr)
{
    T value;
    std::memcpy(&value, valuePtr, sizeof value);
    return value;
}

template <typename T> void Store(void* valuePtr, T value)
{
    std::memcpy(valuePtr, &value, sizeof value);
}

template <typename T> bool StoreInteger(void* valuePtr, SInt64 value)
{
    Store<T>(valuePtr, static_cast<T>(value));
    return value >= std::numeric_limits<T>::min() && value <= std::numeric_limits<T>::max();
}

// Converts a double to an integer type: truncates toward zero, saturates at the type's
// limits, and reports whether the value was exact.
template <typename T> bool StoreIntegerFromDouble(void* valuePtr, double value)
{
    const double truncated = std::trunc(value);
    T stored;
    if (std::isnan(value))
    {
        stored = 0;
    }
    else if (truncated <= static_cast<double>(std::numeric_limits<T>::min()))
    {
        stored = std::numeric_limits<T>::min();
    }
    else if (truncated >= static_cast<double>(std::numeric_limits<T>::max()))
    {
        stored = std::numeric_limits<T>::max();
    }
    else
    {
        stored = static_cast<T>(truncated);
    }
    Store<T>(valuePtr, stored);
    return !std::isnan(value) && static_cast<double>(stored) == value;
}
} // namespace

const CFBooleanRef kCFBooleanTrue = new __CFBoolean(true);
const CFBooleanRef kCFBooleanFalse = new __CFBoolean(false);

CFTypeID CFBooleanGetTypeID(void)
{
    return CFRuntime::eTypeIDBoolean;
}

Boolean CFBooleanGetValue(CFBooleanRef boolean)
{
    CFRuntime::Object(boolean, "CFBooleanGetValue");
    if (boolean->mTypeID != CFRuntime::eTypeIDBoolean)
    {
        Fatal("CFBooleanGetValue", "not a CFBoolean");
    }
    return boolean->mValue;
}

CFTypeID CFNumberGetTypeID(void)
{
    return CFRuntime::eTypeIDNumber;
}

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType theType, const void* valuePtr)
{
    STypeInfo info;
    if (valuePtr == nullptr || !TypeInfo(theType, info))
    {
        return nullptr;
    }
    auto* number = new __CFNumber;
    number->mIsFloat = info.isFloat;
    if (info.isFloat)
    {
        number->mDouble = info.size == 4 ? Load<float>(valuePtr) : Load<double>(valuePtr);
    }
    else
    {
        switch (info.size)
        {
        case 1:
            number->mInteger = Load<SInt8>(valuePtr);
            break;
        case 2:
            number->mInteger = Load<SInt16>(valuePtr);
            break;
        case 4:
            number->mInteger = Load<SInt32>(valuePtr);
            break;
        default:
            number->mInteger = Load<SInt64>(valuePtr);
            break;
        }
    }
    return number;
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr)
{
    const __CFNumber* value = Number(number, "CFNumberGetValue");
    STypeInfo info;
    if (valuePtr == nullptr || !TypeInfo(theType, info))
    {
        return false;
    }
    if (info.isFloat)
    {
        const double source = value->AsDouble();
        if (info.size == 4)
        {
            const auto narrowed = static_cast<float>(source);
            Store<float>(valuePtr, narrowed);
            return std::isnan(source) || static_cast<double>(narrowed) == source;
        }
        Store<double>(valuePtr, source);
        // 2^63 itself does not convert back to a 64-bit integer.
        return value->mIsFloat ||
               (source < 9.2233720368547758e18 && static_cast<SInt64>(source) == value->mInteger);
    }
    if (value->mIsFloat)
    {
        switch (info.size)
        {
        case 1:
            return StoreIntegerFromDouble<SInt8>(valuePtr, value->mDouble);
        case 2:
            return StoreIntegerFromDouble<SInt16>(valuePtr, value->mDouble);
        case 4:
            return StoreIntegerFromDouble<SInt32>(valuePtr, value->mDouble);
        default:
            return StoreIntegerFromDouble<SInt64>(valuePtr, value->mDouble);
        }
    }
    switch (info.size)
    {
    case 1:
        return StoreInteger<SInt8>(valuePtr, value->mInteger);
    case 2:
        return StoreInteger<SInt16>(valuePtr, value->mInteger);
    case 4:
        return StoreInteger<SInt32>(valuePtr, value->mInteger);
    default:
        return StoreInteger<SInt64>(valuePtr, value->mInteger);
    }
}
