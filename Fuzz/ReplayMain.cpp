// Replays a fuzz target's corpus without libFuzzer: every file named on the command line, or
// every regular file of every directory named, is passed once to LLVMFuzzerTestOneInput.
// A crash or a sanitizer report fails the test that runs it; an empty corpus fails too, so a
// missing directory cannot pass unnoticed.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace
{
bool RunFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
    {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        return false;
    }
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return true;
}
} // namespace

int main(int argc, char** argv)
{
    size_t count = 0;
    for (int i = 1; i < argc; ++i)
    {
        std::filesystem::path arg(argv[i]);
        std::error_code error;
        if (std::filesystem::is_directory(arg, error))
        {
            for (const auto& entry : std::filesystem::directory_iterator(arg))
            {
                if (entry.is_regular_file())
                {
                    if (!RunFile(entry.path()))
                    {
                        return 1;
                    }
                    ++count;
                }
            }
        }
        else
        {
            if (!RunFile(arg))
            {
                return 1;
            }
            ++count;
        }
    }
    std::printf("replayed %zu inputs\n", count);
    return count > 0 ? 0 : 1;
}
