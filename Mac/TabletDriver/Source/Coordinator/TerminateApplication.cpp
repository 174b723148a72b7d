#include "Mac/TabletDriver/Source/Coordinator/TerminateApplication.h"

#include <AppKit/AppKit.h>

void TerminateApplication()
{
    NSApplication::sharedApplication()->terminate(nil);
}
