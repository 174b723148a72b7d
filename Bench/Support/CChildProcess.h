// A process that a benchmark or a test starts beside itself: a function run in a forked copy
// (a relay, an echo server), or another program (the coordinator, a driver, dbus-daemon),
// its standard input /dev/null. It is always stopped by its process id: by the destructor,
// and by the kernel when the starter itself dies (the parent-death signal), so that no run
// leaves anything behind.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class CChildProcess
{
public:
    // Runs `body_I` in a forked child, which exits with its result. Fork before starting
    // any thread: the child has only the forking thread.
    static std::unique_ptr<CChildProcess> Fork(const std::function<int()>& body_I);
    // Starts `arguments_I[0]` (a path) with `arguments_I`, this process's environment with
    // `environment_I` ("NAME=value") added or replacing, and its standard output and error
    // appended to `logPath_I` (or discarded when empty). Null when it cannot be started.
    static std::unique_ptr<CChildProcess> Spawn(const std::vector<std::string>& arguments_I,
                                                const std::vector<std::string>& environment_I,
                                                const std::string& logPath_I);

    ~CChildProcess();
    CChildProcess(const CChildProcess&) = delete;
    CChildProcess& operator=(const CChildProcess&) = delete;

    pid_t Pid() const { return mPid; }
    // Whether it still runs (an ended process is reaped here).
    bool IsRunning();
    // Waits at most `timeout_I` for it to end by itself: its exit code, or nothing.
    std::optional<int> WaitForExit(std::chrono::milliseconds timeout_I);
    // SIGCONT and SIGTERM, a wait of at most `grace_I`, then SIGKILL. The exit code, or 128 +
    // the signal that ended it; -1 when it was not a child of this process any more.
    int Stop(std::chrono::milliseconds grace_I = std::chrono::milliseconds(3000));

private:
    explicit CChildProcess(pid_t pid_I) : mPid(pid_I) {}
    std::optional<int> Reap(bool block_I);

    pid_t mPid = -1;
    std::optional<int> mExitCode;
};
