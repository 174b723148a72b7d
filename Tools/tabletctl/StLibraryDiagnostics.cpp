#include "Tools/tabletctl/StLibraryDiagnostics.h"

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

StLibraryDiagnostics::StLibraryDiagnostics(bool verbose_I)
{
    std::fflush(stdout);
    std::fflush(stderr);
    const int target = verbose_I ? dup(STDERR_FILENO) : open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (target < 0)
    {
        return;
    }
    mSavedOut = dup(STDOUT_FILENO);
    dup2(target, STDOUT_FILENO);
    if (!verbose_I)
    {
        mSavedErr = dup(STDERR_FILENO);
        dup2(target, STDERR_FILENO);
    }
    close(target);
}

StLibraryDiagnostics::~StLibraryDiagnostics()
{
    std::fflush(stdout);
    std::fflush(stderr);
    const int saved[2][2] = {{mSavedOut, STDOUT_FILENO}, {mSavedErr, STDERR_FILENO}};
    for (const auto& [copy, fd] : saved)
    {
        if (copy >= 0)
        {
            dup2(copy, fd);
            close(copy);
        }
    }
}
