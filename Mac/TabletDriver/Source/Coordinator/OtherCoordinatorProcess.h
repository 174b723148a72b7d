// Finding the other coordinator: the process that is taken to hold the coordinator's port
// name when this one cannot have it.
//
// On macOS that is any other process of the user called "TabletDriver": one user has one
// set of port names. Here each process may use its own port directory (KELTO_PORT_DIR, or
// XDG_RUNTIME_DIR, in its environment), and coordinators in other directories do not
// compete for the name; killing them by name alone would end unrelated coordinators (other
// sessions, tests running side by side). So the look-up takes only a "TabletDriver" whose
// environment gives the same port directory as ours, and a process whose environment cannot
// be read is never taken.
#pragma once

#include <ApplicationServices/ApplicationServices.h>

#include <string>

namespace OtherCoordinatorProcess
{
// The first other process called `name` that uses our port directory; {0, kNoProcess} when
// there is none.
ProcessSerialNumber Find(const std::string& name_I);

// The port directory that a process with these two environment values uses (empty values
// count as unset), following the rule of the message ports: KELTO_PORT_DIR, else
// "$XDG_RUNTIME_DIR/com.kelto.ports", else the per-user directory in /tmp.
std::string PortDirectoryFor(const std::string& keltoPortDir_I, const std::string& runtimeDir_I);
} // namespace OtherCoordinatorProcess
