// The console user: whoever owns the active session of the first seat, as the login manager
// (systemd-logind, through sd-login) reports it.
//
// While the login screen has the seat (a session of class "greeter") the answer is
// "loginwindow" with user and group ID 0, as on macOS. Without a login manager, or with no
// active session, there is no console user (NULL).
//
// For tests the environment variable KELTO_CONSOLE_USER replaces the login manager: "none"
// (or empty) means no console user, "name:uid:gid" means that user.
#pragma once

#include <SystemConfiguration/SCDynamicStore.h>

#include <sys/types.h>

CF_EXTERN_C_BEGIN

// The user's name (owned by the caller) and, through the non-NULL pointers, its user and
// group IDs; NULL when there is no console user. `store` may be NULL.
CFStringRef SCDynamicStoreCopyConsoleUser(SCDynamicStoreRef store, uid_t* uid, gid_t* gid);

CF_EXTERN_C_END
