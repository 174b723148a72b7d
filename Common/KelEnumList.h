// Helpers for the enum lists of Common/.
//
// Every enum whose values have names in trace output is written once, as an X-list
// `X(name, value)` in its own header. The same list declares the enumerators and fills the
// name table of CStringifyEnums<T>, so an enum and its names cannot drift apart; the
// helpers below let each header check its counts at compile time.
#pragma once

#include <cstddef>
#include <initializer_list>

// One enumerator: `name = value,`.
#define KEL_ENUM_ENUMERATOR(name, value) name = value,

// One element of a braced list of the enumerators themselves.
#define KEL_ENUM_VALUE(name, value) name,

// The number of names in a braced list of enumerators: KelCountNames({LIST(KEL_ENUM_VALUE)}).
template <typename T> constexpr std::size_t KelCountNames(std::initializer_list<T> values)
{
    return values.size();
}

// The number of different values among them (names may share a value).
template <typename T> constexpr std::size_t KelCountDistinct(std::initializer_list<T> values)
{
    std::size_t distinct = 0;
    for (auto i = values.begin(); i != values.end(); ++i)
    {
        bool seenBefore = false;
        for (auto j = values.begin(); j != i && !seenBefore; ++j)
        {
            seenBefore = *j == *i;
        }
        distinct += seenBefore ? 0 : 1;
    }
    return distinct;
}
