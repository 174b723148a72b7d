#include "Mac/TabletDriver/Source/Coordinator/OtherCoordinatorProcess.h"

#include "Mac/Common/MacStringUtilities.h"
#include "Mac/Common/ProcessUtils.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <optional>
#include <unistd.h>

namespace
{
constexpr const char kPortDirVariable[] = "KELTO_PORT_DIR";
constexpr const char kRuntimeDirVariable[] = "XDG_RUNTIME_DIR";

std::string Variable(const char* name_I)
{
    const char* value = std::getenv(name_I);
    return value != nullptr ? value : "";
}

// The port directory of process `pid_I`, from its environment at start; nothing when that
// cannot be read.
std::optional<std::string> PortDirectoryOf(pid_t pid_I)
{
    std::ifstream file("/proc/" + std::to_string(pid_I) + "/environ", std::ios::binary);
    if (!file)
    {
        return std::nullopt;
    }
    const std::string environment((std::istreambuf_iterator<char>(file)),
                                  std::istreambuf_iterator<char>());
    if (!file.eof() && file.fail())
    {
        return std::nullopt;
    }
    std::string keltoPortDir;
    std::string runtimeDir;
    size_t start = 0;
    while (start < environment.size())
    {
        size_t end = environment.find('\0', start);
        if (end == std::string::npos)
        {
            end = environment.size();
        }
        const std::string entry = environment.substr(start, end - start);
        const size_t equals = entry.find('=');
        if (equals != std::string::npos)
        {
            const std::string name = entry.substr(0, equals);
            if (name == kPortDirVariable)
            {
                keltoPortDir = entry.substr(equals + 1);
            }
            else if (name == kRuntimeDirVariable)
            {
                runtimeDir = entry.substr(equals + 1);
            }
        }
        start = end + 1;
    }
    return OtherCoordinatorProcess::PortDirectoryFor(keltoPortDir, runtimeDir);
}
} // namespace

std::string OtherCoordinatorProcess::PortDirectoryFor(const std::string& keltoPortDir_I,
                                                      const std::string& runtimeDir_I)
{
    if (!keltoPortDir_I.empty())
    {
        return keltoPortDir_I;
    }
    if (!runtimeDir_I.empty())
    {
        return runtimeDir_I + "/com.kelto.ports";
    }
    // Every process listed is of our user, so our user ID stands for theirs.
    return "/tmp/com.kelto.ports." + std::to_string(geteuid());
}

ProcessSerialNumber OtherCoordinatorProcess::Find(const std::string& name_I)
{
#if defined(__APPLE__)
    return ProcessUtils::GetPSNForProcessWithName(name_I, false);
#else
    const std::string ours =
        PortDirectoryFor(Variable(kPortDirVariable), Variable(kRuntimeDirVariable));
    ProcessSerialNumber current;
    GetCurrentProcess(&current);
    ProcessSerialNumber psn = {0, kNoProcess};
    while (GetNextProcess(&psn) == noErr)
    {
        Boolean isCurrent = false;
        SameProcess(&psn, &current, &isCurrent);
        if (isCurrent)
        {
            continue;
        }
        CFStringRef processName = nullptr;
        if (CopyProcessName(&psn, &processName) != noErr || processName == nullptr)
        {
            continue; // ended while we looked
        }
        const bool sameName = MacStringUtilities::GetStringForCFString(processName) == name_I;
        CFRelease(processName);
        pid_t pid = 0;
        if (!sameName || GetProcessPID(&psn, &pid) != noErr)
        {
            continue;
        }
        if (PortDirectoryOf(pid) == ours)
        {
            return psn;
        }
    }
    return {0, kNoProcess};
#endif
}
