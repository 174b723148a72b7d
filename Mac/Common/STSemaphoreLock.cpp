#include "Mac/Common/STSemaphoreLock.h"

#include <utility>

STSemaphoreLock::STSemaphoreLock(std::shared_ptr<CKelSemaphore> semaphore)
    : mSemaphore(std::move(semaphore))
{
    if (mSemaphore)
    {
        mSemaphore->RequestSemaphore();
    }
}

STSemaphoreLock::~STSemaphoreLock()
{
    if (mSemaphore)
    {
        mSemaphore->ReleaseSemaphore();
    }
    mSemaphore.reset();
}
