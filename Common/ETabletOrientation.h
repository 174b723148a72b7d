// ETabletOrientation: how the tablet lies in front of the user.
#pragma once

#include "Common/KelEnumList.h"

// X(name, value).
#define KEL_TABLET_ORIENTATION_LIST(X)                                                             \
    X(eTabletOrientationPortrait, 0)                                                               \
    X(eTabletOrientationLandscape, 1)                                                              \
    X(eTabletOrientationPortraitFlipped, 2)                                                        \
    X(eTabletOrientationLandscapeFlipped, 3)

enum ETabletOrientation : int
{
    KEL_TABLET_ORIENTATION_LIST(KEL_ENUM_ENUMERATOR)
};

static_assert(KelCountNames({KEL_TABLET_ORIENTATION_LIST(KEL_ENUM_VALUE)}) == 4);
