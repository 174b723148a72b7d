// tabletctl: the command-line client of the tablet coordinator. Each group of subcommands
// registers itself from its own file; failures print one line on standard error (a JSON
// object with --json) and exit with the status of ToolExit.h.
#include "Tools/tabletctl/AppleEventCommands.h"
#include "Tools/tabletctl/CCommandError.h"
#include "Tools/tabletctl/ControlCommands.h"
#include "Tools/tabletctl/QueryCommands.h"
#include "Tools/tabletctl/RawCommands.h"
#include "Tools/tabletctl/SToolOptions.h"
#include "Tools/tabletctl/SecondsValidator.h"
#include "Tools/tabletctl/SettingsCommands.h"
#include "Tools/tabletctl/TouchClientCommands.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

namespace
{
// One line on standard error: "tabletctl: <what>", or {"error": ..., "exitStatus": ...}
// when JSON was asked for; gives the status back for main to return.
int Fail(bool json_I, const std::string& what_I, int exitStatus_I)
{
    if (json_I)
    {
        const nlohmann::ordered_json error = {{"error", what_I}, {"exitStatus", exitStatus_I}};
        std::fprintf(stderr, "%s\n", error.dump().c_str());
    }
    else
    {
        std::fprintf(stderr, "tabletctl: %s\n", what_I.c_str());
    }
    return exitStatus_I;
}

// The command line error in the words of a Unix tool, naming the word that was not
// understood where there is one.
std::string UsageMessage(const CLI::App& app_I, const CLI::ParseError& error_I)
{
    // The deepest command that was read, and what it did not take.
    const CLI::App* command = &app_I;
    for (bool deeper = true; deeper;)
    {
        deeper = false;
        for (const CLI::App* sub : command->get_subcommands())
        {
            command = sub;
            deeper = true;
            break;
        }
    }
    const std::vector<std::string> left = command->remaining();
    if (!left.empty())
    {
        const std::string& word = left.front();
        if (word.size() > 1 && word[0] == '-')
        {
            return "unknown option '" + word + "'";
        }
        if (command->get_require_subcommand_min() > 0 || !command->get_subcommands({}).empty())
        {
            return "unknown command '" + word + "'";
        }
        return "unexpected argument '" + word + "'";
    }
    std::string what = error_I.what();
    // "The following argument(s) was/were not expected: <words>"
    if (dynamic_cast<const CLI::ExtrasError*>(&error_I) != nullptr &&
        what.find(": ") != std::string::npos)
    {
        std::string word = what.substr(what.find(": ") + 2);
        word.erase(std::min(word.find(' '), word.size()));
        return (word.size() > 1 && word[0] == '-' ? "unknown option '" : "unexpected argument '") +
               word + "'";
    }
    if (what == "A subcommand is required")
    {
        return "a command is required (see tabletctl" +
               (command == &app_I ? std::string() : " " + command->get_name()) + " --help)";
    }
    if (!what.empty())
    {
        what[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(what[0])));
    }
    return what;
}
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
        ->check(SecondsValidator(false));
    app.add_flag("-v,--verbose", options.mVerbose,
                 "Also print the settings library's own diagnostic lines (on standard error)");
    app.set_version_flag("--version", "tabletctl " KEL_PROJECT_VERSION);
    app.footer("Message ports live in the directory named by KELTO_PORT_DIR, or in the user's own "
               "port directory.\n"
               "Exit status: 0 done; 1 a request failed (its KELSTATUS or Apple Event error is "
               "named), a file could not be used or a conversion would lose data; 2 the "
               "command line could not be used; 3 the coordinator is not running; 4 an "
               "unexpected failure.\n"
               "The options above may also follow the subcommand. Each subcommand has its own "
               "--help.");

    AddQueryCommands(app, options);
    AddControlCommands(app, options);
    AddTouchClientCommands(app, options);
    AddRawCommands(app, options);
    AddAppleEventCommands(app, options);
    AddSettingsCommands(app, options);
    AddCommonFooter(app);
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& error)
    {
        // Help and version are "errors" that succeed.
        if (error.get_exit_code() == 0)
        {
            return app.exit(error);
        }
        // --json may stand after the word that failed, so the command line is asked.
        const bool json =
            options.mJSON ||
            std::any_of(argv + 1, argv + argc,
                        [](const char* argument) { return std::strcmp(argument, "--json") == 0; });
        return Fail(json, UsageMessage(app, error), kExitUsage);
    }
    catch (const CCommandError& error)
    {
        return Fail(options.mJSON, error.what(), error.ExitStatus());
    }
    catch (const std::exception& error)
    {
        return Fail(options.mJSON, std::string("unexpected failure: ") + error.what(),
                    kExitUnexpected);
    }
    return kExitSuccess;
}
