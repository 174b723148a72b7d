#include "Tools/SimulatedDriver/SimDriverProgram.h"

#include "Tools/SimulatedDriver/CSimDriverPort.h"
#include "Tools/SimulatedDriver/CSimulatedDriver.h"
#include "Tools/SimulatedDriver/SimDriverConfigReader.h"
#include "Tools/SimulatedDriver/SimDriverHelp.h"

#include <KelSignalRunLoopSource.h>

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <string>

namespace
{
enum EExitStatus
{
    eExitStopped = 0,
    eExitBadConfiguration = 1,
    eExitUsage = 2,
    eExitPortUnavailable = 3
};

// What the signal handler works on.
struct SRunState
{
    CSimulatedDriver* driver;
    CSimDriverPort* port;
};

void Reload(SRunState& state_IO)
{
    const SSimDriverConfig& current = state_IO.driver->Config();
    SSimDriverConfig config;
    std::string error;
    if (!ReadSimDriverConfigFile(current.path, config, error))
    {
        std::fprintf(stderr, "simdriver: reload refused, configuration kept: %s\n", error.c_str());
        return;
    }
    if (config.portName != current.portName)
    {
        std::fprintf(stderr,
                     "simdriver: reload refused, configuration kept: %s: PortName: cannot "
                     "change while serving \"%s\"\n",
                     current.path.c_str(), current.portName.c_str());
        return;
    }
    state_IO.driver->Reload(std::move(config));
    state_IO.port->ResetFaults();
    std::fprintf(stderr, "simdriver[%s]: configuration read again, %zu tablet(s)\n",
                 state_IO.driver->Config().name.c_str(), state_IO.driver->Tablets().size());
}

void OnSignal(int signal_I, void* info_I)
{
    auto& state = *static_cast<SRunState*>(info_I);
    if (signal_I == SIGUSR1)
    {
        Reload(state);
        return;
    }
    state.port->RequestStop();
}

int Serve(const SSimDriverConfig& config_I, bool trace_I)
{
    CSimulatedDriver driver(config_I);
    CSimDriverPort port(driver, trace_I);
    SRunState state{&driver, &port};

    static const int kSignals[] = {SIGTERM, SIGINT, SIGHUP, SIGUSR1};
    CFRunLoopSourceRef signals =
        KelSignalRunLoopSourceCreate(kSignals, std::size(kSignals), OnSignal, &state);
    if (signals == nullptr)
    {
        std::fprintf(stderr, "simdriver: cannot install the signal handlers\n");
        return eExitPortUnavailable;
    }
    CFRunLoopRef runLoop = CFRunLoopGetCurrent();
    CFRunLoopAddSource(runLoop, signals, kCFRunLoopCommonModes);
    // A stop request must also end a slow or hanging answer.
    CFRunLoopAddSource(runLoop, signals, kSimDriverBusyMode);

    std::string error;
    if (!port.Open(error))
    {
        std::fprintf(stderr, "simdriver: %s\n", error.c_str());
        CFRunLoopSourceInvalidate(signals);
        CFRelease(signals);
        return eExitPortUnavailable;
    }
    std::fprintf(stderr, "simdriver[%s]: serving %s, %zu tablet(s)\n", config_I.name.c_str(),
                 config_I.portName.c_str(), config_I.tablets.size());
    std::fflush(stderr);

    while (!port.StopRequested())
    {
        CFRunLoopRun();
    }
    port.Close();
    CFRunLoopSourceInvalidate(signals);
    CFRelease(signals);
    std::fprintf(stderr, "simdriver[%s]: stopped\n", driver.Config().name.c_str());
    return eExitStopped;
}
} // namespace

int SimDriverMain(int argc, char** argv)
{
    CLI::App app("simdriver: a simulated tablet driver", "simdriver");
    app.set_help_flag();
    bool help = false;
    bool trace = false;
    bool check = false;
    bool version = false;
    std::string path;
    app.add_flag("-h,--help", help);
    app.add_flag("--trace", trace);
    app.add_flag("--check", check);
    app.add_flag("--version", version);
    app.add_option("config", path);
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& error)
    {
        std::fprintf(stderr, "simdriver: %s (see simdriver --help)\n", error.what());
        return eExitUsage;
    }
    if (help)
    {
        std::fputs(SimDriverHelpText().c_str(), stdout);
        return eExitStopped;
    }
    if (version)
    {
        std::printf("simdriver %s\n", KEL_PROJECT_VERSION);
        return eExitStopped;
    }
    if (path.empty())
    {
        std::fprintf(stderr, "simdriver: no configuration file given (see simdriver --help)\n");
        return eExitUsage;
    }

    SSimDriverConfig config;
    std::string error;
    if (!ReadSimDriverConfigFile(path, config, error))
    {
        std::fprintf(stderr, "simdriver: %s\n", error.c_str());
        return eExitBadConfiguration;
    }
    if (check)
    {
        std::printf("%s: %s on %s, %zu tablet(s)\n", path.c_str(), config.name.c_str(),
                    config.portName.c_str(), config.tablets.size());
        return eExitStopped;
    }
    return Serve(config, trace);
}
