#include "Tests/Support/SimulatedDriverProcess.h"

#include "Tests/Support/SanitizerReport.h"

#include "Tools/SimulatedDriver/SimDriverConfigReader.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace
{
constexpr const char* kPortDirectoryVariable = "KELTO_PORT_DIR";
constexpr std::chrono::milliseconds kPollInterval{5};

std::string ReadFile(const std::string& path_I)
{
    std::ifstream file(path_I, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

void WriteFile(const std::string& path_I, const std::string& text_I)
{
    // Written aside and renamed, so that a driver reading it again never sees half a file.
    const std::string temporary = path_I + ".new";
    {
        std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
        file << text_I;
        if (!file)
        {
            throw std::runtime_error("cannot write " + temporary);
        }
    }
    std::filesystem::rename(temporary, path_I);
}

size_t Count(const std::string& text_I, const std::string& what_I)
{
    size_t count = 0;
    for (size_t at = text_I.find(what_I); at != std::string::npos;
         at = text_I.find(what_I, at + what_I.size()))
    {
        ++count;
    }
    return count;
}

int ExitCode(int status_I)
{
    return WIFSIGNALED(status_I) ? 128 + WTERMSIG(status_I) : WEXITSTATUS(status_I);
}

// Whether a process of this user serves the port of that name in this process's port
// directory.
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
} // namespace

ScopedPortDirectory::ScopedPortDirectory()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "kelto-ports-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
    {
        throw std::runtime_error("cannot make a port directory from " + pattern + ": " +
                                 std::strerror(errno));
    }
    mPath = pattern;
    if (const char* previous = std::getenv(kPortDirectoryVariable))
    {
        mPreviousValue = previous;
    }
    setenv(kPortDirectoryVariable, mPath.c_str(), 1);
}

ScopedPortDirectory::~ScopedPortDirectory()
{
    if (mPreviousValue)
    {
        setenv(kPortDirectoryVariable, mPreviousValue->c_str(), 1);
    }
    else
    {
        unsetenv(kPortDirectoryVariable);
    }
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
}

std::string SimulatedDriverProcess::ProgramPath()
{
    return KEL_SIMDRIVER_PROGRAM;
}

SimulatedDriverProcess::SimulatedDriverProcess(const std::string& portDirectory_I,
                                               const std::string& configJson_I,
                                               SSimulatedDriverOptions options_I)
    : mOptions(std::move(options_I))
{
    const char* current = std::getenv(kPortDirectoryVariable);
    if (current == nullptr || portDirectory_I != current)
    {
        throw std::runtime_error("SimulatedDriverProcess: " + portDirectory_I +
                                 " is not this process's KELTO_PORT_DIR (use a "
                                 "ScopedPortDirectory)");
    }
    static std::atomic<unsigned> sCount{0};
    const std::string stem = portDirectory_I + "/simdriver-" + std::to_string(sCount++);
    mConfigPath = stem + ".json";
    mLogPath = stem + ".log";
    WriteFile(mConfigPath, configJson_I);

    SSimDriverConfig config;
    std::string error;
    if (ReadSimDriverConfigText(configJson_I, config, error))
    {
        mPortName = config.portName;
    }

    std::vector<std::string> arguments = {ProgramPath(), "--trace"};
    arguments.insert(arguments.end(), mOptions.extraArguments.begin(),
                     mOptions.extraArguments.end());
    arguments.push_back(mConfigPath);
    std::vector<char*> argv;
    for (std::string& argument : arguments)
    {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, mLogPath.c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0600);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    int result = posix_spawn(&mPid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (result != 0)
    {
        mPid = -1;
        throw std::runtime_error("cannot start " + ProgramPath() + ": " + std::strerror(result));
    }
}

SimulatedDriverProcess::~SimulatedDriverProcess()
{
    Stop();
    // A sanitizer's report fails the test that started the driver, whether or not the test
    // looked at how the driver ended.
    const std::string report = SanitizerReport(Log());
    if (!report.empty())
    {
        ADD_FAILURE() << "simdriver " << mPortName << ":\n" << report;
    }
}

std::optional<int> SimulatedDriverProcess::Reap(bool block_I)
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
        mExitCode = ExitCode(status);
    }
    else if (result < 0)
    {
        // Not our child any more (reaped elsewhere): nothing is left to stop.
        mExitCode = -1;
    }
    return mExitCode;
}

bool SimulatedDriverProcess::IsRunning()
{
    return !Reap(false);
}

bool SimulatedDriverProcess::WaitUntilServed()
{
    const auto deadline = std::chrono::steady_clock::now() + mOptions.startTimeout;
    while (std::chrono::steady_clock::now() < deadline)
    {
        if (!IsRunning() || mPortName.empty())
        {
            return false;
        }
        if (PortServed(mPortName))
        {
            return true;
        }
        std::this_thread::sleep_for(kPollInterval);
    }
    return false;
}

std::optional<int> SimulatedDriverProcess::WaitForExit(std::chrono::milliseconds timeout_I)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout_I;
    while (IsRunning())
    {
        if (std::chrono::steady_clock::now() >= deadline)
        {
            return std::nullopt;
        }
        std::this_thread::sleep_for(kPollInterval);
    }
    return mExitCode;
}

int SimulatedDriverProcess::Stop()
{
    if (IsRunning())
    {
        kill(mPid, SIGCONT); // a stopped process cannot act on SIGTERM
        kill(mPid, SIGTERM);
        if (!WaitForExit(mOptions.stopTimeout))
        {
            kill(mPid, SIGKILL);
            Reap(true);
        }
    }
    return mExitCode.value_or(-1);
}

bool SimulatedDriverProcess::Signal(int signal_I)
{
    return IsRunning() && kill(mPid, signal_I) == 0;
}

bool SimulatedDriverProcess::Reload(const std::string& configJson_I)
{
    const std::string marker = "configuration read again";
    const std::string refused = "reload refused";
    const std::string log = Log();
    const size_t before = Count(log, marker);
    const size_t refusedBefore = Count(log, refused);
    WriteFile(mConfigPath, configJson_I);
    if (!Signal(SIGUSR1))
    {
        return false;
    }
    const auto deadline = std::chrono::steady_clock::now() + mOptions.startTimeout;
    while (std::chrono::steady_clock::now() < deadline && IsRunning())
    {
        const std::string now = Log();
        if (Count(now, marker) > before)
        {
            return true;
        }
        if (Count(now, refused) > refusedBefore)
        {
            return false;
        }
        std::this_thread::sleep_for(kPollInterval);
    }
    return false;
}

std::string SimulatedDriverProcess::Log() const
{
    return ReadFile(mLogPath);
}
