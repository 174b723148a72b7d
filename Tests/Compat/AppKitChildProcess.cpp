#include "AppKitChildProcess.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <algorithm>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <poll.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace AppKitChild
{
namespace
{
constexpr const char* kScenarioVariable = "KEL_APPKIT_SCENARIO";
constexpr const char* kLogVariable = "KEL_APPKIT_LOG_FD";

std::map<std::string, Scenario>& Scenarios()
{
    static std::map<std::string, Scenario> scenarios;
    return scenarios;
}

// Runs the scenario the environment names, after every registration and before any test.
class CScenarioEnvironment : public testing::Environment
{
public:
    void SetUp() override
    {
        const char* name = std::getenv(kScenarioVariable);
        if (!name)
        {
            return;
        }
        auto found = Scenarios().find(name);
        int status = found == Scenarios().end() ? 127 : found->second();
        std::fflush(nullptr);
        _exit(status);
    }
};

[[maybe_unused]] const auto* sEnvironment =
    testing::AddGlobalTestEnvironment(new CScenarioEnvironment);

using Clock = std::chrono::steady_clock;

int RemainingMs(Clock::time_point end)
{
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
    return left.count() > 0 ? int(left.count()) : 0;
}
} // namespace

SRegister::SRegister(const char* name, Scenario scenario)
{
    Scenarios()[name] = scenario;
}

void Log(const std::string& line)
{
    static int fd = []
    {
        const char* text = std::getenv(kLogVariable);
        return text ? std::atoi(text) : 2;
    }();
    std::string out = line + "\n";
    ssize_t written = write(fd, out.data(), out.size());
    (void)written;
}

CChild::CChild(const std::string& scenario, const std::string& executable)
{
    Start({executable}, scenario);
}

CChild::CChild(const SProgram& program)
{
    Start(program.argv, "");
}

void CChild::Start(const std::vector<std::string>& argv, const std::string& scenario)
{
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0)
    {
        ADD_FAILURE() << "pipe: " << std::strerror(errno);
        return;
    }
    std::fflush(nullptr);
    mPid = fork();
    if (mPid == 0)
    {
        if (scenario.empty())
        {
            dup2(fds[1], STDOUT_FILENO);
        }
        else
        {
            dup2(fds[1], 100); // a fixed descriptor without close-on-exec
            setenv(kScenarioVariable, scenario.c_str(), 1);
            setenv(kLogVariable, "100", 1);
        }
        std::vector<char*> arguments;
        for (const std::string& argument : argv)
        {
            arguments.push_back(const_cast<char*>(argument.c_str()));
        }
        arguments.push_back(nullptr);
        execv(arguments[0], arguments.data());
        _exit(126);
    }
    close(fds[1]);
    mLogFd = fds[0];
    if (mPid < 0)
    {
        ADD_FAILURE() << "fork: " << std::strerror(errno);
    }
}

void CChild::Kill()
{
    if (mPid > 0)
    {
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
        mPid = -1;
    }
}

CChild::~CChild()
{
    Kill();
    if (mLogFd >= 0)
    {
        close(mLogFd);
    }
}

bool CChild::ReadLine(std::string& line, double seconds)
{
    auto end = Clock::now() + std::chrono::milliseconds(long(seconds * 1000));
    for (;;)
    {
        size_t newline = mBuffer.find('\n');
        if (newline != std::string::npos)
        {
            line = mBuffer.substr(0, newline);
            mBuffer.erase(0, newline + 1);
            return true;
        }
        pollfd p = {mLogFd, POLLIN, 0};
        const int ready = poll(&p, 1, std::min(RemainingMs(end), 10));
        if (ready == 0 || (ready < 0 && errno == EINTR))
        {
            if (RemainingMs(end) == 0)
            {
                return false;
            }
            CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true);
            continue;
        }
        if (ready < 0)
        {
            return false;
        }
        char buffer[256];
        ssize_t got = read(mLogFd, buffer, sizeof buffer);
        if (got <= 0)
        {
            return false;
        }
        mBuffer.append(buffer, size_t(got));
    }
}

bool CChild::WaitFor(const std::string& expected, double seconds)
{
    auto end = Clock::now() + std::chrono::milliseconds(long(seconds * 1000));
    std::string line;
    while (ReadLine(line, std::chrono::duration<double>(end - Clock::now()).count()))
    {
        if (line == expected)
        {
            return true;
        }
    }
    return false;
}

int CChild::Wait(double seconds)
{
    if (mPid <= 0)
    {
        return -1;
    }
    auto end = Clock::now() + std::chrono::milliseconds(long(seconds * 1000));
    for (;;)
    {
        int status = 0;
        pid_t done = waitpid(mPid, &status, WNOHANG);
        if (done == mPid)
        {
            mPid = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        if (Clock::now() >= end)
        {
            Kill();
            return -1;
        }
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}
} // namespace AppKitChild
