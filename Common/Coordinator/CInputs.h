// CInputs: where requests enter the coordinator, seen from the platform-independent side.
//
// The platform input source (CMacInputs) owns the coordinator's message port and its Apple
// Event handlers; every request it receives ends in the route table given to Init. The
// table belongs to the main object (CMain), not to the inputs.
#pragma once

#include "Common/KelStatus.h"

class CRouteTable;

class CInputs
{
public:
    CInputs() = default;
    CInputs(const CInputs&) = delete;
    CInputs& operator=(const CInputs&) = delete;
    virtual ~CInputs();

    // Stores the table (not owned); KELSTATUS_SUCCESS.
    virtual KELSTATUS Init(CRouteTable* routingTable_I);

    CRouteTable* RoutingTable() const { return mpRoutingTable; }

protected:
    CRouteTable* mpRoutingTable = nullptr;
};
