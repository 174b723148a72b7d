// CRouteTable: construction and the registry of drivers and tablets.
#include "Common/Coordinator/CRouteTable.h"

#include "Common/KelAssert.h"
#include "Common/Settings/CSettingsMap.h"
#include "Mac/Common/CKelSemaphore.h"
#include "Mac/Common/Communication/CDriverMessageSendPort.h"

#include <cstdio>

CRouteTable::CRouteTable()
    : mpSemaphore(CKelSemaphore::New()),
      mTouchClientPortFactory([](const std::string& name_I)
                              { return CDriverMessageSendPort::New(name_I, true); })
{
}

CRouteTable::~CRouteTable() = default;

KELSTATUS CRouteTable::Init(void (**)(void*), void*)
{
    return KELSTATUS_METHOD_NOT_IMPLEMENTED;
}

void CRouteTable::SetTouchClientPortFactory(TouchClientPortFactory factory_I)
{
    mTouchClientPortFactory = std::move(factory_I);
}

KELSTATUS CRouteTable::SetDriver(int driverID_I, std::shared_ptr<CDriverMessageSendPort> port_I)
{
    KELSTATUS result = KELSTATUS_SUCCESS;
    auto existing = mDrivers.find(driverID_I);
    if (existing != mDrivers.end() && (existing->second == nullptr) == (port_I == nullptr))
    {
        // Replacing a live driver, or nothing with nothing: reported, then done anyway.
        result = KELSTATUS_INTERNAL_UNEXPECTED;
        KelAssertAt(kAssertSource, 158, result == KELSTATUS_SUCCESS);
    }
    mDrivers[driverID_I] = std::move(port_I);
    return result;
}

std::shared_ptr<CDriverMessageSendPort> CRouteTable::GetDriverByID(int driverID_I) const
{
    auto entry = mDrivers.find(driverID_I);
    return entry == mDrivers.end() ? nullptr : entry->second;
}

int CRouteTable::GetDriverIDForTabletSystemID(unsigned int systemID_I) const
{
    if (systemID_I == STabletRec::kNoSystemID)
    {
        KelFailAt(kAssertSource, 113, "Requested last used driver");
        return kNoDriver;
    }
    for (const STabletRec& tablet : mTablets)
    {
        if (tablet.mSystemID == systemID_I)
        {
            return tablet.mDriverID;
        }
    }
    return kNoDriver;
}

std::shared_ptr<CDriverMessageSendPort>
CRouteTable::GetDriverForTabletSystemID(int systemID_I) const
{
    const int driverID = GetDriverIDForTabletSystemID(static_cast<unsigned int>(systemID_I));
    return driverID == kNoDriver ? nullptr : GetDriverByID(driverID);
}

std::shared_ptr<CDriverMessageSendPort>
CRouteTable::NextDriver(int& driverID_O, std::shared_ptr<CDriverMessageSendPort> current_I) const
{
    auto entry = mDrivers.begin();
    if (current_I != nullptr)
    {
        while (entry != mDrivers.end() && entry->second != current_I)
        {
            ++entry;
        }
        if (entry != mDrivers.end())
        {
            ++entry;
        }
    }
    if (entry == mDrivers.end())
    {
        driverID_O = kNoDriver;
        return nullptr;
    }
    driverID_O = entry->first;
    return entry->second;
}

bool CRouteTable::StepDriverWalk(int& driverID_IO,
                                 std::shared_ptr<CDriverMessageSendPort>& driver_IO) const
{
    const bool first = driver_IO == nullptr;
    const int previousID = driverID_IO;
    driver_IO = NextDriver(driverID_IO, driver_IO);
    if (driver_IO != nullptr && !first && driverID_IO <= previousID)
    {
        // The same port under an earlier ID: go on from the entry after the one visited.
        auto next = mDrivers.upper_bound(previousID);
        driverID_IO = next == mDrivers.end() ? kNoDriver : next->first;
        driver_IO = next == mDrivers.end() ? nullptr : next->second;
    }
    return driver_IO != nullptr;
}

unsigned int CRouteTable::AddTablet(int driverID_I, int tabletIndex_I, unsigned int systemID_I)
{
    const STabletRec* found = nullptr;
    for (const STabletRec& tablet : mTablets)
    {
        if (tablet.mDriverID == driverID_I && tablet.mTabletIndex == tabletIndex_I)
        {
            found = &tablet;
            break;
        }
    }
    std::fprintf(stderr,
                 "************   Adding Tablet:  driverID:%d tabletIdx:%d systemId:%d  "
                 "TabletSystemId:%d\n",
                 driverID_I, tabletIndex_I, static_cast<int>(systemID_I),
                 found != nullptr ? static_cast<int>(found->mSystemID) : -1);
    // An existing tablet keeps its ID. A record without an ID is not replaced: a second
    // record for the same tablet is appended.
    if (found != nullptr && found->mSystemID != STabletRec::kNoSystemID)
    {
        return found->mSystemID;
    }
    mTablets.push_back({driverID_I, tabletIndex_I, systemID_I, 0});
    return systemID_I;
}

unsigned int CRouteTable::AddNewTablet(int driverID_I, int tabletIndex_I)
{
    // The last ID plus 1: an empty table (0xFFFFFFFF) proposes 0, and so does a table whose
    // last record has no ID (the wrap-around, kept as it always was).
    return AddTablet(driverID_I, tabletIndex_I, LastSystemID() + 1);
}

unsigned int CRouteTable::FindTablet(int driverID_I, int tabletIndex_I) const
{
    for (const STabletRec& tablet : mTablets)
    {
        if (tablet.mDriverID == driverID_I && tablet.mTabletIndex == tabletIndex_I)
        {
            return tablet.mSystemID;
        }
    }
    return STabletRec::kNoSystemID;
}

unsigned int CRouteTable::LastSystemID() const
{
    return mTablets.empty() ? STabletRec::kNoSystemID : mTablets.back().mSystemID;
}
