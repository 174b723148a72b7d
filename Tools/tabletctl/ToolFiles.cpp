#include "Tools/tabletctl/ToolFiles.h"

#include "Tools/tabletctl/CCommandError.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

namespace ToolFiles
{
namespace
{
std::string Reason()
{
    return errno != 0 ? std::strerror(errno) : "input/output error";
}
} // namespace

std::vector<uint8_t> ReadBytes(const std::string& path_I)
{
    if (path_I == "-")
    {
        return std::vector<uint8_t>(std::istreambuf_iterator<char>(std::cin),
                                    std::istreambuf_iterator<char>());
    }
    errno = 0;
    std::ifstream in(path_I, std::ios::binary);
    if (!in)
    {
        throw CCommandError("cannot read " + path_I + ": " + Reason());
    }
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
    if (in.bad())
    {
        throw CCommandError("cannot read " + path_I + ": " + Reason());
    }
    return bytes;
}

void WriteBytes(const std::string& path_I, const std::vector<uint8_t>& bytes_I)
{
    if (path_I == "-")
    {
        std::fwrite(bytes_I.data(), 1, bytes_I.size(), stdout);
        if (std::fflush(stdout) != 0)
        {
            throw CCommandError("cannot write to standard output: " + Reason());
        }
        return;
    }
    errno = 0;
    std::ofstream out(path_I, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes_I.data()),
              static_cast<std::streamsize>(bytes_I.size()));
    out.close();
    if (!out)
    {
        throw CCommandError("cannot write " + path_I + ": " + Reason());
    }
}
} // namespace ToolFiles
