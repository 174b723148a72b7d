// Scope guard for a CKelSemaphore: takes it on construction, releases it on destruction.
//
// It keeps its own shared reference, so the semaphore outlives every other owner while the
// lock is held. A null semaphore makes the guard do nothing.
#pragma once

#include "Mac/Common/CKelSemaphore.h"

#include <memory>

class STSemaphoreLock
{
public:
    explicit STSemaphoreLock(std::shared_ptr<CKelSemaphore> semaphore);
    ~STSemaphoreLock();
    STSemaphoreLock(const STSemaphoreLock&) = delete;
    STSemaphoreLock& operator=(const STSemaphoreLock&) = delete;

private:
    std::shared_ptr<CKelSemaphore> mSemaphore;
};
