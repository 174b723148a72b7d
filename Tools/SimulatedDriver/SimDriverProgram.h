// The simulated driver program: command line, configuration, signals and the run loop that
// serves the port. main() only calls SimDriverMain; the manual is SimDriverHelp.cpp.
#pragma once

int SimDriverMain(int argc, char** argv);
