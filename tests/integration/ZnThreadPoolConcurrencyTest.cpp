#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnObserver.h"
#include "ZnUtil/ZnThread.h"
#include "ZnUtil/ZnThreadPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "support/RunTogether.h"
#include "support/ThreadEnd.h"
#include "support/WaitUntil.h"

namespace
{

using ZnTest::waitUntil;

const int kCallers = 4;
const int kNotificationsPerCaller = 20000;
const unsigned int kMaximum = 4;

/// The argument of one notification, numbered across all callers.
class Numbered : public ZnObject
{
public:
    explicit Numbered(int id) : m_id(id) {}
    int getId() const { return m_id; }

private:
    int m_id;
};

/// Counts the notifications per number, and keeps a handle on each worker thread seen so that the
/// test can end them. Runs on workers and callers at the same time.
class CountingObserver : public ZnObserver
{
public:
    explicit CountingObserver(int ids) : m_counts(new std::atomic<int>[ids]), m_ids(ids)
    {
        for (int id = 0; id < ids; ++id)
        {
            m_counts[id].store(0);
        }
    }

    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override
    {
        if (!aSource.isNil())
        {
            ++m_withSource;
        }
        const Numbered* numbered = dynamic_cast<const Numbered*>(static_cast<ZnObject*>(aArgument));
        if (numbered == nullptr || numbered->getId() < 0 || numbered->getId() >= m_ids)
        {
            ++m_strays;
            return;
        }
        m_counts[numbered->getId()].fetch_add(1);
        ++m_total;
        ZnThread* current = ZnThread::sGetCurrent();
        if (current != nullptr)
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (std::none_of(m_workers.begin(), m_workers.end(),
                             [current](const ZnHandle<ZnThread>& worker)
                             { return static_cast<ZnThread*>(worker) == current; }))
            {
                m_workers.push_back(ZnHandle<ZnThread>(current));
            }
        }
    }

    int count(int id) const { return m_counts[id].load(); }
    long total() const { return m_total.load(); }
    int strays() const { return m_strays.load(); }
    int withSource() const { return m_withSource.load(); }

    std::vector<ZnHandle<ZnThread>> takeWorkers()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<ZnHandle<ZnThread>> workers;
        workers.swap(m_workers);
        return workers;
    }

private:
    std::unique_ptr<std::atomic<int>[]> m_counts;
    const int m_ids;
    std::atomic<long> m_total{0};
    std::atomic<int> m_strays{0};
    std::atomic<int> m_withSource{0};
    std::mutex m_mutex;
    std::vector<ZnHandle<ZnThread>> m_workers;
};

TEST(ZnThreadPoolConcurrencyTest, EveryNotificationIsDeliveredExactlyOnce)
{
    const int ids = kCallers * kNotificationsPerCaller;
    ZnThreadPool pool(ZnHandle<ZnThread>(), kMaximum);
    ZnHandle<CountingObserver> observer(new CountingObserver(ids));
    std::atomic<unsigned int> mostThreads{0};

    ZnTest::runTogether(
        kCallers,
        [&](int caller)
        {
            for (int n = 0; n < kNotificationsPerCaller; ++n)
            {
                ZnHandle<Numbered> argument(new Numbered(caller * kNotificationsPerCaller + n));
                pool.doObserverNotifications(observer, argument);
                const unsigned int threads = pool.getThreadCount();
                unsigned int seen = mostThreads.load();
                while (threads > seen && !mostThreads.compare_exchange_weak(seen, threads))
                {
                }
            }
        });

    // Every worker is back on the stack once its last job is done.
    EXPECT_TRUE(waitUntil([&] { return pool.getAvailableCount() == pool.getThreadCount(); }));
    EXPECT_TRUE(waitUntil([&] { return observer->total() == ids; }));
    EXPECT_EQ(0u, pool.getBusyCount());

    int missing = 0;
    int repeated = 0;
    for (int id = 0; id < ids; ++id)
    {
        missing += observer->count(id) == 0 ? 1 : 0;
        repeated += observer->count(id) > 1 ? 1 : 0;
    }
    EXPECT_EQ(0, missing);
    EXPECT_EQ(0, repeated);
    EXPECT_EQ(ids, observer->total());
    EXPECT_EQ(0, observer->strays());
    // Observer notifications carry no source, on workers and callers alike.
    EXPECT_EQ(0, observer->withSource());

    // Callers that pass the test at once may each make one worker beyond the maximum.
    EXPECT_GE(mostThreads.load(), 1u);
    EXPECT_LE(mostThreads.load(), kMaximum + kCallers);
    EXPECT_LE(pool.getThreadCount(), kMaximum + kCallers);

    // End the workers; each one leaves the pool.
    std::vector<ZnHandle<ZnThread>> workers = observer->takeWorkers();
    EXPECT_EQ(pool.getThreadCount(), workers.size());
    EXPECT_TRUE(ZnTest::terminateAllAndWait(workers));
    EXPECT_EQ(0u, pool.getThreadCount());
}

TEST(ZnThreadPoolConcurrencyTest, SourceNotificationsFromManyCallersAreEachDeliveredOnce)
{
    const int perCaller = kNotificationsPerCaller / 4;
    const int ids = kCallers * perCaller;
    ZnThreadPool pool(ZnHandle<ZnThread>(), kMaximum);
    ZnHandle<CountingObserver> observer(new CountingObserver(ids));
    ZnHandle<ZnObservable> source(new ZnObservable);
    source->attachObserver(observer);

    ZnTest::runTogether(kCallers,
                        [&](int caller)
                        {
                            for (int n = 0; n < perCaller; ++n)
                            {
                                ZnHandle<Numbered> argument(new Numbered(caller * perCaller + n));
                                pool.doSourceNotifications(source, argument);
                            }
                        });

    EXPECT_TRUE(waitUntil([&] { return pool.getAvailableCount() == pool.getThreadCount(); }));
    EXPECT_TRUE(waitUntil([&] { return observer->total() == ids; }));
    int wrong = 0;
    for (int id = 0; id < ids; ++id)
    {
        wrong += observer->count(id) == 1 ? 0 : 1;
    }
    EXPECT_EQ(0, wrong);
    EXPECT_EQ(ids, observer->withSource());
    EXPECT_LE(pool.getThreadCount(), kMaximum + kCallers);

    std::vector<ZnHandle<ZnThread>> workers = observer->takeWorkers();
    EXPECT_TRUE(ZnTest::terminateAllAndWait(workers));
    EXPECT_EQ(0u, pool.getThreadCount());
    source->detachObserver(observer);
}

} // namespace
