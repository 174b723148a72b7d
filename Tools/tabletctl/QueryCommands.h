// tabletctl's questions to the coordinator: what it answers itself or gathers from the
// drivers.
//
//   tabletctl count [--by-id]       tablets in the coordinator's table (or the drivers' count)
//   tabletctl tablets               the tablet table: system ID, driver, index, last used
//   tabletctl version               the protocol version the coordinator announces
//   tabletctl capabilities          the touch capabilities of every tablet
//   tabletctl last-tablet           the system ID of the tablet used last
//   tabletctl touch-api <value>     the multi-touch programming-interface query
#pragma once

#include "Tools/tabletctl/SToolOptions.h"

#include <CLI/CLI.hpp>

void AddQueryCommands(CLI::App& app_IO, const SToolOptions& options_I);
