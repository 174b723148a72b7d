// The assertion of the object-key and event-packet layer. Its reports name the source
// "Common/param", whichever of the layer's files the check stands in, so that the lines
// read the same as they always have.
#pragma once

#include "Common/KelAssert.h"

#define KEL_PARAM_SOURCE "Common/param"

#define ParamAssert(cond) KelAssertAt(KEL_PARAM_SOURCE, __LINE__, cond)
#define ParamFail(expr) KelFailAt(KEL_PARAM_SOURCE, __LINE__, expr)
