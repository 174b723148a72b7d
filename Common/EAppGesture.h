// EAppGesture: the application gestures a touch gesture can be mapped to. 10 is unused and
// eAppGestureMax is 11: the gap is deliberate and kept.
#pragma once

#include "Common/KelEnumList.h"

// X(name, value).
#define KEL_APP_GESTURE_LIST(X)                                                                    \
    X(eAppGestureRotateCW, 0)                                                                      \
    X(eAppGestureRotateCCW, 1)                                                                     \
    X(eAppGestureZoomIn, 2)                                                                        \
    X(eAppGestureZoomOut, 3)                                                                       \
    X(eAppGestureScrollUp, 4)                                                                      \
    X(eAppGestureScrollDown, 5)                                                                    \
    X(eAppGesturePanLeft, 6)                                                                       \
    X(eAppGesturePanRight, 7)                                                                      \
    X(eAppGestureSwipeLeft, 8)                                                                     \
    X(eAppGestureSwipeRight, 9)                                                                    \
    X(eAppGestureMax, 11)

enum EAppGesture : int
{
    KEL_APP_GESTURE_LIST(KEL_ENUM_ENUMERATOR)
};

static_assert(KelCountNames({KEL_APP_GESTURE_LIST(KEL_ENUM_VALUE)}) == 11);
