#include "Tests/Support/SimulatedDriverProcess.h"

#include "Tools/SimulatedDriver/SimDriverConfigReader.h"

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
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

    mLogPath = stem + ".log";
    mProcess = CChildProcess::Spawn({KEL_SIMDRIVER_PROGRAM, "--trace", mConfigPath}, {}, mLogPath);
    if (!mProcess)
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
    std::ifstream file(mLogPath, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}
