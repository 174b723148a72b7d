// CRouteTable: synchronisation of the tablet list with the drivers, and the multi-touch API
// clients that receive the tablets' touch capabilities.
//
// The drivers find and lose tablets on their own; Sync asks each for its tablets, gives each
// a system ID, tells a driver the right ID where its own differs, collects the touch
// capabilities, and sends the whole table (the tablet block, CTabletBlock.h) to all drivers
// and the capabilities to all touch clients.
#include "Common/Coordinator/CRouteTable.h"

#include "Common/CEventPacket.h"
#include "Common/Coordinator/CTabletBlock.h"
#include "Common/KelAssert.h"
#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsMap.h"
#include "Mac/Common/CKelSemaphore.h"
#include "Mac/Common/Communication/CDriverMessageSendPort.h"
#include "Mac/Common/STSemaphoreLock.h"

#include <cstdint>
#include <cstdio>
#include <utility>

namespace
{
// How a driver says that it has no tablet at an index.
constexpr unsigned short kNoTabletAtIndex = 0xFFFF;

// Tablet counts travel in 16 bits and 0xFFFF ends a driver's list, so no driver has more
// tablets than this. The bound keeps a driver that never ends its list from holding the
// coordinator forever.
constexpr int kMaxTabletsPerDriver = 0xFFFF;

// Driver (by index 0), tablet `tabletIndex_I` within the driver, then the parameter.
void AddDriverTabletKeys(CEventPacket& packet_IO, int tabletIndex_I, EEventIdentifier parameter_I)
{
    packet_IO.AddKeyInt(EObjectIDDriver, 0, EAddrModeByIndex);
    packet_IO.AddKeyInt(EObjectIDTablet, static_cast<unsigned int>(tabletIndex_I),
                        EAddrModeByLocalIndex);
    packet_IO.AddKeyInt(parameter_I, 0, EAddrModeByIndex);
}
} // namespace

KELSTATUS CRouteTable::Sync()
{
    STSemaphoreLock lock(mpSemaphore);
    std::fprintf(stderr, "CRouteTable::Sync\n");
    // A sync waits on the drivers with the run loop serving requests meanwhile, and one of
    // them (a tablet count, a sync request) may run a whole sync inside this one. That one
    // is newer: this one stops at its next step instead of going on with the walk it began
    // before, which would clear the capabilities just collected and tell the drivers an
    // older table. A client asking the tablet count during the launch sync so got its answer
    // and left the coordinator without any touch capabilities.
    const unsigned int generation = mSyncsCompleted;
    auto superseded = [&] { return mSyncsCompleted != generation; };

    // Tablets the drivers were told about before (by this coordinator or an earlier one)
    // keep their IDs; a driver without a block is no reason to stop.
    ReadTabletsFromDrivers();
    if (superseded())
    {
        return mLastSyncStatus;
    }
    mTouchCapabilities.clear();

    int driverID = kNoDriver;
    std::shared_ptr<CDriverMessageSendPort> driver;
    while (StepDriverWalk(driverID, driver))
    {
        SyncDriverTablets(driverID, driver, generation);
        if (superseded())
        {
            return mLastSyncStatus;
        }
    }

    SendTouchCapabilitiesToAPIClients();
    if (superseded())
    {
        return mLastSyncStatus;
    }
    mLastSyncStatus = SendTabletsToDrivers();
    ++mSyncsCompleted;
    return mLastSyncStatus;
}

void CRouteTable::SyncDriverTablets(int driverID_I,
                                    const std::shared_ptr<CDriverMessageSendPort>& driver_I,
                                    unsigned int generation_I)
{
    for (int tabletIndex = 0; tabletIndex < kMaxTabletsPerDriver; ++tabletIndex)
    {
        CEventPacket idRequest;
        idRequest.SetCommand(ECommandGet);
        AddDriverTabletKeys(idRequest, tabletIndex, EParameterIDTabletSystemID);
        if (SendToDriver(driver_I, &idRequest) != KELSTATUS_SUCCESS ||
            mSyncsCompleted != generation_I)
        {
            return;
        }
        const unsigned short reported = idRequest.UnPackData_<unsigned short>(kNoTabletAtIndex);
        if (reported == kNoTabletAtIndex)
        {
            return;
        }

        const unsigned int systemID = AddNewTablet(driverID_I, tabletIndex);
        if (systemID != reported)
        {
            CEventPacket correction;
            correction.SetCommand(ECommandSet);
            AddDriverTabletKeys(correction, tabletIndex, EParameterIDTabletSystemID);
            correction.PackData_<unsigned short>(static_cast<unsigned short>(systemID));
            SendToDriver(driver_I, &correction);
        }

        CEventPacket capabilitiesRequest;
        capabilitiesRequest.SetCommand(ECommandGet);
        AddDriverTabletKeys(capabilitiesRequest, tabletIndex,
                            EParameterIDTabletMultiTouchCapabilities);
        SendToDriver(driver_I, &capabilitiesRequest);
        if (mSyncsCompleted != generation_I)
        {
            return;
        }
        const std::shared_ptr<CSettingsMap> capabilities =
            capabilitiesRequest.UnPackData_<std::shared_ptr<CSettingsMap>>(nullptr);
        if (capabilities == nullptr)
        {
            std::fprintf(stderr, "Failed to get Dev Caps\n");
            continue;
        }
        std::fprintf(stderr, "Received Dev Caps\n");
        // Both use the ID the driver reported, not the corrected one; kept deliberately.
        capabilities->SetKeyAndInteger("MultiTouchDeviceID", reported);
        mTouchCapabilities[reported] = capabilities;
    }
}

KELSTATUS CRouteTable::ReadTabletsFromDrivers()
{
    CEventPacket sizeRequest;
    sizeRequest.SetCommand(ECommandGet);
    sizeRequest.AddKeyInt(EObjectIDDriver, 0, EAddrModeByIndex);
    sizeRequest.AddKeyInt(EParameterIDSize, EParameterIDTabletBlock, EAddrModeByIndex);
    const KELSTATUS status = SendToSuccessfulDriver(&sizeRequest);
    if (status != KELSTATUS_SUCCESS)
    {
        return status;
    }
    const std::uint32_t dataSize = sizeRequest.UnPackData_<std::uint32_t>(0);
    if (dataSize == 0)
    {
        std::fprintf(stderr,
                     "****************   IN ReadTabletsFromDrivers:  Get Tablet Block failed\n");
        return KELSTATUS_OBJECT_NOT_FOUND;
    }

    CEventPacket blockRequest;
    blockRequest.SetCommand(ECommandGet);
    blockRequest.AddKeyInt(EObjectIDDriver, 0, EAddrModeByIndex);
    blockRequest.AddKeyInt(EParameterIDTabletBlock, 0, EAddrModeByIndex);
    if (SendToSuccessfulDriver(&blockRequest) != KELSTATUS_SUCCESS)
    {
        return KELSTATUS_SUCCESS; // deliberately lenient: the sync numbers the tablets afresh
    }
    const std::vector<unsigned char> buffer =
        blockRequest.UnPackData_<std::vector<unsigned char>>(std::vector<unsigned char>());
    // A size that does not match is reported; the block is read by its real length.
    KelAssertAt(kAssertSource, 777, dataSize == buffer.size());

    std::vector<STabletRec> records;
    if (CTabletBlock::Parse(buffer, records) != KELSTATUS_SUCCESS)
    {
        return KELSTATUS_INTERNAL_UNEXPECTED;
    }
    for (const STabletRec& record : records)
    {
        std::fprintf(stderr,
                     "**********   IN ReatTabletsFromDrivers: calling AddTablet.  DriverID:%d  "
                     "tabletIdx:%d  systemId:%d\n",
                     record.mDriverID, record.mTabletIndex, static_cast<int>(record.mSystemID));
        AddTablet(record.mDriverID, record.mTabletIndex, record.mSystemID);
    }
    return KELSTATUS_SUCCESS;
}

unsigned short CRouteTable::TabletCountFromDriver(std::shared_ptr<CDriverMessageSendPort> pDrvIF_I,
                                                  bool byID_I)
{
    KelAssertAt(kAssertSource, 1004, pDrvIF_I);
    if (pDrvIF_I == nullptr)
    {
        return 0;
    }
    CEventPacket request;
    request.SetCommand(ECommandGet);
    request.AddKeyInt(EObjectIDDriver, 0, EAddrModeByIndex);
    request.AddKeyInt(EParameterIDCount, EObjectIDTablet,
                      byID_I ? EAddrModeByID : EAddrModeByIndex);
    if (SendToDriver(pDrvIF_I, &request) != KELSTATUS_SUCCESS)
    {
        return 0;
    }
    return request.UnPackData_<unsigned short>(0);
}

unsigned short CRouteTable::TabletCountFromDrivers(bool byID_I)
{
    unsigned short total = 0;
    int driverID = kNoDriver;
    std::shared_ptr<CDriverMessageSendPort> driver;
    while (StepDriverWalk(driverID, driver))
    {
        total = static_cast<unsigned short>(total + TabletCountFromDriver(driver, byID_I));
    }
    return total;
}

KELSTATUS CRouteTable::SendTabletsToDrivers()
{
    CEventPacket packet;
    packet.SetCommand(ECommandSet);
    packet.AddKeyInt(EObjectIDDriver, 0, EAddrModeByIndex);
    packet.AddKeyInt(EParameterIDTabletBlock, 0, EAddrModeByIndex);
    packet.PackData_<std::vector<unsigned char>>(CTabletBlock::Build(mTablets));
    return SendToAllDrivers(&packet);
}

std::shared_ptr<CSettingsArray> CRouteTable::BuildTouchCapabilitiesArray() const
{
    std::shared_ptr<CSettingsArray> array = CSettingsArray::New();
    for (const auto& [systemID, capabilities] : mTouchCapabilities)
    {
        array->AddObject(capabilities);
    }
    return array;
}

void CRouteTable::SendTouchCapabilitiesToAPIClients()
{
    CEventPacket capabilities;
    capabilities.SetCommand(ECommandSet);
    capabilities.AddKeyInt(EObjectIDMultiTouchAPI, 0, EAddrModeByIndex);
    capabilities.AddKeyInt(EParameterIDTabletMultiTouchCapabilities, 0, EAddrModeByIndex);
    capabilities.PackData_<std::shared_ptr<CSettingsObject>>(BuildTouchCapabilitiesArray());

    // A client may register or leave while another one is being sent to (requests are
    // served while a send waits), so the walk goes over a copy of the list.
    const auto clients = mTouchAPIClients;
    std::vector<std::pair<std::string, std::shared_ptr<CDriverMessageSendPort>>> failed;
    for (const auto& [name, port] : clients)
    {
        if (port == nullptr)
        {
            KelFailAt(kAssertSource, 726, "Driver message send port missing");
            failed.emplace_back(name, port);
            continue;
        }
        // One packet for all clients, in name order: each sees it as the client before it
        // answered it, as drivers do in a walk over all drivers.
        if (port->SendKeltoEvent(&capabilities) != KELSTATUS_SUCCESS)
        {
            failed.emplace_back(name, port);
        }
    }
    // A client that could not be reached once must register again. An entry replaced by a
    // new registration meanwhile stays.
    for (const auto& [name, port] : failed)
    {
        auto entry = mTouchAPIClients.find(name);
        if (entry != mTouchAPIClients.end() && entry->second == port)
        {
            mTouchAPIClients.erase(entry);
        }
    }
}

void CRouteTable::AddTouchAPIClient(std::string clientName_I)
{
    // The client's identifier is the name of its message port.
    mTouchAPIClients[clientName_I] = mTouchClientPortFactory(clientName_I);
    // An empty port stays in the list until the next sending of capabilities drops it.
    KelAssertAt(kAssertSource, 821, mTouchAPIClients[clientName_I]);
}

void CRouteTable::RemoveTouchAPIClient(std::string clientName_I)
{
    mTouchAPIClients.erase(clientName_I);
}
