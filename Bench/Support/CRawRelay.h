// The yardstick of a routed request: a process between clients and one server, in a
// single-threaded poll loop, as the coordinator sits between its clients and a driver. Each
// request of `requestSize` bytes from a client goes on to the server over one connection;
// each reply of `replySize` bytes from the server goes back to the client whose request is
// the oldest one unanswered (the server answers in order). One poll, one recv and one send
// per message and hop: the least any relay can do on this machine.
#pragma once

#include "Bench/Support/CChildProcess.h"

#include <cstddef>
#include <memory>
#include <string>

class CRawRelay
{
public:
    // Listens on `path_I` and connects to `serverPath_I` (which must be listening) before
    // the process starts. Throws std::runtime_error when either fails.
    CRawRelay(const std::string& path_I, const std::string& serverPath_I, size_t requestSize_I,
              size_t replySize_I);

    const std::string& Path() const { return mPath; }
    CChildProcess& Process() { return *mProcess; }

private:
    std::string mPath;
    std::unique_ptr<CChildProcess> mProcess;
};
