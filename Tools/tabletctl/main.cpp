// tabletctl: the command-line client of the tablet coordinator. Each group of subcommands
// registers itself from its own file; failures print one line and exit with the status of
// ToolExit.h.
#include "Tools/tabletctl/AppleEventCommands.h"
#include "Tools/tabletctl/CCommandError.h"
#include "Tools/tabletctl/ControlCommands.h"
#include "Tools/tabletctl/QueryCommands.h"
#include "Tools/tabletctl/RawCommands.h"
#include "Tools/tabletctl/SToolOptions.h"
#include "Tools/tabletctl/SettingsCommands.h"
#include "Tools/tabletctl/TouchClientCommands.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <string>

namespace
{
// Every subcommand's help names the options that all of them share.
void AddCommonFooter(CLI::App& app_IO)
{
    for (CLI::App* command : app_IO.get_subcommands({}))
    {
        if (command->get_name() != "settings")
        {
            const std::string own = command->get_footer();
            command->footer((own.empty() ? "" : own + "\n") +
                            "Options of every command (see tabletctl --help): --json, --port, "
                            "--timeout.");
            AddCommonFooter(*command);
        }
    }
}
} // namespace

int main(int argc, char** argv)
{
    CLI::App app("tabletctl: talk to the tablet coordinator and handle its data", "tabletctl");
    app.require_subcommand(1);
    // The common options may stand before or after the subcommand.
    app.fallthrough();

    static SToolOptions options;
    app.add_flag("--json", options.mJSON,
                 "Print one JSON document instead of text (listen: one per line)");
    app.add_option("--port", options.mPortName,
                   "The coordinator's message port (default com.kelto.CoordinatorMessageServer)");
    app.add_option("--timeout", options.mTimeout,
                   "Seconds each request may take to be sent, and again to be answered "
                   "(default 10)")
        ->check(CLI::PositiveNumber);
    app.footer("Message ports live in the directory named by KELTO_PORT_DIR, or in the user's own "
               "port directory.\n"
               "Exit status: 0 done; 1 a request failed (its KELSTATUS or Apple Event error is "
               "named) or an argument or file could not be used; 2 an unexpected failure; 3 the "
               "coordinator is not running; other values: the command line could not be read.\n"
               "The options above may also follow the subcommand. Each subcommand has its own "
               "--help.");

    AddQueryCommands(app, options);
    AddControlCommands(app, options);
    AddTouchClientCommands(app, options);
    AddRawCommands(app, options);
    AddAppleEventCommands(app, options);
    AddSettingsCommands(app);
    AddCommonFooter(app);
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error);
    }
    catch (const CCommandError& error)
    {
        std::fprintf(stderr, "tabletctl: %s\n", error.what());
        return error.ExitStatus();
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "tabletctl: unexpected failure: %s\n", error.what());
        return kExitUnexpected;
    }
    return kExitSuccess;
}
