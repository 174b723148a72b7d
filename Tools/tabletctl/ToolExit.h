// The exit statuses of tabletctl, as the README and the manual page list them.
#pragma once

// Done.
constexpr int kExitSuccess = 0;
// A request failed (its status or Apple Event error is named), a file could not be read or
// written, or a conversion would have lost data.
constexpr int kExitFailed = 1;
// The command line could not be used: an unknown command or option, a missing or bad value.
constexpr int kExitUsage = 2;
// The coordinator is not running (nobody serves its port).
constexpr int kExitNoCoordinator = 3;
// Something unexpected; a fault of tabletctl.
constexpr int kExitUnexpected = 4;
