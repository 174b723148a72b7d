#include "Mac/Common/CMacSemaphore.h"

CMacSemaphore::~CMacSemaphore()
{
    if (mInitialised)
    {
        pthread_mutex_destroy(&mMutex);
    }
}

KELSTATUS CMacSemaphore::Init()
{
    if (mInitialised)
    {
        return KELSTATUS_SUCCESS;
    }
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    int err = pthread_mutex_init(&mMutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    mInitialised = (err == 0);
    return mInitialised ? KELSTATUS_SUCCESS : KELSTATUS_FAILURE;
}

KELSTATUS CMacSemaphore::RequestSemaphore()
{
    if (!mInitialised)
    {
        return KELSTATUS_FAILURE;
    }
    pthread_mutex_lock(&mMutex);
    return KELSTATUS_SUCCESS;
}

KELSTATUS CMacSemaphore::ReleaseSemaphore()
{
    if (!mInitialised)
    {
        return KELSTATUS_FAILURE;
    }
    pthread_mutex_unlock(&mMutex);
    return KELSTATUS_SUCCESS;
}
