// tabletctl: the command-line client of the tablet coordinator. Each group of subcommands
// registers itself from its own file; errors print one line and exit with status 1.
#include "Tools/tabletctl/CCommandError.h"
#include "Tools/tabletctl/SettingsCommands.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

int main(int argc, char** argv)
{
    CLI::App app("tabletctl: talk to the tablet coordinator and handle its data", "tabletctl");
    app.require_subcommand(1);
    AddSettingsCommands(app);
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
        return 1;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "tabletctl: unexpected failure: %s\n", error.what());
        return 2;
    }
    return 0;
}
