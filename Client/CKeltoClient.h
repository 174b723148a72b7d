// CKeltoClient: an application's connection to the tablet coordinator.
//
// The coordinator is the per-user process (TabletDriver) that numbers every tablet the two
// tablet drivers report and routes requests to the driver that owns the addressed tablet.
// This class is all an application or a control panel needs to talk to it:
//
//   #include "Client/CKeltoClient.h"
//   #include "Common/Settings/CSettingsArray.h"   // only to read touch capabilities
//
//   CKeltoClient client;                          // one per thread; not connected yet
//   if (client.Connect() != KELSTATUS_SUCCESS)    // the coordinator is not running
//       ...
//   unsigned short count = 0;
//   KELSTATUS status = client.GetTabletCount(count);
//   if (status != KELSTATUS_SUCCESS)
//       std::puts(CKeltoClient::StatusName(status).c_str());   // "KELSTATUS_OBJECT_NOT_FOUND"
//
// Requests. Every request is one event packet sent to the coordinator's message port
// ("com.kelto.CoordinatorMessageServer") and answered in the same packet. A call blocks the
// calling thread until the answer arrives or the time-out given at construction passes;
// while it waits, the thread runs its run loop in the private mode
// "CMacMessagingClientMode", so a touch client registered on that thread still receives
// capabilities meanwhile (see below). If the coordinator restarts, the next request
// reconnects by itself.
//
// Results. Requests return a KELSTATUS: KELSTATUS_SUCCESS (0), or the first failure of
//   - the exchange: kStatusCoordinatorNotRunning (0x0904,
//     "KELSTATUS_API_COORDINATOR_NOT_RUNNING") when nobody serves the coordinator's port or
//     its connection broke (the coordinator ended); kStatusCoordinatorBusy (0x0905,
//     "KELSTATUS_API_COORDINATOR_BUSY") when it refused the connection, being at its limit
//     of connections; KELSTATUS_FAILURE (0xFFFF) when it did
//     not answer in time; KELSTATUS_OS_BAD_RESOURCE (0x040D) when the request could not be
//     handed over in time;
//   - the answer: KELSTATUS_API_CORRUPT_DATA (0x0903) when the reply is not an event
//     packet; the status the coordinator left in the reply packet (for example
//     KELSTATUS_OBJECT_NOT_FOUND, 0x0606, when no driver took a routed request);
//     KELSTATUS_API_BAD_DATA_SIZE (0x0901) when the reply carries no value of the expected
//     type;
//   - the arguments: KELSTATUS_API_BAD_PARAMETER (0x0900), with nothing sent;
//     KELSTATUS_API_BAD_IO (0x0902) for a request from inside the touch handler.
// Out arguments are written only on success. StatusName gives the name of any status.
//
// Touch clients. RegisterTouchClient serves a message port named by the identifier given
// (the coordinator reaches its touch clients at the port named by their identifier), then
// registers that identifier with the coordinator. From then on, every time the coordinator
// synchronises its tablet list (at its start, when a driver's tablets change, or when
// asked with RequestSync), it sends the touch capabilities of all tablets to that port, and
// the handler runs with them on the run loop of the thread that registered: while that
// thread runs its run loop in the default mode (CFRunLoopRun, NSApplicationMain, or
// CFRunLoopRunInMode with kCFRunLoopDefaultMode), or while it waits inside a request of
// this class. A client that cannot be reached once is dropped by the coordinator and must
// register again. A coordinator that ends and starts again forgets its touch clients: this
// object looks after its registration every kRegistrationCheckSeconds from the same run
// loop (default mode), registers again once the coordinator is back, and tells the
// handler given to SetCoordinatorEventHandler that it went away and that it came back.
// UnregisterTouchClient, or destroying the object, ends the registration. The coordinator waits
// while the handler runs, so the handler must not send requests to it (this object refuses them
// there with KELSTATUS_API_BAD_IO). It may unregister or destroy the object: the port closes at
// once, the delivery in progress goes unanswered, and the coordinator drops the client right there.
// An exception from the handler is caught and dropped.
//
// Apple Events. CountTabletsByAppleEvent and SendAppleEvent address the coordinator as the
// application "com.kelto.TabletDriver". The coordinator answers 'core'/'cnte' for the class
// 'Tblt' itself and forwards the tablet suite's other events to the drivers. Their results
// are Apple Event error numbers (noErr = 0; -1728 when no driver took the event; -600 when
// the coordinator is not running; -1712 on a time-out).
//
// Threads: an object belongs to the thread that made it and is used on that thread only.
// Several objects may live in one process; only one of them at a time can serve a given
// touch-client identifier.
#pragma once

#include "Common/EAddressingMode.h"
#include "Common/ECommand.h"
#include "Common/EEventIdentifier.h"
#include "Common/KelStatus.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class CSettingsArray;
class CMacMessagingClient;
typedef struct __CFRunLoopTimer* CFRunLoopTimerRef;
class CKeltoTouchPort;

class CKeltoClient
{
public:
    // The coordinator's message port and its application (bundle) identifier.
    static constexpr const char* kCoordinatorPortName = "com.kelto.CoordinatorMessageServer";
    static constexpr const char* kCoordinatorBundleID = "com.kelto.TabletDriver";
    // Seconds a request may take, each way, unless the constructor is told otherwise.
    static constexpr double kDefaultTimeout = 30.0;
    // The system ID of "no tablet" in GetLastTabletUsed.
    static constexpr unsigned short kNoTablet = 0xFFFF;
    // The coordinator is not running: nobody serves its port, or its connection broke. A
    // status of this library, beside the coordinator's own programming-interface group;
    // StatusName gives "KELSTATUS_API_COORDINATOR_NOT_RUNNING".
    static constexpr KELSTATUS kStatusCoordinatorNotRunning = 0x0904;
    // The coordinator refused this connection: it is at its limit of connections (in all,
    // or of this process). "KELSTATUS_API_COORDINATOR_BUSY".
    static constexpr KELSTATUS kStatusCoordinatorBusy = 0x0905;
    // How often a touch client looks after its registration.
    static constexpr double kRegistrationCheckSeconds = 1.0;

    // One link of a key chain: what a request is about, outermost first ("tablet 3, then its
    // parameter X"). mReference is an index or an ID, as mMode says; with EAddrModeByString
    // the key carries mText instead. A request holds at most nine keys.
    struct SKey
    {
        SKey(EEventIdentifier identifier_I = EObjectIDNothing, std::uint32_t reference_I = 0,
             EAddressingMode mode_I = EAddrModeByIndex)
            : mIdentifier(identifier_I), mReference(reference_I), mMode(mode_I)
        {
        }
        // A key of EAddrModeByString.
        SKey(EEventIdentifier identifier_I, std::string text_I)
            : mIdentifier(identifier_I), mMode(EAddrModeByString), mText(std::move(text_I))
        {
        }

        EEventIdentifier mIdentifier;
        std::uint32_t mReference = 0;
        EAddressingMode mMode;
        std::string mText;
    };

    // Any request: a command, a key chain, and data in the layout that the addressed object
    // expects (host byte order for numbers; a settings archive for settings trees).
    struct SRequest
    {
        ECommand mCommand = ECommandGet;
        std::vector<SKey> mKeys;
        std::vector<unsigned char> mData;
    };

    // The answer to a request: the status the coordinator left in the packet, and the data.
    struct SReply
    {
        KELSTATUS mStatus = KELSTATUS_SUCCESS;
        std::vector<unsigned char> mData;
    };

    // One row of the coordinator's tablet table: the system ID the coordinator gave the
    // tablet, the driver that owns it (0 or 1) and the tablet's index within that driver.
    struct STablet
    {
        std::uint32_t mSystemID = 0;
        std::int32_t mDriverID = 0;
        std::int32_t mTabletIndex = 0;
    };

    // One parameter of an Apple Event: keyword, descriptor type and the data bytes (numbers
    // in host byte order). Four-character codes are 32-bit numbers ('----' is 0x2D2D2D2D).
    struct SAppleEventParameter
    {
        std::uint32_t mKeyword = 0;
        std::uint32_t mType = 0;
        std::vector<unsigned char> mData;
    };

    // An Apple Event: class, ID and parameters. In a reply, list and record parameters come
    // with their type and no data.
    struct SAppleEvent
    {
        std::uint32_t mClass = 0;
        std::uint32_t mID = 0;
        std::vector<SAppleEventParameter> mParameters;
    };

    // Receives the touch capabilities: an array with one settings map per tablet, in
    // ascending system ID; each map is what the tablet's driver reports, plus the integer
    // "MultiTouchDeviceID". Never null (an empty array when no tablet has any).
    using TouchCapabilitiesHandler = std::function<void(std::shared_ptr<CSettingsArray>)>;

    // What happened to the coordinator while this object is a touch client.
    enum class ECoordinatorEvent
    {
        eGone, // it stopped answering: its port is gone or its connection broke
        eBack  // it serves again, and this client is registered with it again
    };
    using CoordinatorEventHandler = std::function<void(ECoordinatorEvent)>;

    // Nothing is sent yet. timeoutSeconds bounds the sending and the answer of each request.
    explicit CKeltoClient(double timeoutSeconds_I = kDefaultTimeout);
    // Ends a touch-client registration (telling the coordinator, best effort), disconnects.
    ~CKeltoClient();
    CKeltoClient(const CKeltoClient&) = delete;
    CKeltoClient& operator=(const CKeltoClient&) = delete;

    // Connects to the coordinator's port (another name is for tests and private set-ups).
    // kStatusCoordinatorNotRunning when nobody serves it; KELSTATUS_DEVICE_ALREADY_OPEN when
    // connected (the connection is kept). Requests connect by themselves, so calling this is only
    // the way to learn whether the coordinator runs.
    KELSTATUS Connect(const std::string& portName_I = kCoordinatorPortName);
    bool IsConnected() const;
    void Disconnect();
    double Timeout() const { return mTimeout; }

    // The number of tablets in the coordinator's table. The coordinator first compares it
    // with what the drivers report and synchronises when they differ.
    KELSTATUS GetTabletCount(unsigned short& count_O);
    // The sum of the drivers' own counts of the tablets that have an ID.
    KELSTATUS GetTabletCountByID(unsigned short& count_O);
    // The tablet table (as the drivers hold it since the coordinator's last
    // synchronisation), in the order of registration; empty when there are no tablets.
    KELSTATUS GetTablets(std::vector<STablet>& tablets_O);
    // The protocol version the coordinator announces to its clients.
    KELSTATUS GetProtocolVersion(std::int32_t& version_O);
    // The touch capabilities of all tablets, as TouchCapabilitiesHandler describes them.
    KELSTATUS GetTouchCapabilities(std::shared_ptr<CSettingsArray>& capabilities_O);
    // The multi-touch programming-interface query: the client tells its own value and the
    // coordinator answers 3 for 0 and 1, 0 for 2 to 4 and 2 for 5 and more.
    KELSTATUS QueryMultiTouchAPI(std::uint32_t clientValue_I, std::int64_t& answer_O);
    // The system ID of the tablet used last, from the first driver that knows one;
    // kNoTablet when none does.
    KELSTATUS GetLastTabletUsed(unsigned short& systemID_O);
    // Asks the coordinator to synchronise its tablet list with the drivers now; registered
    // touch clients receive the capabilities during it.
    KELSTATUS RequestSync();
    // Asks the coordinator to quit. It answers first, then ends.
    KELSTATUS QuitCoordinator();

    // Serves the port named identifier_I and registers it as a touch client (see above).
    // KELSTATUS_API_BAD_PARAMETER for an empty identifier or an empty handler;
    // KELSTATUS_RESOURCE_EXISTS when this object is registered already or the identifier's
    // port is served already (by this process or another); KELSTATUS_CANT_OPEN_PORT when
    // the port cannot be made. On any failure nothing stays registered or served.
    KELSTATUS RegisterTouchClient(const std::string& identifier_I,
                                  TouchCapabilitiesHandler handler_I);
    // Tells the coordinator and stops serving the port; the status of telling.
    // KELSTATUS_RESOURCE_MISSING when not registered.
    KELSTATUS UnregisterTouchClient();
    bool IsTouchClient() const;
    // Called, on the run loop of the registering thread, when the coordinator is found gone
    // and when it is back (see above); an empty handler tells nothing.
    void SetCoordinatorEventHandler(CoordinatorEventHandler handler_I);
    // How many capability deliveries the handler has received since registration.
    unsigned int TouchCapabilitiesReceived() const;

    // Any request. On success (of the exchange) reply_O holds the coordinator's answer and
    // the result is reply_O.mStatus.
    KELSTATUS Send(const SRequest& request_I, SReply& reply_O);

    // The coordinator's tablet count through 'core'/'cnte' with 'kocl' = 'Tblt'.
    int CountTabletsByAppleEvent(long& count_O);
    // Sends the event to the coordinator and waits for its reply event. The result is the
    // sending's error, else the reply's 'errn' parameter, else noErr.
    int SendAppleEvent(const SAppleEvent& event_I, SAppleEvent& reply_O);

    // "KELSTATUS_SUCCESS", "KELSTATUS_OBJECT_NOT_FOUND", ...; a code without a name gives
    // its hexadecimal value, "0x0210".
    static std::string StatusName(KELSTATUS status_I);

private:
    // A request whose answer must be `size_I` bytes of data (0: any).
    KELSTATUS SendForData(const SRequest& request_I, std::size_t size_I,
                          std::vector<unsigned char>& data_O);

    // The registration timer's call-back: registers again when the connection was lost.
    static void LookAfterRegistration(CFRunLoopTimerRef timer_I, void* info_I);
    void StopLookingAfterRegistration();

    double mTimeout;
    std::unique_ptr<CMacMessagingClient> mpMessagingClient;
    std::shared_ptr<CKeltoTouchPort> mpTouchPort;
    CFRunLoopTimerRef mRegistrationTimer = nullptr;
    CoordinatorEventHandler mCoordinatorEventHandler;
    // The connection to the coordinator was found broken since the last registration.
    bool mConnectionLost = false;
    // eGone was told and eBack not yet.
    bool mToldGone = false;
};
