// CMain: the coordinator's single main object, platform-independent half.
//
// It owns the input source and the route table. The platform main object (CMacCoordinatorMain)
// creates the inputs before CMain::Init runs and registers the drivers after it; CMain::Init
// creates the table and hands it to the inputs. The table's own Init is not called: it does
// nothing on purpose.
//
// Destruction deletes the inputs first (they may still refer to the table), then the table.
#pragma once

#include "Common/KelStatus.h"

class CInputs;
class CRouteTable;

class CMain
{
public:
    CMain() = default;
    CMain(const CMain&) = delete;
    CMain& operator=(const CMain&) = delete;
    virtual ~CMain();

    // Creates the route table (replacing one left by an earlier Init) and returns the status
    // of the inputs' Init with it. Missing inputs are reported ("Common/Coordinator/CMain",
    // line 56); the table is still made and the result is then KELSTATUS_MEMORY_NULL_PTR,
    // since there is nothing to initialise.
    virtual KELSTATUS Init();

    CInputs* Inputs() const { return mInputs; }
    CRouteTable* RouteTable() const { return mpRouteTable; }

protected:
    CInputs* mInputs = nullptr;          // owned
    CRouteTable* mpRouteTable = nullptr; // owned
};
