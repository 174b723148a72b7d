// tabletctl settings: converts settings between JSON text and the binary archive that event
// packets carry, and shows either as a one-line trace.
//
//   tabletctl settings to-archive <json file> <archive file>
//   tabletctl settings to-json <archive file> <json file>
//   tabletctl settings trace <file> [--format auto|json|archive]
//
// "-" reads standard input or writes standard output. Input that is not what it should be
// gives one "tabletctl: ..." line on standard error and exit status 1.
#pragma once

#include <CLI/CLI.hpp>

void AddSettingsCommands(CLI::App& app_IO);
