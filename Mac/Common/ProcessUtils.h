// Finding another process by name, killing it, and telling whether it is gone: what the
// coordinator needs to remove a stale copy of itself that still holds its port name.
#pragma once

#include <ApplicationServices/ApplicationServices.h>

#include <string>

namespace ProcessUtils
{
// The first of this user's processes (in the Process Manager's order) whose name is `name`,
// exactly; {0, kNoProcess} when there is none. The calling process is a candidate only with
// `includeCurrentProcess`, so a program can look for other copies of itself.
ProcessSerialNumber GetPSNForProcessWithName(const std::string& name, bool includeCurrentProcess);

// Kills the process. True when it was killed or there was nothing to kill (no process, or
// one that ended meanwhile); false when it exists and may not be killed.
bool KillProcessWithPSN(const ProcessSerialNumber& psn);

// True for the serial number that stands for no process.
bool PSNIsNoProcess(const ProcessSerialNumber& psn);
} // namespace ProcessUtils
