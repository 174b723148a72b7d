#include "Common/CStringifyEnums.h"

// Every Init is the type's X-list, one assignment per name in list order.
#define KEL_NAME_ASSIGNMENT(name, value) mMap[name] = #name;

template <> void CStringifyEnums<EEventIdentifier>::Init()
{
    KEL_EVENT_IDENTIFIER_LIST(KEL_NAME_ASSIGNMENT)
}

template <> void CStringifyEnums<EAddressingMode>::Init()
{
    KEL_ADDRESSING_MODE_LIST(KEL_NAME_ASSIGNMENT)
}

template <> void CStringifyEnums<ECommand>::Init()
{
    KEL_COMMAND_LIST(KEL_NAME_ASSIGNMENT)
}

template <> void CStringifyEnums<unsigned short>::Init()
{
    KEL_STATUS_LIST(KEL_NAME_ASSIGNMENT)
}

template <> void CStringifyEnums<ELanguage>::Init()
{
    KEL_LANGUAGE_LIST(KEL_NAME_ASSIGNMENT)
}

// Empty until the product line's tool models are added to ETransducerType.h.
template <> void CStringifyEnums<ETransducerType>::Init()
{
    KEL_TRANSDUCER_TYPE_LIST(KEL_NAME_ASSIGNMENT)
}

template <> void CStringifyEnums<ETabletOrientation>::Init()
{
    KEL_TABLET_ORIENTATION_LIST(KEL_NAME_ASSIGNMENT)
}

template <> void CStringifyEnums<EAppGesture>::Init()
{
    KEL_APP_GESTURE_LIST(KEL_NAME_ASSIGNMENT)
}

template <> void CStringifyEnums<EGestureMethod>::Init()
{
    KEL_GESTURE_METHOD_LIST(KEL_NAME_ASSIGNMENT)
}

template <> void CStringifyEnums<_ECommandType>::Init()
{
    KEL_COMMAND_TYPE_LIST(KEL_NAME_ASSIGNMENT)
}

template <> void CStringifyEnums<EInputAreaType>::Init()
{
    KEL_INPUT_AREA_TYPE_LIST(KEL_NAME_ASSIGNMENT)
}

template <> void CStringifyEnums<EDisplayAreaType>::Init()
{
    KEL_DISPLAY_AREA_TYPE_LIST(KEL_NAME_ASSIGNMENT)
}
