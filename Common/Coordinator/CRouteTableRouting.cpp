// CRouteTable: the routing of request packets. A request is answered here (ProcessLocally)
// or its key chain decides where it goes (ProcessRouting): to the driver that owns the
// addressed tablet, to the drivers in turn until one succeeds, or to every driver.
#include "Common/Coordinator/CRouteTable.h"

#include "Common/CEventPacket.h"
#include "Common/KelAssert.h"
#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsInteger.h"
#include "Common/Settings/CSettingsMap.h"
#include "Common/StObjectKeyPlaceKeeper.h"
#include "Mac/Common/Communication/CDriverMessageSendPort.h"

#include <cstdint>
#include <cstdio>

namespace
{
// The multi-touch API version query. The identifier has no name in the identifier table;
// clients send the number.
constexpr EEventIdentifier kMultiTouchAPIVersionQuery = static_cast<EEventIdentifier>(508);

// Answer to a "last tablet used" request from a driver that has none.
constexpr unsigned short kNoLastTablet = 0xFFFF;

unsigned int KeyReference(const OBJECT_KEY* key_I)
{
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(key_I->mReference));
}

// The version a multi-touch API client should speak, from the version it asks with.
long long MultiTouchAPIVersionAnswer(std::uint32_t clientVersion_I)
{
    if (clientVersion_I <= 1)
    {
        return 3;
    }
    return clientVersion_I <= 4 ? 0 : 2;
}
} // namespace

KELSTATUS CRouteTable::ProcessEvent(CEventPacket* event_I)
{
    if (event_I == nullptr)
    {
        std::fprintf(stderr, "CRouteTable::ProcessEvent: null packet\n");
        return KELSTATUS_MEMORY_NULL_PTR;
    }
    // Drivers' replies may move the current key; the caller gets it back where it was.
    StObjectKeyPlaceKeeper keeper(event_I);
    const KELSTATUS status = ProcessLocally(event_I);
    if (status < KELSTATUS_FAILURE)
    {
        return status;
    }
    std::shared_ptr<CDriverMessageSendPort> driver;
    switch (ProcessRouting(event_I, driver))
    {
    case kRouteAnswered:
        return KELSTATUS_SUCCESS;
    case kRouteToDriver:
        return SendToDriver(driver, event_I);
    case kRouteToSuccessfulDriver:
        return SendToSuccessfulDriver(event_I);
    case kRouteToAllDrivers:
        return SendToAllDrivers(event_I);
    default:
        return KELSTATUS_FAILURE;
    }
}

KELSTATUS CRouteTable::ProcessLocally(CEventPacket* event_I)
{
    if (event_I == nullptr)
    {
        std::fprintf(stderr, "CRouteTable::ProcessLocally: null packet\n");
        return KELSTATUS_MEMORY_NULL_PTR;
    }
    StObjectKeyPlaceKeeper keeper(event_I);
    EEventIdentifier first;
    EEventIdentifier next;
    {
        // Only a peek: whatever is sent from here sees the packet positioned as it arrived.
        StObjectKeyPlaceKeeper peek(event_I);
        first = event_I->CurrentKey()->Identifier();
        event_I->AdvanceCurrentKey();
        next = event_I->CurrentKey()->Identifier();
    }

    switch (first)
    {
    case EObjectIDMultiTouchAPI:
        return ProcessMultiTouchAPI(event_I, next);
    case EObjectIDRoutingTable:
        if (next != EParameterIDTabletBlock)
        {
            return KELSTATUS_METHOD_NOT_IMPLEMENTED;
        }
        if (event_I->Command() != ECommandFlush)
        {
            return KELSTATUS_FAILURE; // the tablet block itself belongs to the drivers
        }
        Sync(); // a flush is answered whatever the sync found
        return KELSTATUS_SUCCESS;
    case EObjectIDDriver:
        if (next == EParameterIDLastTabletUsed)
        {
            return AnswerLastTabletUsed(event_I);
        }
        return KELSTATUS_FAILURE;
    default:
        return KELSTATUS_FAILURE;
    }
}

KELSTATUS CRouteTable::ProcessMultiTouchAPI(CEventPacket* event_I, int nextIdentifier_I)
{
    if (nextIdentifier_I == EParameterIDMultiTouchAPIClient)
    {
        return RegisterTouchAPIClient(event_I);
    }
    if (nextIdentifier_I == EParameterIDTabletMultiTouchCapabilities)
    {
        event_I->PackData_<std::shared_ptr<CSettingsObject>>(BuildTouchCapabilitiesArray());
        return KELSTATUS_SUCCESS;
    }
    if (nextIdentifier_I == kMultiTouchAPIVersionQuery)
    {
        const std::shared_ptr<CSettingsInteger> asked =
            event_I->UnPackData_<std::shared_ptr<CSettingsInteger>>(CSettingsInteger::New(0));
        const auto clientVersion = static_cast<std::uint32_t>(asked->GetValue());
        event_I->PackData_<std::shared_ptr<CSettingsObject>>(
            CSettingsInteger::New(MultiTouchAPIVersionAnswer(clientVersion)));
        return KELSTATUS_SUCCESS;
    }
    return KELSTATUS_METHOD_NOT_IMPLEMENTED;
}

KELSTATUS CRouteTable::RegisterTouchAPIClient(CEventPacket* event_I)
{
    const std::shared_ptr<CSettingsMap> request =
        event_I->UnPackData_<std::shared_ptr<CSettingsMap>>(nullptr);
    if (request == nullptr)
    {
        return KELSTATUS_INTERNAL_UNEXPECTED;
    }
    const long long type =
        request->IntegerForKeyWithDefault("MultiTouchAPIClientRegistrationType", 0);
    if (type >= 2 && type <= 4)
    {
        // Registrations the drivers handle: passed on to all of them with the same settings.
        CEventPacket forward;
        forward.SetCommand(event_I->Command());
        forward.AddKeyInt(EObjectIDDriver, 0, EAddrModeByIndex);
        forward.AddKeyInt(EObjectIDMultiTouchAPI, 0, EAddrModeByIndex);
        forward.AddKeyInt(EParameterIDMultiTouchAPIClient, 0, EAddrModeByIndex);
        forward.PackData_<std::shared_ptr<CSettingsObject>>(request);
        SendToAllDrivers(&forward);
        return KELSTATUS_SUCCESS;
    }
    if (type != 1)
    {
        return KELSTATUS_API_BAD_PARAMETER;
    }
    // A client that wants the capabilities itself, at the port its identifier names. An
    // empty identifier is reported and then used like any other name.
    const std::string clientName =
        request->StringForKeyWithDefault("MultiTouchAPIClientIdentifier", std::string());
    KelAssertAt(kAssertSource, 281, !clientName.empty());
    if (event_I->Command() == ECommandDestroy)
    {
        mTouchAPIClients.erase(clientName);
    }
    else if (event_I->Command() == ECommandCreate)
    {
        AddTouchAPIClient(clientName);
    }
    return KELSTATUS_SUCCESS;
}

KELSTATUS CRouteTable::AnswerLastTabletUsed(CEventPacket* event_I)
{
    // The first driver that knows a last tablet answers; the others are not asked.
    int driverID = kNoDriver;
    std::shared_ptr<CDriverMessageSendPort> driver;
    while (StepDriverWalk(driverID, driver))
    {
        if (SendToDriver(driver, event_I) == KELSTATUS_SUCCESS &&
            event_I->UnPackData_<unsigned short>(kNoLastTablet) != kNoLastTablet)
        {
            break;
        }
    }
    return KELSTATUS_SUCCESS;
}

int CRouteTable::ProcessRouting(CEventPacket* event_I,
                                std::shared_ptr<CDriverMessageSendPort>& driver_O)
{
    driver_O.reset();
    if (event_I == nullptr)
    {
        return kRouteToAllDrivers;
    }
    StObjectKeyPlaceKeeper keeper(event_I);
    for (;;)
    {
        const OBJECT_KEY* key = event_I->CurrentKey();
        if (key == nullptr)
        {
            return kRouteToAllDrivers;
        }
        switch (key->Identifier())
        {
        case EObjectIDNothing:
        case EParameterIDNothing:
            return kRouteToAllDrivers;
        case EParameterIDGraphicsTablet:
            if (event_I->Command() == ECommandDestroy)
            {
                if (std::shared_ptr<CDriverMessageSendPort> owner = DriverFromEventData(event_I))
                {
                    driver_O = owner;
                    return kRouteToDriver;
                }
            }
            else if (event_I->Command() == ECommandCreate)
            {
                return kRouteToSuccessfulDriver;
            }
            break;
        case EParameterIDIndex:
            return kRouteToSuccessfulDriver;
        case EObjectIDContext:
        case EObjectIDContextManager:
        case EObjectIDContextTemplate:
            // Contexts are addressed by the system ID of their tablet; reported, then routed
            // exactly as a tablet key.
            KelAssertAt(kAssertSource, 424, event_I->CurrentKey()->Identifier() == EObjectIDTablet);
            [[fallthrough]];
        case EObjectIDTablet:
            if (key->mAddressingMode == EAddrModeAllSubordinate)
            {
                return kRouteToAllDrivers;
            }
            if (std::shared_ptr<CDriverMessageSendPort> owner =
                    GetDriverForTabletSystemID(static_cast<int>(KeyReference(key))))
            {
                driver_O = owner;
                return kRouteToDriver;
            }
            break; // an unknown tablet: the rest of the chain decides
        case EParameterIDCount:
            if (KeyReference(key) == EObjectIDTablet)
            {
                AnswerTabletCount(event_I, key->mAddressingMode == EAddrModeByID);
                return kRouteAnswered;
            }
            break;
        default:
            break;
        }
        event_I->AdvanceCurrentKey();
        if (event_I->CurrentKey() == key)
        {
            // The last place of the array, reached by a chain without a sentinel.
            return kRouteToAllDrivers;
        }
    }
}

void CRouteTable::AnswerTabletCount(CEventPacket* event_I, bool byID_I)
{
    // A count that differs from the drivers' total means tablets came or went.
    if (TabletCountFromDrivers(false) != TabletCount())
    {
        Sync();
    }
    const unsigned short count =
        byID_I ? TabletCountFromDrivers(true) : static_cast<unsigned short>(TabletCount());
    event_I->PackData_<unsigned short>(count);
}

KELSTATUS CRouteTable::SendToDriver(std::shared_ptr<CDriverMessageSendPort> drvIF_I,
                                    CEventPacket* event_I)
{
    KelAssertAt(kAssertSource, 495, drvIF_I);
    KelAssertAt(kAssertSource, 496, event_I);
    if (drvIF_I == nullptr || event_I == nullptr)
    {
        return KELSTATUS_INTERNAL_UNEXPECTED;
    }
    // A port that copies the reply's keys back moves the current key; every driver of a
    // walk gets the packet positioned as it arrived.
    StObjectKeyPlaceKeeper keeper(event_I);
    return drvIF_I->SendKeltoEvent(event_I);
}

KELSTATUS CRouteTable::SendToSuccessfulDriver(CEventPacket* event_I)
{
    int driverID = kNoDriver;
    std::shared_ptr<CDriverMessageSendPort> driver;
    while (StepDriverWalk(driverID, driver))
    {
        if (SendToDriver(driver, event_I) == KELSTATUS_SUCCESS)
        {
            return KELSTATUS_SUCCESS;
        }
    }
    return KELSTATUS_OBJECT_NOT_FOUND;
}

KELSTATUS CRouteTable::SendToAllDrivers(CEventPacket* event_I)
{
    bool anySucceeded = false;
    int driverID = kNoDriver;
    std::shared_ptr<CDriverMessageSendPort> driver;
    while (StepDriverWalk(driverID, driver))
    {
        if (SendToDriver(driver, event_I) == KELSTATUS_SUCCESS)
        {
            anySucceeded = true;
        }
    }
    return anySucceeded ? KELSTATUS_SUCCESS : KELSTATUS_OBJECT_NOT_FOUND;
}

std::shared_ptr<CDriverMessageSendPort> CRouteTable::DriverFromEventData(CEventPacket* event_I)
{
    KelAssertAt(kAssertSource, 867, event_I);
    if (event_I == nullptr)
    {
        return nullptr;
    }
    const unsigned short systemID = event_I->UnPackData_<unsigned short>(0);
    if (event_I->Status() != KELSTATUS_SUCCESS)
    {
        return nullptr;
    }
    return GetDriverForTabletSystemID(systemID);
}
