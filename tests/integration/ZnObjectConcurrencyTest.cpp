#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace
{

const int kThreads = 4;
const int kIterations = 200000;
const int kRounds = 2000;

/// Lets a fixed number of threads meet, again and again.
class Barrier
{
public:
    explicit Barrier(int parties) : m_parties(parties) {}

    void arriveAndWait()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        const unsigned long generation = m_generation;
        if (++m_arrived == m_parties)
        {
            m_arrived = 0;
            ++m_generation;
            m_condition.notify_all();
            return;
        }
        m_condition.wait(lock, [&] { return m_generation != generation; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_condition;
    const int m_parties;
    int m_arrived = 0;              // guarded by m_mutex
    unsigned long m_generation = 0; // guarded by m_mutex
};

/// Records, per object, how often it was destroyed, the count it had then and the thread
/// that destroyed it.
struct DestructionLog
{
    explicit DestructionLog(size_t objects)
        : destructions(new std::atomic<int>[objects]),
          countAtDestruction(new std::atomic<long>[objects]),
          destroyer(new std::atomic<int>[objects])
    {
        for (size_t i = 0; i < objects; ++i)
        {
            destructions[i] = 0;
            countAtDestruction[i] = -1;
            destroyer[i] = -1;
        }
    }

    std::unique_ptr<std::atomic<int>[]> destructions;
    std::unique_ptr<std::atomic<long>[]> countAtDestruction;
    std::unique_ptr<std::atomic<int>[]> destroyer;
};

/// The index of the worker thread running, or -1 on the main thread.
thread_local int t_workerIndex = -1;

class Tracked : public ZnObject
{
public:
    Tracked(DestructionLog* log, size_t index) : m_log(log), m_index(index) {}
    ~Tracked() override
    {
        m_log->countAtDestruction[m_index] = static_cast<long>(getRefCount());
        m_log->destroyer[m_index] = t_workerIndex;
        m_log->destructions[m_index].fetch_add(1);
    }

private:
    DestructionLog* m_log;
    size_t m_index;
};

TEST(ZnObjectConcurrencyTest, ConcurrentHandleCopiesKeepCountExact)
{
    DestructionLog log(1);
    ZnHandle<Tracked> shared(new Tracked(&log, 0));
    Barrier start(kThreads);
    std::atomic<int> lowCounts(0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
    {
        threads.emplace_back(
            [&]
            {
                start.arriveAndWait();
                ZnHandle<Tracked> assigned;
                for (int i = 0; i < kIterations; ++i)
                {
                    ZnHandle<Tracked> copy(shared);
                    assigned = copy;
                    if (copy->getRefCount() < 3)
                    {
                        lowCounts.fetch_add(1);
                    }
                    assigned = ZnHandle<Tracked>();
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(lowCounts.load(), 0);
    EXPECT_EQ(shared->getRefCount(), 1u);
    EXPECT_EQ(log.destructions[0].load(), 0);
    shared = ZnHandle<Tracked>();
    EXPECT_EQ(log.destructions[0].load(), 1);
    EXPECT_EQ(log.countAtDestruction[0].load(), 0);
}

TEST(ZnObjectConcurrencyTest, ConcurrentAddRefAndReleaseBalance)
{
    DestructionLog log(1);
    Tracked* object = new Tracked(&log, 0);
    ZnHandle<Tracked> owner(object);
    Barrier start(kThreads);
    std::atomic<int> impossibleResults(0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
    {
        threads.emplace_back(
            [&]
            {
                start.arriveAndWait();
                for (int i = 0; i < kIterations; ++i)
                {
                    // The owner's reference keeps the count at 1 at least.
                    if (object->AddRef() < 2)
                    {
                        impossibleResults.fetch_add(1);
                    }
                    if (object->Release(true) < 1)
                    {
                        impossibleResults.fetch_add(1);
                    }
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(impossibleResults.load(), 0);
    EXPECT_EQ(object->getRefCount(), 1u);
    EXPECT_EQ(log.destructions[0].load(), 0);
}

TEST(ZnObjectConcurrencyTest, ConcurrentAddRefsAllCount)
{
    DestructionLog log(1);
    Tracked* object = new Tracked(&log, 0);
    Barrier start(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
    {
        threads.emplace_back(
            [&]
            {
                start.arriveAndWait();
                for (int i = 0; i < kIterations; ++i)
                {
                    object->AddRef();
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(object->getRefCount(), static_cast<unsigned long>(kThreads) * kIterations);
    for (unsigned long left = object->getRefCount(); left > 1; --left)
    {
        object->Release(true);
    }
    EXPECT_EQ(log.destructions[0].load(), 0);
    EXPECT_EQ(object->Release(true), 0u);
    EXPECT_EQ(log.destructions[0].load(), 1);
}

TEST(ZnObjectConcurrencyTest, LastReleaseOnAnyThreadDeletesOnce)
{
    DestructionLog log(kRounds);
    std::vector<ZnHandle<Tracked>> slots(
        kThreads); // slot t is written by worker t between barriers
    Barrier barrier(kThreads + 1);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
    {
        threads.emplace_back(
            [&, t]
            {
                t_workerIndex = t;
                for (int round = 0; round < kRounds; ++round)
                {
                    barrier.arriveAndWait();
                    for (int i = 0; i < 20; ++i)
                    {
                        ZnHandle<Tracked> copy(slots[t]);
                    }
                    slots[t] = ZnHandle<Tracked>();
                    barrier.arriveAndWait();
                }
            });
    }

    int roundsWithEarlyDeletion = 0;
    int roundsWithoutDeletion = 0;
    for (int round = 0; round < kRounds; ++round)
    {
        {
            ZnHandle<Tracked> created(new Tracked(&log, static_cast<size_t>(round)));
            for (ZnHandle<Tracked>& slot : slots)
            {
                slot = created;
            }
        }
        if (log.destructions[round].load() != 0)
        {
            ++roundsWithEarlyDeletion;
        }
        barrier.arriveAndWait();
        barrier.arriveAndWait();
        if (log.destructions[round].load() != 1)
        {
            ++roundsWithoutDeletion;
        }
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }

    EXPECT_EQ(roundsWithEarlyDeletion, 0);
    EXPECT_EQ(roundsWithoutDeletion, 0);
    int destroyedOnWorkers[kThreads] = {};
    for (int round = 0; round < kRounds; ++round)
    {
        ASSERT_EQ(log.destructions[round].load(), 1) << "round " << round;
        ASSERT_EQ(log.countAtDestruction[round].load(), 0) << "round " << round;
        const int destroyer = log.destroyer[round].load();
        ASSERT_GE(destroyer, 0) << "round " << round;
        ASSERT_LT(destroyer, kThreads) << "round " << round;
        ++destroyedOnWorkers[destroyer];
    }
    int total = 0;
    for (int count : destroyedOnWorkers)
    {
        total += count;
    }
    EXPECT_EQ(total, kRounds);
}

} // namespace
