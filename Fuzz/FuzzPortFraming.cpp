// Arbitrary bytes written on a message port connection: the serving side must decode what
// it can, answer well-formed requests, drop the connection on anything else, and never
// crash or read outside what it received. The same bytes also go through the reply decoder
// of the sending side.
#include "Compat/CFRunLoopPrivate.h"
#include "Compat/CPortFrameDecoder.h"
#include "Compat/CPortServer.h"

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
struct SFixture
{
    SFixture()
    {
        char pattern[] = "/tmp/kel_fuzz_ports_XXXXXX";
        if (mkdtemp(pattern) == nullptr)
        {
            std::abort();
        }
        // The fixture lives until the process ends; its directory goes with it.
        static std::string directory = pattern;
        std::atexit(
            []
            {
                std::error_code ignored;
                std::filesystem::remove_all(directory, ignored);
            });
        CPortServer::EOpen result;
        mServer = CPortServer::Open(pattern, "com.kelto.Fuzz", result);
        if (!mServer)
        {
            std::abort();
        }
        mServer->SetDeliver(
            [](SInt32 msgid, CFDataRef data) -> CFDataRef
            {
                if (msgid == 0)
                {
                    return nullptr;
                }
                return CFDataCreateCopy(nullptr, data);
            });
        mSource = CFRunLoopPrivate::CreateFdSource(0, mServer);
        CFRunLoopAddSource(CFRunLoopGetCurrent(), mSource, kCFRunLoopDefaultMode);
    }

    std::shared_ptr<CPortServer> mServer;
    CFRunLoopSourceRef mSource;
};

void DrainReplies(int fd)
{
    char buffer[65536];
    while (recv(fd, buffer, sizeof buffer, MSG_DONTWAIT) > 0)
    {
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static SFixture* fixture = new SFixture;

    CPortFrameDecoder replies(kPortReplyMagic);
    replies.Append(data, size);
    SPortFrame frame;
    while (replies.Next(frame) == CPortFrameDecoder::EResult::eFrame)
    {
    }

    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0)
    {
        return 0;
    }
    fixture->mServer->Adopt(fds[0]);
    fcntl(fds[1], F_SETFL, O_NONBLOCK);
    size_t written = 0;
    for (int round = 0; round < 10000 && fixture->mServer->ConnectionCount() > 0; ++round)
    {
        if (written < size)
        {
            const ssize_t count = send(fds[1], data + written, size - written, MSG_NOSIGNAL);
            if (count > 0)
            {
                written += static_cast<size_t>(count);
            }
            if (written == size)
            {
                shutdown(fds[1], SHUT_WR); // the server sees the end and lets go
            }
        }
        else if (size == 0 && round == 0)
        {
            shutdown(fds[1], SHUT_WR);
        }
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true);
        DrainReplies(fds[1]);
    }
    if (fixture->mServer->ConnectionCount() > 0)
    {
        std::abort(); // the server kept a connection whose peer had finished
    }
    close(fds[1]);
    return 0;
}
