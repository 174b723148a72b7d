// The far end of the yardstick: a process that answers every request of `requestSize` bytes
// on a Unix-domain stream socket with `replySize` bytes, from a single-threaded poll loop.
// Reading and answering cost one poll, one recv and one send per request, nothing more.
//
// The reply repeats the request's bytes (reply[i] = request[i % requestSize]), so that a
// client can tell its own answer from another's.
#pragma once

#include "Bench/Support/CChildProcess.h"

#include <cstddef>
#include <memory>
#include <string>

class CRawEchoServer
{
public:
    // Listens on `path_I` before the process starts, so clients may connect at once.
    // Throws std::runtime_error when the socket or the process cannot be made.
    CRawEchoServer(const std::string& path_I, size_t requestSize_I, size_t replySize_I);

    const std::string& Path() const { return mPath; }
    CChildProcess& Process() { return *mProcess; }

    static void FillReply(const unsigned char* request_I, size_t requestSize_I,
                          unsigned char* reply_O, size_t replySize_I);

private:
    std::string mPath;
    std::unique_ptr<CChildProcess> mProcess;
};
