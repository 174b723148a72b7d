// A client process of the reliability tests. It prints one line per result on standard
// output and ends by itself after two minutes at the latest.
//
//   load CLIENT REQUESTS TABLETS PROTOCOL DRIVER... [--avoid=DRIVER]
//       sends REQUESTS requests of the mix (RequestMix.h) as client CLIENT (0 to 255) and
//       checks every answer against TABLETS, PROTOCOL and the driver name of each tablet
//       system ID (DRIVER... in ID order); prints "client C: N requests, R right" and the
//       first wrong answers; exit status 0 only when every answer was right. With --avoid,
//       no request goes to a tablet of that driver.
//   ask SYSTEMID
//       prints "asking", sends one request for a parameter of that tablet and prints
//       "status 0xSSSS driver NAME": the exchange's status, or the answer's when the
//       exchange succeeded, and the driver that answered (empty when none did)
//   send-as UID
//       becomes UID, connects to the coordinator's socket without the library (as a
//       stranger would), sends a protocol version request and prints "answered" or "refused"
//
// Requests wait at most 60 seconds for their answers.
#include "Mac/Common/Communication/CMacDriverMessageSendPort.h"
#include "Mac/Common/Communication/MessageIDs.h"
#include "Tests/Reliability/RequestMix.h"

#include "Compat/CPortFrameDecoder.h"
#include "Compat/PortDirectory.h"

#include <CoreFoundation/CoreFoundation.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{
constexpr const char* kCoordinatorPort = "com.kelto.CoordinatorMessageServer";
constexpr double kAnswerSeconds = 60.0;

void Say(const std::string& line)
{
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

std::shared_ptr<CMacDriverMessageSendPort> Connect()
{
    auto port = std::make_shared<CMacDriverMessageSendPort>();
    CFStringRef name = CFStringCreateWithCString(nullptr, kCoordinatorPort, kCFStringEncodingUTF8);
    port->Init(name, true);
    CFRelease(name);
    if (CMacMessagingClient* client = port->GetMessagingClient())
    {
        client->SetSendReceiveTimeouts(kAnswerSeconds, kAnswerSeconds);
    }
    return port;
}

int Load(unsigned int client, unsigned int requests, const reliability::SExpectations& expected)
{
    std::shared_ptr<CMacDriverMessageSendPort> port = Connect();
    unsigned int right = 0;
    std::vector<std::string> wrong;
    for (unsigned int sequence = 0; sequence < requests; ++sequence)
    {
        CEventPacket packet = reliability::MakeRequest(client, sequence, expected);
        const KELSTATUS status = port->SendKeltoEvent(&packet);
        const std::string problem =
            reliability::CheckAnswer(client, sequence, expected, status, packet);
        if (problem.empty())
        {
            ++right;
        }
        else if (wrong.size() < 5)
        {
            wrong.push_back(problem);
        }
    }
    Say("client " + std::to_string(client) + ": " + std::to_string(requests) + " requests, " +
        std::to_string(right) + " right");
    for (const std::string& line : wrong)
    {
        Say("wrong: " + line);
    }
    return right == requests ? 0 : 1;
}

int Ask(unsigned int systemID)
{
    std::shared_ptr<CMacDriverMessageSendPort> port = Connect();
    CEventPacket packet = reliability::TabletRequest(systemID, EParameterIDName);
    Say("asking");
    KELSTATUS status = port->SendKeltoEvent(&packet);
    if (status == KELSTATUS_SUCCESS)
    {
        status = packet.Status();
    }
    char text[16];
    std::snprintf(text, sizeof text, "0x%04X", static_cast<unsigned>(status));
    Say(std::string("status ") + text + " driver " + reliability::DriverOfAnswer(packet));
    return 0;
}

int SendAs(uid_t uid)
{
    // The test opened its directory to others for this, so it is not checked here.
    const char* directory = std::getenv("KELTO_PORT_DIR");
    const std::string path = std::string(directory != nullptr ? directory : "") + "/" +
                             PortDirectory::FileName(kCoordinatorPort);
    if (setgid(uid) != 0 || setuid(uid) != 0)
    {
        Say("cannot become " + std::to_string(uid));
        return 1;
    }
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    {
        Say(std::string("cannot connect: ") + std::strerror(errno));
        return 1;
    }
    reliability::SExpectations none;
    CEventPacket packet = reliability::MakeRequest(0, 1, none); // the protocol version
    std::vector<UInt8> block(packet.GetSerializedSize(nullptr));
    packet.SerializeToBuffer(block.data(), block.size(), nullptr);
    const std::vector<UInt8> frame =
        EncodePortFrame(kPortRequestMagic, 1, static_cast<UInt32>(kMessageIDEventPacket),
                        block.data(), block.size());
    send(fd, frame.data(), frame.size(), MSG_NOSIGNAL);
    // Whatever comes back within ten seconds; a refused connection is closed at once.
    CPortFrameDecoder replies(kPortReplyMagic);
    SPortFrame reply;
    for (;;)
    {
        pollfd wait = {fd, POLLIN, 0};
        UInt8 buffer[4096];
        const ssize_t count = poll(&wait, 1, 10000) == 1 ? recv(fd, buffer, sizeof buffer, 0) : 0;
        if (count <= 0)
        {
            Say("refused");
            return 0;
        }
        replies.Append(buffer, static_cast<size_t>(count));
        if (replies.Next(reply) == CPortFrameDecoder::EResult::eFrame)
        {
            Say("answered");
            return 0;
        }
    }
}
} // namespace

int main(int argc, char** argv)
{
    alarm(120);
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "load" && argc >= 6)
    {
        reliability::SExpectations expected;
        expected.mTabletCount = static_cast<unsigned int>(std::atoi(argv[4]));
        expected.mProtocolVersion = static_cast<std::uint32_t>(std::strtoul(argv[5], nullptr, 10));
        for (int i = 6; i < argc; ++i)
        {
            const std::string argument = argv[i];
            if (argument.rfind("--avoid=", 0) == 0)
            {
                expected.mAvoidedDriver = argument.substr(8);
            }
            else
            {
                expected.mDriverOfTablet.push_back(argument);
            }
        }
        return Load(static_cast<unsigned int>(std::atoi(argv[2])) & 0xFF,
                    static_cast<unsigned int>(std::atoi(argv[3])), expected);
    }
    if (command == "ask" && argc == 3)
    {
        return Ask(static_cast<unsigned int>(std::atoi(argv[2])));
    }
    if (command == "send-as" && argc == 3)
    {
        return SendAs(static_cast<uid_t>(std::atoi(argv[2])));
    }
    std::fprintf(stderr, "usage: see the comment at the top of ReliabilityClient.cpp\n");
    return 2;
}
