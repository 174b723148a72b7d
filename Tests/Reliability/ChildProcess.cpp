#include "Tests/Reliability/ChildProcess.h"

#include <chrono>
#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace reliability
{
namespace
{
using Clock = std::chrono::steady_clock;

Clock::time_point After(double seconds_I)
{
    return Clock::now() + std::chrono::milliseconds(static_cast<long>(seconds_I * 1000));
}
} // namespace

CChildProcess::CChildProcess(const std::string& program_I,
                             const std::vector<std::string>& arguments_I, bool withErrors_I)
{
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0)
    {
        return;
    }
    std::string program = program_I;
    std::vector<std::string> arguments = arguments_I;
    std::vector<char*> argv{program.data()};
    for (std::string& argument : arguments)
    {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    if (withErrors_I)
    {
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDERR_FILENO);
    }
    if (posix_spawn(&mPid, program.c_str(), &actions, nullptr, argv.data(), environ) != 0)
    {
        mPid = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    mOut = fds[0];
}

CChildProcess::~CChildProcess()
{
    if (mPid > 0)
    {
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
    }
    if (mOut >= 0)
    {
        close(mOut);
    }
}

bool CChildProcess::Fill(int milliseconds_I)
{
    pollfd fd = {mOut, POLLIN, 0};
    if (mOut < 0 || poll(&fd, 1, milliseconds_I) <= 0)
    {
        return false;
    }
    char buffer[4096];
    const ssize_t count = read(mOut, buffer, sizeof buffer);
    if (count <= 0)
    {
        close(mOut);
        mOut = -1;
        return false;
    }
    mBuffered.append(buffer, static_cast<size_t>(count));
    return true;
}

bool CChildProcess::HasLine()
{
    while (Fill(0))
    {
    }
    return mBuffered.find('\n') != std::string::npos;
}

std::string CChildProcess::ReadLine(double seconds_I)
{
    const auto deadline = After(seconds_I);
    for (;;)
    {
        const size_t end = mBuffered.find('\n');
        if (end != std::string::npos)
        {
            std::string line = mBuffered.substr(0, end);
            mBuffered.erase(0, end + 1);
            return line;
        }
        if (mOut < 0 || Clock::now() >= deadline)
        {
            return "";
        }
        Fill(20);
    }
}

std::string CChildProcess::ReadAll(double seconds_I)
{
    const auto deadline = After(seconds_I);
    while (mOut >= 0 && Clock::now() < deadline)
    {
        Fill(20);
    }
    std::string all;
    all.swap(mBuffered);
    return all;
}

int CChildProcess::WaitForExit(double seconds_I)
{
    const auto deadline = After(seconds_I);
    while (mPid > 0)
    {
        int status = 0;
        if (waitpid(mPid, &status, WNOHANG) == mPid)
        {
            mPid = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        if (Clock::now() >= deadline)
        {
            return -1;
        }
        Fill(10); // keeps the pipe from filling up while we wait
    }
    return -1;
}

std::vector<std::string> LoadArguments(unsigned int client_I, unsigned int requests_I,
                                       const SExpectations& expected_I)
{
    std::vector<std::string> arguments = {
        "load", std::to_string(client_I), std::to_string(requests_I),
        std::to_string(expected_I.mTabletCount), std::to_string(expected_I.mProtocolVersion)};
    arguments.insert(arguments.end(), expected_I.mDriverOfTablet.begin(),
                     expected_I.mDriverOfTablet.end());
    return arguments;
}

std::string LoadAllRight(unsigned int client_I, unsigned int requests_I)
{
    return "client " + std::to_string(client_I) + ": " + std::to_string(requests_I) +
           " requests, " + std::to_string(requests_I) + " right";
}
} // namespace reliability
