// The cost of one request from a client through the coordinator, against the limits of this
// machine, all measured in one run so that their ratios hold whatever the machine's load:
//
//   Coordinator/Routed        client -> coordinator -> simulated driver -> back: a request
//                             about a tablet, routed by the tablet's system ID, that the
//                             driver answers with two bytes
//   Coordinator/RoutedSettings the same with a request the driver answers with a settings
//                             archive built for it
//   Coordinator/TabletCount   the tablet count by index (the coordinator asks each driver
//                             for its own count first, to see whether it must synchronise)
//   Coordinator/Query508      the multi-touch API query, answered by the coordinator alone
//   Raw/Relay                 the physical limit of a routed request: a plain Unix-socket
//                             client -> single-threaded poll relay -> server and back,
//                             carrying the very byte counts of the routed request and reply
//   Raw/OneHop                the limit of a locally answered request: client -> server,
//                             with the byte counts of the 508 query and its answer
//   DBus/Call                 the routed request's bytes as a D-Bus method call through a
//                             private dbus-daemon (sd-bus on both ends)
//   Idle/Routed, Idle/Query508 Coordinator/Routed and Coordinator/Query508 with one client
//                             while 0, 100, 1,000 or 10,000 idle connections are held open
//                             to the coordinator by other processes (50 each)
//
// Each case runs with 1 and with 8 concurrent clients, each a process of its own with one
// connection, as concurrent applications are, and reports the median and 99th percentile
// latency of all their round trips and the requests per second of the run. Every process
// (coordinator, drivers, relay, servers, daemon) is started here, in a port directory of its own,
// and inherits this process's processor affinity: run it under `taskset -c 0` for the pinned
// figures. scripts/bench runs it both ways.
#include "Bench/Support/CChildProcess.h"
#include "Bench/Support/CClientProcessPool.h"
#include "Bench/Support/CDBusEchoBus.h"
#include "Bench/Support/CIdleConnections.h"
#include "Bench/Support/CRawEchoServer.h"
#include "Bench/Support/CRawRelay.h"
#include "Bench/Support/UnixSockets.h"
#include "Client/CKeltoClient.h"
#include "Client/KeltoClientPackets.h"
#include "Compat/CPortFrameDecoder.h"
#include "Compat/PortDirectory.h"

#include <CoreFoundation/CoreFoundation.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

namespace
{
using Clock = std::chrono::steady_clock;

constexpr const char* kKeltoPort = "com.kelto.KeltoTabletDriverMessageServer";
constexpr const char* kPenPort = "com.kelto.PenTabletDriverMessageServer";
constexpr int kTablets = 2; // one per driver
constexpr size_t kMostClients = 8;
constexpr size_t kSingleClientRoundTrips = 3000;
constexpr size_t kRoundTripsPerClient = 600; // of each of the eight
constexpr double kStartSeconds = 20.0;

// The system ID of tablet 0, asked of the tablet: routed by the tablet key to the driver
// that owns system ID 0, which answers with 2 bytes. The cheapest answer a driver gives, so
// that the comparison with the relay is one of the paths, not of the drivers' work.
CKeltoClient::SRequest RoutedRequest()
{
    CKeltoClient::SRequest request;
    request.mCommand = ECommandGet;
    request.mKeys = {{EObjectIDTablet, 0, EAddrModeByID}, {EParameterIDTabletSystemID}};
    return request;
}

// The pressure curve of the pen on tablet 0, routed the same way; the simulated driver
// answers it with a settings archive that it builds for each request (about 100 bytes).
CKeltoClient::SRequest RoutedSettingsRequest()
{
    CKeltoClient::SRequest request;
    request.mCommand = ECommandGet;
    request.mKeys = {{EObjectIDTablet, 0, EAddrModeByID},
                     {EObjectIDTransducer, 0, EAddrModeByIndex},
                     {EParameterIDPressCurveKelto, 0, EAddrModeByIndex}};
    return request;
}

constexpr std::uint32_t kQueryValue = 1;
constexpr std::int64_t kQueryAnswer = 3;

// Bytes a request takes on a message port connection: the frame header and the packet.
size_t WireSize(const CKeltoClient::SRequest& request_I)
{
    CEventPacket packet;
    if (KeltoClientPackets::BuildPacket(request_I, packet) != KELSTATUS_SUCCESS)
    {
        throw std::logic_error("the benchmark's request does not build");
    }
    return kPortFrameHeaderSize + KeltoClientPackets::Serialize(packet).size();
}

// Bytes of the coordinator's answer to that request on the wire; 0 when it does not answer.
size_t ReplyWireSize(const CKeltoClient::SRequest& request_I)
{
    CEventPacket packet;
    KeltoClientPackets::BuildPacket(request_I, packet);
    const std::vector<unsigned char> bytes = KeltoClientPackets::Serialize(packet);
    CFStringRef name = CFStringCreateWithCString(nullptr, CKeltoClient::kCoordinatorPortName,
                                                 kCFStringEncodingUTF8);
    CFMessagePortRef port = CFMessagePortCreateRemote(nullptr, name);
    CFRelease(name);
    if (port == nullptr)
    {
        return 0;
    }
    CFDataRef data = CFDataCreate(nullptr, bytes.data(), static_cast<CFIndex>(bytes.size()));
    CFDataRef reply = nullptr;
    const SInt32 result =
        CFMessagePortSendRequest(port, 'KEPK', data, 5, 5, CFSTR("BenchReplyMode"), &reply);
    CFRelease(data);
    CFMessagePortInvalidate(port);
    CFRelease(port);
    if (result != kCFMessagePortSuccess || reply == nullptr)
    {
        return 0;
    }
    const size_t size = kPortFrameHeaderSize + static_cast<size_t>(CFDataGetLength(reply));
    CFRelease(reply);
    return size;
}

std::string DriverConfiguration(const char* port_I, const char* name_I)
{
    return std::string("{\"PortName\": \"") + port_I + "\", \"Name\": \"" + name_I +
           "\", \"Version\": \"6.3.0\", \"Tablets\": [{\"Model\": \"PTK-640\"}]}";
}

bool PortServed(const char* name_I)
{
    CFStringRef name = CFStringCreateWithCString(nullptr, name_I, kCFStringEncodingUTF8);
    CFMessagePortRef port = CFMessagePortCreateRemote(nullptr, name);
    CFRelease(name);
    if (port == nullptr)
    {
        return false;
    }
    CFMessagePortInvalidate(port);
    CFRelease(port);
    return true;
}

template <typename TCondition> bool WaitFor(TCondition condition_I)
{
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                             std::chrono::duration<double>(kStartSeconds));
    while (!condition_I())
    {
        if (Clock::now() >= deadline)
        {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

// Runs `body_I` in a child process and returns the numbers it gives back; throws with `what_I`
// when it gives none. Everything that uses the message ports before the client processes
// are forked runs this way, so that this process forks them without a run loop of its own
// (a forked run loop would share its wake-up descriptor with every child).
std::vector<size_t> InChild(const char* what_I, const std::function<std::vector<size_t>()>& body_I)
{
    int results[2];
    if (pipe(results) != 0)
    {
        throw std::runtime_error("no pipe");
    }
    auto child = CChildProcess::Fork(
        [&]
        {
            close(results[0]);
            const std::vector<size_t> values = body_I();
            const ssize_t length = static_cast<ssize_t>(values.size() * sizeof(size_t));
            return values.empty() || write(results[1], values.data(),
                                           values.size() * sizeof(size_t)) == length
                       ? 0
                       : 1;
        });
    close(results[1]);
    std::vector<size_t> values;
    size_t value = 0;
    while (read(results[0], &value, sizeof value) == sizeof value)
    {
        values.push_back(value);
    }
    close(results[0]);
    if (!child || child->WaitForExit(std::chrono::seconds(5)) != 0 || values.empty())
    {
        throw std::runtime_error(std::string("timed out waiting for ") + what_I);
    }
    return values;
}

enum ECase
{
    eRawRelay,
    eRawOneHop,
    eDBusCall,
    eRouted,
    eRoutedSettings,
    eTabletCount,
    eQuery508,
};

// Everything the cases talk to, started before the first case and stopped after the last.
struct SEnvironment
{
    std::string mDirectory;
    std::unique_ptr<CChildProcess> mKelto;
    std::unique_ptr<CChildProcess> mPen;
    std::unique_ptr<CChildProcess> mCoordinator;
    std::unique_ptr<CRawEchoServer> mRelayServer;
    std::unique_ptr<CRawRelay> mRelay;
    std::unique_ptr<CRawEchoServer> mOneHopServer;
    std::unique_ptr<CDBusEchoBus> mDBus;
    std::unique_ptr<CClientProcessPool> mClients;
    std::unique_ptr<CIdleConnections> mIdle;
    size_t mRoutedRequestSize = 0;
    size_t mRoutedReplySize = 0;
    size_t mLocalRequestSize = 0;
    size_t mLocalReplySize = 0;

    void Start();
    void Stop();
};

SEnvironment gEnvironment;

// The clients of the cases, made in the client processes.
class CRawClient : public IRoundTripClient
{
public:
    CRawClient(const std::string& path_I, size_t requestSize_I, size_t replySize_I)
        : mFd(UnixSockets::Connect(path_I, 5)), mRequest(requestSize_I, 0x5A), mReply(replySize_I)
    {
        if (mFd < 0)
        {
            throw std::runtime_error("cannot connect to " + path_I);
        }
    }
    ~CRawClient() override { close(mFd); }
    bool RoundTrip() override
    {
        return UnixSockets::WriteAll(mFd, mRequest.data(), mRequest.size()) &&
               UnixSockets::ReadExactly(mFd, mReply.data(), mReply.size());
    }

private:
    int mFd;
    std::vector<unsigned char> mRequest;
    std::vector<unsigned char> mReply;
};

class CDBusClient : public IRoundTripClient
{
public:
    CDBusClient(const std::string& address_I, size_t requestSize_I, size_t replySize_I)
        : mConnection(address_I), mRequest(requestSize_I, 0x5A), mReplySize(replySize_I)
    {
    }
    bool RoundTrip() override
    {
        return mConnection.Call(mRequest, mReply) && mReply.size() == mReplySize;
    }

private:
    CDBusEchoClient mConnection;
    std::vector<unsigned char> mRequest;
    std::vector<unsigned char> mReply;
    size_t mReplySize;
};

class CCoordinatorClient : public IRoundTripClient
{
public:
    explicit CCoordinatorClient(ECase case_I)
        : mCase(case_I), mClient(5),
          mRequest(case_I == eRoutedSettings ? RoutedSettingsRequest() : RoutedRequest())
    {
        if (mClient.Connect() != KELSTATUS_SUCCESS)
        {
            throw std::runtime_error("the coordinator does not serve its port");
        }
    }
    bool RoundTrip() override
    {
        switch (mCase)
        {
        case eTabletCount:
        {
            unsigned short count = 0;
            return mClient.GetTabletCount(count) == KELSTATUS_SUCCESS && count == kTablets;
        }
        case eQuery508:
        {
            std::int64_t answer = 0;
            return mClient.QueryMultiTouchAPI(kQueryValue, answer) == KELSTATUS_SUCCESS &&
                   answer == kQueryAnswer;
        }
        case eRouted:
            return mClient.Send(mRequest, mReply) == KELSTATUS_SUCCESS &&
                   mReply.mData.size() == sizeof(std::uint16_t) && mReply.mData[0] == 0 &&
                   mReply.mData[1] == 0;
        default:
            return mClient.Send(mRequest, mReply) == KELSTATUS_SUCCESS && !mReply.mData.empty();
        }
    }

private:
    ECase mCase;
    CKeltoClient mClient;
    CKeltoClient::SRequest mRequest;
    CKeltoClient::SReply mReply;
};

std::unique_ptr<IRoundTripClient> MakeClient(int case_I)
{
    const SEnvironment& environment = gEnvironment;
    switch (case_I)
    {
    case eRawRelay:
        return std::make_unique<CRawClient>(environment.mRelay->Path(),
                                            environment.mRoutedRequestSize,
                                            environment.mRoutedReplySize);
    case eRawOneHop:
        return std::make_unique<CRawClient>(environment.mOneHopServer->Path(),
                                            environment.mLocalRequestSize,
                                            environment.mLocalReplySize);
    case eDBusCall:
        // The packet alone travels as the method's argument; D-Bus adds its own header.
        return std::make_unique<CDBusClient>(environment.mDBus->Address(),
                                             environment.mRoutedRequestSize - kPortFrameHeaderSize,
                                             environment.mRoutedReplySize - kPortFrameHeaderSize);
    default:
        return std::make_unique<CCoordinatorClient>(static_cast<ECase>(case_I));
    }
}

void SEnvironment::Start()
{
    char pattern[] = "/tmp/kel_bench_round_trip_XXXXXX";
    if (mkdtemp(pattern) == nullptr)
    {
        throw std::runtime_error("no scratch directory");
    }
    mDirectory = pattern;
    setenv("KELTO_PORT_DIR", pattern, 1);

    for (auto [port, name, process] :
         {std::tuple{kKeltoPort, "Kelto", &mKelto}, std::tuple{kPenPort, "Pen", &mPen}})
    {
        const std::string config = mDirectory + "/" + name + ".json";
        std::ofstream(config) << DriverConfiguration(port, name);
        *process = CChildProcess::Spawn({KEL_SIMDRIVER_PROGRAM, config}, {},
                                        mDirectory + "/" + name + ".log");
    }
    InChild("the simulated drivers",
            []
            {
                return WaitFor([] { return PortServed(kKeltoPort) && PortServed(kPenPort); })
                           ? std::vector<size_t>{1}
                           : std::vector<size_t>{};
            });
    mCoordinator = CChildProcess::Spawn({KEL_COORDINATOR_PROGRAM}, {"KELTO_CONSOLE_USER=none"},
                                        mDirectory + "/coordinator.log");
    const std::vector<size_t> sizes = InChild(
        "the coordinator's first synchronisation",
        []
        {
            const bool synchronised = WaitFor(
                []
                {
                    CKeltoClient client(5);
                    unsigned short count = 0;
                    return client.GetTabletCount(count) == KELSTATUS_SUCCESS && count == kTablets;
                });
            const CKeltoClient::SRequest routed = RoutedRequest();
            const CKeltoClient::SRequest local =
                KeltoClientPackets::MultiTouchAPIQueryRequest(kQueryValue);
            if (!synchronised)
            {
                return std::vector<size_t>{};
            }
            return std::vector<size_t>{WireSize(routed), ReplyWireSize(routed), WireSize(local),
                                       ReplyWireSize(local)};
        });
    if (sizes.size() != 4 || sizes[1] == 0 || sizes[3] == 0)
    {
        throw std::runtime_error("the coordinator did not answer");
    }
    mRoutedRequestSize = sizes[0];
    mRoutedReplySize = sizes[1];
    mLocalRequestSize = sizes[2];
    mLocalReplySize = sizes[3];

    mRelayServer = std::make_unique<CRawEchoServer>(mDirectory + "/raw_server", mRoutedRequestSize,
                                                    mRoutedReplySize);
    mRelay = std::make_unique<CRawRelay>(mDirectory + "/raw_relay", mRelayServer->Path(),
                                         mRoutedRequestSize, mRoutedReplySize);
    mOneHopServer = std::make_unique<CRawEchoServer>(mDirectory + "/raw_one_hop", mLocalRequestSize,
                                                     mLocalReplySize);
    mDBus = std::make_unique<CDBusEchoBus>(mDirectory, mRoutedRequestSize - kPortFrameHeaderSize,
                                           mRoutedReplySize - kPortFrameHeaderSize);
    mClients = std::make_unique<CClientProcessPool>(kMostClients, MakeClient);
    mIdle = std::make_unique<CIdleConnections>(
        mDirectory + "/" + PortDirectory::FileName(CKeltoClient::kCoordinatorPortName));
}

void SEnvironment::Stop()
{
    mIdle.reset();
    mClients.reset();
    mDBus.reset();
    mRelay.reset();
    mRelayServer.reset();
    mOneHopServer.reset();
    mCoordinator.reset();
    mPen.reset();
    mKelto.reset();
    if (!mDirectory.empty())
    {
        std::error_code ignored;
        std::filesystem::remove_all(mDirectory, ignored);
    }
}

void RoundTrips(benchmark::State& state, ECase case_I, size_t clients, size_t idle)
{
    const size_t roundTrips = clients == 1 ? kSingleClientRoundTrips : kRoundTripsPerClient;
    gEnvironment.mIdle->Hold(idle);
    CClientProcessPool::SRun run;
    for (auto _ : state)
    {
        run = gEnvironment.mClients->Run(case_I, clients, roundTrips);
        state.SetIterationTime(std::chrono::duration<double>(run.mWall).count());
    }
    if (run.mFailures > 0)
    {
        state.SkipWithError("a round trip failed");
    }
    state.counters["p50_us"] = run.mSummary.mP50Microseconds;
    state.counters["p99_us"] = run.mSummary.mP99Microseconds;
    state.counters["rps"] = run.mSummary.mRequestsPerSecond;
    state.counters["round_trips"] = static_cast<double>(run.mSummary.mCount);
}

void Register(const char* name_I, ECase case_I)
{
    benchmark::RegisterBenchmark(
        name_I, [case_I](benchmark::State& state)
        { RoundTrips(state, case_I, static_cast<size_t>(state.range(0)), 0); })
        ->ArgName("clients")
        ->Arg(1)
        ->Arg(kMostClients)
        ->Iterations(1)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

void RegisterIdle(const char* name_I, ECase case_I)
{
    benchmark::RegisterBenchmark(
        name_I, [case_I](benchmark::State& state)
        { RoundTrips(state, case_I, 1, static_cast<size_t>(state.range(0))); })
        ->ArgName("idle")
        ->Arg(0)
        ->Arg(100)
        ->Arg(1000)
        ->Arg(10000)
        ->Iterations(1)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

// The coordinator started here inherits the limit: room for 10,000 idle connections.
void RaiseDescriptorLimit()
{
    rlimit files = {};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = std::min<rlim_t>(files.rlim_max, 32768);
    setrlimit(RLIMIT_NOFILE, &files);
}
} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
    {
        return 1;
    }
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    sched_getaffinity(0, sizeof cpus, &cpus);
    benchmark::AddCustomContext("processors", std::to_string(CPU_COUNT(&cpus)));
    int result = 0;
    RaiseDescriptorLimit();
    try
    {
        gEnvironment.Start();
        benchmark::AddCustomContext("routed_bytes",
                                    std::to_string(gEnvironment.mRoutedRequestSize) + "/" +
                                        std::to_string(gEnvironment.mRoutedReplySize));
        benchmark::AddCustomContext("local_bytes",
                                    std::to_string(gEnvironment.mLocalRequestSize) + "/" +
                                        std::to_string(gEnvironment.mLocalReplySize));
        Register("Raw/Relay", eRawRelay);
        Register("Raw/OneHop", eRawOneHop);
        Register("DBus/Call", eDBusCall);
        Register("Coordinator/Routed", eRouted);
        Register("Coordinator/RoutedSettings", eRoutedSettings);
        Register("Coordinator/TabletCount", eTabletCount);
        Register("Coordinator/Query508", eQuery508);
        RegisterIdle("Idle/Routed", eRouted);
        RegisterIdle("Idle/Query508", eQuery508);
        benchmark::RunSpecifiedBenchmarks();
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "bench_round_trip: %s\n", error.what());
        result = 1;
    }
    gEnvironment.Stop();
    benchmark::Shutdown();
    return result;
}
