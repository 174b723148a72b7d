// CMacInputs: the message port, the coordinator's own requests and the stale coordinator.
// The Apple Event side is in CMacInputsAppleEvents.cpp.
#include "Mac/TabletDriver/Source/Coordinator/CMacInputs.h"

#include "Common/CEventPacket.h"
#include "Common/Coordinator/CRouteTable.h"
#include "Common/KelAssert.h"
#include "Mac/Common/Communication/MessageIDs.h"
#include "Mac/Common/ProcessUtils.h"
#include "Mac/TabletDriver/Source/Coordinator/CMacCoordinatorMain.h"
#include "Mac/TabletDriver/Source/Coordinator/OtherCoordinatorProcess.h"
#include "Mac/TabletDriver/Source/Coordinator/TerminateApplication.h"

#include <cstdio>
#include <syslog.h>
#include <unistd.h>

namespace
{
// Polls after the kill before the name is taken over anyway.
constexpr int kKillWaitSeconds = 30;

// The 'ENDI' answer: this process needs no byte reversal by whoever asks.
constexpr UInt8 kSameByteOrder = 1;

class StCFString
{
public:
    explicit StCFString(const char* text_I)
        : mString(CFStringCreateWithCString(nullptr, text_I, kCFStringEncodingUTF8))
    {
    }
    ~StCFString()
    {
        if (mString != nullptr)
        {
            CFRelease(mString);
        }
    }
    StCFString(const StCFString&) = delete;
    StCFString& operator=(const StCFString&) = delete;
    CFStringRef Get() const { return mString; }

private:
    CFStringRef mString;
};
} // namespace

CMacInputs::~CMacInputs() = default;

KELSTATUS CMacInputs::Init(CRouteTable* routingTable_I)
{
    CInputs::Init(routingTable_I);
    const KELSTATUS status = InitMessageServer();
    if (status != KELSTATUS_SUCCESS)
    {
        return status;
    }
    mMessageServer.SetProcessEventCallback(ProcessEventCallback, this);
    InstallAppleEventHandlers();
    // A driver that starts (or restarts) later is synchronised as soon as its port appears.
    mDriverPortWatcher.Start(
        {CMacCoordinatorMain::kDriver0PortName, CMacCoordinatorMain::kDriver1PortName},
        [this]
        {
            if (mpRoutingTable != nullptr)
            {
                mpRoutingTable->Sync();
            }
        });
    return KELSTATUS_SUCCESS;
}

KELSTATUS CMacInputs::InitMessageServer()
{
    const StCFString portName(kPortName);
    KELSTATUS status = mMessageServer.Init(portName.Get(), MessageServerCallback, &mMessageServer);
    if (status != KELSTATUS_SUCCESS && !sReplaceAnswering && OtherCoordinatorAnswers())
    {
        // Someone started a second coordinator by mistake: the running one stays.
        syslog(LOG_ERR,
               "*** Another coordinator serves %s and answers; it is left running "
               "(start with --replace to replace it) ***",
               kPortName);
    }
    else if (status != KELSTATUS_SUCCESS)
    {
        status = KillOtherCoordinator();
        KelAssertLine(114, status == KELSTATUS_SUCCESS);
        if (status == KELSTATUS_SUCCESS)
        {
            status = mMessageServer.Init(portName.Get(), MessageServerCallback, &mMessageServer);
            KelAssertLine(122, status == KELSTATUS_SUCCESS);
        }
    }
    std::fprintf(stderr, "CMacInputs::InitMessageServer %s.\n",
                 status == KELSTATUS_SUCCESS ? "succeeded" : "failed");
    return status;
}

CFDataRef CMacInputs::MessageServerCallback(CFMessagePortRef /*port_I*/, SInt32 messageID_I,
                                            CFDataRef data_I, void* info_I)
{
    auto* server = static_cast<CMacMessagingServer*>(info_I);
    if (server == nullptr)
    {
        return nullptr;
    }
    switch (messageID_I)
    {
    case kMessageIDEventPacket:
    case kMessageIDTransitRecord:
        return server->ProcessRequest(data_I, messageID_I);
    case kMessageIDEndianness:
        return CFDataCreate(nullptr, &kSameByteOrder, 1);
    default:
        return nullptr;
    }
}

KELSTATUS CMacInputs::ProcessEventCallback(CEventPacket* packet_IO, void* context_I)
{
    auto* inputs = static_cast<CMacInputs*>(context_I);
    if (inputs == nullptr || packet_IO == nullptr)
    {
        return KELSTATUS_SUCCESS;
    }
    return inputs->ProcessKeltoEvent(*packet_IO);
}

KELSTATUS CMacInputs::ProcessKeltoEvent(CEventPacket& packet_IO)
{
    if (mpRoutingTable == nullptr)
    {
        // Only before Init: nothing can be routed yet.
        packet_IO.SetStatus(KELSTATUS_INTERNAL_UNEXPECTED);
        return KELSTATUS_INTERNAL_UNEXPECTED;
    }
    const OBJECT_KEY* key = packet_IO.CurrentKey();
    if (key == nullptr || key->Identifier() != EObjectIDRoutingTable)
    {
        return mpRoutingTable->ProcessEvent(&packet_IO);
    }

    packet_IO.AdvanceCurrentKey();
    const EEventIdentifier next = packet_IO.CurrentKey()->Identifier();
    if (next == EParameterIDFileVersion)
    {
        // The protocol version; the key is left where it was stepped to.
        if (packet_IO.Command() != ECommandGet)
        {
            KelFailLine(380, "EParameterIDFileVersion");
            packet_IO.SetStatus(KELSTATUS_METHOD_NOT_IMPLEMENTED);
            return KELSTATUS_METHOD_NOT_IMPLEMENTED;
        }
        unsigned int version = 0;
        if (GetProtocolVersion(version) != KELSTATUS_SUCCESS)
        {
            packet_IO.SetStatus(KELSTATUS_OS_BAD_RESOURCE);
            return KELSTATUS_OS_BAD_RESOURCE;
        }
        packet_IO.PackData_<unsigned int>(version);
        return packet_IO.Status();
    }
    if (next == EParameterIDTabletBlock && packet_IO.Command() == ECommandDestroy)
    {
        // A client asks the coordinator to quit.
        TerminateApplication();
        return KELSTATUS_SUCCESS;
    }
    packet_IO.RetreatCurrentKey();
    return mpRoutingTable->ProcessEvent(&packet_IO);
}

bool CMacInputs::OtherCoordinatorAnswers()
{
    const StCFString portName(kPortName);
    CFMessagePortRef remote = CFMessagePortCreateRemote(kCFAllocatorDefault, portName.Get());
    if (remote == nullptr)
    {
        return false;
    }
    // The byte-order probe: the cheapest request every coordinator answers.
    CFDataRef reply = nullptr;
    const SInt32 result =
        CFMessagePortSendRequest(remote, kMessageIDEndianness, nullptr, kAnswerProbeSeconds,
                                 kAnswerProbeSeconds, kCFRunLoopDefaultMode, &reply);
    if (reply != nullptr)
    {
        CFRelease(reply);
    }
    CFMessagePortInvalidate(remote);
    CFRelease(remote);
    return result == kCFMessagePortSuccess;
}

KELSTATUS CMacInputs::KillOtherCoordinator()
{
    std::fprintf(stderr, "Killing the other coordinator.\n");
    ProcessSerialNumber psn = OtherCoordinatorProcess::Find(kCoordinatorProcessName);
    if (!ProcessUtils::KillProcessWithPSN(psn))
    {
        syslog(LOG_ERR, "Failed to kill the other Coordinator.\n");
        return KELSTATUS_FAILURE;
    }
    if (ProcessUtils::PSNIsNoProcess(psn))
    {
        return KELSTATUS_SUCCESS;
    }
    for (int slept = 0; slept < kKillWaitSeconds; ++slept)
    {
        psn = OtherCoordinatorProcess::Find(kCoordinatorProcessName);
        if (ProcessUtils::PSNIsNoProcess(psn))
        {
            return KELSTATUS_SUCCESS;
        }
        sleep(1);
    }
    // The last look-up; whatever it finds, the caller tries the port name once more.
    OtherCoordinatorProcess::Find(kCoordinatorProcessName);
    return KELSTATUS_SUCCESS;
}

unsigned int CMacInputs::GetNumberOfTablets()
{
    if (mpRoutingTable == nullptr)
    {
        return 0;
    }
    CEventPacket packet;
    packet.SetCommand(ECommandGet);
    packet.AddKeyInt(EObjectIDDriver, 0, EAddrModeByIndex);
    packet.AddKeyInt(EParameterIDCount, EObjectIDTablet, EAddrModeByIndex);
    mpRoutingTable->ProcessEvent(&packet);
    if (packet.Buffer() == nullptr)
    {
        return 0;
    }
    return packet.UnPackData_<unsigned short>(0);
}

KELSTATUS CMacInputs::GetProtocolVersion(unsigned int& version_O)
{
    const StCFString key(kProtocolVersionKey);
    CFTypeRef value = CFBundleGetValueForInfoDictionaryKey(CFBundleGetMainBundle(), key.Get());
    // Anything but a number counts as absent.
    if (value == nullptr || CFGetTypeID(value) != CFNumberGetTypeID())
    {
        return KELSTATUS_FAILURE;
    }
    SInt32 version = 0;
    CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt32Type, &version);
    version_O = static_cast<unsigned int>(version);
    return KELSTATUS_SUCCESS;
}

KELSTATUS CMacInputs::AppDidLaunch()
{
    KelAssertLine(411, mpRoutingTable);
    if (mpRoutingTable == nullptr)
    {
        return KELSTATUS_MEMORY_NULL_PTR;
    }
    return mpRoutingTable->Sync();
}
