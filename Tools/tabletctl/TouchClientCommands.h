// tabletctl listen: be a touch client, and print the touch capabilities the coordinator
// delivers.
//
//   tabletctl listen [--identifier <name>] [--sync] [--seconds <s>] [--count <n>]
//
// Registers with the coordinator under the identifier (serving the port of that name),
// prints each delivery as it arrives (with --json one JSON document per line), and ends on
// SIGINT or SIGTERM, after the given seconds, or after the given number of deliveries;
// then it unregisters.
#pragma once

#include "Tools/tabletctl/SToolOptions.h"

#include <CLI/CLI.hpp>

void AddTouchClientCommands(CLI::App& app_IO, const SToolOptions& options_I);
