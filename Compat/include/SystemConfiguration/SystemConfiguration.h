// The SystemConfiguration subset: the dynamic store and the console user.
#pragma once

#include <SystemConfiguration/SCDynamicStore.h>
#include <SystemConfiguration/SCDynamicStoreConsoleUser.h>
