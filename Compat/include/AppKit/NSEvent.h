// The event class, for the one user preference this program reads from it.
#pragma once

#include <Foundation/Foundation.h>

class NSEvent
{
public:
    // [NSEvent doubleClickInterval]: the global default "com.apple.mouse.doubleClickThreshold"
    // in seconds, or 0.5 when the user has not set it.
    static NSTimeInterval doubleClickInterval();
};
