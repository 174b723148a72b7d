// tabletctl ae: Apple Events to the coordinator (the application "com.kelto.TabletDriver").
//
//   tabletctl ae count                                   'core'/'cnte' for the class 'Tblt'
//   tabletctl ae send <class> <id> [--param K:T:V]...    any event; the coordinator
//                                                        forwards the tablet suite's events
//                                                        to the drivers
#pragma once

#include "Tools/tabletctl/SToolOptions.h"

#include <CLI/CLI.hpp>

void AddAppleEventCommands(CLI::App& app_IO, const SToolOptions& options_I);
