// The main bundle and its information dictionary.
//
// A program at ".../Name.app/Contents/MacOS/Name" has the bundle "Name.app", whose
// information dictionary is read from "Name.app/Contents/Info.plist" (XML or binary) once,
// on first use. A program that is not inside a bundle has a main bundle all the same, with
// an empty information dictionary and no identifier, as on macOS.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>

CF_EXTERN_C_BEGIN

typedef struct __CFBundle* CFBundleRef;

CFBundleRef CFBundleGetMainBundle(void);
CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key);
CFStringRef CFBundleGetIdentifier(CFBundleRef bundle);

CF_EXTERN_C_END
