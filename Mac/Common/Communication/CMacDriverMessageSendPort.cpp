#include "Mac/Common/Communication/CMacDriverMessageSendPort.h"

#include "Common/CEventPacket.h"
#include "Common/CNotFlipper.h"
#include "Common/KelAssert.h"
#include "Mac/Common/Communication/MessageIDs.h"
#include "Mac/Common/Communication/StScratchCopy.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace
{
std::uint32_t ReverseBytes(std::uint32_t value_I)
{
    return __builtin_bswap32(value_I);
}
} // namespace

CMacDriverMessageSendPort::~CMacDriverMessageSendPort() = default;

KELSTATUS CMacDriverMessageSendPort::SendKeltoEvent(CEventPacket* packet_IO)
{
    if (!mpMessagingClient || packet_IO == nullptr)
    {
        return KELSTATUS_FAILURE;
    }

    const unsigned int size = packet_IO->GetSerializedSize(nullptr);
    CFMutableDataRef dataIn = CFDataCreateMutable(kCFAllocatorDefault, size);
    if (dataIn == nullptr)
    {
        KelAssertReport(__FILE__, 361, "dataIn");
        packet_IO->SetStatus(KELSTATUS_FAILURE);
        return KELSTATUS_FAILURE;
    }
    CFDataSetLength(dataIn, size);
    packet_IO->SerializeToBuffer(CFDataGetMutableBytePtr(dataIn), size, nullptr);

    CFDataRef reply = nullptr;
    KELSTATUS status = mpMessagingClient->SendRawRequest(kMessageIDEventPacket, dataIn, &reply);
    CFRelease(dataIn);
    if (status != KELSTATUS_SUCCESS)
    {
        packet_IO->SetStatus(KELSTATUS_FAILURE);
        return KELSTATUS_FAILURE;
    }
    if (reply == nullptr)
    {
        // The driver answered nothing: taken as done.
        packet_IO->SetStatus(KELSTATUS_SUCCESS);
        return KELSTATUS_SUCCESS;
    }
    const CFIndex replyLength = CFDataGetLength(reply);
    if (replyLength == 0)
    {
        // An empty answer leaves the packet as it was sent.
        CFRelease(reply);
        return KELSTATUS_SUCCESS;
    }

    // Decoded in place (a block of the other byte order is swapped), so from a copy.
    StScratchCopy scratch(CFDataGetBytePtr(reply), static_cast<std::size_t>(replyLength));
    CFRelease(reply);
    return packet_IO->DeserializeFromBuffer(scratch.Bytes(), scratch.Size(), nullptr);
}

KELSTATUS CMacDriverMessageSendPort::Init(CFStringRef portName_I, bool connect_I)
{
    return CMacMessagingClient::AllocateAndInitInstance(mpMessagingClient, portName_I, kSendTimeout,
                                                        kReceiveTimeout, connect_I);
}

KELSTATUS CMacDriverMessageSendPort::SetupHostFlipper()
{
    mpFlipper.reset();
    if (mAutoFlipsData)
    {
        const unsigned char endianness = GetRemoteEndianness();
        if (endianness == 1)
        {
            mpFlipper = std::make_unique<CNotFlipper>();
            return KELSTATUS_SUCCESS;
        }
        if (endianness != 0)
        {
            mpFlipper = std::make_unique<CFlipper>();
            return KELSTATUS_SUCCESS;
        }
    }
    if (mpMessagingClient && mpMessagingClient->IsValid())
    {
        KelFailLine(220, "assuming no flip needed");
        mpFlipper = std::make_unique<CNotFlipper>();
        return KELSTATUS_SUCCESS;
    }
    return KELSTATUS_FAILURE;
}

CMacMessagingClient* CMacDriverMessageSendPort::GetMessagingClient()
{
    return mpMessagingClient.get();
}

unsigned char CMacDriverMessageSendPort::GetRemoteEndianness()
{
    if (mRemoteEndianness != 0)
    {
        return mRemoteEndianness;
    }
    if (!mpMessagingClient)
    {
        return 0;
    }
    unsigned char endianness = 0;
    CFDataRef reply = nullptr;
    if (mpMessagingClient->SendRawRequest(kMessageIDEndianness, nullptr, &reply) ==
            KELSTATUS_SUCCESS &&
        reply != nullptr)
    {
        if (CFDataGetLength(reply) >= 1)
        {
            endianness = CFDataGetBytePtr(reply)[0];
        }
    }
    if (reply != nullptr)
    {
        CFRelease(reply);
    }
    return endianness;
}

void CMacDriverMessageSendPort::SetAutoFlipsData(bool autoFlipsData_I)
{
    mAutoFlipsData = autoFlipsData_I;
    if (mpFlipper)
    {
        SetupHostFlipper();
    }
}

bool CMacDriverMessageSendPort::IsValid() const
{
    return mpMessagingClient && mpMessagingClient->IsValid();
}

KELSTATUS CMacDriverMessageSendPort::SendLegacyKeltoEvent(CEventPacket* packet_IO,
                                                          TransitRecordReturn* receipt_O)
{
    if (!mpFlipper)
    {
        const KELSTATUS status = SetupHostFlipper();
        if (status != KELSTATUS_SUCCESS)
        {
            if (receipt_O != nullptr)
            {
                receipt_O->wStatus = status;
            }
            return status;
        }
    }
    const CFlipper& flipper = *mpFlipper;

    TransitRecord transitRec;
    std::memset(&transitRec, 0, sizeof(transitRec));
    for (unsigned int i = 0; i < kTransitRecordKeyCount; ++i)
    {
        const OBJECT_KEY* key = packet_IO->ObjectKey(i);
        TransitKeyRecord& record = transitRec.keys[i];
        record.mode = flipper.FlipPrivate(static_cast<unsigned int>(key->mAddressingMode));
        record.identifier =
            flipper.FlipPrivate(static_cast<unsigned short>(key->mIdentifier & 0xFFFF));
        record.reference = flipper.FlipPrivate(
            static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(key->mReference)));
    }
    const unsigned int wSizeOfData = packet_IO->SizeOfData();
    KelAssertLine(457, wSizeOfData < 0xffff);
    transitRec.sizeOfData = flipper.FlipPrivate(wSizeOfData);
    transitRec.sourceOfRequest = flipper.FlipPrivate(0u);
    transitRec.command = flipper.FlipPrivate(static_cast<unsigned int>(packet_IO->Command()));

    const KELSTATUS status = SendLegacyRequest(&transitRec, packet_IO->Buffer());

    if (receipt_O != nullptr)
    {
        TransitRecordReturn* returnReceipt_O = receipt_O;
        *returnReceipt_O = transitRec.returnRec;
        if (status != returnReceipt_O->wStatus)
        {
            KelAssertReport(__FILE__, 475, "status == returnReceipt_O->wStatus");
        }
    }
    return status;
}

KELSTATUS CMacDriverMessageSendPort::SendLegacyRequest(TransitRecord* pTransitRec_IO, void* data_IO)
{
    if (!mpMessagingClient)
    {
        return KELSTATUS_FAILURE;
    }
    if (pTransitRec_IO == nullptr)
    {
        KelAssertReport(__FILE__, 504, "pTransitRec");
        return KELSTATUS_FAILURE;
    }
    TransitRecord* const pTransitRec = pTransitRec_IO;
    if (!mpFlipper)
    {
        const KELSTATUS status = SetupHostFlipper();
        if (status != KELSTATUS_SUCCESS)
        {
            return status;
        }
    }

    // The header is in the driver's byte order already; a size that reads as 0x10000 or
    // more is taken to be reversed.
    std::uint32_t dataSize = pTransitRec->sizeOfData;
    if (dataSize >= 0x10000)
    {
        dataSize = ReverseBytes(dataSize);
    }
    KelAssertLine(526, dataSize < 0xffff);
    if (dataSize >= 0x10000)
    {
        // Cannot travel (the receiver refuses it) and would read past the caller's data.
        return KELSTATUS_FAILURE;
    }

    CFMutableDataRef body = CFDataCreateMutable(kCFAllocatorDefault, 0);
    if (body == nullptr)
    {
        return KELSTATUS_FAILURE;
    }
    CFDataAppendBytes(body, reinterpret_cast<const UInt8*>(pTransitRec), kTransitRecordHeaderSize);
    if (dataSize != 0 && data_IO != nullptr)
    {
        CFDataAppendBytes(body, static_cast<const UInt8*>(data_IO), dataSize);
    }
    pTransitRec->returnRec.wStatus = KELSTATUS_FAILURE;

    CFDataRef reply = nullptr;
    const KELSTATUS sendStatus =
        mpMessagingClient->SendRawRequest(kMessageIDTransitRecord, body, &reply);
    CFRelease(body);
    if (sendStatus != KELSTATUS_SUCCESS)
    {
        return sendStatus;
    }
    if (reply == nullptr)
    {
        return KELSTATUS_SUCCESS;
    }
    const CFIndex replyLength = CFDataGetLength(reply);
    if (replyLength == 0)
    {
        CFRelease(reply);
        return KELSTATUS_SUCCESS;
    }
    if (replyLength < static_cast<CFIndex>(kTransitRecordReturnSize))
    {
        CFRelease(reply);
        return KELSTATUS_FAILURE;
    }

    const UInt8* pReply = CFDataGetBytePtr(reply);
    TransitRecordReturn returnRec;
    std::memcpy(&returnRec, pReply, sizeof(returnRec));
    returnRec.wStatus = mpFlipper->FlipPrivate(static_cast<unsigned int>(returnRec.wStatus));
    returnRec.returnDataSize =
        mpFlipper->FlipPrivate(static_cast<unsigned int>(returnRec.returnDataSize));
    const auto status = static_cast<KELSTATUS>(returnRec.wStatus & 0xFFFF);
    if (status == KELSTATUS_SUCCESS)
    {
        KelAssertLine(575, returnRec.returnDataSize <= dataSize);
        // The request's size, as always, but never beyond the bytes that came back.
        const std::size_t available =
            static_cast<std::size_t>(replyLength) - kTransitRecordReturnSize;
        const std::size_t count = std::min<std::size_t>(dataSize, available);
        if (count != 0 && data_IO != nullptr)
        {
            std::memcpy(data_IO, pReply + kTransitRecordReturnSize, count);
        }
    }
    pTransitRec->returnRec = returnRec;
    CFRelease(reply);
    return status;
}
