// Fuzz target for the coordinator's receiver of transit records
// (CMacMessagingServer::ProcessTransitRecordMessage): all but the first two bytes are one
// request as another process sent it; the first two script the process-event callback.
//
// The callback answers any size around the request's (shorter, longer, past the 1000 bytes
// an old client takes), so the refusals of answers an old client cannot take are reached
// too. Every reply is either the return record with exactly the request's data size, or a
// bare refusal: status 0x0105 and no data.
#include "Common/CEventPacket.h"
#include "Fuzz/FuzzCheck.h"
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
    int grow = 0;
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
        const int wanted = static_cast<int>(packet->SizeOfData()) + script.grow;
        const unsigned size = wanted < 0 ? 0u : static_cast<unsigned>(wanted);
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
    script.grow = static_cast<std::int8_t>(data[1]) * 8;
    const uint8_t* record = data + 2;
    const size_t length = size - 2;

    CMacMessagingServer server;
    server.SetProcessEventCallback(Callback, &script);
    CFDataRef request = CFDataCreate(kCFAllocatorDefault, record, static_cast<CFIndex>(length));
    CFDataRef reply = server.ProcessRequest(request, 0);
    if (reply != nullptr)
    {
        std::uint32_t sizeOfData = 0;
        std::memcpy(&sizeOfData, record + offsetof(TransitRecord, sizeOfData), sizeof(sizeOfData));
        TransitRecordReturn head = {};
        std::memcpy(&head, CFDataGetBytePtr(reply), sizeof(head));
        const auto replyLength = static_cast<std::uint64_t>(CFDataGetLength(reply));
        const bool refused = replyLength == kTransitRecordReturnSize &&
                             head.wStatus == KELSTATUS_MEMORY_OVERRUN && head.returnDataSize == 0;
        Check(refused || replyLength == kTransitRecordReturnSize + sizeOfData);
        CFRelease(reply);
    }
    CFRelease(request);
    return 0;
}
