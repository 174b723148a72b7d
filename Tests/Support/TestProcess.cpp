#include "Tests/Support/TestProcess.h"

#include "Tests/Support/SanitizerReport.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace
{
constexpr std::chrono::milliseconds kPoll{5};

template <typename Done> bool WaitUntil(std::chrono::milliseconds timeout_I, Done done_I)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout_I;
    while (!done_I())
    {
        if (std::chrono::steady_clock::now() >= deadline)
        {
            return false;
        }
        std::this_thread::sleep_for(kPoll);
    }
    return true;
}
} // namespace

TestProcess::TestProcess(std::vector<std::string> arguments_I, std::string logPath_I,
                         const std::vector<std::string>& environment_I)
    : mProgram(arguments_I.at(0)), mLogPath(std::move(logPath_I))
{
    std::vector<std::string> variables;
    for (char** entry = environ; *entry != nullptr; ++entry)
    {
        const std::string text = *entry;
        const std::string name = text.substr(0, text.find('=') + 1);
        bool replaced = false;
        for (const std::string& variable : environment_I)
        {
            replaced |= variable.rfind(name, 0) == 0;
        }
        if (!replaced)
        {
            variables.push_back(text);
        }
    }
    variables.insert(variables.end(), environment_I.begin(), environment_I.end());
    std::vector<char*> argv;
    std::vector<char*> envp;
    for (std::string& argument : arguments_I)
    {
        argv.push_back(argument.data());
    }
    for (std::string& variable : variables)
    {
        envp.push_back(variable.data());
    }
    argv.push_back(nullptr);
    envp.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, mLogPath.c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0600);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    mStarted = posix_spawn(&mPid, argv[0], &actions, nullptr, argv.data(), envp.data()) == 0;
    posix_spawn_file_actions_destroy(&actions);
    if (!mStarted)
    {
        mPid = -1;
    }
}

TestProcess::~TestProcess()
{
    Stop();
    const std::string report = SanitizerReport(Log());
    if (!report.empty() && !mReportExpected)
    {
        ADD_FAILURE() << mProgram << ":\n" << report;
    }
}

std::optional<int> TestProcess::Reap(bool block_I)
{
    if (mExitCode || mPid <= 0)
    {
        return mExitCode;
    }
    int status = 0;
    pid_t result;
    do
    {
        result = waitpid(mPid, &status, block_I ? 0 : WNOHANG);
    } while (result < 0 && errno == EINTR);
    if (result == mPid)
    {
        mExitCode = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }
    else if (result < 0)
    {
        mExitCode = -1; // not our child any more: nothing is left to stop
    }
    return mExitCode;
}

bool TestProcess::IsRunning()
{
    return mPid > 0 && !Reap(false);
}

std::optional<int> TestProcess::WaitForExit(std::chrono::milliseconds timeout_I)
{
    WaitUntil(timeout_I, [this] { return !IsRunning(); });
    return mPid > 0 ? mExitCode : std::nullopt;
}

int TestProcess::Stop(std::chrono::milliseconds grace_I)
{
    if (IsRunning())
    {
        kill(mPid, SIGCONT); // a stopped process cannot act on SIGTERM
        kill(mPid, SIGTERM);
        if (!WaitForExit(grace_I))
        {
            kill(mPid, SIGKILL);
            Reap(true);
        }
    }
    return mExitCode.value_or(-1);
}

bool TestProcess::Signal(int signal_I)
{
    return IsRunning() && kill(mPid, signal_I) == 0;
}

std::string TestProcess::Log() const
{
    std::ifstream file(mLogPath, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

bool TestProcess::WaitForLog(const std::string& text, std::chrono::milliseconds timeout_I) const
{
    return WaitUntil(timeout_I, [&] { return Log().find(text) != std::string::npos; });
}

bool TestProcess::HasLine() const
{
    return Log().find('\n', mReadOffset) != std::string::npos;
}

std::string TestProcess::ReadLine(std::chrono::milliseconds timeout_I)
{
    std::string line;
    // One more look once the process has ended: what it wrote last is in the file by then.
    bool ended = false;
    WaitUntil(timeout_I,
              [&]
              {
                  const bool last = ended;
                  ended = !IsRunning();
                  const std::string log = Log();
                  const size_t end = log.find('\n', mReadOffset);
                  if (end != std::string::npos)
                  {
                      line = log.substr(mReadOffset, end - mReadOffset);
                      mReadOffset = end + 1;
                      return true;
                  }
                  return last;
              });
    return line;
}

bool PortServed(const std::string& portName_I)
{
    CFStringRef name =
        CFStringCreateWithCString(nullptr, portName_I.c_str(), kCFStringEncodingUTF8);
    if (name == nullptr)
    {
        return false;
    }
    CFMessagePortRef port = CFMessagePortCreateRemote(nullptr, name);
    CFRelease(name);
    if (port == nullptr)
    {
        return false;
    }
    // Released, never invalidated: a remote port is shared by everything in this process
    // that reaches the same name, the test's own clients among them.
    CFRelease(port);
    return true;
}

bool RunsAs(pid_t pid_I, const std::string& name_I)
{
    for (int i = 0; i < 200; ++i)
    {
        std::string comm;
        std::getline(std::ifstream("/proc/" + std::to_string(pid_I) + "/comm"), comm);
        if (comm == name_I.substr(0, 15))
        {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}
