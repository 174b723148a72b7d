// The plain Unix-domain stream sockets of the benchmark's own yardsticks: no framing, no
// library, the fewest system calls a request and its reply can take.
#pragma once

#include <cstddef>
#include <string>

namespace UnixSockets
{
// A listening socket bound to `path_I` (an old file there is removed); -1 on failure.
int Listen(const std::string& path_I);
// A connected socket, trying for up to `seconds_I` while nobody listens yet; -1 on failure.
int Connect(const std::string& path_I, double seconds_I = 0);
// Blocking; false when the peer went away.
bool WriteAll(int fd_I, const void* bytes_I, size_t length_I);
bool ReadExactly(int fd_I, void* bytes_O, size_t length_I);
} // namespace UnixSockets
