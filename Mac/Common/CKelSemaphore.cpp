#include "Mac/Common/CKelSemaphore.h"

#include "Mac/Common/CMacSemaphore.h"

std::shared_ptr<CKelSemaphore> CKelSemaphore::New()
{
    auto semaphore = std::make_shared<CMacSemaphore>();
    semaphore->Init();
    return semaphore;
}
