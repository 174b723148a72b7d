#include <KelSignalRunLoopSource.h>

#include "Compat/CFRunLoopPrivate.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace
{
// The pipe each signal is written to, plus one: 0 (the static initial value) when no source
// holds the signal.
std::atomic<int> gSignalPipe[NSIG];

// Runs inside the signal handler: async-signal-safe calls only, errno preserved.
void WriteSignal(int signalNumber)
{
    const int savedErrno = errno;
    const int fd = gSignalPipe[signalNumber].load() - 1;
    if (fd >= 0)
    {
        const auto byte = static_cast<unsigned char>(signalNumber);
        [[maybe_unused]] ssize_t written = write(fd, &byte, 1);
    }
    errno = savedErrno;
}

class CSignalHandler : public CFRunLoopPrivate::IFdHandler
{
public:
    CSignalHandler(std::vector<int> signals, KelSignalCallBack callBack, void* info, int readFd,
                   int writeFd)
        : mSignals(std::move(signals)), mCallBack(callBack), mInfo(info), mReadFd(readFd),
          mWriteFd(writeFd)
    {
    }

    // The source lets go of its handler when invalidated or destroyed: the signals are
    // given back before the pipe closes.
    ~CSignalHandler() override
    {
        for (int signalNumber : mSignals)
        {
            int expected = mWriteFd + 1;
            if (gSignalPipe[signalNumber].compare_exchange_strong(expected, 0))
            {
                std::signal(signalNumber, SIG_DFL);
            }
        }
        close(mReadFd);
        close(mWriteFd);
    }

    void CollectWatches(std::vector<CFRunLoopPrivate::SWatch>& watches) override
    {
        watches.push_back({mReadFd, POLLIN});
    }

    void Handle(int, short) override
    {
        unsigned char received[64];
        const ssize_t count = read(mReadFd, received, sizeof received);
        for (ssize_t i = 0; i < count; ++i)
        {
            mCallBack(received[i], mInfo);
        }
    }

private:
    std::vector<int> mSignals;
    KelSignalCallBack mCallBack;
    void* mInfo;
    int mReadFd;
    int mWriteFd;
};
} // namespace

CFRunLoopSourceRef KelSignalRunLoopSourceCreate(const int* signals, CFIndex count,
                                                KelSignalCallBack callBack, void* info)
{
    if (callBack == nullptr || count < 0 || (count > 0 && signals == nullptr))
    {
        return nullptr;
    }
    std::vector<int> list(signals, signals + count);
    for (int signalNumber : list)
    {
        if (signalNumber <= 0 || signalNumber >= NSIG || signalNumber > 255)
        {
            return nullptr;
        }
    }
    int fds[2];
    if (pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0)
    {
        return nullptr;
    }
    auto handler = std::make_shared<CSignalHandler>(list, callBack, info, fds[0], fds[1]);
    for (int signalNumber : list)
    {
        gSignalPipe[signalNumber].store(fds[1] + 1);
        struct sigaction action = {};
        action.sa_handler = WriteSignal;
        action.sa_flags = SA_RESTART;
        sigemptyset(&action.sa_mask);
        if (sigaction(signalNumber, &action, nullptr) != 0)
        {
            return nullptr; // the handler's destructor gives back what was taken
        }
    }
    return CFRunLoopPrivate::CreateFdSource(0, std::move(handler));
}
