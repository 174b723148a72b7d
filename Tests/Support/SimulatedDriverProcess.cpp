#include "Tests/Support/SimulatedDriverProcess.h"

#include "Tools/SimulatedDriver/SimDriverConfigReader.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <unistd.h>

namespace
{
constexpr const char* kPortDirectoryVariable = "KELTO_PORT_DIR";
constexpr std::chrono::milliseconds kPollInterval{5};
constexpr std::chrono::seconds kStartTimeout{10};

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

SimulatedDriverProcess::SimulatedDriverProcess(const std::string& portDirectory_I,
                                               const std::string& configJson_I)
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

    mProcess.emplace(std::vector<std::string>{KEL_SIMDRIVER_PROGRAM, "--trace", mConfigPath},
                     stem + ".log");
    if (!mProcess->Started())
    {
        throw std::runtime_error("cannot start " KEL_SIMDRIVER_PROGRAM);
    }
}

SimulatedDriverProcess::~SimulatedDriverProcess() = default;

bool SimulatedDriverProcess::WaitUntilServed()
{
    const auto deadline = std::chrono::steady_clock::now() + kStartTimeout;
    while (std::chrono::steady_clock::now() < deadline)
    {
        if (!mProcess->IsRunning() || mPortName.empty())
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

std::string SimulatedDriverProcess::Log() const
{
    return mProcess->Log();
}
