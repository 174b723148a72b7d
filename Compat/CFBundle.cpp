#include <CoreFoundation/CFBundle.h>

#include "Compat/CFBundlePrivate.h"
#include "Compat/CFRuntime.h"

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFString.h>

#include <plist/plist.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

using CFRuntime::Fatal;

struct __CFBundle : CFRuntime::CFObject
{
    __CFBundle() : CFObject(CFRuntime::eTypeIDBundle) {}
    ~__CFBundle() override
    {
        if (mInfo != nullptr)
        {
            CFRelease(mInfo);
        }
    }
    CFDictionaryRef mInfo = nullptr; // owned, never NULL once made
};

namespace
{
const __CFBundle* Bundle(CFBundleRef bundle, const char* function)
{
    CFRuntime::Object(bundle, function);
    if (bundle->mTypeID != CFRuntime::eTypeIDBundle)
    {
        Fatal(function, "not a CFBundle");
    }
    return bundle;
}

// Nesting deeper than this is refused: the file is read from disk and not trusted.
constexpr int kMaxDepth = 64;

CFTypeRef CreateFromNode(plist_t node, int depth);

CFTypeRef CreateDictionary(plist_t node, int depth)
{
    std::vector<CFTypeRef> keys;
    std::vector<CFTypeRef> values;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(node, &iterator);
    for (;;)
    {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(node, iterator, &key, &value);
        if (key == nullptr)
        {
            break;
        }
        CFStringRef keyString = CFStringCreateWithCString(nullptr, key, kCFStringEncodingUTF8);
        std::free(key);
        CFTypeRef valueObject = CreateFromNode(value, depth + 1);
        if (keyString != nullptr && valueObject != nullptr)
        {
            keys.push_back(keyString);
            values.push_back(valueObject);
            continue;
        }
        if (keyString != nullptr)
        {
            CFRelease(keyString);
        }
        if (valueObject != nullptr)
        {
            CFRelease(valueObject);
        }
    }
    std::free(iterator);
    CFDictionaryRef dictionary =
        CFDictionaryCreate(nullptr, keys.data(), values.data(), static_cast<CFIndex>(keys.size()),
                           &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    for (size_t i = 0; i < keys.size(); ++i)
    {
        CFRelease(keys[i]);
        CFRelease(values[i]);
    }
    return dictionary;
}

CFTypeRef CreateArray(plist_t node, int depth)
{
    std::vector<CFTypeRef> values;
    const uint32_t count = plist_array_get_size(node);
    for (uint32_t i = 0; i < count; ++i)
    {
        if (CFTypeRef value = CreateFromNode(plist_array_get_item(node, i), depth + 1))
        {
            values.push_back(value);
        }
    }
    CFArrayRef array = CFArrayCreate(nullptr, values.data(), static_cast<CFIndex>(values.size()),
                                     &kCFTypeArrayCallBacks);
    for (CFTypeRef value : values)
    {
        CFRelease(value);
    }
    return array;
}

CFTypeRef CreateFromNode(plist_t node, int depth)
{
    if (node == nullptr || depth > kMaxDepth)
    {
        return nullptr;
    }
    switch (plist_get_node_type(node))
    {
    case PLIST_DICT:
        return CreateDictionary(node, depth);
    case PLIST_ARRAY:
        return CreateArray(node, depth);
    case PLIST_STRING:
    {
        char* text = nullptr;
        plist_get_string_val(node, &text);
        CFStringRef string = text != nullptr
                                 ? CFStringCreateWithCString(nullptr, text, kCFStringEncodingUTF8)
                                 : nullptr;
        std::free(text);
        return string;
    }
    case PLIST_UINT:
    {
        // Integers are kept as 64 unsigned bits; negative values come back two's complement.
        uint64_t bits = 0;
        plist_get_uint_val(node, &bits);
        const auto value = static_cast<SInt64>(bits);
        return CFNumberCreate(nullptr, kCFNumberSInt64Type, &value);
    }
    case PLIST_REAL:
    {
        double value = 0;
        plist_get_real_val(node, &value);
        return CFNumberCreate(nullptr, kCFNumberFloat64Type, &value);
    }
    case PLIST_BOOLEAN:
    {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return value != 0 ? kCFBooleanTrue : kCFBooleanFalse;
    }
    case PLIST_DATA:
    {
        char* bytes = nullptr;
        uint64_t length = 0;
        plist_get_data_val(node, &bytes, &length);
        CFDataRef data = CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes),
                                      bytes != nullptr ? static_cast<CFIndex>(length) : 0);
        std::free(bytes);
        return data;
    }
    default:
        return nullptr;
    }
}

CFDictionaryRef CreateEmptyDictionary()
{
    return CFDictionaryCreate(nullptr, nullptr, nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                              &kCFTypeDictionaryValueCallBacks);
}

std::filesystem::path InfoPlistPath(const std::filesystem::path& executable)
{
    const std::filesystem::path macOS = executable.parent_path();
    const std::filesystem::path contents = macOS.parent_path();
    if (macOS.filename() != "MacOS" || contents.filename() != "Contents")
    {
        return {};
    }
    return contents / "Info.plist";
}
} // namespace

namespace CFBundlePrivate
{
CFDictionaryRef CreateDictionaryFromPlist(const char* bytes, size_t length)
{
    if (bytes == nullptr || length == 0 || length > UINT32_MAX)
    {
        return nullptr;
    }
    plist_t root = nullptr;
    plist_from_memory(bytes, static_cast<uint32_t>(length), &root);
    if (root == nullptr)
    {
        return nullptr;
    }
    CFTypeRef object = plist_get_node_type(root) == PLIST_DICT ? CreateFromNode(root, 0) : nullptr;
    plist_free(root);
    return static_cast<CFDictionaryRef>(object);
}

CFBundleRef CreateForExecutable(const std::string& executablePath)
{
    auto* bundle = new __CFBundle;
    const std::filesystem::path plistPath = InfoPlistPath(executablePath);
    if (!plistPath.empty())
    {
        std::ifstream in(plistPath, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
        bundle->mInfo = CreateDictionaryFromPlist(bytes.data(), bytes.size());
    }
    if (bundle->mInfo == nullptr)
    {
        bundle->mInfo = CreateEmptyDictionary();
    }
    return bundle;
}
} // namespace CFBundlePrivate

CFBundleRef CFBundleGetMainBundle(void)
{
    static CFBundleRef mainBundle = []
    {
        std::error_code error;
        const std::filesystem::path executable =
            std::filesystem::read_symlink("/proc/self/exe", error);
        CFBundleRef bundle = CFBundlePrivate::CreateForExecutable(error ? "" : executable);
        bundle->mImmortal = true;
        return bundle;
    }();
    return mainBundle;
}

CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key)
{
    const __CFBundle* object = Bundle(bundle, "CFBundleGetValueForInfoDictionaryKey");
    if (key == nullptr)
    {
        return nullptr;
    }
    return CFDictionaryGetValue(object->mInfo, key);
}

CFStringRef CFBundleGetIdentifier(CFBundleRef bundle)
{
    CFTypeRef value = CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("CFBundleIdentifier"));
    if (value == nullptr || CFGetTypeID(value) != CFStringGetTypeID())
    {
        return nullptr;
    }
    return static_cast<CFStringRef>(value);
}
