#include "Mac/Common/OSUtils.h"

#include "Mac/Common/MacStringUtilities.h"

#include <AppKit/AppKit.h>

#include <cmath>

unsigned int OSUtils::GetSystemVersion()
{
    return GetSystemVersionForAppKitVersion(NSAppKitVersionNumber);
}

unsigned int OSUtils::GetSystemVersionForAppKitVersion(double appKitVersion)
{
    double version = std::floor(appKitVersion);
    if (version > 1342)
    {
        return 0x10A0;
    }
    if (version > 1264)
    {
        return 0x1090;
    }
    if (version > 1186)
    {
        return 0x1080;
    }
    if (version > 1137)
    {
        return 0x1070;
    }
    if (version > 1037)
    {
        return 0x1060;
    }
    if (version < 949)
    {
        return 0x1040;
    }
    return 0x1050;
}

FileVersion OSUtils::GetMainBundleVersion()
{
    return GetVersionFromBundle(CFBundleGetMainBundle());
}

FileVersion OSUtils::GetVersionFromBundle(CFBundleRef bundle)
{
    if (!bundle)
    {
        return FileVersion();
    }
    CFTypeRef value = CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("CFBundleVersion"));
    if (!value || CFGetTypeID(value) != CFStringGetTypeID())
    {
        return FileVersion();
    }
    bool isWeb = CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("KeltoVersion")) != nullptr;
    return FileVersion(MacStringUtilities::GetStringForCFString(static_cast<CFStringRef>(value)),
                       isWeb);
}

FileVersion OSUtils::GetVersionFromVersNumber(unsigned int versNumber)
{
    FileVersion::ERELEASE release;
    switch ((versNumber >> 8) & 0xFF)
    {
    case 0x20:
        release = FileVersion::EDevelopmentVersion;
        break;
    case 0x40:
        release = FileVersion::EAlphaVersion;
        break;
    case 0x60:
        release = FileVersion::EBetaVersion;
        break;
    case 0x80:
        release = FileVersion::EFinalVersion;
        break;
    default:
        release = FileVersion::EUnknownVersion;
        break;
    }
    return FileVersion(static_cast<unsigned char>(versNumber >> 24),
                       static_cast<unsigned char>((versNumber >> 20) & 0xF),
                       static_cast<unsigned char>((versNumber >> 16) & 0xF), release,
                       static_cast<unsigned char>(versNumber & 0xFF));
}

double OSUtils::GetDoubleClickTime()
{
    return NSEvent::doubleClickInterval();
}

bool OSUtils::GetScrollDirectionMatchesContentMovement()
{
    if (GetSystemVersion() < 0x1070)
    {
        return false;
    }
    CFStringRef key = CFSTR("com.apple.swipescrolldirection");
    NSUserDefaults* defaults = NSUserDefaults::standardUserDefaults();
    CFTypeRef value = defaults->objectForKey(key);
    // Only numbers (booleans among them) and strings answer boolValue.
    bool hasBoolValue = value && (CFGetTypeID(value) == CFBooleanGetTypeID() ||
                                  CFGetTypeID(value) == CFNumberGetTypeID() ||
                                  CFGetTypeID(value) == CFStringGetTypeID());
    return hasBoolValue ? defaults->boolForKey(key) : true;
}
