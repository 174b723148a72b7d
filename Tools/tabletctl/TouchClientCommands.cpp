#include "Tools/tabletctl/TouchClientCommands.h"

#include "Common/Settings/CSettingsArray.h"
#include "Tools/tabletctl/CCommandError.h"
#include "Tools/tabletctl/CToolSession.h"
#include "Tools/tabletctl/SecondsValidator.h"
#include "Tools/tabletctl/SettingsOutput.h"

#include <CoreFoundation/CoreFoundation.h>
#include <KelSignalRunLoopSource.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <unistd.h>

namespace
{
struct SListenArguments
{
    std::string mIdentifier;
    bool mSync = false;
    double mSeconds = 0.0;
    unsigned int mCount = 0;
};

// A run "for ever" is a run for longer than anyone waits.
constexpr double kForever = 1.0e10;

std::string DeliveryText(const std::shared_ptr<CSettingsArray>& capabilities_I)
{
    return "Touch capabilities received for " +
           CToolSession::Counted(capabilities_I->ObjectCount(), "tablet", "tablets") + ":\n" +
           SettingsOutput::CapabilitiesText(capabilities_I);
}

void StopOnSignal(int /*signal_I*/, void* /*info_I*/)
{
    CFRunLoopStop(CFRunLoopGetCurrent());
}

void Listen(const SToolOptions& options_I, const SListenArguments& arguments_I)
{
    const std::string identifier = arguments_I.mIdentifier.empty()
                                       ? "com.kelto.tabletctl." + std::to_string(getpid())
                                       : arguments_I.mIdentifier;
    CToolSession session(options_I);
    unsigned int deliveries = 0;
    // Deliveries also arrive inside the synchronisation request's own wait, whose run of
    // the loop must not be stopped; only the waiting run below is.
    bool waiting = false;
    auto handler = [&](std::shared_ptr<CSettingsArray> capabilities)
    {
        ++deliveries;
        if (options_I.mJSON)
        {
            const nlohmann::ordered_json line = {
                {"identifier", identifier},
                {"delivery", deliveries},
                {"capabilities", SettingsOutput::ToJSON(capabilities)}};
            std::printf("%s\n",
                        line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace)
                            .c_str());
        }
        else
        {
            std::fputs(DeliveryText(capabilities).c_str(), stdout);
        }
        std::fflush(stdout);
        if (waiting && arguments_I.mCount != 0 && deliveries >= arguments_I.mCount)
        {
            CFRunLoopStop(CFRunLoopGetCurrent());
        }
    };
    session.Check(session.Client().RegisterTouchClient(identifier, handler),
                  "the touch-client registration of " + identifier);
    // A coordinator that restarts has forgotten this client; the library registers again.
    session.Client().SetCoordinatorEventHandler(
        [&](CKeltoClient::ECoordinatorEvent event)
        {
            const bool gone = event == CKeltoClient::ECoordinatorEvent::eGone;
            if (options_I.mJSON)
            {
                const nlohmann::ordered_json line = {
                    {"identifier", identifier},
                    {"event", gone ? "coordinatorGone" : "coordinatorBack"}};
                std::printf("%s\n", line.dump().c_str());
            }
            else
            {
                std::fputs(gone ? "The coordinator went away; registering again once it is "
                                  "back.\n"
                                : "The coordinator is back; registered again.\n",
                           stdout);
            }
            std::fflush(stdout);
        });
    if (!options_I.mJSON)
    {
        std::printf("Registered as touch client %s; waiting for capabilities.\n",
                    identifier.c_str());
        std::fflush(stdout);
    }

    const int signals[] = {SIGINT, SIGTERM};
    CFRunLoopSourceRef signalSource =
        KelSignalRunLoopSourceCreate(signals, 2, StopOnSignal, nullptr);
    if (signalSource != nullptr)
    {
        CFRunLoopAddSource(CFRunLoopGetCurrent(), signalSource, kCFRunLoopCommonModes);
    }
    if (arguments_I.mSync)
    {
        // The coordinator delivers during the synchronisation, while this request waits.
        session.Check(session.Client().RequestSync(), "the synchronisation");
    }
    const bool enough = arguments_I.mCount != 0 && deliveries >= arguments_I.mCount;
    if (!enough)
    {
        waiting = true;
        CFRunLoopRunInMode(kCFRunLoopDefaultMode,
                           arguments_I.mSeconds > 0 ? arguments_I.mSeconds : kForever, false);
        waiting = false;
    }
    if (signalSource != nullptr)
    {
        CFRunLoopSourceInvalidate(signalSource);
        CFRelease(signalSource);
    }
    const KELSTATUS unregistered = session.Client().UnregisterTouchClient();
    if (!options_I.mJSON)
    {
        std::printf("Received %s.\n",
                    CToolSession::Counted(deliveries, "delivery", "deliveries").c_str());
        std::fflush(stdout);
    }
    if (arguments_I.mCount != 0 && deliveries < arguments_I.mCount)
    {
        throw CCommandError("only " + std::to_string(deliveries) + " of " +
                            std::to_string(arguments_I.mCount) + " deliveries arrived");
    }
    session.Check(unregistered, "the touch-client unregistration");
}
} // namespace

void AddTouchClientCommands(CLI::App& app_IO, const SToolOptions& options_I)
{
    static SListenArguments arguments;

    CLI::App* listen = app_IO.add_subcommand(
        "listen", "Register as a touch client and print the touch capabilities it receives");
    listen->add_option("--identifier", arguments.mIdentifier,
                       "The touch client's identifier, which is also the name of the message "
                       "port it serves (default com.kelto.tabletctl.<process ID>)");
    listen->add_flag("--sync", arguments.mSync,
                     "Ask the coordinator to synchronise at once, so that the capabilities "
                     "arrive now rather than at the next synchronisation");
    listen
        ->add_option("--seconds", arguments.mSeconds,
                     "Stop after this many seconds (default: only on SIGINT or SIGTERM)")
        ->check(SecondsValidator(false));
    listen->add_option("--count", arguments.mCount,
                       "Stop after this many deliveries; fewer by the end is a failure");
    listen->footer("The coordinator sends the capabilities of all tablets each time it "
                   "synchronises with the drivers: at its start, when the drivers' tablets "
                   "change, and on tabletctl sync. Each delivery is printed as it arrives; "
                   "with --json as one JSON document per line. Registration ends when "
                   "tabletctl ends.");
    listen->callback([&options_I] { Listen(options_I, arguments); });
}
