// Idle connections to a Unix socket, held open by processes of their own: at most
// kPerProcess each, so that a server's limit of connections per process is never what is
// met. The connections are made and never used; a server that refuses one (it writes
// before the client has asked anything) fails Hold().
#pragma once

#include "Bench/Support/CChildProcess.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

class CIdleConnections
{
public:
    static constexpr size_t kPerProcess = 50;

    explicit CIdleConnections(std::string path_I) : mPath(std::move(path_I)) {}

    // Holds `count_I` connections (a multiple of kPerProcess), starting or stopping holders
    // as needed; throws std::runtime_error when one cannot be made or is refused.
    void Hold(size_t count_I);
    size_t Count() const { return mHolders.size() * kPerProcess; }

private:
    std::string mPath;
    std::vector<std::unique_ptr<CChildProcess>> mHolders;
};
