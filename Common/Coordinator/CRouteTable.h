// CRouteTable: the coordinator's single routing table.
//
// It knows the tablet driver processes by a small integer driver ID, gives every tablet that
// a driver reports a coordinator-wide system ID, remembers which driver owns which system ID,
// and keeps the multi-touch capabilities of the tablets and the ports of the clients that
// registered for them. Every request packet goes through ProcessEvent: it is answered here,
// or sent to the driver that owns the addressed tablet, to the drivers in turn until one
// succeeds, or to all of them.
//
// The implementation is split by concept: the registry of drivers and tablets
// (CRouteTable.cpp), the routing of packets (CRouteTableRouting.cpp) and the
// synchronisation with drivers and touch clients (CRouteTableSync.cpp).
//
// Conventions kept throughout:
// - Every walk over the drivers goes in ascending driver ID through NextDriver, and stops at
//   the first empty port. A driver's answer counts as success only when it is
//   KELSTATUS_SUCCESS.
// - Driver ID -1 means "no driver", system ID 0xFFFFFFFF "no tablet". System IDs count up
//   from 0 in order of registration and are never reused; after a record whose ID is
//   0xFFFFFFFF the next proposal wraps to 0, as it always has.
// - The packet handed to ProcessEvent (and to the Send... operations) has its current key
//   where it was when the call returns, so a driver sees the packet positioned as it arrived.
// - Failed checks print the non-fatal assertion line of "Common/Coordinator/CRouteTable" and
//   go on.
//
// Everything runs on the main run-loop thread. Sync holds the recursive semaphore for its
// whole run: a request that arrives while a sync waits for a driver is served on the same
// thread and may nest a second sync.
#pragma once

#include "Common/Coordinator/STabletRec.h"
#include "Common/KelStatus.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

class CDriverMessageSendPort;
class CEventPacket;
class CKelSemaphore;
class CSettingsArray;
class CSettingsMap;

class CRouteTable
{
public:
    // Routing decisions of ProcessRouting.
    static constexpr int kRouteAnswered = 0;           // answered, nothing to send
    static constexpr int kRouteToDriver = 1;           // send to the one driver returned
    static constexpr int kRouteToSuccessfulDriver = 2; // drivers in turn until one succeeds
    static constexpr int kRouteToAllDrivers = 3;       // every driver

    static constexpr int kNoDriver = -1;

    // Makes the port of a touch API client from the client's identifier (the name of its
    // message port); empty when the port cannot be made.
    using TouchClientPortFactory =
        std::function<std::shared_ptr<CDriverMessageSendPort>(const std::string&)>;

    CRouteTable();
    ~CRouteTable();
    CRouteTable(const CRouteTable&) = delete;
    CRouteTable& operator=(const CRouteTable&) = delete;

    // Deliberately does nothing: KELSTATUS_METHOD_NOT_IMPLEMENTED. Start-up does not call it.
    KELSTATUS Init(void (**callbacks_I)(void*), void* context_I);

    // --- Drivers and tablets ----------------------------------------------------------------

    // Sets the entry of driverID to port, whatever was there. Replacing a live driver with
    // another, or nothing with nothing, is reported (KELSTATUS_INTERNAL_UNEXPECTED with the
    // assertion line), not refused.
    KELSTATUS SetDriver(int driverID_I, std::shared_ptr<CDriverMessageSendPort> port_I);
    // The entry, or empty.
    std::shared_ptr<CDriverMessageSendPort> GetDriverByID(int driverID_I) const;
    // The driver of the first tablet record with that system ID; -1 if none. 0xFFFFFFFF
    // stands for the last used driver, which the table does not resolve: reported, -1.
    int GetDriverIDForTabletSystemID(unsigned int systemID_I) const;
    std::shared_ptr<CDriverMessageSendPort> GetDriverForTabletSystemID(int systemID_I) const;
    // The iterator of every walk over the drivers. With an empty `current`, the lowest
    // driver; otherwise the entry after the first entry holding `current`. driverID_O is set
    // to the key of the entry returned, or -1 (with an empty result) past the end or when
    // `current` is not in the map. A null entry is returned like any other, with its ID.
    std::shared_ptr<CDriverMessageSendPort>
    NextDriver(int& driverID_O, std::shared_ptr<CDriverMessageSendPort> current_I) const;

    unsigned int TabletCount() const { return static_cast<unsigned int>(mTablets.size()); }
    // The system ID of the existing record of (driverID, tabletIndex) unless that is
    // 0xFFFFFFFF; otherwise appends {driverID, tabletIndex, systemID, 0} and returns systemID.
    unsigned int AddTablet(int driverID_I, int tabletIndex_I, unsigned int systemID_I);
    // AddTablet with the last record's system ID plus 1 (0 for an empty table).
    unsigned int AddNewTablet(int driverID_I, int tabletIndex_I);
    // System ID of the first record of (driverID, tabletIndex); 0xFFFFFFFF if none.
    unsigned int FindTablet(int driverID_I, int tabletIndex_I) const;
    // System ID of the last record; 0xFFFFFFFF for an empty table.
    unsigned int LastSystemID() const;

    // --- Routing ----------------------------------------------------------------------------

    // Answers the packet here or sends it on; the request's status.
    KELSTATUS ProcessEvent(CEventPacket* event_I);
    // The coordinator's own requests; KELSTATUS_FAILURE means "not local".
    KELSTATUS ProcessLocally(CEventPacket* event_I);
    // Which driver or drivers get the packet. driver_O is reset first and set only for
    // kRouteToDriver.
    int ProcessRouting(CEventPacket* event_I, std::shared_ptr<CDriverMessageSendPort>& driver_O);
    KELSTATUS SendToDriver(std::shared_ptr<CDriverMessageSendPort> drvIF_I, CEventPacket* event_I);
    // The first driver that answers KELSTATUS_SUCCESS ends the walk; otherwise
    // KELSTATUS_OBJECT_NOT_FOUND, not the last driver's status.
    KELSTATUS SendToSuccessfulDriver(CEventPacket* event_I);
    // Every driver, never stopping early; success when at least one succeeded, otherwise
    // KELSTATUS_OBJECT_NOT_FOUND. Each driver sees the data the previous one left.
    KELSTATUS SendToAllDrivers(CEventPacket* event_I);
    // The driver owning the 16-bit system ID held in the packet's data; empty if none.
    std::shared_ptr<CDriverMessageSendPort> DriverFromEventData(CEventPacket* event_I);

    // --- Synchronisation and touch clients --------------------------------------------------

    KELSTATUS Sync();
    KELSTATUS ReadTabletsFromDrivers();
    unsigned short TabletCountFromDriver(std::shared_ptr<CDriverMessageSendPort> pDrvIF_I,
                                         bool byID_I);
    // The sum over all drivers, wrapping in 16 bits.
    unsigned short TabletCountFromDrivers(bool byID_I);
    KELSTATUS SendTabletsToDrivers();
    // The touch-capability maps in ascending system ID, shared, not copied.
    std::shared_ptr<CSettingsArray> BuildTouchCapabilitiesArray() const;
    // Clients that cannot take the capabilities are dropped; they must register again.
    void SendTouchCapabilitiesToAPIClients();
    void AddTouchAPIClient(std::string clientName_I);
    void RemoveTouchAPIClient(std::string clientName_I);

    // --- Inspection, and the seam through which tests reach touch clients ------------------

    const std::vector<STabletRec>& Tablets() const { return mTablets; }
    const std::map<int, std::shared_ptr<CSettingsMap>>& TouchCapabilities() const
    {
        return mTouchCapabilities;
    }
    const std::map<std::string, std::shared_ptr<CDriverMessageSendPort>>& TouchAPIClients() const
    {
        return mTouchAPIClients;
    }
    std::shared_ptr<CKelSemaphore> Semaphore() const { return mpSemaphore; }
    // Replaces CDriverMessageSendPort::New as the maker of touch client ports.
    void SetTouchClientPortFactory(TouchClientPortFactory factory_I);

private:
    // Every assertion line of the table names this source, whichever file the check is in.
    static constexpr const char* kAssertSource = "Common/Coordinator/CRouteTable";

    // One step of a walk over the drivers: NextDriver from driver_IO (from the start when it
    // is empty). False at the end of the walk and at a null entry. A port registered under
    // two IDs would make NextDriver go back to the second of them forever; the walk goes on
    // after the ID just visited instead.
    bool StepDriverWalk(int& driverID_IO, std::shared_ptr<CDriverMessageSendPort>& driver_IO) const;

    // Local answers of ProcessLocally, by the first key.
    KELSTATUS ProcessMultiTouchAPI(CEventPacket* event_I, int nextIdentifier_I);
    KELSTATUS RegisterTouchAPIClient(CEventPacket* event_I);
    KELSTATUS AnswerLastTabletUsed(CEventPacket* event_I);
    // Step 6 of the routing walk: a tablet count request, answered here.
    void AnswerTabletCount(CEventPacket* event_I, bool byID_I);
    // One driver's tablets during Sync; it stops once a sync run meanwhile has completed
    // (mSyncsCompleted is no longer generation_I).
    void SyncDriverTablets(int driverID_I, const std::shared_ptr<CDriverMessageSendPort>& driver_I,
                           unsigned int generation_I);

    std::map<int, std::shared_ptr<CDriverMessageSendPort>> mDrivers;
    // By value, in order of insertion: the last record has the highest system ID handed out.
    std::vector<STabletRec> mTablets;
    std::map<int, std::shared_ptr<CSettingsMap>> mTouchCapabilities;
    std::map<std::string, std::shared_ptr<CDriverMessageSendPort>> mTouchAPIClients;
    std::shared_ptr<CKelSemaphore> mpSemaphore;
    TouchClientPortFactory mTouchClientPortFactory;
    // Syncs run to their end, and the status of the last: a sync that finds another one
    // completed while it waited stops there and answers with that one's status.
    unsigned int mSyncsCompleted = 0;
    KELSTATUS mLastSyncStatus = KELSTATUS_SUCCESS;
};
