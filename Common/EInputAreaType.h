// EInputAreaType: which part of the tablet a mapping uses.
#pragma once

#include "Common/KelEnumList.h"

// X(name, value).
#define KEL_INPUT_AREA_TYPE_LIST(X)                                                                \
    X(eInputAreaTypeFullTablet, 0)                                                                 \
    X(eInputAreaTypePortionTablet, 1)                                                              \
    X(eInputAreaTypeInsetTablet, 2)                                                                \
    X(eInputAreaTypeLeftHandedZipNavigation, 3)                                                    \
    X(eInputAreaTypeLeftHandedZipDrawing, 4)                                                       \
    X(eInputAreaTypeRightHandedZipNavigation, 5)                                                   \
    X(eInputAreaTypeRightHandedZipDrawing, 6)                                                      \
    X(eInputAreaTypeTessaLargeArea, 7)                                                             \
    X(eInputAreaTypeTessaMediumArea, 8)                                                            \
    X(eInputAreaTypeTessaSmallArea, 9)                                                             \
    X(eInputAreaTypeInset6x8, 10)

enum EInputAreaType : int
{
    KEL_INPUT_AREA_TYPE_LIST(KEL_ENUM_ENUMERATOR)
};

static_assert(KelCountNames({KEL_INPUT_AREA_TYPE_LIST(KEL_ENUM_VALUE)}) == 11);
