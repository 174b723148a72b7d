#include "Mac/TabletDriver/Source/Coordinator/CoordinatorArguments.h"

SCoordinatorArguments ReadCoordinatorArguments(int argc_I, const char* const* argv_I)
{
    SCoordinatorArguments arguments;
    for (int i = 1; i < argc_I && arguments.mUnknown.empty(); ++i)
    {
        const std::string argument = argv_I[i];
        if (argument == "--help" || argument == "-h")
        {
            arguments.mHelp = true;
        }
        else if (argument == "--version")
        {
            arguments.mVersion = true;
        }
        else if (argument == "--replace")
        {
            arguments.mReplace = true;
        }
        else if (argument.rfind("-psn_", 0) != 0)
        {
            arguments.mUnknown = argument;
        }
    }
    return arguments;
}

std::string CoordinatorUsage()
{
    return "Usage: TabletDriver [--replace]\n"
           "       TabletDriver --help | --version\n"
           "\n"
           "The tablet coordinator of the user's session: it numbers the tablets of the two\n"
           "tablet drivers and routes requests between its clients and the drivers. It runs\n"
           "until it is asked to quit (tabletctl quit) or receives SIGTERM, SIGINT, SIGHUP,\n"
           "SIGQUIT or SIGABRT.\n"
           "\n"
           "  --replace   replace a coordinator that already serves the port even when it\n"
           "              answers (one that does not answer is always replaced)\n"
           "  --help      print this text and exit\n"
           "  --version   print the program's version and protocol version and exit\n"
           "\n"
           "Message ports live in $KELTO_PORT_DIR, else $XDG_RUNTIME_DIR/com.kelto.ports, else\n"
           "/tmp/com.kelto.ports.<uid>. See TabletDriver(1).\n";
}
