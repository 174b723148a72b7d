// A notification as the application delegate receives it: a name and the posting object.
#pragma once

#include <CoreFoundation/CFString.h>

typedef CFStringRef NSNotificationName;

class NSNotification
{
public:
    NSNotification(NSNotificationName aName, const void* anObject) : mName(aName), mObject(anObject)
    {
    }

    NSNotificationName name() const { return mName; }
    const void* object() const { return mObject; }

private:
    NSNotificationName mName;
    const void* mObject;
};
