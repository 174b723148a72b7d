// ECommand: what an event packet asks the receiver to do. The values travel on the wire;
// MAX_COMMAND bounds the valid range. The underlying type is fixed at 32 bits, so any value
// read from the wire is a value of the type.
#pragma once

#include "Common/KelEnumList.h"

// X(name, value).
#define KEL_COMMAND_LIST(X)                                                                        \
    X(ECommandDoNothing, 0)                                                                        \
    X(ECommandGet, 1)                                                                              \
    X(ECommandSet, 2)                                                                              \
    X(ECommandCreate, 3)                                                                           \
    X(ECommandDestroy, 4)                                                                          \
    X(ECommandFlush, 5)                                                                            \
    X(ECommandGetDefault, 6)                                                                       \
    X(ECommandSubscribe, 7)                                                                        \
    X(ECommandUnsubscribe, 8)                                                                      \
    X(MAX_COMMAND, 9)

enum ECommand : int
{
    KEL_COMMAND_LIST(KEL_ENUM_ENUMERATOR)
};

static_assert(KelCountNames({KEL_COMMAND_LIST(KEL_ENUM_VALUE)}) == 10);
