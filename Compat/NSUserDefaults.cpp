// The user's defaults, read from the property lists of the preferences folder. On macOS that
// is ~/Library/Preferences; here it is where the user's configuration lives:
// $XDG_CONFIG_HOME/kelto/, or ~/.config/kelto/ when that is unset (or not absolute, which
// the base directory rules say to ignore).
#include "Compat/CFBundlePrivate.h"

#include <Foundation/Foundation.h>

#include <cctype>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <pwd.h>
#include <string>
#include <unistd.h>

namespace
{
std::string PreferencesFolder()
{
    const char* config = std::getenv("XDG_CONFIG_HOME");
    if (config && config[0] == '/')
    {
        return std::string(config) + "/kelto/";
    }
    const char* home = std::getenv("HOME");
    if (!home || !*home)
    {
        const passwd* entry = getpwuid(getuid());
        home = entry ? entry->pw_dir : "";
    }
    return std::string(home) + "/.config/kelto/";
}

// The dictionary of a domain's file, or NULL when there is no readable one.
CFDictionaryRef ReadDomain(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
    {
        return nullptr;
    }
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return CFBundlePrivate::CreateDictionaryFromPlist(bytes.data(), bytes.size());
}

void ReleaseIfAny(CFDictionaryRef& dictionary)
{
    if (dictionary)
    {
        CFRelease(dictionary);
        dictionary = nullptr;
    }
}

// NSString's boolValue.
bool StringBoolValue(const std::string& text)
{
    size_t i = 0;
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i])))
    {
        ++i;
    }
    if (i < text.size() && (text[i] == '+' || text[i] == '-'))
    {
        ++i;
        while (i < text.size() && text[i] == '0')
        {
            ++i;
        }
    }
    if (i >= text.size())
    {
        return false;
    }
    char c = text[i];
    return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

std::string UTF8(CFStringRef string)
{
    CFIndex size =
        CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8) + 1;
    std::string buffer(static_cast<size_t>(size), '\0');
    if (!CFStringGetCString(string, buffer.data(), size, kCFStringEncodingUTF8))
    {
        return {};
    }
    buffer.resize(std::char_traits<char>::length(buffer.c_str()));
    return buffer;
}
} // namespace

NSUserDefaults* NSUserDefaults::standardUserDefaults()
{
    static NSUserDefaults* sDefaults = new NSUserDefaults; // lives as long as the process
    return sDefaults;
}

NSUserDefaults::NSUserDefaults()
{
    synchronize();
}

NSUserDefaults::~NSUserDefaults()
{
    ReleaseIfAny(mApplicationDomain);
    ReleaseIfAny(mGlobalDomain);
}

bool NSUserDefaults::synchronize()
{
    ReleaseIfAny(mApplicationDomain);
    ReleaseIfAny(mGlobalDomain);
    std::string folder = PreferencesFolder();
    CFBundleRef bundle = CFBundleGetMainBundle();
    CFStringRef identifier = bundle ? CFBundleGetIdentifier(bundle) : nullptr;
    if (identifier)
    {
        mApplicationDomain = ReadDomain(folder + UTF8(identifier) + ".plist");
    }
    mGlobalDomain = ReadDomain(folder + ".GlobalPreferences.plist");
    return true;
}

CFTypeRef NSUserDefaults::objectForKey(CFStringRef defaultName)
{
    for (CFDictionaryRef domain : {mApplicationDomain, mGlobalDomain})
    {
        const void* value = nullptr;
        if (domain && CFDictionaryGetValueIfPresent(domain, defaultName, &value))
        {
            return value;
        }
    }
    return nullptr;
}

bool NSUserDefaults::boolForKey(CFStringRef defaultName)
{
    CFTypeRef value = objectForKey(defaultName);
    if (!value)
    {
        return false;
    }
    CFTypeID type = CFGetTypeID(value);
    if (type == CFBooleanGetTypeID())
    {
        return CFBooleanGetValue(static_cast<CFBooleanRef>(value));
    }
    if (type == CFNumberGetTypeID())
    {
        double number = 0;
        CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberDoubleType, &number);
        return number != 0;
    }
    if (type == CFStringGetTypeID())
    {
        return StringBoolValue(UTF8(static_cast<CFStringRef>(value)));
    }
    return false;
}

double NSUserDefaults::doubleForKey(CFStringRef defaultName)
{
    CFTypeRef value = objectForKey(defaultName);
    if (!value)
    {
        return 0;
    }
    CFTypeID type = CFGetTypeID(value);
    if (type == CFNumberGetTypeID())
    {
        double number = 0;
        CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberDoubleType, &number);
        return number;
    }
    if (type == CFBooleanGetTypeID())
    {
        return CFBooleanGetValue(static_cast<CFBooleanRef>(value)) ? 1 : 0;
    }
    if (type == CFStringGetTypeID())
    {
        return std::strtod(UTF8(static_cast<CFStringRef>(value)).c_str(), nullptr);
    }
    return 0;
}
