#include "ZnUtil/ZnCriticalSection.h"
#include "ZnUtil/ZnMutex.h"

#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <iterator>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "support/RunTogether.h"

namespace
{

const int kThreads = 4;
const int kIterations = 50000;

/// Runs \p body(index) on kThreads threads released together, and waits for all of them.
void runTogether(const std::function<void(int)>& body)
{
    ZnTest::runTogether(kThreads, body);
}

/// Polls \p condition until it holds or \p limit has passed.
bool waitFor(const std::function<bool()>& condition, std::chrono::seconds limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition())
    {
        if (std::chrono::steady_clock::now() > deadline)
        {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

/// A thread that takes a lock through \p take and \p give, and tells when it held it.
class Contender
{
public:
    Contender(std::function<void()> take, std::function<void()> give)
        : m_thread(
              [this, take, give]
              {
                  take();
                  m_acquired = true;
                  give();
              })
    {
    }
    ~Contender()
    {
        if (m_thread.joinable())
        {
            m_thread.join();
        }
    }

    bool acquired() const { return m_acquired; }
    void join() { m_thread.join(); }

private:
    std::atomic<bool> m_acquired{false};
    std::thread m_thread;
};

TEST(ZnLockConcurrencyTest, MutexGuardsPlainCounterExactly)
{
    ZnMutex* mutex = ZnMutex::sAllocate();
    long counter = 0;
    runTogether(
        [&](int)
        {
            for (int i = 0; i < kIterations; ++i)
            {
                mutex->lock();
                ++counter;
                mutex->unlock();
            }
        });
    EXPECT_EQ(counter, static_cast<long>(kThreads) * kIterations);
    ZnMutex::sRecycle(mutex);
}

TEST(ZnLockConcurrencyTest, TryLockCountNeverExceedsCallsOfLock)
{
    ZnMutex* mutex = ZnMutex::sAllocate();
    const long tries = ZnMutex::m_tryLockCount;
    long counter = 0;
    runTogether(
        [&](int)
        {
            for (int i = 0; i < kIterations; ++i)
            {
                mutex->lock();
                ++counter;
                mutex->unlock();
            }
        });
    // A statistic without a locked increment: racing threads may lose counts, never add them.
    const long counted = ZnMutex::m_tryLockCount - tries;
    EXPECT_GT(counted, 0);
    EXPECT_LE(counted, static_cast<long>(kThreads) * kIterations);
    ZnMutex::sRecycle(mutex);
}

TEST(ZnLockConcurrencyTest, RecursiveMutexGuardsPlainCounterExactly)
{
    ZnMutex* mutex = ZnMutex::sAllocate();
    long counter = 0;
    runTogether(
        [&](int)
        {
            for (int i = 0; i < kIterations; ++i)
            {
                mutex->lock();
                ++counter;
                mutex->writeLock();
                ++counter;
                mutex->writeUnlock();
                mutex->unlock();
            }
        });
    EXPECT_EQ(counter, 2L * kThreads * kIterations);
    ZnMutex::sRecycle(mutex);
}

TEST(ZnLockConcurrencyTest, CriticalSectionGuardsPlainCounterExactly)
{
    ZnCriticalSection* section = ZnCriticalSection::sAllocate();
    long counter = 0;
    runTogether(
        [&](int)
        {
            for (int i = 0; i < kIterations; ++i)
            {
                section->enter();
                ++counter;
                section->leave();
            }
        });
    EXPECT_EQ(counter, static_cast<long>(kThreads) * kIterations);
    ZnCriticalSection::sRecycle(section);
}

TEST(ZnLockConcurrencyTest, RecursiveCriticalSectionGuardsPlainCounterExactly)
{
    ZnCriticalSection* section = ZnCriticalSection::sAllocate();
    long counter = 0;
    runTogether(
        [&](int)
        {
            for (int i = 0; i < kIterations; ++i)
            {
                section->enter();
                ++counter;
                section->enter();
                ++counter;
                section->leave();
                section->leave();
            }
        });
    EXPECT_EQ(counter, 2L * kThreads * kIterations);
    ZnCriticalSection::sRecycle(section);
}

TEST(ZnLockConcurrencyTest, ProcessWideSectionGuardsPlainCounterExactly)
{
    long counter = 0;
    runTogether(
        [&](int)
        {
            for (int i = 0; i < kIterations; ++i)
            {
                ZnCriticalSection::sEnter();
                ++counter;
                ZnCriticalSection::sLeave();
            }
        });
    EXPECT_EQ(counter, static_cast<long>(kThreads) * kIterations);
}

TEST(ZnLockConcurrencyTest, LockCountGrowsOnlyWhenALockHasToWait)
{
    ZnMutex* mutex = ZnMutex::sAllocate();
    const long waits = ZnMutex::m_lockCount;
    for (int i = 0; i < 1000; ++i)
    {
        mutex->lock();
        mutex->unlock();
    }
    EXPECT_EQ(ZnMutex::m_lockCount, waits);

    mutex->lock();
    Contender contender([mutex] { mutex->lock(); }, [mutex] { mutex->unlock(); });
    // The contender counts its wait when its spin is over, just before it blocks.
    const bool counted =
        waitFor([&] { return ZnMutex::m_lockCount > waits; }, std::chrono::seconds(30));
    EXPECT_TRUE(counted);
    EXPECT_FALSE(contender.acquired());
    mutex->unlock();
    contender.join();
    EXPECT_TRUE(contender.acquired());
    EXPECT_EQ(ZnMutex::m_lockCount - waits, 1);
    ZnMutex::sRecycle(mutex);
}

TEST(ZnLockConcurrencyTest, RecursivelyHeldMutexBlocksOthersUntilFullyUnlocked)
{
    ZnMutex* mutex = ZnMutex::sAllocate();
    const long waits = ZnMutex::m_lockCount;
    mutex->lock();
    mutex->lock();
    Contender contender([mutex] { mutex->lock(); }, [mutex] { mutex->unlock(); });
    EXPECT_TRUE(waitFor([&] { return ZnMutex::m_lockCount > waits; }, std::chrono::seconds(30)));
    mutex->unlock();
    // Still held once.
    EXPECT_FALSE(contender.acquired());
    mutex->unlock();
    contender.join();
    EXPECT_TRUE(contender.acquired());
    ZnMutex::sRecycle(mutex);
}

TEST(ZnLockConcurrencyTest, ReadLockExcludesAnotherReader)
{
    ZnMutex* mutex = ZnMutex::sAllocate();
    const long waits = ZnMutex::m_lockCount;
    mutex->readLock();
    Contender reader([mutex] { mutex->readLock(); }, [mutex] { mutex->readUnlock(); });
    EXPECT_TRUE(waitFor([&] { return ZnMutex::m_lockCount > waits; }, std::chrono::seconds(30)));
    EXPECT_FALSE(reader.acquired());
    mutex->readUnlock();
    reader.join();
    EXPECT_TRUE(reader.acquired());
    ZnMutex::sRecycle(mutex);
}

TEST(ZnLockConcurrencyTest, HeldCriticalSectionKeepsOtherThreadOut)
{
    ZnCriticalSection* section = ZnCriticalSection::sAllocate();
    std::atomic<bool> started{false};
    section->enter();
    Contender contender(
        [section, &started]
        {
            started = true;
            section->enter();
        },
        [section] { section->leave(); });
    EXPECT_TRUE(waitFor([&] { return started.load(); }, std::chrono::seconds(30)));
    EXPECT_FALSE(contender.acquired());
    section->leave();
    contender.join();
    EXPECT_TRUE(contender.acquired());
    ZnCriticalSection::sRecycle(section);
}

TEST(ZnLockConcurrencyTest, IncrementFromManyThreadsGivesEveryValueOnce)
{
    long value = 0;
    std::vector<std::vector<long>> results(kThreads);
    runTogether(
        [&](int index)
        {
            results[index].reserve(kIterations);
            for (int i = 0; i < kIterations; ++i)
            {
                results[index].push_back(ZnCriticalSection::sIncrement(&value));
            }
        });
    EXPECT_EQ(value, static_cast<long>(kThreads) * kIterations);
    std::vector<long> all;
    for (const std::vector<long>& part : results)
    {
        all.insert(all.end(), part.begin(), part.end());
    }
    std::sort(all.begin(), all.end());
    bool everyValueOnce = true;
    for (size_t i = 0; i < all.size(); ++i)
    {
        everyValueOnce = everyValueOnce && all[i] == static_cast<long>(i) + 1;
    }
    EXPECT_TRUE(everyValueOnce);
}

TEST(ZnLockConcurrencyTest, IncrementsAndDecrementsFromManyThreadsCancel)
{
    long value = 1000;
    runTogether(
        [&](int index)
        {
            for (int i = 0; i < kIterations; ++i)
            {
                if (index % 2 == 0)
                {
                    ZnCriticalSection::sIncrement(&value);
                }
                else
                {
                    ZnCriticalSection::sDecrement(&value);
                }
            }
        });
    EXPECT_EQ(value, 1000);
}

TEST(ZnLockConcurrencyTest, ExchangeHandsEachValueOnExactlyOnce)
{
    long slot = 0;
    std::vector<std::vector<long>> previous(kThreads);
    runTogether(
        [&](int index)
        {
            previous[index].reserve(kIterations);
            for (int i = 0; i < kIterations; ++i)
            {
                const long mine = static_cast<long>(index) * kIterations + i + 1;
                previous[index].push_back(ZnCriticalSection::sExchange(&slot, mine));
            }
        });
    // Every value put in comes out once: as some exchange's old value, or as what is left.
    std::vector<long> seen{slot};
    for (const std::vector<long>& part : previous)
    {
        seen.insert(seen.end(), part.begin(), part.end());
    }
    std::sort(seen.begin(), seen.end());
    ASSERT_EQ(seen.size(), static_cast<size_t>(kThreads) * kIterations + 1);
    bool everyValueOnce = true;
    for (size_t i = 0; i < seen.size(); ++i)
    {
        everyValueOnce = everyValueOnce && seen[i] == static_cast<long>(i);
    }
    EXPECT_TRUE(everyValueOnce);
}

TEST(ZnLockConcurrencyTest, SectionsAllocatedAndRecycledTogetherStayConsistent)
{
    const int kRounds = 200;
    const int kBatch = 16;
    const int alive = ZnCriticalSection::sGetAliveCount();
    const int free = ZnCriticalSection::sGetFreeCount();
    const int allocated = ZnCriticalSection::sGetAllocateCount();
    const int recycled = ZnCriticalSection::sGetRecycleCount();
    std::mutex heldMutex;
    std::set<ZnCriticalSection*> held; // guarded by heldMutex
    std::atomic<int> sharedByTwo{0};
    runTogether(
        [&](int)
        {
            for (int round = 0; round < kRounds; ++round)
            {
                std::vector<ZnCriticalSection*> mine;
                for (int i = 0; i < kBatch; ++i)
                {
                    ZnCriticalSection* section = ZnCriticalSection::sAllocate();
                    section->enter();
                    section->leave();
                    std::lock_guard<std::mutex> lock(heldMutex);
                    if (!held.insert(section).second)
                    {
                        ++sharedByTwo;
                    }
                    mine.push_back(section);
                }
                for (ZnCriticalSection* section : mine)
                {
                    {
                        std::lock_guard<std::mutex> lock(heldMutex);
                        held.erase(section);
                    }
                    ZnCriticalSection::sRecycle(section);
                }
            }
        });
    EXPECT_EQ(sharedByTwo, 0);
    EXPECT_EQ(ZnCriticalSection::sGetAllocateCount() - allocated, kThreads * kRounds * kBatch);
    EXPECT_EQ(ZnCriticalSection::sGetRecycleCount() - recycled, kThreads * kRounds * kBatch);
    // Far below the ceiling, every new section ends on the free list.
    EXPECT_EQ(ZnCriticalSection::sGetAliveCount() - alive,
              ZnCriticalSection::sGetFreeCount() - free);
    EXPECT_LE(ZnCriticalSection::sGetAliveCount() - alive, kThreads * kBatch);
}

TEST(ZnLockConcurrencyTest, PoolFilledOnceWhenThreadsAskTogether)
{
    const bool filledBefore = ZnMutex::fs_MutexInitializationCounter == 1;
    const int64_t blocks = Tavoris::MemAccount::sRead("ZnMutex").liveBlocks;
    std::vector<ZnMutex*> chosen(kThreads, nullptr);
    runTogether([&](int index) { chosen[index] = ZnMutex::sAllocateFromPool(); });
    EXPECT_EQ(ZnMutex::fs_MutexInitializationCounter, 1);
    EXPECT_EQ(Tavoris::MemAccount::sRead("ZnMutex").liveBlocks - blocks, filledBefore ? 0 : 256);
    for (ZnMutex* mutex : chosen)
    {
        EXPECT_NE(mutex, nullptr);
        EXPECT_NE(std::find(std::begin(ZnMutex::sm_pMutex), std::end(ZnMutex::sm_pMutex), mutex),
                  std::end(ZnMutex::sm_pMutex));
    }
}

} // namespace
