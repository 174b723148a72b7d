// Foundation and the application kit, as macOS code includes them.
#pragma once

#include <AppKit/AppKit.h>
#include <Foundation/Foundation.h>
