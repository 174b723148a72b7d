// The Foundation subset this program calls, in C++ (see AppKit/NSApplication.h for how the
// Objective-C interfaces are mapped). Objects that Foundation bridges to CoreFoundation
// (NSString, NSNumber, NSDictionary) appear here as their CF types.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <Foundation/NSNotification.h>
#include <Foundation/NSUserDefaults.h>

typedef double NSTimeInterval;

#ifndef nil
#define nil nullptr
#endif
