// tabletctl without a coordinator: every subcommand that needs one says so in one line and
// exits 3; a bad request is refused before anything is asked; the help is there.
#include "Tests/Tools/tabletctl/TabletctlRunner.h"

#include "Compat/PortTestSupport.h"

#include <gtest/gtest.h>

using tabletctl_test::RunTabletctl;
using tabletctl_test::SRun;

TEST(TabletctlCommandLine, WithoutACoordinatorEveryRequestSaysSoInOneLine)
{
    PortTestSupport::CScopedPortDirectory ports;
    const char* commands[] = {"count",
                              "count --by-id",
                              "tablets",
                              "version",
                              "capabilities",
                              "last-tablet",
                              "touch-api 1",
                              "sync",
                              "quit",
                              "listen",
                              "raw get Driver",
                              "ae count",
                              "ae send core getd",
                              "--json count"};
    for (const char* command : commands)
    {
        SRun run = RunTabletctl(command);
        EXPECT_EQ(run.status, 3) << command;
        EXPECT_EQ(run.out, "") << command;
        EXPECT_EQ(run.err, "tabletctl: the coordinator is not running: nobody serves the port "
                           "com.kelto.CoordinatorMessageServer (KELSTATUS_FAILURE (0xFFFF))\n")
            << command;
    }
    SRun other = RunTabletctl("--port com.example.nobody version");
    EXPECT_EQ(other.status, 3);
    EXPECT_NE(other.err.find("nobody serves the port com.example.nobody"), std::string::npos);
}

TEST(TabletctlCommandLine, ABadRequestIsRefusedBeforeTheCoordinatorIsAsked)
{
    PortTestSupport::CScopedPortDirectory ports;
    struct SCase
    {
        const char* arguments;
        const char* error;
    };
    const SCase cases[] = {
        {"raw fetch Driver", "tabletctl: unknown command 'fetch'\n"},
        {"raw get Driver Transducer",
         "tabletctl: ambiguous identifier 'Transducer': EObjectIDTransducer, "
         "EParameterIDTransducer\n"},
        {"raw get Driver --data u8:300", "tabletctl: number out of range: '300'\n"},
        {"ae send core getd --param kocl:type", "tabletctl: an Apple Event parameter is "
                                                "KEYWORD:TYPE:VALUE: 'kocl:type'\n"},
        {"ae send cor getd", "tabletctl: not a four-character code: 'cor'\n"},
    };
    for (const SCase& c : cases)
    {
        SRun run = RunTabletctl(c.arguments);
        EXPECT_EQ(run.status, 1) << c.arguments;
        EXPECT_EQ(run.err, c.error) << c.arguments;
    }
    // The command line itself: CLI11's own statuses, never 0, 1 or 3.
    for (const char* arguments : {"", "count --by-name", "touch-api", "frobnicate"})
    {
        SRun run = RunTabletctl(arguments);
        EXPECT_NE(run.status, 0) << arguments;
        EXPECT_NE(run.status, 1) << arguments;
        EXPECT_NE(run.status, 3) << arguments;
    }
}

TEST(TabletctlCommandLine, TheHelpDescribesEveryCommand)
{
    SRun run = RunTabletctl("--help");
    EXPECT_EQ(run.status, 0);
    for (const char* word : {"count", "tablets", "version", "capabilities", "last-tablet",
                             "touch-api", "sync", "quit", "listen", "raw", "ae", "settings",
                             "--json", "--port", "--timeout", "KELTO_PORT_DIR", "Exit status"})
    {
        EXPECT_NE(run.out.find(word), std::string::npos) << word;
    }
    run = RunTabletctl("raw --help");
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.out.find("IDENTIFIER[@MODE][=REFERENCE]"), std::string::npos);
    EXPECT_NE(run.out.find("Examples:"), std::string::npos);
    EXPECT_NE(run.out.find("settings (JSON settings text of a map or an array)"),
              std::string::npos);
}
