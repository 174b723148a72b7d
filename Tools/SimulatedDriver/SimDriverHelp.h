// The manual of the simulated driver program, printed by `simdriver --help`.
#pragma once

#include <string>

std::string SimDriverHelpText();
