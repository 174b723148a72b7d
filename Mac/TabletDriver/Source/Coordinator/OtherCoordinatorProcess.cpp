#include "Mac/TabletDriver/Source/Coordinator/OtherCoordinatorProcess.h"

#include "Mac/Common/MacStringUtilities.h"
#include "Mac/Common/ProcessUtils.h"

#if !defined(__APPLE__)
#include "Compat/PortDirectory.h"
#endif

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <optional>
#include <unistd.h>

namespace
{
#if !defined(__APPLE__)
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
    PortDirectory::SPlaces places;
    const std::pair<const char*, std::string*> variables[] = {
        {"KELTO_PORT_DIR", &places.mPortDir},
        {"XDG_RUNTIME_DIR", &places.mRuntimeDir},
        {"TMPDIR", &places.mTmpDir},
        {"HOME", &places.mHome}};
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
        for (const auto& [name, value] : variables)
        {
            if (equals != std::string::npos && entry.compare(0, equals, name) == 0 &&
                equals == std::char_traits<char>::length(name))
            {
                *value = entry.substr(equals + 1);
            }
        }
        start = end + 1;
    }
    // Every process listed is of our user, so the rule's user ID is theirs too.
    return PortDirectory::PathFor(places);
}
#endif
} // namespace

ProcessSerialNumber OtherCoordinatorProcess::Find(const std::string& name_I)
{
#if defined(__APPLE__)
    return ProcessUtils::GetPSNForProcessWithName(name_I, false);
#else
    const std::string ours = PortDirectory::PathFor(PortDirectory::PlacesOfThisProcess());
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
