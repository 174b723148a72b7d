// The Apple Event Manager subset: descriptors, handlers, standard codes.
#pragma once

#include <AE/AEDataModel.h>
#include <AE/AERegistry.h>
#include <AE/AppleEvents.h>
