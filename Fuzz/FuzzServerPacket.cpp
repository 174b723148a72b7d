// Fuzz target for a 'KEPK' request as it reaches the coordinator: the bytes go to the
// coordinator's message server (CMacMessagingServer::ProcessRequest), whose packet callback
// is the coordinator's own (CMacInputs, then the route table), and the route table reaches
// two in-process drivers that answer as the input says. Whatever the bytes, the server
// answers with a block that decodes, and a request that decoded keeps its command.
//
// Input layout:
//
// | Offset | Size | Content                                                              |
// |--------|------|----------------------------------------------------------------------|
// | 0      | 1    | how the drivers answer: bits 0-1 driver 0, bits 2-3 driver 1 (below) |
// | 1      | 1    | the value a driver packs when it answers with data                   |
// | 2      | rest | the request's bytes, a serialized event packet or anything else      |
//
// Driver behaviour: 0 success, the packet untouched; 1 success with the value as 16 bits;
// 2 success with the value as 32 bits; 3 KELSTATUS_OBJECT_NOT_FOUND. Each driver has three
// tablets: a request for a tablet by a higher local index fails whatever the behaviour, so
// the route table's walks over a driver's tablets stay short.
#include "Common/CEventPacket.h"
#include "Common/Coordinator/CRouteTable.h"
#include "Fuzz/FuzzCheck.h"
#include "Mac/Common/Communication/CDriverMessageSendPort.h"
#include "Mac/Common/Communication/CMacMessagingServer.h"
#include "Mac/Common/Communication/MessageIDs.h"
#include "Mac/TabletDriver/Source/Coordinator/CMacInputs.h"

#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

namespace
{
class CScriptedDriver : public CDriverMessageSendPort
{
public:
    CScriptedDriver(unsigned behaviour_I, std::uint8_t value_I)
        : mBehaviour(behaviour_I), mValue(value_I)
    {
    }

    KELSTATUS SendKeltoEvent(CEventPacket* packet_IO) override
    {
        // A driver of three tablets: a request for a tablet by a later local index fails,
        // which is also what ends the route table's walk over a driver's tablets.
        for (unsigned int place = 0; place <= MAX_KEY; ++place)
        {
            const OBJECT_KEY& key = *packet_IO->ObjectKey(place);
            if (key.Identifier() == EObjectIDTablet &&
                key.mAddressingMode == EAddrModeByLocalIndex &&
                reinterpret_cast<std::uintptr_t>(key.mReference) >= kTablets)
            {
                packet_IO->SetStatus(KELSTATUS_OBJECT_NOT_FOUND);
                return KELSTATUS_OBJECT_NOT_FOUND;
            }
        }
        switch (mBehaviour)
        {
        case 1:
            packet_IO->PackData_(static_cast<std::uint16_t>(mValue));
            break;
        case 2:
            packet_IO->PackData_(static_cast<std::uint32_t>(mValue));
            break;
        case 3:
            packet_IO->SetStatus(KELSTATUS_OBJECT_NOT_FOUND);
            return KELSTATUS_OBJECT_NOT_FOUND;
        default:
            break;
        }
        packet_IO->SetStatus(KELSTATUS_SUCCESS);
        return KELSTATUS_SUCCESS;
    }

private:
    static constexpr std::uintptr_t kTablets = 3;
    unsigned mBehaviour;
    std::uint8_t mValue;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Assertion lines go to standard output (standard error stays for the sanitizers).
    static const bool quiet = std::freopen("/dev/null", "w", stdout) != nullptr;
    (void)quiet;
    if (size < 2)
    {
        return 0;
    }

    // A fresh coordinator for every input: what one request leaves in the table (tablets,
    // touch clients) must not change how the next one is handled.
    CRouteTable table;
    table.SetDriver(0, std::make_shared<CScriptedDriver>(data[0] & 3, data[1]));
    table.SetDriver(1, std::make_shared<CScriptedDriver>((data[0] >> 2) & 3, data[1]));
    table.AddNewTablet(0, 0);
    table.AddNewTablet(1, 0);
    // Touch clients are never reached: no port is made for them.
    table.SetTouchClientPortFactory([](const std::string&) { return nullptr; });
    // The table only: no port, no Apple Event handlers. A request to quit asks the
    // application to terminate, which it only notes: no application runs here.
    CMacInputs inputs;
    inputs.CInputs::Init(&table);

    CMacMessagingServer server; // no port either: ProcessRequest is called directly
    server.SetProcessEventCallback(CMacInputs::ProcessEventCallback, &inputs);

    // The request as the server receives it; an exact copy, so that a read past its end
    // is caught.
    std::vector<std::uint8_t> copy(data + 2, data + size);
    CEventPacket request;
    const bool decodes =
        request.DeserializeFromBuffer(copy.data(), copy.size(), nullptr) == KELSTATUS_SUCCESS;

    CFDataRef bytes = CFDataCreate(nullptr, data + 2, static_cast<CFIndex>(size - 2));
    CFDataRef reply = server.ProcessRequest(bytes, kMessageIDEventPacket);
    CFRelease(bytes);

    // Every request is answered with a packet, an empty one when the request did not decode.
    Check(reply != nullptr);
    std::vector<std::uint8_t> answered(CFDataGetBytePtr(reply),
                                       CFDataGetBytePtr(reply) + CFDataGetLength(reply));
    CFRelease(reply);
    CEventPacket answer;
    Check(answer.DeserializeFromBuffer(answered.data(), answered.size(), nullptr) ==
          KELSTATUS_SUCCESS);
    if (decodes)
    {
        Check(answer.Command() == request.Command());
    }
    return 0;
}
