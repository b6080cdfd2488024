#include "ZnUtil/ZnMutex.h"

#include "ZnUtil/ZnPlatform.h"

#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <set>
#include <thread>

namespace
{

const char* const kAccount = "ZnMutex";

int64_t liveBlocks()
{
    return Tavoris::MemAccount::sRead(kAccount).liveBlocks;
}

int64_t liveBytes()
{
    return Tavoris::MemAccount::sRead(kAccount).liveBytes;
}

/// Whether another thread can take \p mutex now, waiting at most a few seconds for it. When it
/// cannot, the calling thread is taken to be the owner still and unlocks until the other thread
/// gets through, so that the test ends either way.
bool otherThreadCanTake(ZnMutex& mutex)
{
    std::mutex guard;
    std::condition_variable changed;
    bool taken = false;
    std::thread other(
        [&]
        {
            mutex.lock();
            {
                std::lock_guard<std::mutex> lock(guard);
                taken = true;
            }
            changed.notify_all();
            mutex.unlock();
        });
    bool result = false;
    {
        std::unique_lock<std::mutex> lock(guard);
        result = changed.wait_for(lock, std::chrono::seconds(10), [&] { return taken; });
    }
    if (!result)
    {
        for (int i = 0; i < 16; ++i)
        {
            mutex.unlock();
        }
    }
    other.join();
    return result;
}

TEST(ZnMutexTest, MemAccountNameIsClassName)
{
    EXPECT_STREQ(ZnMutex::getMemAccountName(), "ZnMutex");
}

TEST(ZnMutexTest, SpinCountIs4000AndPoolSizeIs256)
{
    EXPECT_EQ(ZnMutex::kSpinCount, 4000);
    EXPECT_EQ(ZnMutex::kPoolSize, 256);
}

TEST(ZnMutexTest, LockCountsOneTryLockPerCall)
{
    ZnMutex mutex;
    const long before = ZnMutex::m_tryLockCount;
    mutex.lock();
    mutex.unlock();
    mutex.lock();
    mutex.unlock();
    EXPECT_EQ(ZnMutex::m_tryLockCount - before, 2);
}

TEST(ZnMutexTest, UnlockDoesNotCount)
{
    ZnMutex mutex;
    mutex.lock();
    const long tries = ZnMutex::m_tryLockCount;
    const long waits = ZnMutex::m_lockCount;
    mutex.unlock();
    EXPECT_EQ(ZnMutex::m_tryLockCount, tries);
    EXPECT_EQ(ZnMutex::m_lockCount, waits);
}

TEST(ZnMutexTest, UncontendedLocksLeaveLockCountAtZero)
{
    ZnMutex mutex;
    const long tries = ZnMutex::m_tryLockCount;
    for (int i = 0; i < 10000; ++i)
    {
        mutex.lock();
        mutex.unlock();
    }
    EXPECT_EQ(ZnMutex::m_tryLockCount - tries, 10000);
    EXPECT_EQ(ZnMutex::m_lockCount, 0);
}

TEST(ZnMutexTest, SecondLockByOwnerSucceedsAtOnce)
{
    ZnMutex mutex;
    const long tries = ZnMutex::m_tryLockCount;
    const long waits = ZnMutex::m_lockCount;
    mutex.lock();
    mutex.lock();
    EXPECT_EQ(ZnMutex::m_tryLockCount - tries, 2);
    EXPECT_EQ(ZnMutex::m_lockCount, waits);
    mutex.unlock();
    mutex.unlock();
}

TEST(ZnMutexTest, RecursiveLockMustBeUnlockedAsOftenBeforeAnotherThreadGetsIt)
{
    ZnMutex mutex;
    mutex.lock();
    mutex.lock();
    mutex.lock();
    mutex.unlock();
    mutex.unlock();
    mutex.unlock();
    EXPECT_TRUE(otherThreadCanTake(mutex));
}

TEST(ZnMutexTest, ReadLockIsPlainLock)
{
    ZnMutex mutex;
    const long tries = ZnMutex::m_tryLockCount;
    mutex.readLock();
    EXPECT_EQ(ZnMutex::m_tryLockCount - tries, 1);
    // The same lock: a write lock by the holder is a recursive lock, not a wait.
    mutex.writeLock();
    EXPECT_EQ(ZnMutex::m_tryLockCount - tries, 2);
    EXPECT_EQ(ZnMutex::m_lockCount, 0);
    mutex.writeUnlock();
    mutex.readUnlock();
}

TEST(ZnMutexTest, WriteLockIsPlainLock)
{
    ZnMutex mutex;
    const long tries = ZnMutex::m_tryLockCount;
    mutex.writeLock();
    mutex.lock();
    mutex.readLock();
    EXPECT_EQ(ZnMutex::m_tryLockCount - tries, 3);
    mutex.readUnlock();
    mutex.unlock();
    mutex.writeUnlock();
}

TEST(ZnMutexTest, ReadAndWriteUnlockReleaseTheLock)
{
    ZnMutex mutex;
    mutex.readLock();
    mutex.readUnlock();
    mutex.writeLock();
    mutex.writeUnlock();
    EXPECT_TRUE(otherThreadCanTake(mutex));
}

TEST(ZnMutexTest, AllocateCountsOnMutexAccount)
{
    const int64_t blocks = liveBlocks();
    const int64_t bytes = liveBytes();
    ZnMutex* mutex = ZnMutex::sAllocate();
    ASSERT_NE(mutex, nullptr);
    EXPECT_EQ(liveBlocks() - blocks, 1);
    EXPECT_EQ(liveBytes() - bytes, static_cast<int64_t>(sizeof(ZnMutex)));
    ZnMutex::sRecycle(mutex);
}

TEST(ZnMutexTest, RecycleGivesMemoryBackToMutexAccount)
{
    ZnMutex* mutex = ZnMutex::sAllocate();
    ASSERT_NE(mutex, nullptr);
    const int64_t blocks = liveBlocks();
    const int64_t bytes = liveBytes();
    ZnMutex::sRecycle(mutex);
    EXPECT_EQ(blocks - liveBlocks(), 1);
    EXPECT_EQ(bytes - liveBytes(), static_cast<int64_t>(sizeof(ZnMutex)));
}

TEST(ZnMutexTest, RecycleOfNullIsIgnored)
{
    const Tavoris::MemAccount::Reading before = Tavoris::MemAccount::sRead(kAccount);
    ZnMutex::sRecycle(nullptr);
    const Tavoris::MemAccount::Reading after = Tavoris::MemAccount::sRead(kAccount);
    EXPECT_EQ(after.liveBlocks, before.liveBlocks);
    EXPECT_EQ(after.liveBytes, before.liveBytes);
    EXPECT_EQ(after.totalBlocks, before.totalBlocks);
}

TEST(ZnMutexTest, AllocatedMutexesAreDistinctAndUsable)
{
    ZnMutex* first = ZnMutex::sAllocate();
    ZnMutex* second = ZnMutex::sAllocate();
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    const long tries = ZnMutex::m_tryLockCount;
    first->lock();
    second->lock();
    second->unlock();
    first->unlock();
    EXPECT_EQ(ZnMutex::m_tryLockCount - tries, 2);
    ZnMutex::sRecycle(second);
    ZnMutex::sRecycle(first);
}

TEST(ZnMutexTest, ObjectNewAndDeleteCountOnMutexAccount)
{
    const int64_t blocks = liveBlocks();
    ZnMutex* mutex = new ZnMutex;
    EXPECT_EQ(liveBlocks() - blocks, 1);
    delete mutex;
    EXPECT_EQ(liveBlocks(), blocks);
}

TEST(ZnMutexTest, ArrayNewAndDeleteCountOnMutexAccount)
{
    const int64_t blocks = liveBlocks();
    const int64_t bytes = liveBytes();
    ZnMutex* mutexes = new ZnMutex[3];
    EXPECT_EQ(liveBlocks() - blocks, 1);
    EXPECT_GE(liveBytes() - bytes, static_cast<int64_t>(3 * sizeof(ZnMutex)));
    delete[] mutexes;
    EXPECT_EQ(liveBlocks(), blocks);
    EXPECT_EQ(liveBytes(), bytes);
}

TEST(ZnMutexTest, PlacementNewUsesTheGivenPlaceAndNoAccount)
{
    alignas(ZnMutex) unsigned char place[sizeof(ZnMutex)];
    const uint64_t total = Tavoris::MemAccount::sRead(kAccount).totalBlocks;
    ZnMutex* mutex = new (place) ZnMutex;
    EXPECT_EQ(static_cast<void*>(mutex), static_cast<void*>(place));
    mutex->lock();
    mutex->unlock();
    mutex->~ZnMutex();
    EXPECT_EQ(Tavoris::MemAccount::sRead(kAccount).totalBlocks, total);
}

TEST(ZnMutexTest, InitializeFillsWholePool)
{
    ZnMutex::sInitialize();
    EXPECT_EQ(ZnMutex::fs_MutexInitializationCounter, 1);
    std::set<ZnMutex*> members;
    for (ZnMutex* member : ZnMutex::sm_pMutex)
    {
        EXPECT_NE(member, nullptr);
        members.insert(member);
    }
    EXPECT_EQ(members.size(), 256u);
}

TEST(ZnMutexTest, SecondInitializeChangesNothing)
{
    ZnMutex::sInitialize();
    ZnMutex* const first = ZnMutex::sm_pMutex[0];
    ZnMutex* const last = ZnMutex::sm_pMutex[255];
    const int64_t blocks = liveBlocks();
    ZnMutex::sInitialize();
    EXPECT_EQ(ZnMutex::sm_pMutex[0], first);
    EXPECT_EQ(ZnMutex::sm_pMutex[255], last);
    EXPECT_EQ(liveBlocks(), blocks);
    EXPECT_EQ(ZnMutex::fs_MutexInitializationCounter, 1);
}

TEST(ZnMutexTest, AllocateFromPoolInitializesPool)
{
    ZnMutex* mutex = ZnMutex::sAllocateFromPool();
    EXPECT_NE(mutex, nullptr);
    EXPECT_EQ(ZnMutex::fs_MutexInitializationCounter, 1);
}

TEST(ZnMutexTest, AllocateFromPoolPicksByLowEightBitsOfThreadId)
{
    ZnMutex* mutex = ZnMutex::sAllocateFromPool();
    EXPECT_EQ(mutex, ZnMutex::sm_pMutex[ZnPlatform::sGetCurrentThreadId() & 255]);
}

TEST(ZnMutexTest, AllocateFromPoolTwiceFromOneThreadGivesSameMutex)
{
    ZnMutex* first = ZnMutex::sAllocateFromPool();
    ZnMutex* second = ZnMutex::sAllocateFromPool();
    EXPECT_EQ(first, second);
}

TEST(ZnMutexTest, ReleaseToPoolBetweenTwoAllocationsChangesNothing)
{
    ZnMutex* first = ZnMutex::sAllocateFromPool();
    const Tavoris::MemAccount::Reading before = Tavoris::MemAccount::sRead(kAccount);
    ZnMutex::sReleaseToPool(first);
    const Tavoris::MemAccount::Reading after = Tavoris::MemAccount::sRead(kAccount);
    ZnMutex* second = ZnMutex::sAllocateFromPool();
    EXPECT_EQ(first, second);
    EXPECT_EQ(after.liveBlocks, before.liveBlocks);
    EXPECT_EQ(after.totalBlocks, before.totalBlocks);
    // Still a working lock.
    const long tries = ZnMutex::m_tryLockCount;
    second->lock();
    second->unlock();
    EXPECT_EQ(ZnMutex::m_tryLockCount - tries, 1);
}

TEST(ZnMutexTest, AllocateFromPoolInAnotherThreadFollowsItsThreadId)
{
    ZnMutex* chosen = nullptr;
    uint32_t threadId = 0;
    std::thread other(
        [&]
        {
            chosen = ZnMutex::sAllocateFromPool();
            threadId = ZnPlatform::sGetCurrentThreadId();
        });
    other.join();
    EXPECT_NE(threadId, ZnPlatform::sGetCurrentThreadId());
    EXPECT_EQ(chosen, ZnMutex::sm_pMutex[threadId & 255]);
}

TEST(ZnMutexTest, GuardHoldsLockForItsScope)
{
    ZnMutex mutex;
    const long tries = ZnMutex::m_tryLockCount;
    {
        ZnMutexGuard guard(&mutex);
        EXPECT_EQ(ZnMutex::m_tryLockCount - tries, 1);
    }
    EXPECT_TRUE(otherThreadCanTake(mutex));
}

} // namespace
