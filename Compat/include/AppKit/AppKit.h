// The application kit subset, in C++ (mapping in AppKit/NSApplication.h).
#pragma once

#include <AppKit/NSAppKitVersion.h>
#include <AppKit/NSApplication.h>
#include <AppKit/NSEvent.h>
#include <Foundation/Foundation.h>
