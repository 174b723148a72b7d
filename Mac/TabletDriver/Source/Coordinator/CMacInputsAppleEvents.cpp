// CMacInputs: the Apple Event handlers and the three ways an event reaches the drivers.
#include "Mac/TabletDriver/Source/Coordinator/CMacInputs.h"

#include "Common/CEventPacket.h"
#include "Common/Coordinator/CRouteTable.h"
#include "Common/KelAssert.h"
#include "Mac/TabletDriver/Source/Coordinator/CMacDriverInterface.h"

#include <cstdint>
#include <memory>

namespace
{
// The handlers' reports name the inputs' source, as the rest of the class does.
constexpr const char* kAssertSource = "Mac/TabletDriver/Source/Coordinator/CMacInputs";

CMacInputs* InputsOf(SRefCon refCon_I)
{
    return static_cast<CMacInputs*>(refCon_I);
}

// Calls `visit(driver)` for each driver in ascending ID until it returns false. The walk
// ends at the first empty entry, and never goes back to an ID already visited (one port
// registered under two IDs would otherwise be visited for ever).
template <typename Visit> void ForEachDriver(CRouteTable* table_I, Visit visit_I)
{
    if (table_I == nullptr)
    {
        return;
    }
    int driverID = CRouteTable::kNoDriver;
    std::shared_ptr<CDriverMessageSendPort> driver = table_I->NextDriver(driverID, nullptr);
    while (driver)
    {
        if (!visit_I(driver))
        {
            return;
        }
        const int previousID = driverID;
        driver = table_I->NextDriver(driverID, driver);
        if (driverID <= previousID)
        {
            return;
        }
    }
}

// Only driver interfaces take Apple Events; any other port declines like a driver without a
// messaging client.
OSErr ForwardToDriver(const std::shared_ptr<CDriverMessageSendPort>& driver_I, AEDesc* event_I,
                      AEDesc* reply_O)
{
    auto driverInterface = std::dynamic_pointer_cast<CMacDriverInterface>(driver_I);
    if (!driverInterface)
    {
        return static_cast<OSErr>(CMacInputs::kDriverDeclined);
    }
    return static_cast<OSErr>(driverInterface->ForwardAppleEvent(event_I, reply_O));
}

// Forwards the event for an answer: the driver's reply event becomes the handler's reply
// when the driver took the event and the sender waits for a reply (a reply that is not a
// null descriptor). The reply it replaces is disposed of here, since whoever called the
// handler disposes only of what it finds in the reply afterwards. A driver that took the
// event without a reply of its own leaves the handler's reply as it was.
OSErr ForwardForReply(const std::shared_ptr<CDriverMessageSendPort>& driver_I, AEDesc* event_I,
                      AEDesc* reply_IO)
{
    AEDesc driverReply;
    AEInitializeDesc(&driverReply);
    const OSErr answer = ForwardToDriver(driver_I, event_I, &driverReply);
    if (answer == noErr && reply_IO != nullptr && reply_IO->descriptorType != typeNull &&
        driverReply.descriptorType != typeNull)
    {
        AEDisposeDesc(reply_IO);
        *reply_IO = driverReply;
    }
    else
    {
        AEDisposeDesc(&driverReply);
    }
    return answer;
}

// When the driver last saw a tablet in use; 0 when it does not say.
std::uint32_t LastTabletUsedTimestamp(const std::shared_ptr<CDriverMessageSendPort>& driver_I)
{
    CEventPacket packet;
    packet.SetCommand(ECommandGet);
    packet.AddKeyInt(EObjectIDDriver, 0, EAddrModeByIndex);
    packet.AddKeyInt(EParameterIDLastTabletUsedTimestamp, 0, EAddrModeByIndex);
    driver_I->SendKeltoEvent(&packet);
    if (packet.Buffer() == nullptr)
    {
        return 0;
    }
    return packet.UnPackData_<std::uint32_t>(0);
}
} // namespace

const CMacInputs::SAppleEventHandler CMacInputs::kAppleEventHandlers[kAppleEventHandlerCount] = {
    {kCoreEventClass, kAEOpenApplication, AEAppLaunchedHandler, true},
    {kAECoreSuite, kAECountElements, AECountPreHandler, true},
    {kAECoreSuite, kAECreateElement, AEForwardFirst, true},
    {kAECoreSuite, kAEDelete, AEForwardFirst, true},
    {kAECoreSuite, kAEGetData, AEForwardFirst, true},
    {kAECoreSuite, kAEGetDataSize, AEForwardFirst, true},
    {kAECoreSuite, kAESetData, AEForwardFirst, true},
    {kAECoreSuite, kAESave, AEForwardAll, true},
    // Scripts have sent "save" with the capitalised class; it stays.
    {'Core', kAESave, AEForwardAll, true},
    {kAECoreSuite, typeWildCard, AEIgnoreHandler, false},
    {kKeltoEventClass, kKeltoSendEventID, AEForwardLastUsed, true},
};

void CMacInputs::InstallAppleEventHandlers()
{
    for (const SAppleEventHandler& entry : kAppleEventHandlers)
    {
        AEInstallEventHandler(entry.mEventClass, entry.mEventID,
                              NewAEEventHandlerUPP(entry.mHandler),
                              entry.mPassInputs ? static_cast<SRefCon>(this) : nullptr, false);
    }
}

OSErr AEAppLaunchedHandler(const AppleEvent* /*event_I*/, AppleEvent* /*reply_O*/, SRefCon refCon_I)
{
    if (CMacInputs* inputs = InputsOf(refCon_I))
    {
        inputs->AppDidLaunch();
    }
    return noErr;
}

OSErr AECountPreHandler(const AppleEvent* event_I, AppleEvent* reply_O, SRefCon refCon_I)
{
    CMacInputs* pInputObj = InputsOf(refCon_I);
    KelAssertAt(kAssertSource, 558, pInputObj);

    DescType objectClass = typeNull;
    const OSErr err = AEGetParamPtr(event_I, keyAEObjectClass, typeType, nullptr, &objectClass,
                                    sizeof objectClass, nullptr);
    if (err != noErr)
    {
        return err;
    }
    if (objectClass != CMacInputs::kTabletClass)
    {
        if (pInputObj == nullptr)
        {
            return errAENoSuchObject;
        }
        return pInputObj->ForwardAEToSuccessfulDriver(const_cast<AppleEvent*>(event_I), reply_O);
    }
    // Without inputs there is no table to count.
    const SInt32 count =
        pInputObj != nullptr ? static_cast<SInt32>(pInputObj->GetNumberOfTablets()) : 0;
    if (reply_O != nullptr && reply_O->descriptorType != typeNull)
    {
        return AEPutParamPtr(reply_O, keyDirectObject, typeSInt32, &count, sizeof count);
    }
    return noErr;
}

OSErr AEForwardFirst(const AppleEvent* event_I, AppleEvent* reply_O, SRefCon refCon_I)
{
    CMacInputs* inputs = InputsOf(refCon_I);
    if (inputs == nullptr)
    {
        return noErr;
    }
    return inputs->ForwardAEToSuccessfulDriver(const_cast<AppleEvent*>(event_I), reply_O);
}

OSErr AEForwardAll(const AppleEvent* event_I, AppleEvent* /*reply_O*/, SRefCon refCon_I)
{
    if (CMacInputs* inputs = InputsOf(refCon_I))
    {
        inputs->ForwardAEToAllDrivers(const_cast<AppleEvent*>(event_I));
    }
    return noErr;
}

OSErr AEIgnoreHandler(const AppleEvent* /*event_I*/, AppleEvent* /*reply_O*/, SRefCon /*refCon_I*/)
{
    return noErr;
}

OSErr AEForwardLastUsed(const AppleEvent* event_I, AppleEvent* reply_O, SRefCon refCon_I)
{
    CMacInputs* inputs = InputsOf(refCon_I);
    if (inputs == nullptr)
    {
        return noErr;
    }
    return inputs->ForwardAEToLastUsedDriver(const_cast<AppleEvent*>(event_I), reply_O);
}

OSErr CMacInputs::ForwardAEToAllDrivers(AEDesc* event_I)
{
    ForEachDriver(mpRoutingTable,
                  [event_I](const std::shared_ptr<CDriverMessageSendPort>& driver)
                  {
                      AEDesc reply;
                      AEInitializeDesc(&reply);
                      ForwardToDriver(driver, event_I, &reply);
                      AEDisposeDesc(&reply);
                      return true;
                  });
    return noErr;
}

OSErr CMacInputs::ForwardAEToSuccessfulDriver(AEDesc* event_I, AEDesc* reply_O)
{
    OSErr result = errAENoSuchObject;
    ForEachDriver(mpRoutingTable,
                  [&](const std::shared_ptr<CDriverMessageSendPort>& driver)
                  {
                      const OSErr answer = ForwardForReply(driver, event_I, reply_O);
                      if (answer == noErr)
                      {
                          result = noErr;
                          return false;
                      }
                      if (answer != kDriverDeclined)
                      {
                          result = answer;
                      }
                      return true;
                  });
    return result;
}

OSErr CMacInputs::ForwardAEToLastUsedDriver(AEDesc* event_I, AEDesc* reply_O)
{
    std::shared_ptr<CDriverMessageSendPort> chosen;
    std::uint32_t latest = 0;
    ForEachDriver(mpRoutingTable,
                  [&](const std::shared_ptr<CDriverMessageSendPort>& driver)
                  {
                      const std::uint32_t timestamp = LastTabletUsedTimestamp(driver);
                      // Strictly later only: among equal times the lowest driver ID wins.
                      if (timestamp > latest)
                      {
                          latest = timestamp;
                          chosen = driver;
                      }
                      return true;
                  });
    if (!chosen)
    {
        return errAENoSuchObject;
    }
    const OSErr answer = ForwardForReply(chosen, event_I, reply_O);
    return answer == kDriverDeclined ? OSErr(errAENoSuchObject) : answer;
}
