#include "Tests/Support/CoordinatorProcess.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

namespace
{
std::chrono::milliseconds Milliseconds(double seconds)
{
    return std::chrono::milliseconds(static_cast<long>(seconds * 1000));
}
} // namespace

std::string CoordinatorProcess::ProgramPath()
{
    return KEL_COORDINATOR_PROGRAM;
}

std::string CoordinatorProcess::BuiltInfoPlist()
{
    const std::filesystem::path program = ProgramPath();
    std::ifstream in(program.parent_path().parent_path() / "Info.plist", std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

CoordinatorProcess::CoordinatorProcess(std::string logPath, std::string programPath)
    : mLogPath(std::move(logPath)), mProgramPath(std::move(programPath))
{
}

bool CoordinatorProcess::Start(const std::vector<std::string>& environment,
                               const std::vector<std::string>& arguments)
{
    // Nobody at the console unless the test says otherwise, so that the start-up does not
    // depend on this machine's login.
    std::vector<std::string> variables = environment;
    if (std::none_of(variables.begin(), variables.end(),
                     [](const std::string& variable)
                     { return variable.rfind("KELTO_CONSOLE_USER=", 0) == 0; }))
    {
        variables.push_back("KELTO_CONSOLE_USER=none");
    }
    mProcess.reset();
    std::vector<std::string> command{mProgramPath};
    command.insert(command.end(), arguments.begin(), arguments.end());
    mProcess.emplace(command, mLogPath, variables);
    return mProcess->Started();
}

bool CoordinatorProcess::WaitUntilServing(double seconds)
{
    const auto deadline = std::chrono::steady_clock::now() + Milliseconds(seconds);
    while (std::chrono::steady_clock::now() < deadline && Running())
    {
        if (PortServed("com.kelto.CoordinatorMessageServer"))
        {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

std::string CoordinatorProcess::Log() const
{
    return mProcess ? mProcess->Log() : std::string();
}

bool CoordinatorProcess::WaitForLog(const std::string& text, double seconds) const
{
    return mProcess && mProcess->WaitForLog(text, Milliseconds(seconds));
}

int CoordinatorProcess::WaitForExit(double seconds)
{
    return mProcess ? mProcess->WaitForExit(Milliseconds(seconds)).value_or(-1) : -1;
}

void CoordinatorProcess::Signal(int signal)
{
    if (mProcess)
    {
        mProcess->Signal(signal);
    }
}

int CoordinatorProcess::Stop()
{
    return mProcess ? mProcess->Stop() : -1;
}
