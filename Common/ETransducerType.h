// ETransducerType: the type code of a tool (pen, airbrush, mouse...) as the tablet reports it.
//
// The rows of this list, one per tool model with its model name, are supplied with the
// product line and are not part of this code base; until they are added, the list is empty
// and every code is printed by CStringifyEnums<ETransducerType> as a made-up name
// ("_15ETransducerType_<code>"). Add rows as X(name, value) below; the enumerators and the
// name table follow from the list.
#pragma once

#include "Common/KelEnumList.h"

// X(name, value).
#define KEL_TRANSDUCER_TYPE_LIST(X)

enum ETransducerType : int
{
    KEL_TRANSDUCER_TYPE_LIST(KEL_ENUM_ENUMERATOR)
};
