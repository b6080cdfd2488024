// The counting semaphore with a ceiling that the event queue runs on.
#include "ZnUtil/ZnSemaphore.h"

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnSystemError.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;

long long millisecondsSince(Clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

/// Counts the acquires that returned, for the test to wait on.
class Outcomes
{
public:
    void add(bool acquired)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        (acquired ? m_acquired : m_failed) += 1;
        m_changed.notify_all();
    }

    bool await(int count, std::chrono::milliseconds limit = std::chrono::seconds(10))
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, limit, [&] { return m_acquired + m_failed >= count; });
    }

    int acquired()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_acquired;
    }

    int failed()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_failed;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_acquired = 0;
    int m_failed = 0;
};

TEST(ZnSemaphoreTest, StartsWithItsInitialCount)
{
    ZnSemaphore semaphore(3, 10);
    EXPECT_EQ(3u, semaphore.getCount());
    EXPECT_EQ(10u, semaphore.getMaximumCount());
}

TEST(ZnSemaphoreTest, TryAcquireTakesWhatIsThereAndNoMore)
{
    ZnSemaphore semaphore(2, 5);
    EXPECT_TRUE(semaphore.tryAcquire());
    EXPECT_EQ(1u, semaphore.getCount());
    EXPECT_TRUE(semaphore.tryAcquire());
    EXPECT_EQ(0u, semaphore.getCount());
    EXPECT_FALSE(semaphore.tryAcquire());
    EXPECT_EQ(0u, semaphore.getCount());
}

TEST(ZnSemaphoreTest, ReleaseAddsAUnit)
{
    ZnSemaphore semaphore(0, 2);
    EXPECT_FALSE(semaphore.tryAcquire());
    EXPECT_TRUE(semaphore.release());
    EXPECT_EQ(1u, semaphore.getCount());
    EXPECT_TRUE(semaphore.tryAcquire());
    EXPECT_EQ(0u, semaphore.getCount());
}

TEST(ZnSemaphoreTest, ReleaseAtTheMaximumIsRefusedAndChangesNothing)
{
    ZnSemaphore semaphore(0, 2);
    EXPECT_TRUE(semaphore.release());
    EXPECT_TRUE(semaphore.release());
    EXPECT_EQ(2u, semaphore.getCount());
    EXPECT_FALSE(semaphore.release());
    EXPECT_FALSE(semaphore.release());
    EXPECT_EQ(2u, semaphore.getCount());
    EXPECT_TRUE(semaphore.tryAcquire());
    EXPECT_TRUE(semaphore.tryAcquire());
    EXPECT_FALSE(semaphore.tryAcquire());
}

TEST(ZnSemaphoreTest, SemaphoreMadeFullRefusesAtOnce)
{
    ZnSemaphore semaphore(1, 1);
    EXPECT_FALSE(semaphore.release());
    EXPECT_EQ(1u, semaphore.getCount());
}

TEST(ZnSemaphoreTest, AcquireTakesAnAvailableUnitAtOnce)
{
    ZnSemaphore semaphore(1, 1);
    const Clock::time_point start = Clock::now();
    EXPECT_TRUE(semaphore.acquire(5000));
    EXPECT_LT(millisecondsSince(start), 1000);
    EXPECT_EQ(0u, semaphore.getCount());
}

TEST(ZnSemaphoreTest, AcquireRunsOutOfTime)
{
    ZnSemaphore semaphore(0, 1);
    const Clock::time_point start = Clock::now();
    EXPECT_FALSE(semaphore.acquire(120));
    const long long took = millisecondsSince(start);
    EXPECT_GE(took, 120);
    EXPECT_LT(took, 5000);
    EXPECT_EQ(0u, semaphore.getCount());
}

TEST(ZnSemaphoreTest, AcquireOfZeroTimePolls)
{
    ZnSemaphore semaphore(1, 1);
    EXPECT_TRUE(semaphore.acquire(0));
    EXPECT_FALSE(semaphore.acquire(0));
}

TEST(ZnSemaphoreTest, AcquireWithMoreThanASecondTakesALaterRelease)
{
    // The deadline carries whole seconds and milliseconds: 1999 ms must not be cut short.
    ZnSemaphore semaphore(0, 1);
    Outcomes outcomes;
    std::thread waiter([&] { outcomes.add(semaphore.acquire(1999)); });
    EXPECT_TRUE(semaphore.release());
    ASSERT_TRUE(outcomes.await(1));
    waiter.join();
    EXPECT_EQ(1, outcomes.acquired());
}

TEST(ZnSemaphoreTest, ReleaseFromAnotherThreadWakesAWaiter)
{
    ZnSemaphore semaphore(0, 4);
    Outcomes outcomes;
    std::atomic<bool> started{false};
    std::thread waiter(
        [&]
        {
            started = true;
            outcomes.add(semaphore.acquire(10000));
        });
    while (!started.load())
    {
        std::this_thread::yield();
    }
    const Clock::time_point start = Clock::now();
    std::thread releaser([&] { EXPECT_TRUE(semaphore.release()); });
    releaser.join();
    ASSERT_TRUE(outcomes.await(1));
    waiter.join();
    EXPECT_EQ(1, outcomes.acquired());
    EXPECT_LT(millisecondsSince(start), 5000);
    EXPECT_EQ(0u, semaphore.getCount());
}

TEST(ZnSemaphoreTest, EveryReleaseWakesOneOfManyWaiters)
{
    constexpr int kWaiters = 6;
    ZnSemaphore semaphore(0, kWaiters);
    Outcomes outcomes;
    std::vector<std::thread> waiters;
    for (int i = 0; i < kWaiters; ++i)
    {
        waiters.emplace_back([&] { outcomes.add(semaphore.acquire(10000)); });
    }
    std::vector<std::thread> releasers;
    for (int i = 0; i < kWaiters; ++i)
    {
        releasers.emplace_back([&] { semaphore.release(); });
    }
    for (std::thread& releaser : releasers)
    {
        releaser.join();
    }
    ASSERT_TRUE(outcomes.await(kWaiters, std::chrono::seconds(20)));
    for (std::thread& waiter : waiters)
    {
        waiter.join();
    }
    // The releases never stood above the maximum together, so none was refused.
    EXPECT_EQ(kWaiters, outcomes.acquired());
    EXPECT_EQ(0, outcomes.failed());
    EXPECT_EQ(0u, semaphore.getCount());
}

TEST(ZnSemaphoreTest, ImpossibleInitialCountRaisesCreateSemaphore)
{
    std::string text = "(nothing thrown)";
    int errNo = 0;
    try
    {
        ZnSemaphore semaphore(static_cast<unsigned int>(INT_MAX) + 1u, UINT_MAX);
    }
    catch (ZnHandle<ZnException>& e)
    {
        text = e->getExceptionMessage();
        ZnSystemError* error = dynamic_cast<ZnSystemError*>(static_cast<ZnException*>(e));
        ASSERT_NE(nullptr, error);
        errNo = error->getErrNo();
    }
    EXPECT_EQ("CreateSemaphore", text);
    EXPECT_NE(0, errNo);
}

} // namespace
