// Finding the other coordinator: the process that is taken to hold the coordinator's port
// name when this one cannot have it.
//
// On macOS that is any other process of the user called "TabletDriver": one user has one
// set of port names. Here each process may use its own port directory (by the rule of
// Compat/PortDirectory.h, from its environment), and coordinators in other directories do not
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

} // namespace OtherCoordinatorProcess
