// The exit statuses of tabletctl (the command-line parser's own errors keep CLI11's codes).
#pragma once

// Done.
constexpr int kExitSuccess = 0;
// A request failed (its status or Apple Event error is named), or a file or an argument
// could not be used.
constexpr int kExitFailed = 1;
// Something unexpected; a fault of tabletctl.
constexpr int kExitUnexpected = 2;
// The coordinator is not running (nobody serves its port).
constexpr int kExitNoCoordinator = 3;
