// The real coordinator as a process of a test: started from the build's TabletDriver.app
// (or a copy of it) as a TestProcess, so with the test's port directory, nobody at the
// console unless the test says otherwise (KELTO_CONSOLE_USER), its output in a log file,
// and stopped by its process ID: SIGTERM, then SIGKILL after five seconds.
#pragma once

#include "Tests/Support/TestProcess.h"

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

class CoordinatorProcess
{
public:
    // Where the build put the program.
    static std::string ProgramPath();
    // The build's Info.plist text.
    static std::string BuiltInfoPlist();

    // Output goes to `logPath`; `programPath` is the program to start.
    explicit CoordinatorProcess(std::string logPath, std::string programPath = ProgramPath());

    // Starts it with `arguments`; `environment` entries ("NAME=value") are added to, or
    // replace, this process's own.
    bool Start(const std::vector<std::string>& environment = {},
               const std::vector<std::string>& arguments = {});
    // Whether its message port answers within `seconds` (false at once if it ended).
    bool WaitUntilServing(double seconds);
    // Whether `text` appears in its output within `seconds`.
    bool WaitForLog(const std::string& text, double seconds) const;
    std::string Log() const;

    // Its exit code, 128 + the signal that ended it, or -1 when it is still running after
    // `seconds`.
    int WaitForExit(double seconds);
    void Signal(int signal);
    // Its exit code as WaitForExit gives it (-1 when it was never started).
    int Stop();

    pid_t Pid() const { return mProcess ? mProcess->Pid() : -1; }
    bool Running() { return mProcess && mProcess->IsRunning(); }

private:
    std::string mLogPath;
    std::string mProgramPath;
    std::optional<TestProcess> mProcess;
};
