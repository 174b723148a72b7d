// Reads a simulated driver's configuration from JSON text with the project's settings reader.
//
// Every key is checked: an unknown key, a value of the wrong type or out of range, or a
// missing required key is refused with one line that names the key, e.g.
//   Tablets[1].SystemID: must be an integer from 0 to 65535
// The format itself is described in the program's --help text (SimDriverHelp.cpp).
#pragma once

#include "Tools/SimulatedDriver/SSimDriverConfig.h"

#include <string>

// False with the reason in error_O (one line, without the file name).
bool ReadSimDriverConfigText(const std::string& jsonText_I, SSimDriverConfig& config_O,
                             std::string& error_O);
// The same for a file; the reason then starts with the file's path. config_O.path is set.
bool ReadSimDriverConfigFile(const std::string& path_I, SSimDriverConfig& config_O,
                             std::string& error_O);
