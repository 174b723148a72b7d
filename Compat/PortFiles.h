// The files of the ports in a port directory (PortDirectory.h): each port N is the socket
// "<file name of N>" and the lock ".<file name of N>.lock", held with flock by the process
// that serves N. Here is how they come and go:
// - a lock is taken only while its path still names the file that was locked (whoever
//   holds a lock may remove its file);
// - a process removes its sockets and locks when it closes a port, and, for ports that live
//   as long as it does, when it exits (exit() runs no destructors of those);
// - what a killed process left (a socket whose lock nobody holds) is removed by the next
//   process that opens a port in the directory.
#pragma once

#include <string>

namespace PortFiles
{
// The lock's descriptor, or -1; `served_O` tells a live owner from any other failure.
int TakeLock(const std::string& lockPath_I, bool& served_O);

// Removes the sockets of `directory_I` whose lock nobody holds, with their locks; once per
// directory and process.
void RemoveUnservedPorts(const std::string& directory_I);

// The files of a port this process serves, removed at exit while it still does.
void RemoveAtExit(const std::string& socketPath_I, const std::string& lockPath_I);
// The port was closed (and its files removed): nothing to do at exit.
void ForgetAtExit(const std::string& socketPath_I, const std::string& lockPath_I);
} // namespace PortFiles
