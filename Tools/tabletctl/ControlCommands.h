// tabletctl's orders to the coordinator.
//
//   tabletctl sync                 synchronise the tablet table with the drivers now
//   tabletctl quit [--wait <s>]    ask the coordinator to quit (and wait until it has)
#pragma once

#include "Tools/tabletctl/SToolOptions.h"

#include <CLI/CLI.hpp>

void AddControlCommands(CLI::App& app_IO, const SToolOptions& options_I);
