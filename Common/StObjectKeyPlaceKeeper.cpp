#include "Common/StObjectKeyPlaceKeeper.h"

#include "Common/CEventPacket.h"
#include "Common/ParamAssert.h"

StObjectKeyPlaceKeeper::StObjectKeyPlaceKeeper(CEventPacket* pEvent_I)
    : mpEvent(pEvent_I), mpSavedKey(nullptr)
{
    ParamAssert(pEvent_I);
    if (pEvent_I != nullptr)
    {
        mpSavedKey = pEvent_I->CurrentKey();
    }
}

StObjectKeyPlaceKeeper::~StObjectKeyPlaceKeeper()
{
    if (mpEvent != nullptr)
    {
        mpEvent->SetCurrentKey(mpSavedKey);
    }
}
