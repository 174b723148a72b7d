#include <SystemConfiguration/SystemConfiguration.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <unistd.h>

namespace
{
// Sets KELTO_CONSOLE_USER (or removes it, for NULL) for one scope.
class CConsoleUser
{
public:
    explicit CConsoleUser(const char* value)
    {
        if (const char* old = std::getenv("KELTO_CONSOLE_USER"))
        {
            mOld = old;
        }
        Set(value);
    }
    ~CConsoleUser() { Set(mOld ? mOld->c_str() : nullptr); }

private:
    static void Set(const char* value)
    {
        value ? setenv("KELTO_CONSOLE_USER", value, 1) : unsetenv("KELTO_CONSOLE_USER");
    }
    std::optional<std::string> mOld;
};

std::string Text(CFStringRef string)
{
    char buffer[256] = {};
    CFStringGetCString(string, buffer, sizeof buffer, kCFStringEncodingUTF8);
    return buffer;
}

int sRetains = 0, sReleases = 0;

TEST(SCDynamicStoreTests, StoreIsACFObjectThatKeepsItsContextInfo)
{
    SCDynamicStoreContext context = {0, &sRetains,
                                     [](const void* info)
                                     {
                                         ++sRetains;
                                         return info;
                                     },
                                     [](const void*) { ++sReleases; }, nullptr};
    SCDynamicStoreRef store = SCDynamicStoreCreate(nullptr, CFSTR("test"), nullptr, &context);
    ASSERT_NE(store, nullptr);
    EXPECT_EQ(sRetains, 1);
    CFRetain(store);
    CFRelease(store);
    EXPECT_EQ(sReleases, 0);
    CFRelease(store);
    EXPECT_EQ(sReleases, 1);

    SCDynamicStoreRef unnamed = SCDynamicStoreCreate(nullptr, nullptr, nullptr, nullptr);
    EXPECT_NE(unnamed, nullptr);
    CFRelease(unnamed);
}

TEST(SCDynamicStoreTests, TestUserIsReportedWithItsIDs)
{
    CConsoleUser user("alice:1000:1001");
    uid_t uid = 0;
    gid_t gid = 0;
    CFStringRef name = SCDynamicStoreCopyConsoleUser(nullptr, &uid, &gid);
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(Text(name), "alice");
    EXPECT_EQ(uid, 1000u);
    EXPECT_EQ(gid, 1001u);
    CFRelease(name);

    name = SCDynamicStoreCopyConsoleUser(nullptr, nullptr, nullptr); // the IDs are optional
    ASSERT_NE(name, nullptr);
    CFRelease(name);
}

TEST(SCDynamicStoreTests, NoUserAndMalformedValuesGiveNothingAndLeaveTheIDsAlone)
{
    for (const char* value : {"none", "", "alice", "alice:1000", ":1:2", "alice:x:1", "alice:1:"})
    {
        CConsoleUser user(value);
        uid_t uid = 77;
        gid_t gid = 78;
        EXPECT_EQ(SCDynamicStoreCopyConsoleUser(nullptr, &uid, &gid), nullptr) << value;
        EXPECT_EQ(uid, 77u);
        EXPECT_EQ(gid, 78u);
    }
}

TEST(SCDynamicStoreTests, WithoutALoginManagerThereIsNoConsoleUser)
{
    if (access("/run/systemd/seats/seat0", F_OK) == 0)
    {
        GTEST_SKIP() << "a login manager runs here";
    }
    CConsoleUser user(nullptr);
    EXPECT_EQ(SCDynamicStoreCopyConsoleUser(nullptr, nullptr, nullptr), nullptr);
}
} // namespace
