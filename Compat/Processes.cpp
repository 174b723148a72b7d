// The Process Manager over /proc.
#include <HIServices/Processes.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace
{
constexpr UInt32 kPidHigh = 1;

// The whole file; what could be read when the process ends meanwhile (reads then fail).
std::string ReadFile(const std::string& path)
{
    std::string text;
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
    {
        return text;
    }
    char buffer[4096];
    ssize_t got;
    while ((got = read(fd, buffer, sizeof buffer)) > 0)
    {
        text.append(buffer, static_cast<size_t>(got));
    }
    close(fd);
    return text;
}

// True for a living process of the calling process's real user.
bool IsListed(pid_t pid)
{
    std::string status = ReadFile("/proc/" + std::to_string(pid) + "/status");
    size_t state = status.find("\nState:");
    size_t uid = status.find("\nUid:");
    if (state == std::string::npos || uid == std::string::npos)
    {
        return false;
    }
    size_t stateLetter = status.find_first_not_of(" \t", state + 7);
    if (stateLetter == std::string::npos || status[stateLetter] == 'Z' ||
        status[stateLetter] == 'X')
    {
        return false;
    }
    char* end = nullptr;
    unsigned long realUid = std::strtoul(status.c_str() + uid + 5, &end, 10);
    return end != status.c_str() + uid + 5 && realUid == getuid();
}

bool PidOf(const ProcessSerialNumber* psn, pid_t& pid)
{
    if (!psn)
    {
        return false;
    }
    if (psn->highLongOfPSN == 0 && psn->lowLongOfPSN == kCurrentProcess)
    {
        pid = getpid();
        return true;
    }
    if (psn->highLongOfPSN != kPidHigh || psn->lowLongOfPSN == 0)
    {
        return false;
    }
    pid = static_cast<pid_t>(psn->lowLongOfPSN);
    return true;
}

std::string ProgramName(pid_t pid)
{
    std::string dir = "/proc/" + std::to_string(pid);
    std::string comm = ReadFile(dir + "/comm");
    if (!comm.empty() && comm.back() == '\n')
    {
        comm.pop_back();
    }
    if (comm.size() == 15) // possibly cut: the first argument may have it whole
    {
        std::string cmdline = ReadFile(dir + "/cmdline");
        std::string first = cmdline.substr(0, cmdline.find('\0'));
        std::string base = first.substr(first.find_last_of('/') + 1);
        if (base.size() > comm.size() && base.compare(0, comm.size(), comm) == 0)
        {
            return base;
        }
    }
    return comm;
}
} // namespace

OSErr GetCurrentProcess(ProcessSerialNumber* PSN)
{
    if (!PSN)
    {
        return paramErr;
    }
    *PSN = {kPidHigh, static_cast<UInt32>(getpid())};
    return noErr;
}

OSErr GetNextProcess(ProcessSerialNumber* PSN)
{
    if (!PSN)
    {
        return paramErr;
    }
    pid_t after = 0;
    if (!(PSN->highLongOfPSN == 0 && PSN->lowLongOfPSN == kNoProcess) && !PidOf(PSN, after))
    {
        return paramErr;
    }
    pid_t next = 0;
    if (DIR* proc = opendir("/proc"))
    {
        while (dirent* entry = readdir(proc))
        {
            char* end = nullptr;
            long pid = std::strtol(entry->d_name, &end, 10);
            if (*end || pid <= after || (next != 0 && pid >= next))
            {
                continue;
            }
            if (IsListed(static_cast<pid_t>(pid)))
            {
                next = static_cast<pid_t>(pid);
            }
        }
        closedir(proc);
    }
    if (next == 0)
    {
        *PSN = {0, kNoProcess};
        return procNotFound;
    }
    *PSN = {kPidHigh, static_cast<UInt32>(next)};
    return noErr;
}

OSStatus GetProcessPID(const ProcessSerialNumber* psn, pid_t* pid)
{
    pid_t found = 0;
    if (!pid || !PidOf(psn, found))
    {
        return paramErr;
    }
    *pid = found;
    return noErr;
}

OSStatus CopyProcessName(const ProcessSerialNumber* psn, CFStringRef* name)
{
    pid_t pid = 0;
    if (!name || !PidOf(psn, pid))
    {
        return paramErr;
    }
    if (!IsListed(pid))
    {
        return procNotFound;
    }
    std::string program = ProgramName(pid);
    *name = CFStringCreateWithCString(nullptr, program.c_str(), kCFStringEncodingUTF8);
    if (!*name) // not UTF-8: keep the bytes as Latin-1 rather than lose the name
    {
        *name = CFStringCreateWithCString(nullptr, program.c_str(), kCFStringEncodingISOLatin1);
    }
    return noErr;
}

OSErr SameProcess(const ProcessSerialNumber* PSN1, const ProcessSerialNumber* PSN2, Boolean* result)
{
    pid_t first = 0, second = 0;
    if (!result || !PidOf(PSN1, first) || !PidOf(PSN2, second))
    {
        return paramErr;
    }
    *result = first == second;
    return noErr;
}

OSErr KillProcess(const ProcessSerialNumber* inProcess)
{
    pid_t pid = 0;
    if (!PidOf(inProcess, pid))
    {
        return paramErr;
    }
    if (kill(pid, SIGKILL) != 0)
    {
        return errno == ESRCH ? OSErr(procNotFound) : OSErr(paramErr);
    }
    return noErr;
}
