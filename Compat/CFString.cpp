#include <CoreFoundation/CFString.h>

#include "Compat/CFRuntime.h"

#include <cstring>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

using CFRuntime::Fatal;

struct __CFString : CFRuntime::CFObject
{
    explicit __CFString(std::u16string units)
        : CFObject(CFRuntime::eTypeIDString), mUnits(std::move(units))
    {
    }
    bool Equals(const CFObject& other) const override
    {
        return mUnits == static_cast<const __CFString&>(other).mUnits;
    }
    CFHashCode Hash() const override { return std::hash<std::u16string>()(mUnits); }

    const std::u16string mUnits;
    // The UTF-8 form, made once on first use: strings are immutable, and the run loop asks
    // for the name of its mode on every run.
    mutable std::once_flag mUTF8Once;
    mutable std::string mUTF8;
};

namespace
{
const __CFString* String(CFStringRef string, const char* function)
{
    CFRuntime::Object(string, function);
    if (string->mTypeID != CFRuntime::eTypeIDString)
    {
        Fatal(function, "not a CFString");
    }
    return string;
}

bool IsHighSurrogate(char32_t unit)
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool IsLowSurrogate(char32_t unit)
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// Strict UTF-8: no over-long forms, no surrogates, nothing above U+10FFFF.
std::optional<std::u16string> DecodeUTF8(const UInt8* bytes, size_t length)
{
    std::u16string units;
    units.reserve(length);
    size_t i = 0;
    while (i < length)
    {
        const UInt8 lead = bytes[i];
        size_t extra = 0;
        char32_t point = 0;
        char32_t minimum = 0;
        if (lead < 0x80)
        {
            point = lead;
        }
        else if (lead >= 0xC2 && lead <= 0xDF)
        {
            extra = 1, point = lead & 0x1F, minimum = 0x80;
        }
        else if (lead >= 0xE0 && lead <= 0xEF)
        {
            extra = 2, point = lead & 0x0F, minimum = 0x800;
        }
        else if (lead >= 0xF0 && lead <= 0xF4)
        {
            extra = 3, point = lead & 0x07, minimum = 0x10000;
        }
        else
        {
            return std::nullopt;
        }
        if (length - i - 1 < extra)
        {
            return std::nullopt;
        }
        for (size_t k = 1; k <= extra; ++k)
        {
            const UInt8 next = bytes[i + k];
            if ((next & 0xC0) != 0x80)
            {
                return std::nullopt;
            }
            point = (point << 6) | (next & 0x3F);
        }
        if (point < minimum || point > 0x10FFFF || IsHighSurrogate(point) || IsLowSurrogate(point))
        {
            return std::nullopt;
        }
        if (point >= 0x10000)
        {
            point -= 0x10000;
            units.push_back(static_cast<char16_t>(0xD800 + (point >> 10)));
            units.push_back(static_cast<char16_t>(0xDC00 + (point & 0x3FF)));
        }
        else
        {
            units.push_back(static_cast<char16_t>(point));
        }
        i += extra + 1;
    }
    return units;
}

std::optional<std::string> EncodeUTF8(const std::u16string& units)
{
    std::string out;
    out.reserve(units.size());
    for (size_t i = 0; i < units.size(); ++i)
    {
        char32_t point = units[i];
        if (IsHighSurrogate(point))
        {
            if (i + 1 >= units.size() || !IsLowSurrogate(units[i + 1]))
            {
                return std::nullopt;
            }
            point = 0x10000 + ((point - 0xD800) << 10) + (units[i + 1] - 0xDC00);
            ++i;
        }
        else if (IsLowSurrogate(point))
        {
            return std::nullopt;
        }
        if (point < 0x80)
        {
            out.push_back(static_cast<char>(point));
        }
        else if (point < 0x800)
        {
            out.push_back(static_cast<char>(0xC0 | (point >> 6)));
            out.push_back(static_cast<char>(0x80 | (point & 0x3F)));
        }
        else if (point < 0x10000)
        {
            out.push_back(static_cast<char>(0xE0 | (point >> 12)));
            out.push_back(static_cast<char>(0x80 | ((point >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (point & 0x3F)));
        }
        else
        {
            out.push_back(static_cast<char>(0xF0 | (point >> 18)));
            out.push_back(static_cast<char>(0x80 | ((point >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((point >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (point & 0x3F)));
        }
    }
    return out;
}

std::optional<std::u16string> Decode(const UInt8* bytes, size_t length, CFStringEncoding encoding,
                                     bool isExternalRepresentation)
{
    switch (encoding)
    {
    case kCFStringEncodingUTF8:
        if (isExternalRepresentation && length >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB &&
            bytes[2] == 0xBF)
        {
            bytes += 3, length -= 3;
        }
        return DecodeUTF8(bytes, length);
    case kCFStringEncodingASCII:
    case kCFStringEncodingISOLatin1:
    {
        std::u16string units;
        units.reserve(length);
        for (size_t i = 0; i < length; ++i)
        {
            if (encoding == kCFStringEncodingASCII && bytes[i] >= 0x80)
            {
                return std::nullopt;
            }
            units.push_back(bytes[i]);
        }
        return units;
    }
    case kCFStringEncodingUTF16:
    {
        if (length % 2 != 0)
        {
            return std::nullopt;
        }
        // Host order, unless an external representation starts with a byte order mark.
        bool swap = false;
        if (isExternalRepresentation && length >= 2)
        {
            char16_t mark;
            std::memcpy(&mark, bytes, 2);
            if (mark == 0xFEFF || mark == 0xFFFE)
            {
                swap = mark == 0xFFFE;
                bytes += 2, length -= 2;
            }
        }
        std::u16string units(length / 2, u'\0');
        if (length > 0)
        {
            std::memcpy(units.data(), bytes, length);
        }
        if (swap)
        {
            for (auto& unit : units)
            {
                unit = static_cast<char16_t>((unit >> 8) | (unit << 8));
            }
        }
        return units;
    }
    default:
        return std::nullopt;
    }
}

std::optional<std::string> Encode(const std::u16string& units, CFStringEncoding encoding)
{
    switch (encoding)
    {
    case kCFStringEncodingUTF8:
        return EncodeUTF8(units);
    case kCFStringEncodingASCII:
    case kCFStringEncodingISOLatin1:
    {
        const char16_t limit = encoding == kCFStringEncodingASCII ? 0x80 : 0x100;
        std::string out;
        out.reserve(units.size());
        for (char16_t unit : units)
        {
            if (unit >= limit)
            {
                return std::nullopt;
            }
            out.push_back(static_cast<char>(unit));
        }
        return out;
    }
    default:
        return std::nullopt;
    }
}
} // namespace

CFTypeID CFStringGetTypeID(void)
{
    return CFRuntime::eTypeIDString;
}

CFStringRef __CFStringMakeConstantString(const char* cStr)
{
    // Never destroyed: constants outlive every static destructor that might still use them.
    static auto* lock = new std::mutex;
    static auto* constants = new std::unordered_map<std::string, __CFString*>;
    std::lock_guard<std::mutex> guard(*lock);
    auto found = constants->find(cStr);
    if (found != constants->end())
    {
        return found->second;
    }
    const auto* bytes = reinterpret_cast<const UInt8*>(cStr);
    std::optional<std::u16string> units = DecodeUTF8(bytes, std::strlen(cStr));
    if (!units)
    {
        units = Decode(bytes, std::strlen(cStr), kCFStringEncodingISOLatin1, false);
    }
    auto* string = new __CFString(std::move(*units));
    string->mImmortal = true;
    constants->emplace(cStr, string);
    return string;
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef, const char* cStr, CFStringEncoding encoding)
{
    if (cStr == nullptr)
    {
        return nullptr;
    }
    auto units = Decode(reinterpret_cast<const UInt8*>(cStr), std::strlen(cStr), encoding, false);
    return units ? new __CFString(std::move(*units)) : nullptr;
}

CFStringRef CFStringCreateCopy(CFAllocatorRef, CFStringRef theString)
{
    return static_cast<CFStringRef>(CFRetain(String(theString, "CFStringCreateCopy")));
}

CFIndex CFStringGetLength(CFStringRef theString)
{
    return static_cast<CFIndex>(String(theString, "CFStringGetLength")->mUnits.size());
}

CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding)
{
    switch (encoding)
    {
    case kCFStringEncodingUTF8:
        return length * 3; // a surrogate pair (2 units) takes 4 bytes, a lone unit at most 3
    case kCFStringEncodingASCII:
    case kCFStringEncodingISOLatin1:
        return length;
    case kCFStringEncodingUTF16:
        return length * 2;
    default:
        return kCFNotFound;
    }
}

Boolean CFStringGetCString(CFStringRef theString, char* buffer, CFIndex bufferSize,
                           CFStringEncoding encoding)
{
    const __CFString* string = String(theString, "CFStringGetCString");
    if (buffer == nullptr || bufferSize <= 0)
    {
        return false;
    }
    std::optional<std::string> bytes = Encode(string->mUnits, encoding);
    if (!bytes || static_cast<CFIndex>(bytes->size()) >= bufferSize)
    {
        buffer[0] = '\0';
        return false;
    }
    std::memcpy(buffer, bytes->c_str(), bytes->size() + 1);
    return true;
}

const char* CFStringGetCStringPtr(CFStringRef theString, CFStringEncoding)
{
    String(theString, "CFStringGetCStringPtr");
    return nullptr;
}

namespace
{
std::string MakeUTF8(std::u16string units)
{
    if (auto bytes = EncodeUTF8(units))
    {
        return *bytes;
    }
    for (size_t i = 0; i < units.size(); ++i)
    {
        const bool pairStart =
            IsHighSurrogate(units[i]) && i + 1 < units.size() && IsLowSurrogate(units[i + 1]);
        if (pairStart)
        {
            ++i;
        }
        else if (IsHighSurrogate(units[i]) || IsLowSurrogate(units[i]))
        {
            units[i] = 0xFFFD;
        }
    }
    return EncodeUTF8(units).value_or(std::string());
}
} // namespace

namespace CFRuntime
{
const std::string& StringUTF8Ref(CFStringRef string)
{
    static const std::string kEmpty;
    if (string == nullptr)
    {
        return kEmpty;
    }
    const __CFString* object = String(string, "StringUTF8");
    std::call_once(object->mUTF8Once, [object] { object->mUTF8 = MakeUTF8(object->mUnits); });
    return object->mUTF8;
}

std::string StringUTF8(CFStringRef string)
{
    return StringUTF8Ref(string);
}
} // namespace CFRuntime
