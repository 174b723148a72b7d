#include "Tests/EndToEnd/CoordinatorProcess.h"

#include "Mac/TabletDriver/Source/Coordinator/CMacInputs.h"
#include "Tests/Support/SanitizerReport.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace
{
using Clock = std::chrono::steady_clock;

Clock::time_point Deadline(double seconds)
{
    return Clock::now() + std::chrono::milliseconds(static_cast<long>(seconds * 1000));
}

bool PortAnswers(const char* name)
{
    CFStringRef portName = CFStringCreateWithCString(nullptr, name, kCFStringEncodingUTF8);
    CFMessagePortRef port = CFMessagePortCreateRemote(nullptr, portName);
    CFRelease(portName);
    if (port == nullptr)
    {
        return false;
    }
    const bool valid = CFMessagePortIsValid(port);
    CFMessagePortInvalidate(port);
    CFRelease(port);
    return valid;
}
} // namespace

std::string CoordinatorProcess::ProgramPath()
{
    return KEL_TEST_BINARY_DIR "/Mac/TabletDriver/TabletDriver.app/Contents/MacOS/TabletDriver";
}

std::string CoordinatorProcess::BuiltInfoPlist()
{
    const std::filesystem::path program = ProgramPath();
    std::ifstream in(program.parent_path().parent_path() / "Info.plist", std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

std::string CoordinatorProcess::CopyBundle(const std::string& directory,
                                           const std::string& infoPlist)
{
    const std::filesystem::path contents =
        std::filesystem::path(directory) / "TabletDriver.app" / "Contents";
    std::filesystem::create_directories(contents / "MacOS");
    const std::filesystem::path program = contents / "MacOS" / "TabletDriver";
    std::filesystem::copy_file(ProgramPath(), program,
                               std::filesystem::copy_options::overwrite_existing);
    std::ofstream(contents / "Info.plist", std::ios::binary) << infoPlist;
    return program.string();
}

CoordinatorProcess::CoordinatorProcess(std::string logPath, std::string programPath)
    : mLogPath(std::move(logPath)), mProgramPath(std::move(programPath))
{
}

CoordinatorProcess::~CoordinatorProcess()
{
    Stop();
    // A sanitizer's report fails the test that started the coordinator, whether or not the
    // test looked at how it ended.
    const std::string report = SanitizerReport(Log());
    if (!report.empty())
    {
        ADD_FAILURE() << "coordinator:\n" << report;
    }
}

bool CoordinatorProcess::Start(const std::vector<std::string>& environment)
{
    Stop();
    mExitCode = 0;
    // Nobody at the console unless the test says otherwise, so that the start-up does not
    // depend on this machine's login.
    std::vector<std::string> variables = environment;
    bool consoleUserGiven = false;
    for (const std::string& entry : environment)
    {
        consoleUserGiven |= entry.rfind("KELTO_CONSOLE_USER=", 0) == 0;
    }
    if (!consoleUserGiven)
    {
        variables.push_back("KELTO_CONSOLE_USER=none");
    }
    std::vector<std::string> merged;
    for (char** entry = environ; *entry != nullptr; ++entry)
    {
        const std::string text = *entry;
        const std::string name = text.substr(0, text.find('='));
        bool replaced = false;
        for (const std::string& variable : variables)
        {
            replaced |= variable.compare(0, name.size() + 1, name + "=") == 0;
        }
        if (!replaced)
        {
            merged.push_back(text);
        }
    }
    merged.insert(merged.end(), variables.begin(), variables.end());
    std::vector<char*> envp;
    for (std::string& entry : merged)
    {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);

    std::string program = mProgramPath;
    char* argv[] = {program.data(), nullptr};

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, mLogPath.c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0600);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t pid = 0;
    const int error = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv, envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
    {
        return false;
    }
    mPid = pid;
    return true;
}

bool CoordinatorProcess::WaitUntilServing(double seconds)
{
    const auto deadline = Deadline(seconds);
    while (Clock::now() < deadline)
    {
        int status = 0;
        if (mPid <= 0 || waitpid(mPid, &status, WNOHANG) == mPid)
        {
            mPid = -1;
            return false;
        }
        if (PortAnswers(CMacInputs::kPortName))
        {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

std::string CoordinatorProcess::Log() const
{
    std::ifstream in(mLogPath, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

bool CoordinatorProcess::WaitForLog(const std::string& text, double seconds) const
{
    const auto deadline = Deadline(seconds);
    for (;;)
    {
        if (Log().find(text) != std::string::npos)
        {
            return true;
        }
        if (Clock::now() >= deadline)
        {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

int CoordinatorProcess::WaitForExit(double seconds)
{
    const auto deadline = Deadline(seconds);
    while (mPid > 0)
    {
        int status = 0;
        const pid_t done = waitpid(mPid, &status, WNOHANG);
        if (done == mPid)
        {
            mPid = -1;
            mExitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            return mExitCode;
        }
        if (done < 0 || Clock::now() >= deadline)
        {
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return -1;
}

void CoordinatorProcess::Signal(int signal)
{
    if (mPid > 0)
    {
        kill(mPid, signal);
    }
}

int CoordinatorProcess::Stop()
{
    if (mPid <= 0)
    {
        return mExitCode;
    }
    const pid_t pid = mPid;
    kill(pid, SIGTERM);
    if (WaitForExit(5.0) < 0 && mPid > 0)
    {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        mPid = -1;
        mExitCode = 128 + SIGKILL;
    }
    return mExitCode;
}
