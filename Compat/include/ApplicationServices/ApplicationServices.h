// CoreServices and the Process Manager, as macOS code includes them.
#pragma once

#include <CoreServices/CoreServices.h>
#include <HIServices/Processes.h>
