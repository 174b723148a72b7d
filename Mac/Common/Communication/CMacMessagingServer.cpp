#include "Mac/Common/Communication/CMacMessagingServer.h"

#include "Common/CEventPacket.h"
#include "Common/KelAssert.h"
#include "Mac/Common/Communication/CMacMessagingClient.h"
#include "Mac/Common/Communication/MessageIDs.h"
#include "Mac/Common/Communication/StScratchCopy.h"
#include "Mac/Common/Communication/TransitRecord.h"

#include <syslog.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{
constexpr int kInitAttempts = 3;

struct FreeDeleter
{
    void operator()(void* p) const { std::free(p); }
};

// The checks that end the process. Like the C library's assert, they report on standard
// error (in the form of the assertion line) before the process aborts.
[[noreturn]] void FatalAssertion(unsigned line_I, const char* expression_I)
{
    std::fflush(stdout);
    std::fprintf(stderr, "%s:%u: failed assertion: %s\n",
                 "Mac/Common/Communication/CMacMessagingServer", line_I, expression_I);
    std::fflush(stderr);
    std::abort();
}

// The reply to a record whose answer an old client could not take: a return record alone,
// with an error status and no data. Senders read the status first and copy no data when it
// is not zero, so this is the one error answer every legacy peer understands.
CFDataRef RefusedTransitRecordReply()
{
    const TransitRecordReturn refusal = {KELSTATUS_MEMORY_OVERRUN, 0};
    return CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(&refusal),
                        sizeof(refusal));
}
} // namespace

KELSTATUS CMacMessagingServer::AllocateAndInitInstance(
    CFStringRef name_I, CFMessagePortCallBack callBackFunction_I,
    std::unique_ptr<CMacMessagingServer>& server_O, void* info_I)
{
    server_O = std::make_unique<CMacMessagingServer>();
    if (callBackFunction_I == nullptr)
    {
        FatalAssertion(__LINE__, "callBackFunction");
    }
    return server_O->Init(name_I, callBackFunction_I, info_I);
}

CMacMessagingServer::~CMacMessagingServer()
{
    if (mMessagePort != nullptr)
    {
        CFMessagePortInvalidate(mMessagePort);
        CFRelease(mMessagePort);
        mMessagePort = nullptr;
    }
    if (mRunLoopSource != nullptr)
    {
        if (mRunLoop != nullptr)
        {
            // Only the common modes, as always; the loop this server served ends with it.
            CFRunLoopRemoveSource(mRunLoop, mRunLoopSource, kCFRunLoopCommonModes);
            CFRunLoopStop(mRunLoop);
        }
        CFRelease(mRunLoopSource);
        mRunLoopSource = nullptr;
    }
}

KELSTATUS CMacMessagingServer::Init(CFStringRef name_I, CFMessagePortCallBack callBackFunction_I,
                                    void* info_I)
{
    for (int attempt = 0; attempt < kInitAttempts && mMessagePort == nullptr; ++attempt)
    {
        CFMessagePortContext context = {0, info_I, nullptr, nullptr, nullptr};
        Boolean shouldFreeInfo = false;
        mMessagePort = CFMessagePortCreateLocal(kCFAllocatorDefault, name_I, callBackFunction_I,
                                                &context, &shouldFreeInfo);
        if (mMessagePort == nullptr)
        {
            KelAssertReport(__FILE__, 143, "!(bool)\"Message Port already Exists?\\n\"");
            sleep(1);
        }
    }
    if (mMessagePort == nullptr)
    {
        return KELSTATUS_FAILURE;
    }

    mRunLoop = CFRunLoopGetCurrent();
    mRunLoopSource = CFMessagePortCreateRunLoopSource(kCFAllocatorDefault, mMessagePort, 0);
    CFRunLoopAddSource(mRunLoop, mRunLoopSource, kCFRunLoopCommonModes);
    CFRunLoopAddSource(mRunLoop, mRunLoopSource, kMacMessagingClientRunLoopMode);
    return KELSTATUS_SUCCESS;
}

void CMacMessagingServer::SetProcessEventCallback(ProcessEventCallbackProc callback_I,
                                                  void* userData_I)
{
    mProcessEventCallback = callback_I;
    mCallbackUserData = userData_I;
}

CFDataRef CMacMessagingServer::ProcessRequest(CFDataRef data_I, SInt32 msgid_I)
{
    if (mProcessEventCallback == nullptr || data_I == nullptr)
    {
        std::fprintf(stderr, "pTaaInterface is NULL!\n");
        return nullptr;
    }
    switch (msgid_I)
    {
    case kMessageIDEventPacket:
        return ProcessEventPacketMessage(data_I);
    case kMessageIDTransitRecord:
        return ProcessTransitRecordMessage(data_I);
    default:
        return nullptr;
    }
}

CFDataRef CMacMessagingServer::ProcessEventPacketMessage(CFDataRef data_I)
{
    CEventPacket packet;

    // The packet is decoded in place (a block of the other byte order is swapped), so it is
    // decoded from a copy and the incoming data is never written.
    if (data_I == nullptr)
    {
        KelAssertReport(__FILE__, 229, "mutableData_I");
    }
    else
    {
        StScratchCopy scratch(CFDataGetBytePtr(data_I),
                              static_cast<std::size_t>(CFDataGetLength(data_I)));
        // Not checked: a block that does not decode leaves the packet empty, and the empty
        // packet is processed and answered like any other.
        packet.DeserializeFromBuffer(scratch.Bytes(), scratch.Size(), nullptr);
    }

    if (mProcessEventCallback != nullptr)
    {
        // The outcome travels in the packet's status.
        mProcessEventCallback(&packet, mCallbackUserData);
    }

    const unsigned int size = packet.GetSerializedSize(nullptr);
    CFMutableDataRef reply = CFDataCreateMutable(kCFAllocatorDefault, size);
    if (reply != nullptr)
    {
        CFDataSetLength(reply, size);
        packet.SerializeToBuffer(CFDataGetMutableBytePtr(reply), size, nullptr);
    }
    return reply;
}

CFDataRef CMacMessagingServer::ProcessTransitRecordMessage(CFDataRef data_I)
{
    // Ten keys from the record and one more that stays empty: the chain handed to the packet
    // is read up to its eleventh place when the record fills all ten.
    OBJECT_KEY keys[kTransitRecordKeyCount + 1];
    TransitRecordReturn returnRec = {0, 0};

    const CFIndex length = data_I != nullptr ? CFDataGetLength(data_I) : 0;
    if (length < static_cast<CFIndex>(kTransitRecordHeaderSize))
    {
        syslog(LOG_ERR, "*** transit record unusually small (%d instead of %d) ***",
               static_cast<int>(length), static_cast<int>(kTransitRecordHeaderSize));
        return nullptr;
    }
    const UInt8* pRequest = CFDataGetBytePtr(data_I);

    TransitRecord transitRec;
    std::memcpy(&transitRec, pRequest, kTransitRecordHeaderSize);
    KelAssertLine(294, transitRec.sizeOfData < 0xffff);
    if (transitRec.sizeOfData >= 0x10000)
    {
        syslog(LOG_ERR, "*** transit record unusually large ***");
        return nullptr;
    }
    const std::uint32_t dataSize = transitRec.sizeOfData;
    // Old clients cannot take an answer of kMaxLegacyAnswerBytes or more, and every record
    // is answered with at least its own data, so such a record is refused before anything
    // acts on it (the historical receiver aborted the whole process here).
    if (dataSize >= kMaxLegacyAnswerBytes)
    {
        syslog(LOG_ERR, "*** transit record refused: %u data bytes, at most %u ***",
               static_cast<unsigned>(dataSize), static_cast<unsigned>(kMaxLegacyAnswerBytes - 1));
        return RefusedTransitRecordReply();
    }

    std::unique_ptr<void, FreeDeleter> buffer;
    if (dataSize != 0)
    {
        const CFIndex expected = static_cast<CFIndex>(kTransitRecordHeaderSize + dataSize);
        if (length < expected)
        {
            syslog(LOG_ERR, "*** transit record unexpectedly small (%d instead of %d) ***",
                   static_cast<int>(length), static_cast<int>(expected));
            return nullptr;
        }
        buffer.reset(std::malloc(dataSize));
        if (buffer == nullptr)
        {
            KelAssertReport(__FILE__, 318, "bufferPtr");
            return nullptr;
        }
        std::memcpy(buffer.get(), pRequest + kTransitRecordHeaderSize, dataSize);
    }
    void* const bufferPtr = buffer.get();

    // The packet works on the buffer without owning it.
    CEventPacket packet(dataSize, bufferPtr);
    for (unsigned int i = 0; i < kTransitRecordKeyCount; ++i)
    {
        const TransitKeyRecord& record = transitRec.keys[i];
        const auto mode = static_cast<EAddressingMode>(record.mode);
        // A string key's text never travels; its reference field is whatever the sender's
        // pointer was, and is never read as one here.
        void* reference =
            mode == EAddrModeByString
                ? nullptr
                : reinterpret_cast<void*>(static_cast<std::uintptr_t>(record.reference));
        keys[i].Set(static_cast<EEventIdentifier>(record.identifier), reference, mode);
    }
    packet.PackEvent(static_cast<ECommand>(transitRec.command), keys, dataSize, bufferPtr,
                     static_cast<ESourceOfRequest>(transitRec.sourceOfRequest));
    if (packet.Status() != KELSTATUS_SUCCESS)
    {
        return nullptr;
    }

    KELSTATUS status = KELSTATUS_SUCCESS;
    if (mProcessEventCallback != nullptr)
    {
        status = mProcessEventCallback(&packet, mCallbackUserData);
        // "Missing" and "not implemented" are ordinary answers to old clients: not reported.
        if (status != KELSTATUS_SUCCESS && status != KELSTATUS_RESOURCE_MISSING &&
            status != KELSTATUS_METHOD_NOT_IMPLEMENTED)
        {
            std::printf("error from ProcessEvent : %d\n", status);
        }
    }
    returnRec.wStatus = status;
    returnRec.returnDataSize = dataSize;

    CFMutableDataRef outData =
        CFDataCreateMutable(kCFAllocatorDefault, static_cast<CFIndex>(dataSize + 8));
    if (outData == nullptr)
    {
        KelAssertReport(__FILE__, 378, "outData");
        return nullptr;
    }
    CFDataSetLength(outData, static_cast<CFIndex>(dataSize + 8));
    UInt8* pDataTransitRec = CFDataGetMutableBytePtr(outData);
    UInt8* pData = pDataTransitRec + kTransitRecordReturnSize;
    std::memset(pData, 0, dataSize);

    // Room for the request's size; a larger answer is not copied (UnPackData says so on
    // standard error) but its size is still reported.
    unsigned int unpackedSize = dataSize;
    packet.UnPackData(unpackedSize, pData);
    returnRec.returnDataSize = unpackedSize;
    const KELSTATUS wStatus = packet.Status();
    KelAssertLine(393, wStatus == KELSTATUS_SUCCESS);

    std::memcpy(pDataTransitRec, &returnRec, sizeof(returnRec));
    if (std::memcmp(pDataTransitRec, &returnRec, sizeof(returnRec)) != 0)
    {
        KelAssertReport(__FILE__, 402,
                        "memcmp( pDataTransitRec, &returnRec, sizeof( returnRec ) ) == 0");
    }
    if (dataSize != 0 && std::memcmp(pData, bufferPtr, dataSize) != 0)
    {
        KelAssertReport(__FILE__, 403, "memcmp( pData, bufferPtr, dataSize ) == 0");
    }

    // Old clients cannot take a shorter answer than their request, nor one of
    // kMaxLegacyAnswerBytes or more. The request has been served, but its answer is refused
    // instead of ending the process over one peer's packet.
    if (!(dataSize <= returnRec.returnDataSize) ||
        !(returnRec.returnDataSize < kMaxLegacyAnswerBytes))
    {
        syslog(LOG_ERR, "*** transit record answer refused: %u data bytes for a request of %u ***",
               static_cast<unsigned>(returnRec.returnDataSize), static_cast<unsigned>(dataSize));
        CFRelease(outData);
        return RefusedTransitRecordReply();
    }
    return outData;
}
