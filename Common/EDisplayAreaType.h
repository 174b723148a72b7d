// EDisplayAreaType: which part of the display a mapping uses.
#pragma once

#include "Common/KelEnumList.h"

// X(name, value).
#define KEL_DISPLAY_AREA_TYPE_LIST(X)                                                              \
    X(eDisplayAreaTypeFullDisplay, 0)                                                              \
    X(eDisplayAreaTypePortionDisplay, 1)

enum EDisplayAreaType : int
{
    KEL_DISPLAY_AREA_TYPE_LIST(KEL_ENUM_ENUMERATOR)
};

static_assert(KelCountNames({KEL_DISPLAY_AREA_TYPE_LIST(KEL_ENUM_VALUE)}) == 2);
