#include "Common/Coordinator/CMain.h"

#include "Common/Coordinator/CInputs.h"
#include "Common/Coordinator/CRouteTable.h"
#include "Common/KelAssert.h"

CMain::~CMain()
{
    delete mInputs;
    mInputs = nullptr;
    delete mpRouteTable;
    mpRouteTable = nullptr;
}

KELSTATUS CMain::Init()
{
    KelAssertLine(56, mInputs);
    // A second Init (start-up run again on the same main object) starts from a fresh table;
    // the platform side has replaced the inputs that used the old one before this runs.
    delete mpRouteTable;
    mpRouteTable = new CRouteTable();
    if (mInputs == nullptr)
    {
        return KELSTATUS_MEMORY_NULL_PTR;
    }
    return mInputs->Init(mpRouteTable);
}
