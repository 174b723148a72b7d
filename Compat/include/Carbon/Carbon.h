// ApplicationServices and the Apple Event sending interface, as macOS code includes them.
#pragma once

#include <ApplicationServices/ApplicationServices.h>
#include <HIToolbox/AEInteraction.h>
