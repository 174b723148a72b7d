// kelto-consumer: asks the running coordinator for its tablet count, protocol version and
// touch capabilities through the client library, and prints them as one JSON object:
//   {"tablets": 2, "protocol": 2, "touch": [ {...}, ... ]}
// Exit status: 0 answered; 3 the coordinator is not running; 1 a request failed (named).
#include "Client/CKeltoClient.h"
#include "Common/Settings/CSettingsArray.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace
{
int Failed(const char* request_I, KELSTATUS status_I)
{
    std::fprintf(stderr, "kelto-consumer: %s: %s\n", request_I,
                 CKeltoClient::StatusName(status_I).c_str());
    return 1;
}
} // namespace

int main()
{
    CKeltoClient client(10.0);
    if (client.Connect() != KELSTATUS_SUCCESS)
    {
        std::fprintf(stderr, "kelto-consumer: the coordinator is not running\n");
        return 3;
    }
    unsigned short count = 0;
    if (KELSTATUS status = client.GetTabletCount(count); status != KELSTATUS_SUCCESS)
    {
        return Failed("GetTabletCount", status);
    }
    std::int32_t protocol = 0;
    if (KELSTATUS status = client.GetProtocolVersion(protocol); status != KELSTATUS_SUCCESS)
    {
        return Failed("GetProtocolVersion", status);
    }
    std::shared_ptr<CSettingsArray> touch;
    if (KELSTATUS status = client.GetTouchCapabilities(touch); status != KELSTATUS_SUCCESS)
    {
        return Failed("GetTouchCapabilities", status);
    }
    // An empty array's text is a line feed and "]" (the settings writer's own form), which
    // is no JSON: such an answer is written as [].
    const std::string touchText = touch->ObjectCount() == 0 ? "[]" : touch->GetJSONString();
    std::printf("{\"tablets\": %u, \"protocol\": %d, \"touch\": %s}\n", unsigned(count),
                int(protocol), touchText.c_str());
    return 0;
}
