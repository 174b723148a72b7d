// Fuzz target for what a touch client's port receives from another process: the answer of
// CKeltoTouchPort to one 'KEPK' message of arbitrary bytes (the same decoding serves the
// client library's replies from the coordinator). Besides staying within the bytes, the
// answer must be consistent: no answer exactly when the bytes are no packet; otherwise a
// packet without data whose status says what happened, and the handler called exactly for
// the deliveries answered with status 0.
#include "Client/CKeltoTouchPort.h"
#include "Client/KeltoClientPackets.h"
#include "Common/Settings/CSettingsArray.h"
#include "Fuzz/FuzzCheck.h"
#include "Mac/Common/Communication/MessageIDs.h"

#include <cstddef>
#include <cstdint>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    unsigned int calls = 0;
    auto port =
        std::make_shared<CKeltoTouchPort>("fuzz",
                                          [&calls](std::shared_ptr<CSettingsArray> capabilities)
                                          {
                                              Check(capabilities != nullptr);
                                              ++calls;
                                          });
    const std::vector<unsigned char> answer = port->Answer(kMessageIDEventPacket, data, size);

    CEventPacket request;
    const bool isPacket = KeltoClientPackets::Decode(data, size, request) == KELSTATUS_SUCCESS;
    Check(answer.empty() == !isPacket);
    if (answer.empty())
    {
        Check(calls == 0);
        return 0;
    }
    CEventPacket reply;
    Check(KeltoClientPackets::Decode(answer.data(), answer.size(), reply) == KELSTATUS_SUCCESS);
    Check(reply.SizeOfData() == 0);
    const KELSTATUS status = reply.Status();
    Check(status == KELSTATUS_SUCCESS || status == KELSTATUS_API_CORRUPT_DATA ||
          status == KELSTATUS_METHOD_NOT_IMPLEMENTED);
    Check(calls == (status == KELSTATUS_SUCCESS ? 1u : 0u));
    Check(port->Deliveries() == calls);
    return 0;
}
