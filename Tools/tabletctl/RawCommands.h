// tabletctl raw: any request, built from the command line.
//
//   tabletctl raw <command> [<key>...] [--data TYPE:VALUE] [--answer TYPE]
//
// The syntax of commands, keys and data is RequestSyntax.h's; the answer types are
// RawReplyOutput.h's. The reply's status, data and value are printed; a status other than
// KELSTATUS_SUCCESS also makes the exit status 1.
#pragma once

#include "Tools/tabletctl/SToolOptions.h"

#include <CLI/CLI.hpp>

void AddRawCommands(CLI::App& app_IO, const SToolOptions& options_I);
