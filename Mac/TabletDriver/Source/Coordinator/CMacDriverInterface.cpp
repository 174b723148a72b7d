#include "Mac/TabletDriver/Source/Coordinator/CMacDriverInterface.h"

#include "Common/CEventPacket.h"
#include "Common/FileVersion.h"
#include "Common/KelAssert.h"
#include "Mac/Common/Communication/MessageIDs.h"

#include <array>
#include <cstdlib>

namespace
{
// The five fields in the order major, minor, variation, release, build, each as a byte, so
// that two versions compare field by field and nothing else decides.
std::array<unsigned char, 5> VersionBytes(const FileVersion& version_I)
{
    return {version_I.Major(), version_I.Minor(), version_I.Variation(),
            static_cast<unsigned char>(version_I.Release()), version_I.Build()};
}

// The first version of a driver that speaks event packets; null for a driver that never does.
const FileVersion* EventPacketThreshold(std::uint32_t driverID_I)
{
    static const FileVersion kKeltoTabletDriver(6, 1, 2, FileVersion::EUnknownVersion, 0);
    static const FileVersion kPenTabletDriver(5, 2, 0, FileVersion::EUnknownVersion, 0);
    switch (driverID_I)
    {
    case 'KlKT':
        return &kKeltoTabletDriver;
    case 'KlPT':
        return &kPenTabletDriver;
    default:
        return nullptr;
    }
}
} // namespace

CMacDriverInterface::~CMacDriverInterface() = default;

KELSTATUS CMacDriverInterface::Init(CFStringRef portName_I, bool connect_I)
{
    return CMacDriverMessageSendPort::Init(portName_I, connect_I);
}

KELSTATUS CMacDriverInterface::Init(std::uint32_t driverID_I, CFStringRef portName_I,
                                    bool connect_I)
{
    const KELSTATUS status = CMacDriverMessageSendPort::Init(portName_I, connect_I);
    mDriverID = driverID_I;
    return status;
}

KELSTATUS CMacDriverInterface::SendKeltoEvent(CEventPacket* packet_IO)
{
    if (packet_IO == nullptr)
    {
        return KELSTATUS_FAILURE;
    }
    if (mMessagingType == kMessagingTypeUnknown)
    {
        DetermineMessagingType();
    }
    if (mMessagingType == kMessagingTypeEventPacket)
    {
        return CMacDriverMessageSendPort::SendKeltoEvent(packet_IO);
    }
    if (mMessagingType == kMessagingTypeLegacy)
    {
        TransitRecordReturn returnReceipt = {0, 0};
        const KELSTATUS status = SendLegacyKeltoEvent(packet_IO, &returnReceipt);
        if (status != returnReceipt.wStatus)
        {
            KelAssertReport(__FILE__, 81, "status == returnReceipt.wStatus");
        }
        packet_IO->SetStatus(status);
        return status;
    }
    // The probe failed; the next packet probes again.
    return KELSTATUS_FAILURE;
}

void CMacDriverInterface::DetermineMessagingType()
{
    // The probe asks for the driver's file version; its five bytes are the packet's data
    // buffer, into which the answer is written.
    FileVersion version;
    CEventPacket probe(sizeof(version), &version);
    const OBJECT_KEY keys[] = {OBJECT_KEY(EObjectIDDriver, nullptr, EAddrModeByIndex),
                               OBJECT_KEY(EParameterIDFileVersion, nullptr, EAddrModeByIndex),
                               OBJECT_KEY()};
    probe.PackEvent(ECommandGet, keys, sizeof(version), &version, ESourceOfRequestUnspecified);

    // Every driver understands a transit record.
    mMessagingType = kMessagingTypeLegacy;
    if (SendKeltoEvent(&probe) != KELSTATUS_SUCCESS)
    {
        mMessagingType = kMessagingTypeUnknown;
        return;
    }
    unsigned int size = sizeof(version);
    probe.UnPackData(size, &version);
    const FileVersion driverVersion(version.Major(), version.Minor(), version.Variation(),
                                    FileVersion::EUnknownVersion, 0);

    const FileVersion* threshold = EventPacketThreshold(mDriverID);
    if (threshold != nullptr && VersionBytes(driverVersion) >= VersionBytes(*threshold))
    {
        mMessagingType = kMessagingTypeEventPacket;
    }
}

OSStatus CMacDriverInterface::ForwardAppleEvent(AEDesc* event_I, AEDesc* reply_O)
{
    CMacMessagingClient* client = GetMessagingClient();
    if (client == nullptr)
    {
        return 513;
    }

    const Size flattenedSize = AESizeOfFlattenedDesc(event_I);
    void* eventBuffer =
        std::malloc(flattenedSize > 0 ? static_cast<std::size_t>(flattenedSize) : 1);
    if (eventBuffer == nullptr)
    {
        KelAssertReport(__FILE__, 124, "eventBuffer");
        return memFullErr;
    }
    Size actualSize = 0;
    OSStatus result =
        AEFlattenDesc(event_I, static_cast<Ptr>(eventBuffer), flattenedSize, &actualSize);
    CFDataRef dataInRef =
        CFDataCreateWithBytesNoCopy(kCFAllocatorDefault, static_cast<const UInt8*>(eventBuffer),
                                    flattenedSize, kCFAllocatorNull);
    if (dataInRef == nullptr)
    {
        KelAssertReport(__FILE__, 129, "dataInRef");
    }

    CFDataRef replyData = nullptr;
    const KELSTATUS status = client->SendRawRequest(kMessageIDAppleEvent, dataInRef, &replyData);
    if (dataInRef != nullptr)
    {
        CFRelease(dataInRef);
    }
    std::free(eventBuffer);
    if (status != KELSTATUS_SUCCESS)
    {
        return paramErr;
    }

    AEDesc localDesc;
    AEInitializeDesc(&localDesc);
    if (replyData != nullptr)
    {
        // Bytes from another process: read within the bytes received.
        result = AEUnflattenDescFromBytes(CFDataGetBytePtr(replyData),
                                          static_cast<std::size_t>(CFDataGetLength(replyData)),
                                          &localDesc);
        CFRelease(replyData);
    }

    if (localDesc.descriptorType != typeNull)
    {
        long count = 0;
        if (AECountItems(&localDesc, &count) == noErr && count >= 1)
        {
            AEKeyword keyword = 0;
            AEDesc item;
            AEInitializeDesc(&item);
            if (AEGetNthDesc(&localDesc, 1, typeWildCard, &keyword, &item) == noErr &&
                keyword == keyErrorNumber)
            {
                SInt32 errorNumber = 0;
                AEGetDescData(&item, &errorNumber, sizeof(errorNumber));
                result = errorNumber;
                AEDisposeDesc(&localDesc);
            }
            AEDisposeDesc(&item);
        }
    }

    if (result == noErr && reply_O != nullptr)
    {
        // The caller owns the reply from here on.
        *reply_O = localDesc;
    }
    else
    {
        AEDisposeDesc(&localDesc);
    }
    return result;
}
