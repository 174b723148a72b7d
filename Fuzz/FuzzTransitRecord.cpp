// Fuzz target for the coordinator's receiver of transit records
// (CMacMessagingServer::ProcessTransitRecordMessage): all but the first two bytes are one
// request as another process sent it; the first two script the process-event callback.
//
// Two checks of the receiver end the process on purpose and stay in the product:
// "dataSize <= returnRec.returnDataSize" (an answer shorter than the request's data) and
// "returnRec.returnDataSize < 1000". The harness keeps inputs that would reach them out:
// its callback answers at least as many bytes as the request carried and never 1000 or
// more, and a record whose header and data are whole and whose data size lies between 1000
// and 0xFFFF (every such record is answered with its own data, so it would abort) is not
// served. Records that announce such sizes are still served when they are rejected before
// the answer (data missing, 0x10000 or more), which is where the length checks are.
#include "Common/CEventPacket.h"
#include "Mac/Common/Communication/CMacMessagingServer.h"
#include "Mac/Common/Communication/TransitRecord.h"

#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

namespace
{
struct Script
{
    KELSTATUS status = KELSTATUS_SUCCESS;
    bool answer = false;
    unsigned grow = 0;
};

KELSTATUS Callback(CEventPacket* packet, void* context)
{
    const Script& script = *static_cast<const Script*>(context);
    // Read the keys as a route table does.
    for (unsigned i = 0; i <= 10 && packet->ObjectKey(i)->Identifier() != EObjectIDNothing; ++i)
    {
        (void)packet->ObjectKey(i)->String();
    }
    if (script.answer)
    {
        // Never smaller than the request's data (below 1000, see above), never 1000.
        unsigned size = packet->SizeOfData() + script.grow;
        if (size >= 1000)
        {
            size = 999;
        }
        std::vector<std::uint8_t> answer(size, 0xA5);
        packet->PackData(size, answer.data());
    }
    return script.status;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Assertion lines and the callback's error lines go to standard output.
    static const bool quiet = std::freopen("/dev/null", "w", stdout) != nullptr;
    (void)quiet;
    if (size < 2)
    {
        return 0;
    }
    static const KELSTATUS kStatuses[] = {KELSTATUS_SUCCESS, KELSTATUS_RESOURCE_MISSING,
                                          KELSTATUS_METHOD_NOT_IMPLEMENTED, KELSTATUS_RESOURCE_BAD};
    Script script;
    script.status = kStatuses[data[0] & 3];
    script.answer = (data[0] & 4) != 0;
    script.grow = data[1];
    const uint8_t* record = data + 2;
    const size_t length = size - 2;

    if (length >= kTransitRecordHeaderSize)
    {
        std::uint32_t sizeOfData = 0;
        std::memcpy(&sizeOfData, record + offsetof(TransitRecord, sizeOfData), sizeof(sizeOfData));
        if (sizeOfData >= 1000 && sizeOfData < 0x10000 &&
            length >= kTransitRecordHeaderSize + sizeOfData)
        {
            return 0;
        }
    }

    CMacMessagingServer server;
    server.SetProcessEventCallback(Callback, &script);
    CFDataRef request = CFDataCreate(kCFAllocatorDefault, record, static_cast<CFIndex>(length));
    CFDataRef reply = server.ProcessRequest(request, 0);
    if (reply != nullptr)
    {
        // The reply is the return record and exactly the request's data size.
        std::uint32_t sizeOfData = 0;
        std::memcpy(&sizeOfData, record + offsetof(TransitRecord, sizeOfData), sizeof(sizeOfData));
        if (static_cast<std::uint64_t>(CFDataGetLength(reply)) !=
            kTransitRecordReturnSize + sizeOfData)
        {
            __builtin_trap();
        }
        CFRelease(reply);
    }
    CFRelease(request);
    return 0;
}
