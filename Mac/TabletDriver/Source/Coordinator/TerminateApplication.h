// Asks the application to end: terminate: with a nil sender to the shared application.
//
// Safe to call from a signal handler. The termination itself runs later on the main run
// loop, which then stops, and the process ends from main.
#pragma once

void TerminateApplication();
