// Writing a whole file so that a failure never destroys the old one: the bytes go to a
// temporary file beside it (same directory, so the same file system), are flushed to the
// disk, and the temporary file is renamed over the old one. A full disk, a crash or any
// other failure leaves either the old file whole or the new one; the temporary file is
// removed on failure. The new file keeps the old one's permissions (a new file gets those
// the umask allows).
#pragma once

#include <cstddef>
#include <string>

// False on failure, with the system's reason in `error_O` ("No space left on device").
bool WriteFileAtomically(const std::string& path_I, const void* bytes_I, std::size_t size_I,
                         std::string& error_O);
