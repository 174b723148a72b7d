#include "Bench/Support/CChildProcess.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace
{
// In the child, before anything else: die with the benchmark.
void DieWithParent(pid_t parent_I)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent_I)
    {
        _exit(127); // the parent ended before the signal was armed
    }
}

int ExitCode(int status_I)
{
    return WIFEXITED(status_I) ? WEXITSTATUS(status_I) : 128 + WTERMSIG(status_I);
}
} // namespace

std::unique_ptr<CChildProcess> CChildProcess::Fork(const std::function<int()>& body_I)
{
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid < 0)
    {
        return nullptr;
    }
    if (pid == 0)
    {
        DieWithParent(parent);
        _exit(body_I());
    }
    return std::unique_ptr<CChildProcess>(new CChildProcess(pid));
}

std::unique_ptr<CChildProcess> CChildProcess::Spawn(const std::vector<std::string>& arguments_I,
                                                    const std::vector<std::string>& environment_I,
                                                    const std::string& logPath_I)
{
    if (arguments_I.empty())
    {
        return nullptr;
    }
    // Everything the child needs is built before the fork: after it, only exec.
    std::vector<std::string> variables;
    for (char** entry = environ; *entry != nullptr; ++entry)
    {
        const std::string text = *entry;
        const std::string prefix = text.substr(0, text.find('=') + 1);
        bool replaced = false;
        for (const std::string& given : environment_I)
        {
            replaced = replaced || given.compare(0, prefix.size(), prefix) == 0;
        }
        if (!replaced)
        {
            variables.push_back(text);
        }
    }
    variables.insert(variables.end(), environment_I.begin(), environment_I.end());
    std::vector<char*> envp;
    for (std::string& variable : variables)
    {
        envp.push_back(variable.data());
    }
    envp.push_back(nullptr);
    std::vector<std::string> arguments = arguments_I;
    std::vector<char*> argv;
    for (std::string& argument : arguments)
    {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    const int log = logPath_I.empty()
                        ? open("/dev/null", O_WRONLY | O_CLOEXEC)
                        : open(logPath_I.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (log < 0)
    {
        return nullptr;
    }

    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0)
    {
        DieWithParent(parent);
        const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
        dup2(nothing, STDIN_FILENO); // the copy is kept across exec, the original is not
        dup2(log, STDOUT_FILENO);
        dup2(log, STDERR_FILENO);
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    close(log);
    if (pid < 0)
    {
        return nullptr;
    }
    return std::unique_ptr<CChildProcess>(new CChildProcess(pid));
}

CChildProcess::~CChildProcess()
{
    Stop();
}

std::optional<int> CChildProcess::Reap(bool block_I)
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
        mExitCode = -1; // not our child any more: nothing left to stop
    }
    return mExitCode;
}

bool CChildProcess::IsRunning()
{
    return !Reap(false);
}

std::optional<int> CChildProcess::WaitForExit(std::chrono::milliseconds timeout_I)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout_I;
    while (IsRunning() && std::chrono::steady_clock::now() < deadline)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return Reap(false);
}

int CChildProcess::Stop(std::chrono::milliseconds grace_I)
{
    if (IsRunning())
    {
        kill(mPid, SIGCONT); // a stopped process cannot act on SIGTERM
        kill(mPid, SIGTERM);
        if (!WaitForExit(grace_I))
        {
            kill(mPid, SIGKILL);
        }
    }
    return Reap(true).value_or(-1);
}
