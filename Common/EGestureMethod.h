// EGestureMethod: how an application gesture is delivered to the application.
#pragma once

#include "Common/KelEnumList.h"

// X(name, value).
#define KEL_GESTURE_METHOD_LIST(X)                                                                 \
    X(eGestureMethodDisable, 0)                                                                    \
    X(eGestureMethodKeystroke, 1)                                                                  \
    X(eGestureMethodWheelUp, 2)                                                                    \
    X(eGestureMethodWheelDown, 3)                                                                  \
    X(eGestureMethodScrollBarUp, 4)                                                                \
    X(eGestureMethodScrollBarDown, 5)                                                              \
    X(eGestureMethodScrollBarLeft, 6)                                                              \
    X(eGestureMethodScrollBarRight, 7)                                                             \
    X(eGestureMethodMouseCommand, 8)                                                               \
    X(eGestureMethodNativeGesture, 9)                                                              \
    X(eGestureMethodWheelLeft, 10)                                                                 \
    X(eGestureMethodWheelRight, 11)

enum EGestureMethod : int
{
    KEL_GESTURE_METHOD_LIST(KEL_ENUM_ENUMERATOR)
};

static_assert(KelCountNames({KEL_GESTURE_METHOD_LIST(KEL_ENUM_VALUE)}) == 12);
