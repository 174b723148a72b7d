// The client program of the reliability transcripts: well-behaved clients that check every
// answer, and the misbehaving ones a local program could be. Each prints one line per
// result on standard output and ends by itself after two minutes at the latest (the ones
// that hold connections only when killed).
//
//   load CLIENT REQUESTS TABLETS PROTOCOL DRIVER... [--avoid=DRIVER]
//       sends REQUESTS requests of the mix (RequestMix.h) as client CLIENT (0 to 255) and
//       checks every answer against TABLETS, PROTOCOL and the driver name of each tablet
//       system ID (DRIVER... in ID order); prints "client C: N requests, R right" and the
//       first wrong answers; exit status 0 only when every answer was right. With --avoid,
//       no request goes to a tablet of that driver.
//   batches CLIENT TABLETS PROTOCOL DRIVER...
//       the same on one connection kept throughout, N requests for each number N read from
//       standard input; prints "R of N right" per batch, and " in more than 2 s" after it
//       when the batch took that long
//   ask SYSTEMID
//       prints "asking", sends one request for a parameter of that tablet and prints
//       "status 0xSSSS driver NAME": the exchange's status, or the answer's when the
//       exchange succeeded, and the driver that answered (empty when none did)
//   idle COUNT
//       opens COUNT connections and sends nothing; after 300 ms prints "K kept" and, per
//       refusal the coordinator sent, "R refused: TAG REASON"; then "library: 0xSSSS" for
//       the tablet count asked through the client library from this process, and
//       "oversized: TAG REASON" for a frame announcing more than the limit on the first
//       kept connection; holds the rest until killed
//   deaf COUNT
//       COUNT connections that send requests and never read an answer; prints "flooded"
//       after 3 seconds of sending as fast as the sockets take it, then goes on more gently
//       until killed
//   half COUNT
//       COUNT connections that each send half a frame header; prints "extra: TAG REASON" for
//       one connection more, waits for the coordinator's partial-frame time-out, then
//       retries a request for 3 seconds and prints "served" or "not served", and "N of
//       COUNT let go" for the stalled connections the coordinator closed
//   leave SYSTEMID
//       sends half a request and closes, then a whole request for that tablet and closes
//       before its answer; prints "left"
//   send-as UID
//       becomes UID, connects to the coordinator's socket without the library (as a
//       stranger would), sends a protocol version request and prints "answered" or "refused"
//
// Requests wait at most 60 seconds for their answers.
#include "Bench/Support/UnixSockets.h"
#include "Client/CKeltoClient.h"
#include "Mac/Common/Communication/CMacDriverMessageSendPort.h"
#include "Mac/Common/Communication/MessageIDs.h"
#include "Tests/Reliability/RequestMix.h"

#include "Compat/CPortFrameDecoder.h"
#include "Compat/CPortServer.h"
#include "Compat/PortDirectory.h"

#include <CoreFoundation/CoreFoundation.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
using Clock = std::chrono::steady_clock;
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

std::string SocketPath()
{
    const char* directory = std::getenv("KELTO_PORT_DIR");
    return std::string(directory != nullptr ? directory : "") + "/" +
           PortDirectory::FileName(kCoordinatorPort);
}

std::vector<UInt8> RequestFrame(UInt32 tag_I, CEventPacket packet)
{
    std::vector<UInt8> block(packet.GetSerializedSize(nullptr));
    packet.SerializeToBuffer(block.data(), block.size(), nullptr);
    return EncodePortFrame(kPortRequestMagic, tag_I, static_cast<UInt32>(kMessageIDEventPacket),
                           block.data(), block.size());
}

// The next frame the coordinator sends on the connection within `milliseconds_I` of each
// read; false when none comes (the connection is closed, or the time passed).
bool NextFrame(int fd_I, int milliseconds_I, SPortFrame& frame_O)
{
    CPortFrameDecoder decoder(kPortReplyMagic);
    for (;;)
    {
        pollfd wait = {fd_I, POLLIN, 0};
        UInt8 buffer[4096];
        const ssize_t got =
            poll(&wait, 1, milliseconds_I) == 1 ? recv(fd_I, buffer, sizeof buffer, 0) : 0;
        if (got <= 0)
        {
            return false;
        }
        decoder.Append(buffer, static_cast<size_t>(got));
        if (decoder.Next(frame_O) == CPortFrameDecoder::EResult::eFrame)
        {
            return true;
        }
    }
}

// The refusal a connection got: "TAG REASON"; "" when it got none.
std::string Refusal(int fd_I, int milliseconds_I)
{
    SPortFrame frame;
    if (!NextFrame(fd_I, milliseconds_I, frame) || frame.mWord != kPortReplyRefused)
    {
        return "";
    }
    return std::to_string(frame.mTag) + " " +
           std::string(frame.mPayload.begin(), frame.mPayload.end());
}

// Whether requests number `first_I` onwards of the mix, `count_I` of them, were all answered
// right on `port_I`; the number answered right and the first problems.
unsigned int SendMix(CMacDriverMessageSendPort& port_I, unsigned int client_I, unsigned int first_I,
                     unsigned int count_I, const reliability::SExpectations& expected_I,
                     std::vector<std::string>& wrong_IO)
{
    unsigned int right = 0;
    for (unsigned int sequence = first_I; sequence < first_I + count_I; ++sequence)
    {
        CEventPacket packet = reliability::MakeRequest(client_I, sequence, expected_I);
        const KELSTATUS status = port_I.SendKeltoEvent(&packet);
        const std::string problem =
            reliability::CheckAnswer(client_I, sequence, expected_I, status, packet);
        right += problem.empty();
        if (!problem.empty() && wrong_IO.size() < 5)
        {
            wrong_IO.push_back(problem);
        }
    }
    return right;
}

int Load(unsigned int client, unsigned int requests, const reliability::SExpectations& expected)
{
    std::shared_ptr<CMacDriverMessageSendPort> port = Connect();
    std::vector<std::string> wrong;
    const unsigned int right = SendMix(*port, client, 0, requests, expected, wrong);
    Say("client " + std::to_string(client) + ": " + std::to_string(requests) + " requests, " +
        std::to_string(right) + " right");
    for (const std::string& line : wrong)
    {
        Say("wrong: " + line);
    }
    return right == requests ? 0 : 1;
}

int Batches(unsigned int client, const reliability::SExpectations& expected)
{
    std::shared_ptr<CMacDriverMessageSendPort> port = Connect();
    unsigned int sequence = 0;
    for (unsigned int count = 0; std::cin >> count; sequence += count)
    {
        std::vector<std::string> wrong;
        const auto start = Clock::now();
        const unsigned int right = SendMix(*port, client, sequence, count, expected, wrong);
        const bool slow = Clock::now() - start > std::chrono::seconds(2);
        Say(std::to_string(right) + " of " + std::to_string(count) + " right" +
            (slow ? " in more than 2 s" : ""));
    }
    return 0;
}

// One request for a parameter of that tablet, and what came of it. The asker is this very
// process, so that killing it leaves its request unanswered.
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

// Connections the process may hold: as many as asked for, and some to spare.
void AllowDescriptors(size_t count_I)
{
    rlimit files = {};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = std::min<rlim_t>(files.rlim_max, count_I + 64);
    setrlimit(RLIMIT_NOFILE, &files);
}

// Connects `count_I` times; exits when a connection cannot be made.
std::vector<int> Connections(size_t count_I)
{
    AllowDescriptors(count_I);
    std::vector<int> fds;
    for (size_t i = 0; i < count_I; ++i)
    {
        fds.push_back(UnixSockets::Connect(SocketPath()));
        if (fds.back() < 0)
        {
            Say("cannot connect " + std::to_string(i));
            std::exit(1);
        }
    }
    return fds;
}

[[noreturn]] void HoldUntilKilled()
{
    for (;;)
    {
        pause();
    }
}

int Idle(size_t count)
{
    std::vector<int> fds = Connections(count);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    std::vector<int> kept;
    std::map<std::string, size_t> refusals;
    for (const int fd : fds)
    {
        pollfd readable = {fd, POLLIN, 0};
        if (poll(&readable, 1, 0) == 1)
        {
            ++refusals[Refusal(fd, 0)];
        }
        else
        {
            kept.push_back(fd);
        }
    }
    Say(std::to_string(kept.size()) + " kept");
    for (const auto& [reason, times] : refusals)
    {
        Say(std::to_string(times) + " refused: " + reason);
    }
    {
        CKeltoClient client(5.0);
        unsigned short tablets = 0;
        char text[16];
        std::snprintf(text, sizeof text, "0x%04X",
                      static_cast<unsigned>(client.GetTabletCount(tablets)));
        Say(std::string("library: ") + text);
    }
    // The header of a frame that announces one byte more than the limit.
    std::vector<UInt8> oversized =
        EncodePortFrame(kPortRequestMagic, 7, kMessageIDEventPacket, nullptr, 0);
    const UInt32 length = kPortMaxPayload + 1;
    std::memcpy(oversized.data() + 12, &length, sizeof length);
    if (kept.empty())
    {
        Say("oversized: no connection kept");
        HoldUntilKilled();
    }
    send(kept.front(), oversized.data(), oversized.size(), MSG_NOSIGNAL);
    Say("oversized: " + Refusal(kept.front(), 5000));
    HoldUntilKilled();
}

int Deaf(size_t count)
{
    std::vector<int> fds = Connections(count);
    for (const int fd : fds)
    {
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    }
    reliability::SExpectations none;
    const std::vector<UInt8> frame = RequestFrame(1, reliability::MakeRequest(100, 1, none));
    const auto flooded = Clock::now() + std::chrono::seconds(3);
    bool said = false;
    for (;;)
    {
        for (const int fd : fds)
        {
            // Whole frames only; a refused or partial one ends this connection's sending.
            (void)send(fd, frame.data(), frame.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        }
        if (Clock::now() >= flooded)
        {
            if (!said)
            {
                Say("flooded");
                said = true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
}

int Half(size_t count)
{
    const std::vector<UInt8> header = EncodePortFrame(kPortRequestMagic, 1, 0, nullptr, 0);
    std::vector<int> fds = Connections(count);
    for (const int fd : fds)
    {
        send(fd, header.data(), 8, MSG_NOSIGNAL);
    }
    const int extra = UnixSockets::Connect(SocketPath());
    Say("extra: " + Refusal(extra, 5000));
    close(extra);
    // The time-out counts from when the coordinator read the half headers, which a busy
    // machine delays a little: a request is tried again for three seconds after it.
    std::this_thread::sleep_for(CPortServer::kPartialFrameTimeout);
    reliability::SExpectations none; // the touch API query (every fourth from 2) needs none
    bool served = false;
    for (int attempt = 0; attempt < 15 && !served; ++attempt)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        std::shared_ptr<CMacDriverMessageSendPort> port = Connect();
        std::vector<std::string> wrong;
        served = SendMix(*port, 201, 2, 1, none, wrong) == 1;
    }
    Say(served ? "served" : "not served");
    size_t gone = 0;
    for (const int fd : fds)
    {
        char byte = 0;
        gone += recv(fd, &byte, 1, MSG_DONTWAIT) == 0;
    }
    Say(std::to_string(gone) + " of " + std::to_string(count) + " let go");
    return 0;
}

int Leave(unsigned int systemID)
{
    reliability::SExpectations none;
    const std::vector<UInt8> half = RequestFrame(1, reliability::MakeRequest(100, 0, none));
    int fd = UnixSockets::Connect(SocketPath());
    send(fd, half.data(), half.size() / 2, MSG_NOSIGNAL);
    close(fd);
    const std::vector<UInt8> whole =
        RequestFrame(2, reliability::TabletRequest(systemID, EParameterIDName));
    fd = UnixSockets::Connect(SocketPath());
    send(fd, whole.data(), whole.size(), MSG_NOSIGNAL);
    shutdown(fd, SHUT_RDWR);
    close(fd);
    Say("left");
    return 0;
}

int SendAs(uid_t uid)
{
    // The transcript opened its directory to others for this, so it is not checked here.
    const std::string path = SocketPath();
    if (setgid(uid) != 0 || setuid(uid) != 0)
    {
        Say("cannot become " + std::to_string(uid));
        return 1;
    }
    const int fd = UnixSockets::Connect(path);
    if (fd < 0)
    {
        Say("cannot connect");
        return 1;
    }
    reliability::SExpectations none;
    const std::vector<UInt8> frame = RequestFrame(1, reliability::MakeRequest(0, 1, none));
    send(fd, frame.data(), frame.size(), MSG_NOSIGNAL);
    // Whatever comes back within ten seconds; a refused connection is closed at once.
    SPortFrame reply;
    Say(NextFrame(fd, 10000, reply) ? "answered" : "refused");
    return 0;
}

// TABLETS PROTOCOL DRIVER... [--avoid=DRIVER], from `first_I` on.
reliability::SExpectations Expectations(int argc, char** argv, int first_I)
{
    reliability::SExpectations expected;
    expected.mTabletCount = static_cast<unsigned int>(std::atoi(argv[first_I]));
    expected.mProtocolVersion =
        static_cast<std::uint32_t>(std::strtoul(argv[first_I + 1], nullptr, 10));
    for (int i = first_I + 2; i < argc; ++i)
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
    return expected;
}
} // namespace

int main(int argc, char** argv)
{
    const std::string command = argc > 1 ? argv[1] : "";
    const long number = argc > 2 ? std::atol(argv[2]) : 0;
    if (command != "idle" && command != "deaf")
    {
        alarm(120);
    }
    if (command == "load" && argc >= 6)
    {
        return Load(static_cast<unsigned int>(number) & 0xFF,
                    static_cast<unsigned int>(std::atoi(argv[3])), Expectations(argc, argv, 4));
    }
    if (command == "batches" && argc >= 5)
    {
        return Batches(static_cast<unsigned int>(number) & 0xFF, Expectations(argc, argv, 3));
    }
    if (command == "ask" && argc == 3)
    {
        return Ask(static_cast<unsigned int>(number));
    }
    if (command == "idle" && argc == 3 && number > 0)
    {
        return Idle(static_cast<size_t>(number));
    }
    if (command == "deaf" && argc == 3 && number > 0)
    {
        return Deaf(static_cast<size_t>(number));
    }
    if (command == "half" && argc == 3 && number > 0)
    {
        return Half(static_cast<size_t>(number));
    }
    if (command == "leave" && argc == 3)
    {
        return Leave(static_cast<unsigned int>(number));
    }
    if (command == "send-as" && argc == 3)
    {
        return SendAs(static_cast<uid_t>(number));
    }
    std::fprintf(stderr, "usage: see the comment at the top of ReliabilityClient.cpp\n");
    return 2;
}
