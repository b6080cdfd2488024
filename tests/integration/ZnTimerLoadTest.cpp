#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnMonitorThread.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnObserver.h"
#include "ZnUtil/ZnScheduler.h"
#include "ZnUtil/ZnThread.h"
#include "ZnUtil/ZnThreadPool.h"
#include "ZnUtil/ZnTimer.h"
#include "ZnUtil/ZnTimerDispatcher.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/RecordingObserver.h"
#include "support/RunTogether.h"
#include "support/ThreadSettling.h"
#include "support/WaitUntil.h"

namespace
{

using ZnTest::nowMicros;
using ZnTest::SettlingEnvironment;
using ZnTest::waitUntil;

/// How long a step of a run under load may take.
const std::chrono::seconds kLoadLimit(20);

[[maybe_unused]] ::testing::Environment* const s_settling =
    ::testing::AddGlobalTestEnvironment(new SettlingEnvironment(kLoadLimit));

/// An argument that names the timer it belongs to.
class Indexed : public ZnObject
{
public:
    explicit Indexed(int index) : m_index(index) {}
    int getIndex() const { return m_index; }

private:
    int m_index;
};

/// One notification: which timer, when, on which thread.
struct Firing
{
    int index; // -1: an argument that wasn't an Indexed
    int64_t time;
    std::thread::id thread;
    bool nilSource;
};

/// Notes every notification, in the order they take its lock: for notifications on one thread
/// that is the order in which they ran there.
class LoadObserver : public ZnObserver
{
public:
    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override
    {
        const int64_t time = nowMicros();
        SettlingEnvironment::sNote(ZnThread::sGetCurrent());
        const Indexed* indexed = dynamic_cast<const Indexed*>(static_cast<ZnObject*>(aArgument));
        Firing firing{indexed != nullptr ? indexed->getIndex() : -1, time,
                      std::this_thread::get_id(), aSource.isNil()};
        std::lock_guard<std::mutex> lock(m_mutex);
        m_firings.push_back(firing);
        m_changed.notify_all();
    }

    bool waitForCount(size_t count)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, kLoadLimit, [&] { return m_firings.size() >= count; });
    }

    std::vector<Firing> firings() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_firings;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Firing> m_firings;
};

/// What the observers of the mixed run share: per timer, how often it fired and the due time its
/// ZnTimer carried.
struct Tally
{
    explicit Tally(size_t count) : fired(count), carried(count), nonNilSources(0) {}

    std::vector<std::atomic<int>> fired;
    std::vector<std::atomic<int64_t>> carried;
    std::atomic<int> nonNilSources;
    std::atomic<int> total{0};
};

/// The observer of one timer of the mixed run.
class TallyObserver : public ZnObserver
{
public:
    TallyObserver(std::shared_ptr<Tally> tally, size_t index)
        : m_tally(std::move(tally)), m_index(index)
    {
    }

    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override
    {
        SettlingEnvironment::sNote(ZnThread::sGetCurrent());
        if (!aSource.isNil())
        {
            ++m_tally->nonNilSources;
        }
        const ZnTimer* timer = dynamic_cast<const ZnTimer*>(static_cast<ZnObject*>(aArgument));
        m_tally->carried[m_index].store(timer != nullptr ? static_cast<int64_t>(*timer) : -1);
        ++m_tally->fired[m_index];
        ++m_tally->total;
    }

private:
    std::shared_ptr<Tally> m_tally;
    size_t m_index;
};

/// Notes that it was notified.
class Marker : public ZnObserver
{
public:
    void onNotification(ZnHandle<ZnObservable>, ZnHandle<ZnObject>) override
    {
        SettlingEnvironment::sNote(ZnThread::sGetCurrent());
        m_fired.store(true);
    }
    bool fired() const { return m_fired.load(); }

private:
    std::atomic<bool> m_fired{false};
};

/// Waits until every timer of the default monitor has been posted and every notification posted
/// so far has run: the scheduler is empty, a marker posted after everything else has run, and
/// every worker of the timer dispatcher is idle again.
/// \return true when all of that happened within the limit.
bool drainTimers()
{
    ZnMonitorThread* monitor = ZnMonitorThread::sGetCurrent();
    SettlingEnvironment::sNote(monitor);
    if (!waitUntil([monitor] { return monitor->getScheduler().getSize() == 0U; }, kLoadLimit))
    {
        return false;
    }
    ZnHandle<Marker> marker(new Marker());
    ZnMonitorThread::sMonitorTime(0, marker, nullptr);
    if (!waitUntil([&marker] { return marker->fired(); }, kLoadLimit))
    {
        return false;
    }
    ZnThreadPool* pool = ZnTimerDispatcher::getInstance()->getThreadPool();
    return waitUntil([pool] { return pool->getAvailableCount() == pool->getThreadCount(); },
                     kLoadLimit);
}

TEST(ZnTimerLoadTest, TenThousandTimersFireOnceNotEarlyAndInTheirOrder)
{
    const int count = 10000;
    ZnHandle<LoadObserver> observer(new LoadObserver());
    std::vector<ZnHandle<Indexed>> arguments;
    for (int i = 0; i < count; ++i)
    {
        arguments.push_back(new Indexed(i));
    }
    std::mt19937 random(20240611);
    std::uniform_int_distribution<unsigned int> delays(0, 500);

    std::vector<int64_t> keys(count);
    std::vector<int64_t> stored(count); // a reading taken after the timer was in the map
    for (int i = 0; i < count; ++i)
    {
        keys[i] = ZnMonitorThread::sMonitorTime(delays(random), observer, arguments[i]);
        stored[i] = nowMicros();
    }

    ASSERT_TRUE(observer->waitForCount(count));
    ASSERT_TRUE(drainTimers());
    const std::vector<Firing> firings = observer->firings();
    ASSERT_EQ(static_cast<size_t>(count), firings.size());

    // Every one once, none early, each with its own argument and no source.
    std::vector<int> seen(count, 0);
    int early = 0;
    for (const Firing& firing : firings)
    {
        ASSERT_GE(firing.index, 0);
        ASSERT_LT(firing.index, count);
        ++seen[firing.index];
        EXPECT_TRUE(firing.nilSource);
        if (firing.time < keys[firing.index] - 1000)
        {
            ++early;
        }
    }
    for (int i = 0; i < count; ++i)
    {
        EXPECT_EQ(1, seen[i]) << "timer " << i;
    }
    EXPECT_EQ(0, early);

    // Order. Notifications that ran on the same thread were handed over in the order the monitor
    // posted them. And the monitor posts timer X before timer Y with a lower key (or the same
    // key and scheduled before X) whenever Y was in the map before X could be taken, that is
    // when Y was stored before X's key less 1000. So no such pair may run in that order on one
    // thread.
    std::map<std::thread::id, std::vector<int>> byThread;
    for (const Firing& firing : firings)
    {
        byThread[firing.thread].push_back(firing.index);
    }
    long long checked = 0;
    long long inversions = 0;
    std::string firstInversion;
    for (const auto& entry : byThread)
    {
        const std::vector<int>& ran = entry.second;
        for (size_t a = 0; a < ran.size(); ++a)
        {
            const int x = ran[a];
            for (size_t b = a + 1; b < ran.size(); ++b)
            {
                const int y = ran[b];
                if (stored[y] >= keys[x] - 1000)
                {
                    continue;
                }
                ++checked;
                if (keys[y] < keys[x] || (keys[y] == keys[x] && y < x))
                {
                    if (inversions++ == 0)
                    {
                        std::ostringstream text;
                        text << "timer " << x << " (key " << keys[x] << ") ran before timer " << y
                             << " (key " << keys[y] << ")";
                        firstInversion = text.str();
                    }
                }
            }
        }
    }
    EXPECT_EQ(0, inversions) << firstInversion;
    EXPECT_GT(checked, 1000);
    RecordProperty("orderedPairsChecked", std::to_string(checked));
    RecordProperty("threads", static_cast<int>(byThread.size()));
}

TEST(ZnTimerLoadTest, CancelledTimersNeverFireFromFourThreads)
{
    const size_t threads = 4;
    const size_t perThread = 500;
    const size_t count = threads * perThread;
    std::shared_ptr<Tally> tally = std::make_shared<Tally>(count);
    std::vector<ZnHandle<TallyObserver>> observers;
    for (size_t i = 0; i < count; ++i)
    {
        observers.push_back(new TallyObserver(tally, i));
    }
    ZnHandle<ZnObserver> stranger(new ZnObserver());

    enum Fate
    {
        kLeft = 0,         // never cancelled
        kCancelled = 1,    // cancel answered true
        kTooLate = 2,      // cancel answered false
        kWrongObserver = 3 // cancelled with another observer, which must fail
    };
    std::vector<int64_t> keys(count, 0);
    std::vector<int> fates(count, kLeft);
    std::atomic<int> strangerSuccesses{0};

    ZnTest::runTogether(
        static_cast<int>(threads),
        [&](int thread)
        {
            std::mt19937 random(1000 + thread);
            std::uniform_int_distribution<unsigned int> delays(0, 20);
            std::uniform_int_distribution<size_t> lags(0, 4);
            std::vector<size_t> pending;
            size_t lag = lags(random);
            for (size_t j = 0; j < perThread; ++j)
            {
                const size_t index = thread * perThread + j;
                keys[index] =
                    ZnMonitorThread::sMonitorTime(delays(random), observers[index], nullptr);
                if (j % 5 == 1)
                {
                    if (ZnMonitorThread::sCancelTime(stranger, keys[index]))
                    {
                        ++strangerSuccesses;
                    }
                    fates[index] = kWrongObserver;
                }
                else if (j % 2 == 0)
                {
                    pending.push_back(index);
                }
                // Cancel the oldest pending timer once enough others were set
                // since: some are still waiting, some have fired.
                while (pending.size() > lag)
                {
                    const size_t victim = pending.front();
                    pending.erase(pending.begin());
                    fates[victim] = ZnMonitorThread::sCancelTime(observers[victim], keys[victim])
                                        ? kCancelled
                                        : kTooLate;
                    lag = lags(random);
                }
            }
            for (size_t victim : pending)
            {
                fates[victim] = ZnMonitorThread::sCancelTime(observers[victim], keys[victim])
                                    ? kCancelled
                                    : kTooLate;
            }
        });
    EXPECT_EQ(0, strangerSuccesses.load());

    int expected = 0;
    int cancelled = 0;
    int tooLate = 0;
    for (size_t i = 0; i < count; ++i)
    {
        expected += fates[i] != kCancelled;
        cancelled += fates[i] == kCancelled;
        tooLate += fates[i] == kTooLate;
    }
    ASSERT_TRUE(waitUntil([&] { return tally->total.load() >= expected; }, kLoadLimit));
    ASSERT_TRUE(drainTimers());

    for (size_t i = 0; i < count; ++i)
    {
        if (fates[i] == kCancelled)
        {
            EXPECT_EQ(0, tally->fired[i].load()) << "cancelled timer " << i << " fired";
        }
        else
        {
            EXPECT_EQ(1, tally->fired[i].load()) << "timer " << i << " of fate " << fates[i];
            EXPECT_EQ(keys[i], tally->carried[i].load()) << "timer " << i;
        }
    }
    EXPECT_EQ(expected, tally->total.load());
    EXPECT_EQ(0, tally->nonNilSources.load());
    RecordProperty("cancelled", cancelled);
    RecordProperty("tooLate", tooLate);
}

} // namespace
