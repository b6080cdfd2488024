// A process that shuts down while its threads are busy ends with an empty thread table. The test
// shuts its process down for good, so it runs in a process of its own.
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnProcess.h"
#include "ZnUtil/ZnString.h"
#include "ZnUtil/ZnThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <vector>

#include "support/WaitUntil.h"

namespace
{

using Clock = std::chrono::steady_clock;
using ZnTest::waitUntil;

/// The threads of the test, by number, as far as they are alive: a busy thread signals its
/// neighbour through this, never through a thread object that is gone.
class Ring
{
public:
    explicit Ring(size_t size) : m_members(size, nullptr) {}

    void join(size_t index, ZnThread* thread)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_members[index] = thread;
    }

    void leave(size_t index)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_members[index] = nullptr;
    }

    void signal(size_t index)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        ZnThread* member = m_members[index % m_members.size()];
        if (member != nullptr)
        {
            member->signal();
        }
    }

private:
    std::mutex m_mutex;
    std::vector<ZnThread*> m_members; // guarded by m_mutex
};

/// What the threads count.
struct Counters
{
    std::atomic<int> entered{0};
    std::atomic<int> ended{0};
    std::atomic<int> destroyed{0};
    std::atomic<long> rounds{0};
};

/// Waits a millisecond, signals its neighbour, does a little work, until told to end.
class BusyThread : public ZnThread
{
public:
    BusyThread(Ring& ring, size_t index, Counters& counters)
        : m_ring(ring), m_index(index), m_counters(counters)
    {
        m_ring.join(m_index, this);
    }

    ~BusyThread() override
    {
        m_ring.leave(m_index);
        ++m_counters.destroyed;
    }

    void run() override
    {
        ++m_counters.entered;
        while (getState() != STATE_EXITING && !sShuttingDown())
        {
            wait(1);
            m_ring.signal(m_index + 1);
            ZnString text("round ");
            for (int i = 0; i < 20; ++i)
            {
                text += "x";
            }
            m_checksum += static_cast<unsigned int>(text.length());
            ++m_counters.rounds;
        }
        ++m_counters.ended;
    }

private:
    Ring& m_ring;
    const size_t m_index;
    Counters& m_counters;
    unsigned int m_checksum = 0;
};

/// Sleeps on its event for ever, until told to end.
class SleepingThread : public ZnThread
{
public:
    explicit SleepingThread(Counters& counters) : m_counters(counters) {}
    ~SleepingThread() override { ++m_counters.destroyed; }

    void run() override
    {
        ++m_counters.entered;
        while (getState() != STATE_EXITING)
        {
            wait(kInfinite);
        }
        ++m_counters.ended;
    }

private:
    Counters& m_counters;
};

TEST(ZnShutdownUnderLoadTest, ProcessThatShutsDownUnderLoadEndsWithAnEmptyThreadTable)
{
    ASSERT_FALSE(ZnThread::sShuttingDown()) << "this test needs a process of its own";
    ZnProcess::sGetCurrent();
    ASSERT_EQ(1, ZnThread::getThreadNum());
    constexpr int kBusy = 16;
    constexpr int kSleeping = 3;
    constexpr int kAll = kBusy + kSleeping;
    Ring ring(kBusy);
    Counters counters;
    // The test keeps two of the objects; the table alone holds the others.
    std::vector<ZnHandle<ZnThread>> kept;
    {
        std::vector<ZnHandle<ZnThread>> threads;
        for (int i = 0; i < kBusy; ++i)
        {
            threads.emplace_back(new BusyThread(ring, static_cast<size_t>(i), counters));
        }
        for (int i = 0; i < kSleeping; ++i)
        {
            threads.emplace_back(new SleepingThread(counters));
        }
        for (ZnHandle<ZnThread>& thread : threads)
        {
            thread->fork();
        }
        kept.push_back(threads.front());
        kept.push_back(threads.back());
    }
    ASSERT_TRUE(waitUntil([&] { return counters.entered.load() == kAll; }));
    ASSERT_TRUE(waitUntil([] { return ZnThread::sGetThreadTableSize() == kAll; }));
    // Busy for real before the shutdown comes.
    ASSERT_TRUE(waitUntil([&] { return counters.rounds.load() >= 20L * kBusy; }));
    ASSERT_TRUE(waitUntil([&] { return kept.back()->getState() == ZnThread::STATE_BLOCKED; }));
    EXPECT_EQ(1 + kAll, ZnThread::getThreadNum());

    const Clock::time_point start = Clock::now();
    EXPECT_TRUE(ZnThread::sShutdown());
    const auto took = Clock::now() - start;

    EXPECT_TRUE(ZnThread::sIsShutdownCompleted());
    EXPECT_EQ(0u, ZnThread::sGetThreadTableSize());
    EXPECT_EQ(kAll, counters.ended.load());
    EXPECT_LT(took, std::chrono::seconds(5));
    // Every object the table alone held is gone; the two kept ones live on.
    EXPECT_TRUE(waitUntil([&] { return counters.destroyed.load() == kAll - 2; }));
    EXPECT_TRUE(waitUntil([] { return ZnThread::getThreadNum() == 1 + 2; }));
    for (ZnHandle<ZnThread>& thread : kept)
    {
        EXPECT_TRUE(waitUntil([&] { return thread->getRefCount() == 1; }));
        // No thread runs it any more. A busy thread may end on the flag alone and then still be
        // told to exit by the shutdown's walk, which leaves a detached object exiting.
        const ZnThread::State state = thread->getState();
        EXPECT_TRUE(state == ZnThread::STATE_DETACHED || state == ZnThread::STATE_EXITING)
            << ZnThread::sGetStateText(state);
    }
    kept.clear();
    EXPECT_EQ(kAll, counters.destroyed.load());
    EXPECT_EQ(1, ZnThread::getThreadNum());
}

} // namespace
