// CKelSemaphore over one POSIX mutex of the recursive type.
#pragma once

#include "Mac/Common/CKelSemaphore.h"

#include <pthread.h>

class CMacSemaphore : public CKelSemaphore
{
public:
    CMacSemaphore() = default;
    ~CMacSemaphore() override;
    CMacSemaphore(const CMacSemaphore&) = delete;
    CMacSemaphore& operator=(const CMacSemaphore&) = delete;

    // Lock and unlock; both 0. Before Init() there is no mutex and both refuse with
    // KELSTATUS_FAILURE rather than touch an uninitialised one.
    KELSTATUS RequestSemaphore() override;
    KELSTATUS ReleaseSemaphore() override;

    // Creates the mutex with the recursive type and returns 0. A second call keeps the mutex
    // that exists (it may be held).
    KELSTATUS Init() override;

private:
    pthread_mutex_t mMutex{};
    bool mInitialised = false;
};
