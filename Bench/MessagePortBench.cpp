// Round trip of a 256-byte request and its 256-byte reply between two processes: through
// the message ports, and through a plain Unix domain socket pair as the floor. Both run in
// one process run, so their ratio is measured on the same machine state:
//   build/release/Bench/bench_message_port --benchmark_repetitions=10
//       --benchmark_report_aggregates_only=true
#include <CoreFoundation/CoreFoundation.h>

#include <benchmark/benchmark.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
constexpr size_t kMessageSize = 256;

// The serving processes, started once and stopped by pid when the benchmark ends.
class CServers
{
public:
    static CServers& Get()
    {
        static CServers servers;
        return servers;
    }

    int mSocket = -1;
    CFMessagePortRef mRemote = nullptr;

private:
    CServers()
    {
        char pattern[] = "/tmp/kel_bench_ports_XXXXXX";
        if (mkdtemp(pattern) == nullptr)
        {
            std::abort();
        }
        mDirectory = pattern;
        setenv("KELTO_PORT_DIR", pattern, 1);

        int pair[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0)
        {
            std::abort();
        }
        mEchoPid = fork();
        if (mEchoPid == 0)
        {
            alarm(600);
            close(pair[0]);
            char buffer[kMessageSize];
            while (recv(pair[1], buffer, sizeof buffer, MSG_WAITALL) ==
                   static_cast<ssize_t>(sizeof buffer))
            {
                send(pair[1], buffer, sizeof buffer, MSG_NOSIGNAL);
            }
            _exit(0);
        }
        close(pair[1]);
        mSocket = pair[0];

        int ready[2];
        if (pipe(ready) != 0)
        {
            std::abort();
        }
        mPortPid = fork();
        if (mPortPid == 0)
        {
            alarm(600);
            close(ready[0]);
            ServePort(ready[1]);
            _exit(0);
        }
        close(ready[1]);
        char byte = 0;
        if (read(ready[0], &byte, 1) != 1)
        {
            std::abort();
        }
        close(ready[0]);
        mRemote = CFMessagePortCreateRemote(nullptr, CFSTR("com.kelto.Bench"));
        if (mRemote == nullptr)
        {
            std::abort();
        }
    }

    ~CServers()
    {
        CFRelease(mRemote);
        close(mSocket);
        for (pid_t pid : {mEchoPid, mPortPid})
        {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
        std::error_code ignored;
        std::filesystem::remove_all(mDirectory, ignored);
    }

    static void ServePort(int readyFd)
    {
        CFMessagePortRef port = CFMessagePortCreateLocal(
            nullptr, CFSTR("com.kelto.Bench"),
            [](CFMessagePortRef, SInt32, CFDataRef data, void*)
            { return CFDataCreateCopy(nullptr, data); },
            nullptr, nullptr);
        if (port == nullptr)
        {
            _exit(1);
        }
        CFRunLoopSourceRef source = CFMessagePortCreateRunLoopSource(nullptr, port, 0);
        CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopCommonModes);
        const char byte = 1;
        if (write(readyFd, &byte, 1) != 1)
        {
            _exit(1);
        }
        CFRunLoopRun();
    }

    std::string mDirectory;
    pid_t mEchoPid = -1;
    pid_t mPortPid = -1;
};

void BM_MessagePortRoundTrip(benchmark::State& state)
{
    CServers& servers = CServers::Get();
    UInt8 bytes[kMessageSize] = {};
    CFDataRef request = CFDataCreate(nullptr, bytes, sizeof bytes);
    CFStringRef replyMode = CFSTR("BenchReplyMode");
    for (auto _ : state)
    {
        CFDataRef reply = nullptr;
        const SInt32 result =
            CFMessagePortSendRequest(servers.mRemote, 'ECHO', request, 5, 5, replyMode, &reply);
        if (result != kCFMessagePortSuccess || reply == nullptr ||
            CFDataGetLength(reply) != static_cast<CFIndex>(kMessageSize))
        {
            state.SkipWithError("message port round trip failed");
            break;
        }
        CFRelease(reply);
    }
    CFRelease(request);
}
BENCHMARK(BM_MessagePortRoundTrip)->UseRealTime();

void BM_UnixSocketPingPong(benchmark::State& state)
{
    CServers& servers = CServers::Get();
    char buffer[kMessageSize] = {};
    for (auto _ : state)
    {
        if (send(servers.mSocket, buffer, sizeof buffer, MSG_NOSIGNAL) !=
                static_cast<ssize_t>(sizeof buffer) ||
            recv(servers.mSocket, buffer, sizeof buffer, MSG_WAITALL) !=
                static_cast<ssize_t>(sizeof buffer))
        {
            state.SkipWithError("socket ping-pong failed");
            break;
        }
    }
}
BENCHMARK(BM_UnixSocketPingPong)->UseRealTime();
} // namespace
