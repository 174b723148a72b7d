#include "Mac/TabletDriver/Source/Coordinator/CMacCoordinatorMain.h"

#include "Common/Coordinator/CRouteTable.h"
#include "Common/KelAssert.h"
#include "Mac/TabletDriver/Source/Coordinator/CMacDriverInterface.h"
#include "Mac/TabletDriver/Source/Coordinator/CMacInputs.h"
#include "Mac/TabletDriver/Source/Coordinator/ConsoleUserTransition.h"

#include <CoreFoundation/CoreFoundation.h>

namespace
{
KELSTATUS InitDriver(CMacDriverInterface& driver_I, std::uint32_t signature_I,
                     const char* portName_I)
{
    CFStringRef portName = CFStringCreateWithCString(nullptr, portName_I, kCFStringEncodingUTF8);
    // Not connected: the driver is reached on its first packet, whenever it starts.
    const KELSTATUS status = driver_I.Init(signature_I, portName, false);
    if (portName != nullptr)
    {
        CFRelease(portName);
    }
    return status;
}
} // namespace

CMacCoordinatorMain::~CMacCoordinatorMain() = default;

CMacInputs* CMacCoordinatorMain::NewInputs()
{
    return new CMacInputs();
}

std::shared_ptr<CMacDriverInterface> CMacCoordinatorMain::NewDriverInterface()
{
    return std::make_shared<CMacDriverInterface>();
}

KELSTATUS CMacCoordinatorMain::Init()
{
    // A second Init replaces the inputs; the old ones close their port first.
    delete mInputs;
    mInputs = NewInputs();

    KELSTATUS status = CMain::Init();
    if (status != KELSTATUS_SUCCESS)
    {
        return status;
    }

    std::shared_ptr<CMacDriverInterface> driver0 = NewDriverInterface();
    status = InitDriver(*driver0, kDriver0Signature, kDriver0PortName);
    KelAssertLine(138, status == KELSTATUS_SUCCESS);
    mpRouteTable->SetDriver(0, driver0);

    std::shared_ptr<CMacDriverInterface> driver1 = NewDriverInterface();
    status = InitDriver(*driver1, kDriver1Signature, kDriver1PortName);
    KelAssertLine(144, status == KELSTATUS_SUCCESS);
    mpRouteTable->SetDriver(1, driver1);

    return status;
}

bool InternalMain()
{
    TransitionToConsoleUser(SystemUserTransitionOps());

    static CMain* sMainInstance = nullptr;
    if (sMainInstance == nullptr)
    {
        sMainInstance = new CMacCoordinatorMain();
    }
    const KELSTATUS status = sMainInstance->Init();
    if (status != KELSTATUS_SUCCESS)
    {
        KelAssertLine(91, status == KELSTATUS_SUCCESS);
        delete sMainInstance;
        sMainInstance = nullptr;
        return false;
    }
    return true;
}
