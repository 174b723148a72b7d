// A fuzz target's own checks: a failed one stops the process at once, so that the fuzzer (or
// the corpus replay) reports the input that made it fail.
#pragma once

inline void Check(bool condition_I)
{
    if (!condition_I)
    {
        __builtin_trap();
    }
}
