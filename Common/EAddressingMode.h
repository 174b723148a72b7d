// EAddressingMode: how an object key's reference is to be read (an index, an ID, a string...).
// The values travel on the wire; MAX_ADDRESSING_MODE bounds the valid range. The underlying
// type is fixed at 32 bits, so any value read from the wire is a value of the type.
#pragma once

#include "Common/KelEnumList.h"

// X(name, value).
#define KEL_ADDRESSING_MODE_LIST(X)                                                                \
    X(EAddrModeByIndex, 0)                                                                         \
    X(EAddrModeByID, 1)                                                                            \
    X(EAddrModeByTAAID, 2)                                                                         \
    X(EAddrModeByLocalIndex, 3)                                                                    \
    X(EAddrModeByAttributes, 4)                                                                    \
    X(EAddrModeAllSubordinate, 5)                                                                  \
    X(EAddrModeByString, 6)                                                                        \
    X(MAX_ADDRESSING_MODE, 7)

enum EAddressingMode : int
{
    KEL_ADDRESSING_MODE_LIST(KEL_ENUM_ENUMERATOR)
};

static_assert(KelCountNames({KEL_ADDRESSING_MODE_LIST(KEL_ENUM_VALUE)}) == 8);
