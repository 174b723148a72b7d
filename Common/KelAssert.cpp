#include "Common/KelAssert.h"

#include <cstdio>
#include <cstring>

namespace
{
// Length of the path without the extension of its last component.
int PathLengthWithoutExtension(const char* path)
{
    const char* slash = std::strrchr(path, '/');
    const char* dot = std::strrchr(path, '.');
    if (dot != nullptr && (slash == nullptr || dot > slash))
    {
        return static_cast<int>(dot - path);
    }
    return static_cast<int>(std::strlen(path));
}
} // namespace

void KelAssertReport(const char* sourcePath, unsigned line, const char* expression)
{
    if (sourcePath == nullptr)
    {
        sourcePath = "";
    }
    if (expression == nullptr)
    {
        expression = "";
    }
    char buffer[256];
    std::snprintf(buffer, sizeof(buffer), "%.*s:%u: failed assertion: %s\n",
                  PathLengthWithoutExtension(sourcePath), sourcePath, line, expression);
    std::printf("%s", buffer);
}
