// The dynamic store session and the console user from sd-login.
#include "Compat/CFRuntime.h"

#include <SystemConfiguration/SystemConfiguration.h>

#include <cstdlib>
#include <pwd.h>
#include <string>
#include <systemd/sd-login.h>
#include <vector>

struct __SCDynamicStore : CFRuntime::CFObject
{
    // A type id of its own, well clear of the CoreFoundation ones.
    static constexpr CFTypeID kTypeID = 0x5CD5;

    __SCDynamicStore() : CFObject(kTypeID) {}
    ~__SCDynamicStore() override
    {
        if (mName)
        {
            CFRelease(mName);
        }
        if (mContext.release && mContext.info)
        {
            mContext.release(mContext.info);
        }
    }

    CFStringRef mName = nullptr;
    SCDynamicStoreCallBack mCallout = nullptr;
    SCDynamicStoreContext mContext = {};
};

namespace
{
struct SConsoleUser
{
    std::string name;
    uid_t uid = 0;
    gid_t gid = 0;
};

// "name:uid:gid"; anything else, "none" included, is no user.
bool ParseTestUser(const std::string& text, SConsoleUser& user)
{
    size_t first = text.find(':');
    size_t second = first == std::string::npos ? first : text.find(':', first + 1);
    if (first == 0 || second == std::string::npos)
    {
        return false;
    }
    char* end = nullptr;
    std::string uid = text.substr(first + 1, second - first - 1);
    std::string gid = text.substr(second + 1);
    user.name = text.substr(0, first);
    user.uid = static_cast<uid_t>(std::strtoul(uid.c_str(), &end, 10));
    if (uid.empty() || *end)
    {
        return false;
    }
    user.gid = static_cast<gid_t>(std::strtoul(gid.c_str(), &end, 10));
    return !gid.empty() && !*end;
}

bool LoginManagerUser(SConsoleUser& user)
{
    char* session = nullptr;
    uid_t uid = 0;
    if (sd_seat_get_active("seat0", &session, &uid) < 0 || !session)
    {
        return false;
    }
    char* sessionClass = nullptr;
    bool greeter = sd_session_get_class(session, &sessionClass) >= 0 && sessionClass &&
                   std::string(sessionClass) == "greeter";
    std::free(sessionClass);
    std::free(session);
    if (greeter)
    {
        user = {"loginwindow", 0, 0};
        return true;
    }
    passwd entry;
    passwd* found = nullptr;
    std::vector<char> buffer(16384);
    if (getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) != 0 || !found)
    {
        return false; // a user without a name is no user we can report
    }
    user = {found->pw_name, found->pw_uid, found->pw_gid};
    return true;
}
} // namespace

SCDynamicStoreRef SCDynamicStoreCreate(CFAllocatorRef, CFStringRef name,
                                       SCDynamicStoreCallBack callout,
                                       SCDynamicStoreContext* context)
{
    auto* store = new __SCDynamicStore;
    store->mName = name ? static_cast<CFStringRef>(CFRetain(name)) : nullptr;
    store->mCallout = callout;
    if (context)
    {
        store->mContext = *context;
        if (store->mContext.retain && store->mContext.info)
        {
            store->mContext.info = const_cast<void*>(store->mContext.retain(context->info));
        }
    }
    return store;
}

CFStringRef SCDynamicStoreCopyConsoleUser(SCDynamicStoreRef, uid_t* uid, gid_t* gid)
{
    SConsoleUser user;
    const char* test = std::getenv("KELTO_CONSOLE_USER");
    if (test ? !ParseTestUser(test, user) : !LoginManagerUser(user))
    {
        return nullptr;
    }
    if (uid)
    {
        *uid = user.uid;
    }
    if (gid)
    {
        *gid = user.gid;
    }
    return CFStringCreateWithCString(nullptr, user.name.c_str(), kCFStringEncodingUTF8);
}
