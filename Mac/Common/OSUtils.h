// The system release, bundle versions and two user interface preferences.
#pragma once

#include "Common/FileVersion.h"

#include <CoreFoundation/CoreFoundation.h>

namespace OSUtils
{
// The running system release as 0x10N0 for 10.N (0x1040 to 0x10A0), from the
// application-kit version number.
unsigned int GetSystemVersion();

// The mapping behind GetSystemVersion, from the top: above 1342 is 0x10A0, above 1264
// 0x1090, above 1186 0x1080, above 1137 0x1070, above 1037 0x1060, below 949 0x1040, and
// anything else 0x1050. The version is floored first.
unsigned int GetSystemVersionForAppKitVersion(double appKitVersion);

// GetVersionFromBundle of the main bundle.
FileVersion GetMainBundleVersion();

// The bundle's "CFBundleVersion" string parsed as a FileVersion, a web version when the
// information dictionary also has "KeltoVersion"; the default FileVersion without a bundle,
// without the key, or when its value is not a string.
FileVersion GetVersionFromBundle(CFBundleRef bundle);

// A packed version number: major in bits 31-24, minor 23-20, variation 19-16, release 15-8
// (0x20 development, 0x40 alpha, 0x60 beta, 0x80 final, else unknown), build 7-0.
FileVersion GetVersionFromVersNumber(unsigned int versNumber);

// The double-click interval in seconds.
double GetDoubleClickTime();

// Whether scrolling moves the content with the fingers: false before 10.7; after that the
// user default "com.apple.swipescrolldirection", true when it is absent or has no boolean
// value.
bool GetScrollDirectionMatchesContentMovement();
} // namespace OSUtils
