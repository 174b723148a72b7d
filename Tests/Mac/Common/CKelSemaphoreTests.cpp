#include "Mac/Common/CKelSemaphore.h"
#include "Mac/Common/CMacSemaphore.h"
#include "Mac/Common/STSemaphoreLock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <thread>

namespace
{
using namespace std::chrono_literals;

// Starts a thread that takes the semaphore, and tells whether it got it within `wait`.
class COtherThread
{
public:
    explicit COtherThread(std::shared_ptr<CKelSemaphore> semaphore)
        : mThread(
              [this, semaphore]
              {
                  semaphore->RequestSemaphore();
                  mTaken = true;
                  semaphore->ReleaseSemaphore();
              })
    {
    }
    ~COtherThread() { mThread.join(); }

    bool TakenWithin(std::chrono::milliseconds wait)
    {
        auto end = std::chrono::steady_clock::now() + wait;
        while (!mTaken && std::chrono::steady_clock::now() < end)
        {
            std::this_thread::sleep_for(1ms);
        }
        return mTaken;
    }

private:
    std::atomic<bool> mTaken{false};
    std::thread mThread;
};

TEST(CKelSemaphoreTests, SameThreadTakesItTwiceAndEveryTakeNeedsItsRelease)
{
    std::shared_ptr<CKelSemaphore> semaphore = CKelSemaphore::New();
    ASSERT_TRUE(semaphore);
    EXPECT_EQ(semaphore->RequestSemaphore(), KELSTATUS_SUCCESS);
    EXPECT_EQ(semaphore->RequestSemaphore(), KELSTATUS_SUCCESS); // would hang if not recursive
    EXPECT_EQ(semaphore->ReleaseSemaphore(), KELSTATUS_SUCCESS);

    COtherThread other(semaphore);
    EXPECT_FALSE(other.TakenWithin(50ms)); // still held once
    EXPECT_EQ(semaphore->ReleaseSemaphore(), KELSTATUS_SUCCESS);
    EXPECT_TRUE(other.TakenWithin(10s));
}

TEST(CKelSemaphoreTests, NestedGuardsHoldUntilBothScopesEnd)
{
    std::shared_ptr<CKelSemaphore> semaphore = CKelSemaphore::New();
    std::optional<COtherThread> other;
    {
        STSemaphoreLock outer(semaphore);
        {
            STSemaphoreLock inner(semaphore); // same thread again: does not block
            other.emplace(semaphore);
        }
        EXPECT_FALSE(other->TakenWithin(50ms)); // the outer guard still holds it
    }
    EXPECT_TRUE(other->TakenWithin(10s));
}

TEST(CKelSemaphoreTests, GuardKeepsTheSemaphoreAliveAndNullGuardDoesNothing)
{
    std::shared_ptr<CKelSemaphore> semaphore = CKelSemaphore::New();
    std::weak_ptr<CKelSemaphore> watch = semaphore;
    {
        STSemaphoreLock lock(semaphore);
        semaphore.reset();
        EXPECT_FALSE(watch.expired());
    }
    EXPECT_TRUE(watch.expired());

    STSemaphoreLock nothing(nullptr);
}

TEST(CKelSemaphoreTests, UninitialisedSemaphoreRefusesInsteadOfLocking)
{
    CMacSemaphore semaphore;
    EXPECT_EQ(semaphore.RequestSemaphore(), KELSTATUS_FAILURE);
    EXPECT_EQ(semaphore.ReleaseSemaphore(), KELSTATUS_FAILURE);
    EXPECT_EQ(semaphore.Init(), KELSTATUS_SUCCESS);
    EXPECT_EQ(semaphore.RequestSemaphore(), KELSTATUS_SUCCESS);
    EXPECT_EQ(semaphore.ReleaseSemaphore(), KELSTATUS_SUCCESS);
}
} // namespace
