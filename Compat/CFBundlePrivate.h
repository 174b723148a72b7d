// What CFBundleGetMainBundle is built from, open to tests: a bundle for any executable path
// and the conversion of property-list bytes into CF objects.
#pragma once

#include <CoreFoundation/CFBundle.h>

#include <string>

namespace CFBundlePrivate
{
// A new bundle (owned by the caller) for the program at `executablePath`: the directory
// ".../X/Contents/MacOS/<program>" makes "X" the bundle and "X/Contents/Info.plist" its
// information dictionary. Any other path gives a bundle with an empty dictionary.
CFBundleRef CreateForExecutable(const std::string& executablePath);

// The dictionary of a property list (XML or binary), owned by the caller; NULL when the
// bytes are not a property list whose root is a dictionary. Values of types this layer
// does not have (dates, keyed-archive ids) are left out.
CFDictionaryRef CreateDictionaryFromPlist(const char* bytes, size_t length);
} // namespace CFBundlePrivate
