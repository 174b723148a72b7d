// CoreFoundation, the error numbers and the Apple Event Manager, as macOS code includes them.
#pragma once

#include <AE/AE.h>
#include <CarbonCore/MacErrors.h>
#include <CoreFoundation/CoreFoundation.h>
