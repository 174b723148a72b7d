#include "Tools/tabletctl/ControlCommands.h"

#include "Tools/tabletctl/CCommandError.h"
#include "Tools/tabletctl/CToolSession.h"
#include "Tools/tabletctl/SecondsValidator.h"

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

namespace
{
void Sync(const SToolOptions& options_I)
{
    CToolSession session(options_I);
    session.Check(session.Client().RequestSync(), "the synchronisation");
    session.Print({{"synchronised", true}},
                  "The coordinator synchronised its tablet table with the drivers.\n");
}

// Whether the coordinator's port is still served, asked without a session of its own.
bool CoordinatorServes(const SToolOptions& options_I)
{
    CKeltoClient probe(options_I.mTimeout);
    return probe.Connect(options_I.mPortName) == KELSTATUS_SUCCESS;
}

void Quit(const SToolOptions& options_I, double waitSeconds_I)
{
    {
        CToolSession session(options_I);
        session.Check(session.Client().QuitCoordinator(), "the quit request");
    }
    bool gone = false;
    if (waitSeconds_I > 0)
    {
        // The coordinator answers before it ends; its port goes with the process.
        constexpr auto kPoll = std::chrono::milliseconds(50);
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::duration<double>(waitSeconds_I);
        while (!(gone = !CoordinatorServes(options_I)) &&
               std::chrono::steady_clock::now() < deadline)
        {
            std::this_thread::sleep_for(kPoll);
        }
        if (!gone)
        {
            char seconds[32];
            std::snprintf(seconds, sizeof seconds, "%g", waitSeconds_I);
            throw CCommandError("the coordinator took the quit request but still serves its "
                                "port after " +
                                std::string(seconds) + " seconds");
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
                 "waits until the coordinator's port is gone.");
    quit->callback([&options_I] { Quit(options_I, waitSeconds); });
}
