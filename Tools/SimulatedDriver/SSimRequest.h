// A request as a simulated driver understands it: what is asked (the kind) and which of its
// tablets it is about, read from the packet's command and key chain.
//
// How a key chain is read, first rule that applies:
//   EObjectIDMultiTouchAPI then EParameterIDMultiTouchAPIClient     touch-client
//   last key EParameterIDFileVersion                                 file-version
//   last key EParameterIDTabletSystemID                              system-id
//   last key EParameterIDTabletMultiTouchCapabilities                touch-capabilities
//   last key EParameterIDSize, reference EParameterIDTabletBlock     tablet-block-size
//   last key EParameterIDTabletBlock                                 tablet-block
//   last key EParameterIDCount, reference EObjectIDTablet            tablet-count
//   last key EParameterIDLastTabletUsed                              last-tablet-used
//   last key EParameterIDLastTabletUsedTimestamp                     last-tablet-used-timestamp
//   a key EParameterIDGraphicsTablet, command ECommandCreate         create
//   a key EParameterIDGraphicsTablet, command ECommandDestroy        destroy-tablet
//   a key EParameterIDIndex                                          index
//   anything else                                                    other
//
// The tablet is named by the first EObjectIDTablet key: in EAddrModeByLocalIndex its
// reference is the driver's own index of the tablet; in EAddrModeAllSubordinate it means every
// tablet; in any other mode the reference is a tablet system ID, the number clients and the
// coordinator's route table know the tablet by.
#pragma once

#include "Common/EAddressingMode.h"
#include "Common/EEventIdentifier.h"
#include "Tools/SimulatedDriver/ESimRequestKind.h"

#include <cstdint>
#include <string>

class CEventPacket;

enum class ESimTabletAddress
{
    eNone,       // no tablet key
    eLocalIndex, // reference: the driver's index of the tablet
    eSystemID,   // reference: the tablet's system ID
    eAll         // every tablet of the driver
};

struct SSimRequest
{
    ESimRequestKind kind = ESimRequestKind::eOther;
    int command = 0;
    ESimTabletAddress tabletAddress = ESimTabletAddress::eNone;
    std::uint32_t tabletReference = 0;
    // The identifier of the last key of the chain (the parameter asked for).
    int lastIdentifier = 0;
    // Of the last key: tablet-count tells "by ID" from "by index" with it.
    EAddressingMode lastMode = EAddrModeByIndex;
};

SSimRequest ClassifySimRequest(const CEventPacket& packet_I);

// "get system-id tablet #0" and the like, for trace lines.
std::string DescribeSimRequest(const SSimRequest& request_I);
