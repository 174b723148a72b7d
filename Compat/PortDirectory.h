// Where the message ports of this user live.
//
// The directory is the first of:
//   1. $KELTO_PORT_DIR, when set (tests point it at a directory of their own);
//   2. "$XDG_RUNTIME_DIR/com.kelto.ports", when XDG_RUNTIME_DIR is set;
//   3. "${TMPDIR:-/tmp}/com.kelto.ports.<uid>", unless something not fit for ports (see
//      Check) is there already: anybody can create that name first, and another user who
//      did must not keep the coordinator from starting;
//   4. "$HOME/.local/state/kelto/ports", which nobody else can create.
// Every process of the user applies the same rule and so finds the same directory. It is
// created with mode 0700 when missing, and used only if it is a real directory (not a
// symbolic link) owned by the effective user with no permission for group or others:
// nobody else can then reach, replace or pre-create a port in it.
//
// In it, a port named N is the socket "<file name of N>" and the lock ".<file name of N>.lock"
// that its live owner holds (flock) for as long as it serves N. The owner removes both when
// it closes the port or exits; what a killed owner left is removed by the next process that
// opens a port in the directory (a socket whose lock nobody holds).
#pragma once

#include <string>

namespace PortDirectory
{
// The environment values that the rule above reads; empty when unset.
struct SPlaces
{
    std::string mPortDir;    // KELTO_PORT_DIR
    std::string mRuntimeDir; // XDG_RUNTIME_DIR
    std::string mTmpDir;     // TMPDIR
    std::string mHome;       // HOME
};

// This process's own values.
SPlaces PlacesOfThisProcess();

// The directory that a process of this user with these values uses (step 3 looks at what is
// in the temporary directory now).
std::string PathFor(const SPlaces& places);

// The directory, created if need be; "" on failure, with the reason in `error`.
std::string Resolve(std::string* error);

// Whether `path` is a directory fit for ports (see above); the reason in `error` if not.
bool Check(const std::string& path, std::string* error);

// A port name as a file name: ASCII letters, digits, '.', '_' and '-' stay, every other byte
// of its UTF-8 form is written %XX, and so is a leading '.' (no hidden or special names).
std::string FileName(const std::string& portName);
} // namespace PortDirectory
