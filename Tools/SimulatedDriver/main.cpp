#include "Tools/SimulatedDriver/SimDriverProgram.h"

int main(int argc, char** argv)
{
    return SimDriverMain(argc, argv);
}
