#include "Common/Coordinator/CInputs.h"

CInputs::~CInputs() = default;

KELSTATUS CInputs::Init(CRouteTable* routingTable_I)
{
    mpRoutingTable = routingTable_I;
    return KELSTATUS_SUCCESS;
}
