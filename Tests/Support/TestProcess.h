// A program that a test runs: started by the test with this process's environment (so with
// the test's KELTO_PORT_DIR), its standard output and error in a log
// file, every wait bounded, and stopped by its process ID (SIGTERM, then SIGKILL) at the
// latest when the object goes. A sanitizer's report in the log fails the test then, whether
// or not the test looked at how the process ended.
#pragma once

#include "Bench/Support/CChildProcess.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class TestProcess
{
public:
    // Starts arguments_I[0] (a path) with arguments_I. Started() says whether it could be.
    TestProcess(std::vector<std::string> arguments_I, std::string logPath_I);
    ~TestProcess();
    TestProcess(const TestProcess&) = delete;
    TestProcess& operator=(const TestProcess&) = delete;

    bool Started() const { return mChild != nullptr; }
    // Whether it still runs (it is reaped here once it has ended).
    bool IsRunning();
    // Its exit code (128 + the signal that ended it) once it ends within timeout_I.
    std::optional<int> WaitForExit(std::chrono::milliseconds timeout_I);
    // SIGCONT and SIGTERM, a wait of at most grace_I, then SIGKILL. The exit code as
    // WaitForExit gives it, also when it had ended before; -1 when it never started.
    int Stop(std::chrono::milliseconds grace_I = std::chrono::seconds(5));

    std::string Log() const;
    // For a process that is meant to fail its sanitizer: its report fails nothing.
    void ExpectSanitizerReport() { mReportExpected = true; }

private:
    std::string mProgram;
    std::string mLogPath;
    std::unique_ptr<CChildProcess> mChild;
    bool mReportExpected = false;
};

// Whether a process of this user serves the port of that name in this process's port
// directory.
bool PortServed(const std::string& portName_I);
