// Whole-file reads and writes for the subcommands; failures throw CCommandError naming the
// file and the system's reason (a directory is "Is a directory"). A file is replaced whole
// or not at all (AtomicFileWrite.h).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ToolFiles
{
// "-" stands for standard input.
std::vector<uint8_t> ReadBytes(const std::string& path_I);
// "-" stands for standard output.
void WriteBytes(const std::string& path_I, const std::vector<uint8_t>& bytes_I);
} // namespace ToolFiles
