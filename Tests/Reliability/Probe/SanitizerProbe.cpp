// A program with a fault on request, for the test that checks that the sanitizers of the
// build see into the processes that tests start, and that their reports can be found.
//
//   leak       loses an allocation and exits 0
//   overflow   writes one element past a heap array
//   overflow-int  overflows a signed integer
//   clean      does nothing wrong and exits 0
#include <climits>
#include <cstdio>
#include <cstring>

namespace
{
// Out of the compiler's sight, so that nothing is folded or warned about at build time.
volatile int gIndex = 4;
volatile int gLarge = INT_MAX;
void* volatile gKeep = nullptr;
} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::fprintf(stderr, "usage: kel_sanitizer_probe leak|overflow|overflow-int|clean\n");
        return 2;
    }
    if (std::strcmp(argv[1], "leak") == 0)
    {
        gKeep = new int[16];
        gKeep = nullptr;
    }
    else if (std::strcmp(argv[1], "overflow") == 0)
    {
        int* values = new int[4];
        values[gIndex] = 1;
        delete[] values;
    }
    else if (std::strcmp(argv[1], "overflow-int") == 0)
    {
        const int large = gLarge;
        std::printf("%d\n", large + 1);
    }
    else if (std::strcmp(argv[1], "clean") != 0)
    {
        return 2;
    }
    std::printf("done\n");
    return 0;
}
