#include <AppKit/AppKit.h>

NSTimeInterval NSEvent::doubleClickInterval()
{
    CFStringRef key = CFSTR("com.apple.mouse.doubleClickThreshold");
    NSUserDefaults* defaults = NSUserDefaults::standardUserDefaults();
    if (!defaults->objectForKey(key))
    {
        return 0.5;
    }
    return defaults->doubleForKey(key);
}
