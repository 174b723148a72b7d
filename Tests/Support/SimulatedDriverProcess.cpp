#include "Tests/Support/SimulatedDriverProcess.h"

#include "Tools/SimulatedDriver/SimDriverConfigReader.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <unistd.h>

namespace
{
constexpr const char* kPortDirectoryVariable = "KELTO_PORT_DIR";
constexpr std::chrono::milliseconds kPollInterval{5};

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
    mProcess.emplace(arguments, stem + ".log");
    if (!mProcess->Started())
    {
        throw std::runtime_error("cannot start " + ProgramPath());
    }
}

SimulatedDriverProcess::~SimulatedDriverProcess() = default;

bool SimulatedDriverProcess::IsRunning()
{
    return mProcess->IsRunning();
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
    return mProcess->WaitForExit(timeout_I);
}

int SimulatedDriverProcess::Stop()
{
    return mProcess->Stop(mOptions.stopTimeout);
}

bool SimulatedDriverProcess::Signal(int signal_I)
{
    return mProcess->Signal(signal_I);
}

std::string SimulatedDriverProcess::Log() const
{
    return mProcess->Log();
}
