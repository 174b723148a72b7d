#include "Tools/tabletctl/ControlCommands.h"

#include "Tools/tabletctl/CCommandError.h"
#include "Tools/tabletctl/CProgressLine.h"
#include "Tools/tabletctl/CToolSession.h"
#include "Tools/tabletctl/SecondsValidator.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <unistd.h>

#if defined(__linux__)
#include "Compat/PortDirectory.h"

#include <sys/socket.h>
#include <sys/un.h>
#endif

namespace
{
void Sync(const SToolOptions& options_I)
{
    CToolSession session(options_I);
    CProgressLine progress;
    progress.Show("Synchronising the tablet table with the drivers...");
    const KELSTATUS status = session.Client().RequestSync();
    progress.Clear();
    session.Check(status, "the synchronisation");
    session.Print({{"synchronised", true}},
                  "The coordinator synchronised its tablet table with the drivers.\n");
}

// Whether the coordinator's port is still served, asked without a session of its own.
bool CoordinatorServes(const SToolOptions& options_I)
{
    CKeltoClient probe(options_I.mTimeout);
    return probe.Connect(options_I.mPortName) == KELSTATUS_SUCCESS;
}

// The process that serves the coordinator's port, from the credentials of a connection to
// its socket; -1 when it cannot be told (nobody serves it, or a system without them).
pid_t CoordinatorProcess(const std::string& portName_I)
{
    pid_t pid = -1;
#if defined(__linux__)
    std::string error;
    const std::string directory = PortDirectory::Resolve(&error);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string path = directory + "/" + PortDirectory::FileName(portName_I);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && !directory.empty() && path.size() < sizeof address.sun_path)
    {
        std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
        ucred credentials = {};
        socklen_t length = sizeof credentials;
        if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
            getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) == 0)
        {
            pid = credentials.pid;
        }
    }
    if (fd >= 0)
    {
        close(fd);
    }
#else
    (void)portName_I;
#endif
    return pid;
}

// Whether the process has ended: gone, or a zombie that its parent has yet to collect.
bool ProcessEnded(pid_t pid_I)
{
    if (kill(pid_I, 0) != 0 && errno == ESRCH)
    {
        return true;
    }
    std::ifstream stat("/proc/" + std::to_string(pid_I) + "/stat");
    std::string line;
    std::getline(stat, line);
    const size_t name = line.rfind(") ");
    return name != std::string::npos && line.size() > name + 2 && line[name + 2] == 'Z';
}

void Quit(const SToolOptions& options_I, double waitSeconds_I)
{
    const pid_t pid = waitSeconds_I > 0 ? CoordinatorProcess(options_I.mPortName) : -1;
    {
        CToolSession session(options_I);
        session.Check(session.Client().QuitCoordinator(), "the quit request");
    }
    bool gone = false;
    if (waitSeconds_I > 0)
    {
        // The coordinator answers before it ends. Its port goes first, the process after its
        // clean-up: wait for the process where it can be told, else for the port.
        constexpr auto kPoll = std::chrono::milliseconds(50);
        const auto start = std::chrono::steady_clock::now();
        const auto deadline = start + std::chrono::duration<double>(waitSeconds_I);
        CProgressLine progress;
        while (!(gone = pid > 0 ? ProcessEnded(pid) : !CoordinatorServes(options_I)) &&
               std::chrono::steady_clock::now() < deadline)
        {
            const auto waited = std::chrono::duration_cast<std::chrono::seconds>(
                std::chrono::steady_clock::now() - start);
            progress.Show("Waiting for the coordinator" +
                          (pid > 0 ? " (process " + std::to_string(pid) + ")" : std::string()) +
                          " to end... " + std::to_string(waited.count()) + " s");
            std::this_thread::sleep_for(kPoll);
        }
        progress.Clear();
        if (!gone)
        {
            char seconds[32];
            std::snprintf(seconds, sizeof seconds, "%g", waitSeconds_I);
            throw CCommandError(std::string("the coordinator took the quit request but ") +
                                (pid > 0 ? "is still running" : "still serves its port") +
                                " after " + seconds + " seconds");
        }
    }
    CToolSession::Print(options_I, {{"quitRequested", true}, {"stopped", gone}},
                        gone ? "The coordinator has quit.\n"
                             : "The coordinator was asked to quit.\n");
}
} // namespace

void AddControlCommands(CLI::App& app_IO, const SToolOptions& options_I)
{
    static double waitSeconds = 0.0;

    CLI::App* sync = app_IO.add_subcommand(
        "sync", "Make the coordinator synchronise its tablet table with the drivers now");
    sync->footer("The coordinator asks each driver for its tablets, gives new tablets their "
                 "system IDs, sends the table to the drivers and the touch capabilities to "
                 "every registered touch client.");
    sync->callback([&options_I] { Sync(options_I); });

    CLI::App* quit = app_IO.add_subcommand("quit", "Ask the coordinator to quit");
    quit->add_option("--wait", waitSeconds,
                     "Wait up to this many seconds until the coordinator has ended, and fail "
                     "if it has not")
        ->check(SecondsValidator(true));
    quit->footer("The coordinator answers the request, then ends; with --wait, tabletctl then "
                 "waits until the coordinator's process has ended.");
    quit->callback([&options_I] { Quit(options_I, waitSeconds); });
}
