// CMacInputs: where requests enter the coordinator.
//
// It owns the coordinator's named message port ("com.kelto.CoordinatorMessageServer"), on
// which clients send serialized event packets ('KEPK') and transit records (id 0), and it
// installs the Apple Event handlers through which scripting clients ask about tablets. Both
// end in the route table. Two requests are about the coordinator itself and are answered
// here: its protocol version (routing table / file version, get) and the request to quit
// (routing table / tablet block, destroy).
//
// If another coordinator still serves the port name, it is killed (the process called
// "TabletDriver" that uses our port directory, OtherCoordinatorProcess.h) and the name taken
// over; that can block start-up for up to 30 seconds.
//
// Apple Event handlers, installed in this order as application handlers:
//
//   class   ID      handler              reference constant
//   'aevt'  'oapp'  AEAppLaunchedHandler  the inputs   first sync of the tablet list
//   'core'  'cnte'  AECountPreHandler     the inputs   tablets counted here, else forwarded
//   'core'  'crel'  AEForwardFirst        the inputs
//   'core'  'delo'  AEForwardFirst        the inputs
//   'core'  'getd'  AEForwardFirst        the inputs
//   'core'  'dsiz'  AEForwardFirst        the inputs
//   'core'  'setd'  AEForwardFirst        the inputs
//   'core'  'save'  AEForwardAll          the inputs
//   'Core'  'save'  AEForwardAll          the inputs   capitalised class: kept on purpose
//   'core'  '****'  AEIgnoreHandler       none         every other 'core' event succeeds
//   'Kelm'  'KSnd'  AEForwardLastUsed     the inputs
//
// Everything runs on the main run-loop thread.
#pragma once

#include "Common/Coordinator/CInputs.h"
#include "Mac/Common/Communication/CMacMessagingServer.h"
#include "Mac/TabletDriver/Source/Coordinator/CDriverPortWatcher.h"

#include <CoreServices/CoreServices.h>

#include <cstddef>

class CEventPacket;
class CMacDriverInterface;

// The Apple Event handlers (handler reference constant: the CMacInputs, or null).
OSErr AEAppLaunchedHandler(const AppleEvent* event_I, AppleEvent* reply_O, SRefCon refCon_I);
OSErr AECountPreHandler(const AppleEvent* event_I, AppleEvent* reply_O, SRefCon refCon_I);
OSErr AEForwardFirst(const AppleEvent* event_I, AppleEvent* reply_O, SRefCon refCon_I);
OSErr AEForwardAll(const AppleEvent* event_I, AppleEvent* reply_O, SRefCon refCon_I);
OSErr AEIgnoreHandler(const AppleEvent* event_I, AppleEvent* reply_O, SRefCon refCon_I);
OSErr AEForwardLastUsed(const AppleEvent* event_I, AppleEvent* reply_O, SRefCon refCon_I);

class CMacInputs : public CInputs
{
public:
    static constexpr const char* kPortName = "com.kelto.CoordinatorMessageServer";
    // The process taken to be another coordinator when the port name is served already.
    static constexpr const char* kCoordinatorProcessName = "TabletDriver";
    // The information dictionary key of the protocol version; the spelling is the key's own.
    static constexpr const char* kProtocolVersionKey = "Protocal";
    // How long a coordinator that holds the port may take to answer before it is taken to
    // be stuck, and replaced.
    static constexpr double kAnswerProbeSeconds = 2.0;

    // Whether a coordinator that holds the port and answers is replaced (--replace). By
    // default it is left alone and start-up fails; one that does not answer is replaced.
    static void SetReplaceAnsweringCoordinator(bool replace_I) { sReplaceAnswering = replace_I; }

    // The object class of a count event that is answered here.
    static constexpr DescType kTabletClass = 'Tblt';
    // The class and ID of the event sent to the driver that saw a tablet last.
    static constexpr AEEventClass kKeltoEventClass = 'Kelm';
    static constexpr AEEventID kKeltoSendEventID = 'KSnd';
    // What a driver answers when it has nothing to say about an event: the forwarders
    // treat it as "not mine".
    static constexpr OSStatus kDriverDeclined = 513;

    struct SAppleEventHandler
    {
        AEEventClass mEventClass;
        AEEventID mEventID;
        AEEventHandlerProcPtr mHandler;
        bool mPassInputs; // the reference constant is the inputs (else null)
    };
    static constexpr std::size_t kAppleEventHandlerCount = 11;
    // The table above, in the order of installation.
    static const SAppleEventHandler kAppleEventHandlers[kAppleEventHandlerCount];

    CMacInputs() = default;
    ~CMacInputs() override;

    // Stores the table, opens the message port (taking the name over from a stale
    // coordinator) and installs the Apple Event handlers. A port that cannot be had is
    // returned at once, with no handler installed.
    KELSTATUS Init(CRouteTable* routingTable_I) override;
    // The first synchronisation of the tablet list with the drivers.
    virtual KELSTATUS AppDidLaunch();

    KELSTATUS InitMessageServer();
    void InstallAppleEventHandlers();

    // The port's callback; info_I is the message server.
    static CFDataRef MessageServerCallback(CFMessagePortRef port_I, SInt32 messageID_I,
                                           CFDataRef data_I, void* info_I);
    // The message server's packet callback; context_I is the CMacInputs.
    static KELSTATUS ProcessEventCallback(CEventPacket* packet_IO, void* context_I);
    KELSTATUS ProcessKeltoEvent(CEventPacket& packet_IO);

    // Kills the other "TabletDriver" and waits (up to 30 seconds) until it is gone.
    static KELSTATUS KillOtherCoordinator();
    // Whether the process that serves the coordinator's port answers a request within
    // kAnswerProbeSeconds.
    static bool OtherCoordinatorAnswers();
    // The table's tablet count, as a count request by index gets it (after a sync when the
    // drivers' total changed); 0 when nothing answered.
    unsigned int GetNumberOfTablets();
    // "Protocal" of the main bundle's information dictionary; KELSTATUS_FAILURE (version_O
    // untouched) when there is no such number.
    static KELSTATUS GetProtocolVersion(unsigned int& version_O);

    // The three ways an Apple Event reaches the drivers, walking them in ascending ID.
    // Every driver; replies and results are dropped; always noErr.
    OSErr ForwardAEToAllDrivers(AEDesc* event_I);
    // Drivers in turn until one answers noErr, whose reply event then replaces reply_O
    // (when the sender wants a reply). Otherwise the last error other than 513, or
    // errAENoSuchObject when every driver declined or there is none.
    OSErr ForwardAEToSuccessfulDriver(AEDesc* event_I, AEDesc* reply_O);
    // The driver with the latest tablet use (a timestamp above 0; the lowest ID among
    // equals), with its reply as above; errAENoSuchObject when there is none or it declines
    // (513).
    OSErr ForwardAEToLastUsedDriver(AEDesc* event_I, AEDesc* reply_O);

    const CMacMessagingServer& MessageServer() const { return mMessageServer; }

private:
    CMacMessagingServer mMessageServer;
    // Syncs when a driver's port appears after start-up.
    CDriverPortWatcher mDriverPortWatcher;

    inline static bool sReplaceAnswering = false;
};
