// tabletctl settings: converts settings between JSON text and the binary archive that event
// packets carry, and shows either as a one-line trace.
//
//   tabletctl settings to-archive <json file> <archive file>
//   tabletctl settings to-json <archive file> <json file>
//   tabletctl settings trace <file> [--format auto|json|archive]
//
// "-" reads standard input or writes standard output. Input that is not what it should be
// gives one "tabletctl: ..." line on standard error and exit status 1. A conversion reads its
// result back and compares: if anything would be lost or changed (a number the library
// cannot hold, a null an archive cannot carry, a double JSON cannot hold), it names the first
// place, writes nothing and exits 1. An output file is replaced whole or not at all.
#pragma once

#include "Tools/tabletctl/SToolOptions.h"

#include <CLI/CLI.hpp>

void AddSettingsCommands(CLI::App& app_IO, const SToolOptions& options_I);
