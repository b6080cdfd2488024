#include "ZnUtil/ZnCriticalSection.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace
{

/// Whether another thread can pass \p enter and \p leave now, waiting at most a few seconds.
/// When it cannot, the calling thread is taken to be the owner still and calls \p leave until the
/// other thread gets through, so that the test ends either way.
bool otherThreadCanEnter(const std::function<void()>& enter, const std::function<void()>& leave)
{
    std::mutex guard;
    std::condition_variable changed;
    bool entered = false;
    std::thread other(
        [&]
        {
            enter();
            {
                std::lock_guard<std::mutex> lock(guard);
                entered = true;
            }
            changed.notify_all();
            leave();
        });
    bool result = false;
    {
        std::unique_lock<std::mutex> lock(guard);
        result = changed.wait_for(lock, std::chrono::seconds(10), [&] { return entered; });
    }
    if (!result)
    {
        for (int i = 0; i < 16; ++i)
        {
            leave();
        }
    }
    other.join();
    return result;
}

bool otherThreadCanEnter(ZnCriticalSection* section)
{
    return otherThreadCanEnter([section] { section->enter(); }, [section] { section->leave(); });
}

/// Takes sections until \p alive are alive, and hands them back.
std::vector<ZnCriticalSection*> allocateUntilAlive(int alive)
{
    std::vector<ZnCriticalSection*> sections;
    const int limit = alive + ZnCriticalSection::sGetFreeCount() + 1;
    while (ZnCriticalSection::sGetAliveCount() < alive && static_cast<int>(sections.size()) < limit)
    {
        ZnCriticalSection* section = ZnCriticalSection::sAllocate();
        if (section == nullptr)
        {
            break;
        }
        sections.push_back(section);
    }
    return sections;
}

void recycleAll(std::vector<ZnCriticalSection*>& sections)
{
    for (ZnCriticalSection* section : sections)
    {
        ZnCriticalSection::sRecycle(section);
    }
    sections.clear();
}

TEST(ZnCriticalSectionTest, SpinCountIs100AndCeilingIs1024)
{
    EXPECT_EQ(ZnCriticalSection::kSpinCount, 100);
    EXPECT_EQ(ZnCriticalSection::kRecycleCeiling, 1024);
}

TEST(ZnCriticalSectionTest, AllocateGivesSection)
{
    ZnCriticalSection* section = ZnCriticalSection::sAllocate();
    ASSERT_NE(section, nullptr);
    ZnCriticalSection::sRecycle(section);
}

TEST(ZnCriticalSectionTest, AllocateCountsEveryCall)
{
    const int before = ZnCriticalSection::sGetAllocateCount();
    ZnCriticalSection* first = ZnCriticalSection::sAllocate();
    ZnCriticalSection* second = ZnCriticalSection::sAllocate();
    EXPECT_EQ(ZnCriticalSection::sGetAllocateCount() - before, 2);
    ZnCriticalSection::sRecycle(second);
    ZnCriticalSection::sRecycle(first);
}

TEST(ZnCriticalSectionTest, NewSectionCountsOneMoreAlive)
{
    // Empty the free list first, so that the next one is made new.
    std::vector<ZnCriticalSection*> drained;
    while (ZnCriticalSection::sGetFreeCount() > 0)
    {
        drained.push_back(ZnCriticalSection::sAllocate());
    }
    const int alive = ZnCriticalSection::sGetAliveCount();
    ZnCriticalSection* section = ZnCriticalSection::sAllocate();
    EXPECT_EQ(ZnCriticalSection::sGetAliveCount() - alive, 1);
    drained.push_back(section);
    recycleAll(drained);
}

TEST(ZnCriticalSectionTest, RecycleBelowCeilingKeepsSectionOnFreeList)
{
    ZnCriticalSection* section = ZnCriticalSection::sAllocate();
    ASSERT_LT(ZnCriticalSection::sGetAliveCount(), 1024);
    const int alive = ZnCriticalSection::sGetAliveCount();
    const int free = ZnCriticalSection::sGetFreeCount();
    ZnCriticalSection::sRecycle(section);
    EXPECT_EQ(ZnCriticalSection::sGetFreeCount() - free, 1);
    EXPECT_EQ(ZnCriticalSection::sGetAliveCount(), alive);
}

TEST(ZnCriticalSectionTest, AllocateReusesRecycledSection)
{
    ZnCriticalSection* section = ZnCriticalSection::sAllocate();
    ZnCriticalSection::sRecycle(section);
    const int alive = ZnCriticalSection::sGetAliveCount();
    const int free = ZnCriticalSection::sGetFreeCount();
    ZnCriticalSection* again = ZnCriticalSection::sAllocate();
    EXPECT_EQ(again, section);
    EXPECT_EQ(free - ZnCriticalSection::sGetFreeCount(), 1);
    EXPECT_EQ(ZnCriticalSection::sGetAliveCount(), alive);
    ZnCriticalSection::sRecycle(again);
}

TEST(ZnCriticalSectionTest, RecycleCountsEveryCall)
{
    ZnCriticalSection* section = ZnCriticalSection::sAllocate();
    const int before = ZnCriticalSection::sGetRecycleCount();
    ZnCriticalSection::sRecycle(section);
    EXPECT_EQ(ZnCriticalSection::sGetRecycleCount() - before, 1);
}

TEST(ZnCriticalSectionTest, RecycleOfNullStillCountsCall)
{
    const int recycled = ZnCriticalSection::sGetRecycleCount();
    const int alive = ZnCriticalSection::sGetAliveCount();
    const int free = ZnCriticalSection::sGetFreeCount();
    ZnCriticalSection::sRecycle(nullptr);
    EXPECT_EQ(ZnCriticalSection::sGetRecycleCount() - recycled, 1);
    EXPECT_EQ(ZnCriticalSection::sGetAliveCount(), alive);
    EXPECT_EQ(ZnCriticalSection::sGetFreeCount(), free);
}

TEST(ZnCriticalSectionTest, RecycleAtPopulationOf1024FreesSection)
{
    std::vector<ZnCriticalSection*> sections = allocateUntilAlive(1024);
    ASSERT_EQ(ZnCriticalSection::sGetAliveCount(), 1024);
    const int free = ZnCriticalSection::sGetFreeCount();
    ZnCriticalSection::sRecycle(sections.back());
    sections.pop_back();
    EXPECT_EQ(ZnCriticalSection::sGetAliveCount(), 1023);
    EXPECT_EQ(ZnCriticalSection::sGetFreeCount(), free);
    recycleAll(sections);
}

TEST(ZnCriticalSectionTest, RecycleAtPopulationOf1023KeepsSection)
{
    std::vector<ZnCriticalSection*> sections = allocateUntilAlive(1024);
    ASSERT_EQ(ZnCriticalSection::sGetAliveCount(), 1024);
    ZnCriticalSection::sRecycle(sections.back());
    sections.pop_back();
    ASSERT_EQ(ZnCriticalSection::sGetAliveCount(), 1023);
    const int free = ZnCriticalSection::sGetFreeCount();
    ZnCriticalSection::sRecycle(sections.back());
    sections.pop_back();
    EXPECT_EQ(ZnCriticalSection::sGetAliveCount(), 1023);
    EXPECT_EQ(ZnCriticalSection::sGetFreeCount() - free, 1);
    recycleAll(sections);
}

TEST(ZnCriticalSectionTest, EnterAndLeaveLetAnotherThreadIn)
{
    ZnCriticalSection* section = ZnCriticalSection::sAllocate();
    section->enter();
    section->leave();
    EXPECT_TRUE(otherThreadCanEnter(section));
    ZnCriticalSection::sRecycle(section);
}

TEST(ZnCriticalSectionTest, EnterIsRecursive)
{
    ZnCriticalSection* section = ZnCriticalSection::sAllocate();
    section->enter();
    section->enter();
    section->leave();
    section->leave();
    EXPECT_TRUE(otherThreadCanEnter(section));
    ZnCriticalSection::sRecycle(section);
}

TEST(ZnCriticalSectionTest, ProcessWideSectionIsRecursive)
{
    ZnCriticalSection::sEnter();
    ZnCriticalSection::sEnter();
    ZnCriticalSection::sLeave();
    ZnCriticalSection::sLeave();
    EXPECT_TRUE(otherThreadCanEnter([] { ZnCriticalSection::sEnter(); },
                                    [] { ZnCriticalSection::sLeave(); }));
}

TEST(ZnCriticalSectionTest, OwnerOfProcessWideSectionCanStillRecycle)
{
    // sRecycle takes the process-wide section too; the owner gets it again at once.
    ZnCriticalSection* section = ZnCriticalSection::sAllocate();
    const int recycled = ZnCriticalSection::sGetRecycleCount();
    ZnCriticalSection::sEnter();
    ZnCriticalSection::sRecycle(section);
    ZnCriticalSection::sLeave();
    EXPECT_EQ(ZnCriticalSection::sGetRecycleCount() - recycled, 1);
}

TEST(ZnCriticalSectionTest, IncrementReturnsNewValue)
{
    long value = 41;
    EXPECT_EQ(ZnCriticalSection::sIncrement(&value), 42);
    EXPECT_EQ(value, 42);
}

TEST(ZnCriticalSectionTest, DecrementReturnsNewValue)
{
    long value = 1;
    EXPECT_EQ(ZnCriticalSection::sDecrement(&value), 0);
    EXPECT_EQ(ZnCriticalSection::sDecrement(&value), -1);
    EXPECT_EQ(value, -1);
}

TEST(ZnCriticalSectionTest, IncrementCrossesIntLimitAsLong)
{
    long value = INT_MAX;
    EXPECT_EQ(ZnCriticalSection::sIncrement(&value), static_cast<long>(INT_MAX) + 1);
}

TEST(ZnCriticalSectionTest, ExchangeReturnsOldValue)
{
    long value = 7;
    EXPECT_EQ(ZnCriticalSection::sExchange(&value, 99), 7);
    EXPECT_EQ(value, 99);
}

TEST(ZnCriticalSectionTest, ExchangeWithSameValueReturnsIt)
{
    long value = -5;
    EXPECT_EQ(ZnCriticalSection::sExchange(&value, -5), -5);
    EXPECT_EQ(value, -5);
}

} // namespace
