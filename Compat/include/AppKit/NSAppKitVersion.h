// The application-kit version number: which system release this program believes it runs on.
//
// This platform reports the value of 10.10 (1343). The constants are those of the releases
// that the system-version mapping distinguishes.
#pragma once

typedef double NSAppKitVersion;

extern const NSAppKitVersion NSAppKitVersionNumber;

static const NSAppKitVersion NSAppKitVersionNumber10_4 = 824;
static const NSAppKitVersion NSAppKitVersionNumber10_5 = 949;
static const NSAppKitVersion NSAppKitVersionNumber10_6 = 1038;
static const NSAppKitVersion NSAppKitVersionNumber10_7 = 1138;
static const NSAppKitVersion NSAppKitVersionNumber10_8 = 1187;
static const NSAppKitVersion NSAppKitVersionNumber10_9 = 1265;
static const NSAppKitVersion NSAppKitVersionNumber10_10 = 1343;
