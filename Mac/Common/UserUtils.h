// Who is logged in at the console.
#pragma once

#include <string>

namespace UserUtils
{
// The console user's name, user ID and group ID (each out pointer may be NULL). False, with
// "\t no user\n" on standard error and nothing written, when nobody is logged in; a console
// user with user ID 0 is the login window and counts as nobody.
bool GetConsoleUser(std::string* name_O, unsigned int* userID_O, unsigned int* groupID_O);

// The first console user this process saw: asks GetConsoleUser until it once succeeds, then
// keeps that answer for the life of the process, even across a user switch. Main thread only.
bool UserIsLoggedIn(std::string* name_O, unsigned int* userID_O, unsigned int* groupID_O);
} // namespace UserUtils
