// tabletctl without a coordinator: every subcommand that needs one says so in one line and
// exits 3; a bad request is refused before anything is asked.
#include "Tests/Tools/tabletctl/TabletctlRunner.h"

#include "Compat/PortTestSupport.h"

#include <gtest/gtest.h>

using tabletctl_test::RunTabletctl;
using tabletctl_test::SRun;

TEST(TabletctlCommandLine, WithoutACoordinatorEveryRequestSaysSoInOneLine)
{
    PortTestSupport::CScopedPortDirectory ports;
    // Each kind of request: a query, a touch client, a raw packet, an Apple Event, JSON.
    const char* commands[] = {"count", "listen", "raw get Driver", "ae send core getd",
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
