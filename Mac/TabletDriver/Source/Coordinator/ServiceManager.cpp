#include "Mac/TabletDriver/Source/Coordinator/ServiceManager.h"

#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

#if defined(__linux__)
#include <systemd/sd-daemon.h>
#endif

namespace ServiceManager
{
bool StandardErrorIsJournal()
{
    const char* stream = std::getenv("JOURNAL_STREAM");
    struct stat status = {};
    unsigned long long device = 0;
    unsigned long long inode = 0;
    if (stream == nullptr || std::sscanf(stream, "%llu:%llu", &device, &inode) != 2 ||
        fstat(STDERR_FILENO, &status) != 0)
    {
        return false;
    }
    return status.st_dev == device && status.st_ino == inode;
}

void NotifyReady()
{
#if defined(__linux__)
    sd_notify(0, "READY=1");
#endif
}

void NotifyStopping()
{
#if defined(__linux__)
    sd_notify(0, "STOPPING=1");
#endif
}
} // namespace ServiceManager
