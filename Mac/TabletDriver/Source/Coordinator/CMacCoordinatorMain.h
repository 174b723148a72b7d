// CMacCoordinatorMain: the coordinator's main object on this platform, and the start-up
// that makes it (InternalMain).
//
// Init creates the inputs (CMacInputs), lets CMain::Init create the route table and open
// the inputs with it, then registers the two tablet driver processes:
//
//   driver ID  signature  port name
//   0          'KlKT'     "com.kelto.KeltoTabletDriverMessageServer"
//   1          'KlPT'     "com.kelto.PenTabletDriverMessageServer"
//
// Neither is connected here: a driver is reached on its first packet, so the coordinator
// starts whether or not the driver processes run. The two are not treated alike, on
// purpose: a driver 0 that fails to initialise is only reported, while a driver 1 that
// fails makes the whole start-up fail. Both are registered in any case.
#pragma once

#include "Common/Coordinator/CMain.h"

#include <cstdint>
#include <memory>

class CMacDriverInterface;
class CMacInputs;

class CMacCoordinatorMain : public CMain
{
public:
    static constexpr std::uint32_t kDriver0Signature = 'KlKT';
    static constexpr std::uint32_t kDriver1Signature = 'KlPT';
    static constexpr const char* kDriver0PortName = "com.kelto.KeltoTabletDriverMessageServer";
    static constexpr const char* kDriver1PortName = "com.kelto.PenTabletDriverMessageServer";

    CMacCoordinatorMain() = default;
    ~CMacCoordinatorMain() override;

    // The status of the inputs' set-up when that fails (no driver is then made), otherwise
    // that of driver 1's Init.
    KELSTATUS Init() override;

protected:
    // The makers of the parts, replaceable so that start-up can be exercised without the
    // real port or drivers.
    virtual CMacInputs* NewInputs();
    virtual std::shared_ptr<CMacDriverInterface> NewDriverInterface();
};

// Start-up before the application runs: the console user, then the single main object
// and its Init. False when Init failed; the main object is then gone again.
bool InternalMain();
