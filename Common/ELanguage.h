// ELanguage: the languages of the driver suite's user interface. LAST_ELANGUAGE bounds the
// valid range.
#pragma once

#include "Common/KelEnumList.h"

// X(name, value).
#define KEL_LANGUAGE_LIST(X)                                                                       \
    X(EAmericanEnglish, 0)                                                                         \
    X(EChineseSimplified, 1)                                                                       \
    X(EChineseTraditional, 2)                                                                      \
    X(EEuropeanEnglish, 3)                                                                         \
    X(EFrench, 4)                                                                                  \
    X(EGerman, 5)                                                                                  \
    X(EJapanese, 6)                                                                                \
    X(EKorean, 7)                                                                                  \
    X(EItalian, 8)                                                                                 \
    X(ESpanish, 9)                                                                                 \
    X(EPortuguese, 10)                                                                             \
    X(EBrazilian, 11)                                                                              \
    X(EDutch, 12)                                                                                  \
    X(ERussian, 13)                                                                                \
    X(ESwedish, 14)                                                                                \
    X(EPolish, 15)                                                                                 \
    X(EDanish, 16)                                                                                 \
    X(EFinnish, 17)                                                                                \
    X(ENorwegian, 18)                                                                              \
    X(ETurkish, 19)                                                                                \
    X(ECzech, 20)                                                                                  \
    X(EGreek, 21)                                                                                  \
    X(EHungarian, 22)                                                                              \
    X(ESlovak, 23)                                                                                 \
    X(LAST_ELANGUAGE, 24)

enum ELanguage : int
{
    KEL_LANGUAGE_LIST(KEL_ENUM_ENUMERATOR)
};

static_assert(KelCountNames({KEL_LANGUAGE_LIST(KEL_ENUM_VALUE)}) == 25);
