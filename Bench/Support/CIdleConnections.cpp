#include "Bench/Support/CIdleConnections.h"

#include "Bench/Support/UnixSockets.h"

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <thread>

namespace
{
// How long a holder gives the server to accept (and perhaps refuse) its connections before
// it looks for a refusal.
constexpr auto kSettle = std::chrono::milliseconds(300);

// The body of a holder: connects, waits, reports how many connections the server wrote to
// (refused) or that failed, then sleeps until it is stopped.
int Hold(const std::string& path_I, int report_I)
{
    std::vector<int> fds;
    size_t bad = 0;
    for (size_t i = 0; i < CIdleConnections::kPerProcess; ++i)
    {
        const int fd = UnixSockets::Connect(path_I, 5);
        bad += fd < 0;
        if (fd >= 0)
        {
            fds.push_back(fd);
        }
    }
    std::this_thread::sleep_for(kSettle);
    for (const int fd : fds)
    {
        pollfd readable = {fd, POLLIN, 0};
        bad += poll(&readable, 1, 0) != 0;
    }
    (void)!write(report_I, &bad, sizeof bad);
    close(report_I);
    for (;;)
    {
        pause();
    }
}
} // namespace

void CIdleConnections::Hold(size_t count_I)
{
    const size_t wanted = count_I / kPerProcess;
    if (wanted * kPerProcess != count_I)
    {
        throw std::logic_error("idle connections come in steps of 50");
    }
    if (mHolders.size() > wanted)
    {
        mHolders.resize(wanted);
        // Its hang-ups are the server's to take in before anything is measured.
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        return;
    }
    // All holders connect and settle at once; then each report is read.
    std::vector<int> reports;
    while (mHolders.size() < wanted)
    {
        int report[2];
        if (pipe(report) != 0)
        {
            throw std::runtime_error("no pipe");
        }
        const std::string path = mPath;
        mHolders.push_back(CChildProcess::Fork(
            [path, &report]
            {
                close(report[0]);
                return ::Hold(path, report[1]);
            }));
        close(report[1]);
        reports.push_back(report[0]);
    }
    size_t bad = 0;
    for (const int fd : reports)
    {
        size_t count = CIdleConnections::kPerProcess;
        if (read(fd, &count, sizeof count) != sizeof count)
        {
            count = CIdleConnections::kPerProcess;
        }
        bad += count;
        close(fd);
    }
    if (bad > 0)
    {
        throw std::runtime_error(std::to_string(bad) + " idle connections were refused or failed");
    }
}
