// The user's defaults: the values of the application's domain, then of the global domain.
//
// Each domain is a property list in the user's preferences folder ("~/Library/Preferences"
// on macOS; here "$XDG_CONFIG_HOME/kelto", by default "~/.config/kelto"):
// "<bundle identifier>.plist" for the application (none when the main bundle has no
// identifier) and ".GlobalPreferences.plist" beside it for the global domain. They are read on
// first use and again by synchronize(); nothing is written.
//
//   [NSUserDefaults standardUserDefaults]   NSUserDefaults::standardUserDefaults()
//   [defaults objectForKey:@"key"]           defaults->objectForKey(CFSTR("key"))
//   [defaults boolForKey:@"key"]             defaults->boolForKey(CFSTR("key"))
//   [defaults doubleForKey:@"key"]           defaults->doubleForKey(CFSTR("key"))
//   [defaults synchronize]                   defaults->synchronize()
#pragma once

#include <CoreFoundation/CoreFoundation.h>

class NSUserDefaults
{
public:
    static NSUserDefaults* standardUserDefaults();

    // The value (a CFString, CFNumber, CFBoolean, CFData, CFArray or CFDictionary), or NULL.
    // Not owned by the caller: it stays valid until synchronize() (the Objective-C form
    // returns an autoreleased object).
    CFTypeRef objectForKey(CFStringRef defaultName);

    // The boolValue of the object: a boolean's value, a number other than zero, or a string
    // that starts, after blanks or a sign with zeros, with Y, y, T, t or a digit 1-9. False
    // for anything else and for no value.
    bool boolForKey(CFStringRef defaultName);
    // A number's value (a string is read as a decimal number); 0 for anything else.
    double doubleForKey(CFStringRef defaultName);

    // Reads the domains again. True when that worked (missing files are empty domains).
    bool synchronize();

    NSUserDefaults(const NSUserDefaults&) = delete;
    NSUserDefaults& operator=(const NSUserDefaults&) = delete;

private:
    NSUserDefaults();
    ~NSUserDefaults();

    CFDictionaryRef mApplicationDomain = nullptr;
    CFDictionaryRef mGlobalDomain = nullptr;
};
