// The options every subcommand of tabletctl that talks to the coordinator shares.
#pragma once

#include "Client/CKeltoClient.h"

#include <string>

struct SToolOptions
{
    // Machine-readable output: one JSON document (or one per line for a stream).
    bool mJSON = false;
    // The coordinator's message port.
    std::string mPortName = CKeltoClient::kCoordinatorPortName;
    // Seconds each request may take, each way.
    double mTimeout = 10.0;
    // The settings library's own diagnostic lines are shown (on standard error).
    bool mVerbose = false;
};
