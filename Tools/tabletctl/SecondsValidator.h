// A number of seconds on the command line, checked with a message people can read (CLI11's
// own range checks print the largest double in full).
#pragma once

#include <CLI/CLI.hpp>

// Accepts a finite number above 0, or of 0 and above when `zeroAllowed_I`.
CLI::Validator SecondsValidator(bool zeroAllowed_I);
