#include "Mac/Common/UserUtils.h"

#include "Common/KelAssert.h"
#include "Mac/Common/MacStringUtilities.h"

#include <CoreFoundation/CoreFoundation.h>
#include <SystemConfiguration/SystemConfiguration.h>

#include <cstdio>

bool UserUtils::GetConsoleUser(std::string* name_O, unsigned int* userID_O, unsigned int* groupID_O)
{
    CFBundleRef bundle = CFBundleGetMainBundle();
    CFStringRef identifier = bundle ? CFBundleGetIdentifier(bundle) : nullptr;
    SCDynamicStoreRef store = SCDynamicStoreCreate(nullptr, identifier, nullptr, nullptr);
    KelAssertLine(67, store);
    if (!store)
    {
        return false;
    }

    uid_t uid = 0;
    gid_t gid = 0;
    CFStringRef user = SCDynamicStoreCopyConsoleUser(store, &uid, &gid);
    // User ID 0 is the login window: nobody has logged in yet.
    bool found = user && uid != 0;
    if (found)
    {
        if (name_O)
        {
            *name_O = MacStringUtilities::GetStringForCFString(user);
        }
        if (userID_O)
        {
            *userID_O = uid;
        }
        if (groupID_O)
        {
            *groupID_O = gid;
        }
    }
    else
    {
        std::fputs("\t no user\n", stderr);
    }
    if (user)
    {
        CFRelease(user);
    }
    CFRelease(store);
    return found;
}

bool UserUtils::UserIsLoggedIn(std::string* name_O, unsigned int* userID_O, unsigned int* groupID_O)
{
    static std::string sName;
    static unsigned int sUserID = 0;
    static unsigned int sGroupID = 0;
    static bool sLoggedIn = false;

    if (!sLoggedIn)
    {
        sLoggedIn = GetConsoleUser(&sName, &sUserID, &sGroupID);
    }
    if (name_O)
    {
        *name_O = sName;
    }
    if (userID_O)
    {
        *userID_O = sUserID;
    }
    if (groupID_O)
    {
        *groupID_O = sGroupID;
    }
    return sLoggedIn;
}
