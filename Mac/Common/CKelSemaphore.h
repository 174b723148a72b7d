// The route table's lock: an abstract semaphore held by shared ownership.
//
// The only implementation is CMacSemaphore, a recursive mutex, so the thread that holds it may
// take it again (a synchronisation run can cause a nested request on the same run loop); every
// take needs its own release. Take it through STSemaphoreLock rather than by hand.
#pragma once

#include "Common/KelStatus.h"

#include <memory>

class CKelSemaphore
{
public:
    virtual ~CKelSemaphore() = default;

    virtual KELSTATUS RequestSemaphore() = 0;
    virtual KELSTATUS ReleaseSemaphore() = 0;
    virtual KELSTATUS Init() = 0;

    // A CMacSemaphore on which Init() has run.
    static std::shared_ptr<CKelSemaphore> New();
};
