#include "ZnUtil/ZnScheduler.h"

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnMonitorThread.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnObserver.h"
#include "ZnUtil/ZnTimer.h"
#include "ZnUtil/ZnTimerDispatcher.h"
#include "ZnUtil/ZnWorkerThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/RecordingObserver.h"
#include "support/ThreadSettling.h"
#include "support/WaitUntil.h"

namespace
{

using namespace std::chrono_literals;
using ZnTest::Journal;
using ZnTest::kLimit;
using ZnTest::Notification;
using ZnTest::nowMicros;
using ZnTest::RecordingObserver;
using ZnTest::SettlingEnvironment;
using ZnTest::Tag;

[[maybe_unused]] ::testing::Environment* const s_settling =
    ::testing::AddGlobalTestEnvironment(new SettlingEnvironment());

/// An observer equal to every other one of the same name, which counts the comparisons made on it.
class NamedObserver : public RecordingObserver
{
public:
    explicit NamedObserver(std::string name) : RecordingObserver(std::move(name)) {}

    int compareWith(const ZnObject* other) const override
    {
        ++m_comparisons;
        m_lastCompared = other;
        const NamedObserver* named = dynamic_cast<const NamedObserver*>(other);
        if (named != nullptr && named->getName() == getName())
        {
            return 0;
        }
        return other == this ? 0 : 1;
    }

    int comparisons() const { return m_comparisons.load(); }
    const ZnObject* lastCompared() const { return m_lastCompared.load(); }

private:
    mutable std::atomic<int> m_comparisons{0};
    mutable std::atomic<const ZnObject*> m_lastCompared{nullptr};
};

/// A monitor thread that is never started: it only counts the wake-ups its scheduler gives it,
/// and the test drives the scheduler itself.
class CountingMonitor : public ZnMonitorThread
{
public:
    void signal() override
    {
        ++m_signals;
        ZnMonitorThread::signal();
    }

    int signals() const { return m_signals.load(); }

private:
    std::atomic<int> m_signals{0};
};

/// Schedules every (observer, argument) pair of \p timers on \p scheduler, in order, so that
/// all of them get the same key, which is due by the time the last one is set. The delays make
/// up for the time between the calls: the first is set n - 1 ms ahead, and each next one 1 ms
/// less, exactly 1000 microseconds later on the scheduler's clock. A round that misses its
/// microsecond is cancelled again and tried anew.
/// \return the common key, or 0 when no round managed it within the limit.
int64_t scheduleWithOneKey(ZnScheduler& scheduler,
                           const std::vector<std::pair<ZnObserver*, ZnObject*>>& timers)
{
    const unsigned int last = static_cast<unsigned int>(timers.size()) - 1;
    const auto deadline = std::chrono::steady_clock::now() + kLimit;
    while (std::chrono::steady_clock::now() < deadline)
    {
        std::vector<int64_t> keys;
        keys.push_back(scheduler.schedule(last, timers[0].first, timers[0].second));
        const int64_t start = keys.front() - static_cast<int64_t>(last) * 1000;
        bool inStep = true;
        for (unsigned int i = 1; i <= last && inStep; ++i)
        {
            const int64_t target = start + static_cast<int64_t>(i) * 1000;
            int64_t now = nowMicros();
            while (now < target)
            {
                now = nowMicros();
            }
            inStep = now == target;
            if (inStep)
            {
                keys.push_back(scheduler.schedule(last - i, timers[i].first, timers[i].second));
            }
        }
        bool same = keys.size() == timers.size();
        for (int64_t key : keys)
        {
            same = same && key == keys.front();
        }
        if (same)
        {
            return keys.front();
        }
        for (int64_t key : keys)
        {
            scheduler.cancel(nullptr, key);
        }
    }
    return 0;
}

/// A scheduler on a monitor thread of its own that never runs: processTimerEvents() is called by
/// the test, and the due timers go to the process's timer dispatcher as they would from a
/// running monitor.
struct Bench
{
    ZnHandle<CountingMonitor> monitor{new CountingMonitor()};
    ZnScheduler scheduler{*monitor};
};

TEST(ZnSchedulerTest, ProcessOnAnEmptyMapReturnsZero)
{
    Bench bench;
    EXPECT_EQ(0U, bench.scheduler.getSize());
    EXPECT_EQ(0, bench.scheduler.processTimerEvents());
    EXPECT_EQ(0, bench.scheduler.processTimerEvents());
    EXPECT_FALSE(bench.scheduler.isShutDown());
    EXPECT_EQ(0, bench.monitor->signals());
}

TEST(ZnSchedulerTest, ScheduleZeroFiresOnTheNextPassAndSignalsTheMonitor)
{
    Bench bench;
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    ZnHandle<Tag> argument(new Tag("zero"));

    const int64_t before = nowMicros();
    const int64_t key = bench.scheduler.schedule(0, observer, argument);
    const int64_t after = nowMicros();
    EXPECT_LE(before, key);
    EXPECT_GE(after, key);
    EXPECT_EQ(1, bench.monitor->signals());
    EXPECT_EQ(1U, bench.scheduler.getSize());

    EXPECT_EQ(0, bench.scheduler.processTimerEvents());
    EXPECT_EQ(0U, bench.scheduler.getSize());
    ASSERT_TRUE(observer->waitForCount(1));
    std::vector<Notification> got = observer->notifications();
    ASSERT_EQ(1U, got.size());
    EXPECT_EQ(static_cast<ZnObject*>(argument), static_cast<ZnObject*>(got[0].argument));
    EXPECT_EQ(nullptr, got[0].source);
    // Handed to a worker of the timer dispatcher's pool, not run on the caller.
    EXPECT_NE(nullptr, dynamic_cast<ZnWorkerThread*>(got[0].thread));
}

TEST(ZnSchedulerTest, OnlyANewEarliestTimerSignalsTheMonitor)
{
    Bench bench;
    ZnHandle<RecordingObserver> observer(new RecordingObserver());

    // The first timer of an empty map is the earliest.
    const int64_t late = bench.scheduler.schedule(600000, observer, nullptr);
    EXPECT_EQ(1, bench.monitor->signals());
    // A later one costs no wake-up.
    const int64_t later = bench.scheduler.schedule(700000, observer, nullptr);
    EXPECT_LT(late, later);
    EXPECT_EQ(1, bench.monitor->signals());
    // An earlier one does.
    const int64_t early = bench.scheduler.schedule(0, observer, nullptr);
    EXPECT_LT(early, late);
    EXPECT_EQ(2, bench.monitor->signals());
    EXPECT_EQ(3U, bench.scheduler.getSize());
    // As does one earlier still, even if it isn't due yet.
    EXPECT_TRUE(bench.scheduler.cancel(early));
    bench.scheduler.schedule(500000, observer, nullptr);
    EXPECT_EQ(3, bench.monitor->signals());
    EXPECT_EQ(3U, bench.scheduler.getSize());
}

TEST(ZnSchedulerTest, EqualKeysLeaveInTheOrderTheyWereScheduled)
{
    // A nil observer ends a pass: of two due timers around it, only the one ahead of it goes.
    Bench bench;
    ZnHandle<RecordingObserver> first(new RecordingObserver("first"));
    ZnHandle<RecordingObserver> second(new RecordingObserver("second"));

    const int64_t key = scheduleWithOneKey(
        bench.scheduler, {{first, nullptr}, {nullptr, nullptr}, {second, nullptr}});
    ASSERT_NE(0, key);
    ASSERT_EQ(3U, bench.scheduler.getSize());
    EXPECT_EQ(0, bench.scheduler.processTimerEvents());
    EXPECT_EQ(1U, bench.scheduler.getSize());
    EXPECT_FALSE(bench.scheduler.cancel(first, key));
    EXPECT_TRUE(bench.scheduler.cancel(second, key));
    ASSERT_TRUE(first->waitForCount(1));

    // The same two the other way round: the order is that of scheduling, not of the observers.
    const int64_t again = scheduleWithOneKey(
        bench.scheduler, {{second, nullptr}, {nullptr, nullptr}, {first, nullptr}});
    ASSERT_NE(0, again);
    EXPECT_EQ(0, bench.scheduler.processTimerEvents());
    EXPECT_EQ(1U, bench.scheduler.getSize());
    EXPECT_FALSE(bench.scheduler.cancel(second, again));
    EXPECT_TRUE(bench.scheduler.cancel(first, again));
    ASSERT_TRUE(second->waitForCount(1));
    EXPECT_EQ(1U, first->count());
}

TEST(ZnSchedulerTest, EqualKeysFireInTheOrderTheyWereScheduled)
{
    // Each pass posts one of them (the nil observer behind it ends the pass), so that the pool's
    // workers can't reorder what the observers see.
    Bench bench;
    std::shared_ptr<Journal> journal = std::make_shared<Journal>();
    ZnHandle<RecordingObserver> a(new RecordingObserver("a", journal));
    ZnHandle<RecordingObserver> b(new RecordingObserver("b", journal));

    const int64_t key =
        scheduleWithOneKey(bench.scheduler, {{b, nullptr}, {nullptr, nullptr}, {a, nullptr}});
    ASSERT_NE(0, key);
    EXPECT_EQ(0, bench.scheduler.processTimerEvents());
    ASSERT_TRUE(journal->waitForSize(1));
    EXPECT_EQ(0, bench.scheduler.processTimerEvents());
    ASSERT_TRUE(journal->waitForSize(2));
    EXPECT_EQ((std::vector<std::string>{"b", "a"}), journal->names());
    EXPECT_EQ(0U, bench.scheduler.getSize());

    // Both carry the key they share.
    ASSERT_TRUE(a->waitForCount(1));
    ASSERT_TRUE(b->waitForCount(1));
    const ZnTimer* timerOfA =
        dynamic_cast<const ZnTimer*>(static_cast<ZnObject*>(a->notifications()[0].argument));
    const ZnTimer* timerOfB =
        dynamic_cast<const ZnTimer*>(static_cast<ZnObject*>(b->notifications()[0].argument));
    ASSERT_NE(nullptr, timerOfA);
    ASSERT_NE(nullptr, timerOfB);
    EXPECT_EQ(key, static_cast<int64_t>(*timerOfA));
    EXPECT_EQ(key, static_cast<int64_t>(*timerOfB));
}

TEST(ZnSchedulerTest, TimerDueWithin1000MicrosecondsFiresAtOnce)
{
    Bench bench;
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    for (size_t round = 1; round <= 20; ++round)
    {
        // Due in at most 1000 microseconds by the time the pass reads the clock.
        bench.scheduler.schedule(1, observer, nullptr);
        EXPECT_EQ(0, bench.scheduler.processTimerEvents());
        EXPECT_EQ(0U, bench.scheduler.getSize());
        ASSERT_TRUE(observer->waitForCount(round));
    }

    // Due in 2 ms, passed when no more than 1000 microseconds are left.
    const int64_t key = bench.scheduler.schedule(2, observer, nullptr);
    while (nowMicros() < key - 1000)
    {
    }
    EXPECT_EQ(0, bench.scheduler.processTimerEvents());
    EXPECT_EQ(0U, bench.scheduler.getSize());
    ASSERT_TRUE(observer->waitForCount(21));
    // Fired early, but never more than 1000 microseconds early.
    EXPECT_GE(observer->notifications().back().time, key - 1000);
}

TEST(ZnSchedulerTest, TimerDueInMoreThan1000MicrosecondsWaits)
{
    Bench bench;
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    ZnHandle<Tag> argument(new Tag("waiting"));

    // Far from due: kept, and the delay is what is left of it.
    const int64_t key = bench.scheduler.schedule(50, observer, argument);
    const int64_t before = nowMicros();
    const int64_t delay = bench.scheduler.processTimerEvents();
    const int64_t after = nowMicros();
    ASSERT_LT(after, key - 1000);
    EXPECT_EQ(1U, bench.scheduler.getSize());
    EXPECT_LE(key - after, delay);
    EXPECT_GE(key - before, delay);
    EXPECT_LE(delay, 50000);

    // Near the boundary: each pass either keeps the timer, with a delay of 1001 or more that
    // tells when the pass read its clock, or fires it at a reading of at most 1000 before its
    // key. The passes start from 1001 to 1004 microseconds before the key, until one of them has
    // read exactly 1001 before it, and kept the timer.
    int kept = 0;
    int keptAt1001 = 0;
    int fired = 0;
    EXPECT_TRUE(bench.scheduler.cancel(key));
    const auto deadline = std::chrono::steady_clock::now() + 3s;
    for (int round = 0;
         std::chrono::steady_clock::now() < deadline && (keptAt1001 == 0 || fired == 0); ++round)
    {
        const int64_t nearKey = bench.scheduler.schedule(2, observer, argument);
        const int64_t spinEnd = nearKey - 1001 - round % 4;
        while (nowMicros() < spinEnd)
        {
        }
        const int64_t from = nowMicros();
        const int64_t result = bench.scheduler.processTimerEvents();
        const int64_t to = nowMicros();
        if (bench.scheduler.getSize() == 1U)
        {
            ++kept;
            keptAt1001 += result == 1001;
            EXPECT_GE(result, 1001);
            EXPECT_LE(nearKey - to, result);
            EXPECT_GE(nearKey - from, result);
            EXPECT_TRUE(bench.scheduler.cancel(nearKey));
        }
        else
        {
            ++fired;
            EXPECT_EQ(0, result);
            EXPECT_GE(to, nearKey - 1000);
            EXPECT_EQ(0U, bench.scheduler.getSize());
        }
    }
    EXPECT_GT(keptAt1001, 0);
    ASSERT_TRUE(observer->waitForCount(static_cast<size_t>(fired)));
    for (const Notification& notification : observer->notifications())
    {
        EXPECT_EQ(static_cast<ZnObject*>(argument), static_cast<ZnObject*>(notification.argument));
    }
    RecordProperty("kept", kept);
    RecordProperty("keptAt1001", keptAt1001);
    RecordProperty("fired", fired);
}

TEST(ZnSchedulerTest, WithoutArgumentTheObserverGetsATimerWithTheKey)
{
    Bench bench;
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    const int64_t key = bench.scheduler.schedule(0, observer, nullptr);
    EXPECT_EQ(0, bench.scheduler.processTimerEvents());
    ASSERT_TRUE(observer->waitForCount(1));
    ZnHandle<ZnObject> argument = observer->notifications()[0].argument;
    ASSERT_FALSE(argument.isNil());
    const ZnTimer* timer = dynamic_cast<const ZnTimer*>(static_cast<ZnObject*>(argument));
    ASSERT_NE(nullptr, timer);
    EXPECT_EQ(key, static_cast<int64_t>(*timer));
    EXPECT_STREQ("ZnTimer", argument->getClassName());
}

TEST(ZnSchedulerTest, TheObserverSeesANilSource)
{
    // Even an observer that has a source of its own is notified without it.
    Bench bench;
    ZnHandle<ZnObservable> source(new ZnObservable());
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    source->attachObserver(observer);
    ASSERT_FALSE(observer->getSource().isNil());

    ZnHandle<Tag> argument(new Tag("with source"));
    bench.scheduler.schedule(0, observer, argument);
    bench.scheduler.schedule(0, observer, nullptr);
    EXPECT_EQ(0, bench.scheduler.processTimerEvents());
    ASSERT_TRUE(observer->waitForCount(2));
    for (const Notification& notification : observer->notifications())
    {
        EXPECT_EQ(nullptr, notification.source);
    }
    source->detachObserver(observer);
}

TEST(ZnSchedulerTest, CancelWithAnotherObserverFailsAndKeepsTheEntry)
{
    Bench bench;
    ZnHandle<RecordingObserver> owner(new RecordingObserver());
    ZnHandle<RecordingObserver> stranger(new RecordingObserver());
    ZnHandle<Tag> argument(new Tag("kept"));

    const int64_t key = bench.scheduler.schedule(0, owner, argument);
    EXPECT_FALSE(bench.scheduler.cancel(stranger, key));
    EXPECT_EQ(1U, bench.scheduler.getSize());

    // The entry is still whole: it fires for its own observer.
    EXPECT_EQ(0, bench.scheduler.processTimerEvents());
    ASSERT_TRUE(owner->waitForCount(1));
    EXPECT_EQ(static_cast<ZnObject*>(argument),
              static_cast<ZnObject*>(owner->notifications()[0].argument));
    EXPECT_EQ(0U, stranger->count());

    // And cancel with the right observer removes it.
    const int64_t other = bench.scheduler.schedule(600000, owner, nullptr);
    EXPECT_TRUE(bench.scheduler.cancel(owner, other));
    EXPECT_EQ(0U, bench.scheduler.getSize());
    EXPECT_FALSE(bench.scheduler.cancel(owner, other));
}

TEST(ZnSchedulerTest, CancelWithAnObserverRemovesOnlyTheFirstMatch)
{
    Bench bench;
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    ZnHandle<Tag> one(new Tag("one"));
    ZnHandle<Tag> two(new Tag("two"));

    const int64_t key = scheduleWithOneKey(bench.scheduler, {{observer, one}, {observer, two}});
    ASSERT_NE(0, key);
    EXPECT_TRUE(bench.scheduler.cancel(observer, key));
    EXPECT_EQ(1U, bench.scheduler.getSize());
    EXPECT_EQ(1UL, one->getRefCount());
    EXPECT_EQ(2UL, two->getRefCount());

    EXPECT_EQ(0, bench.scheduler.processTimerEvents());
    ASSERT_TRUE(observer->waitForCount(1));
    EXPECT_EQ(static_cast<ZnObject*>(two),
              static_cast<ZnObject*>(observer->notifications()[0].argument));
}

TEST(ZnSchedulerTest, CancelWithNullObserverIsTrueForAnUnknownKey)
{
    Bench bench;
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    const int64_t unknown = nowMicros() + 3600000000LL;
    EXPECT_TRUE(bench.scheduler.cancel(nullptr, unknown));
    EXPECT_FALSE(bench.scheduler.cancel(unknown));

    // Also with other entries about, which stay.
    const int64_t key = bench.scheduler.schedule(600000, observer, nullptr);
    ASSERT_NE(key, unknown);
    EXPECT_TRUE(bench.scheduler.cancel(nullptr, unknown));
    EXPECT_FALSE(bench.scheduler.cancel(unknown));
    EXPECT_EQ(1U, bench.scheduler.getSize());

    // A key that was known once is unknown after its cancellation.
    EXPECT_TRUE(bench.scheduler.cancel(key));
    EXPECT_FALSE(bench.scheduler.cancel(key));
    EXPECT_TRUE(bench.scheduler.cancel(nullptr, key));
    EXPECT_EQ(0U, bench.scheduler.getSize());
}

TEST(ZnSchedulerTest, CancelKeyRemovesEveryEntryOfThatKey)
{
    Bench bench;
    ZnHandle<RecordingObserver> a(new RecordingObserver());
    ZnHandle<RecordingObserver> b(new RecordingObserver());
    const int64_t other = bench.scheduler.schedule(600000, a, nullptr);

    const int64_t key = scheduleWithOneKey(bench.scheduler, {{a, nullptr}, {b, nullptr}});
    ASSERT_NE(0, key);
    ASSERT_EQ(3U, bench.scheduler.getSize());
    EXPECT_TRUE(bench.scheduler.cancel(key));
    EXPECT_EQ(1U, bench.scheduler.getSize());
    EXPECT_FALSE(bench.scheduler.cancel(key));

    // The null-observer form does the same.
    const int64_t again = scheduleWithOneKey(bench.scheduler, {{b, nullptr}, {a, nullptr}});
    ASSERT_NE(0, again);
    ASSERT_EQ(3U, bench.scheduler.getSize());
    EXPECT_TRUE(bench.scheduler.cancel(nullptr, again));
    EXPECT_EQ(1U, bench.scheduler.getSize());

    // The other key was never touched.
    EXPECT_TRUE(bench.scheduler.cancel(a, other));
    EXPECT_EQ(0U, bench.scheduler.getSize());
}

TEST(ZnSchedulerTest, KeyZeroIsNoKey)
{
    Bench bench;
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    bench.scheduler.schedule(600000, observer, nullptr);
    bench.scheduler.schedule(0, observer, nullptr);

    EXPECT_FALSE(bench.scheduler.cancel(0));
    EXPECT_FALSE(bench.scheduler.cancel(observer, 0));
    // Unlike any other unknown key, not even the null-observer form says yes to it.
    EXPECT_FALSE(bench.scheduler.cancel(nullptr, 0));
    EXPECT_EQ(2U, bench.scheduler.getSize());
}

TEST(ZnSchedulerTest, ScheduleAfterShutdownReturnsAKeyAndNothingFires)
{
    Bench bench;
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    ZnHandle<Tag> argument(new Tag("too late"));

    bench.scheduler.schedule(600000, observer, argument);
    ASSERT_EQ(2UL, argument->getRefCount());
    bench.scheduler.shutdown();
    EXPECT_TRUE(bench.scheduler.isShutDown());
    EXPECT_EQ(0U, bench.scheduler.getSize());
    EXPECT_EQ(1UL, argument->getRefCount());
    const int signals = bench.monitor->signals();

    const int64_t before = nowMicros();
    const int64_t key = bench.scheduler.schedule(5, observer, argument);
    const int64_t after = nowMicros();
    EXPECT_LE(before + 5000, key);
    EXPECT_GE(after + 5000, key);
    EXPECT_EQ(0U, bench.scheduler.getSize());
    // Nothing holds the timer's parts: nothing can fire.
    EXPECT_EQ(1UL, argument->getRefCount());
    EXPECT_EQ(1UL, observer->getRefCount());
    EXPECT_EQ(signals, bench.monitor->signals());
    EXPECT_EQ(0, bench.scheduler.processTimerEvents());
    EXPECT_FALSE(bench.scheduler.cancel(key));
    EXPECT_EQ(0U, observer->count());
}

TEST(ZnSchedulerTest, ProcessReturnsTheDelayOfTheEarliestTimer)
{
    Bench bench;
    ZnHandle<RecordingObserver> observer(new RecordingObserver());

    const int64_t far = bench.scheduler.schedule(400, observer, nullptr);
    const int64_t near = bench.scheduler.schedule(200, observer, nullptr);
    const int64_t before = nowMicros();
    const int64_t delay = bench.scheduler.processTimerEvents();
    const int64_t after = nowMicros();
    EXPECT_GT(delay, 1000);
    EXPECT_LE(delay, 200000);
    EXPECT_LE(near - after, delay);
    EXPECT_GE(near - before, delay);
    EXPECT_EQ(2U, bench.scheduler.getSize());

    // Without the earlier one, the later one sets the delay.
    EXPECT_TRUE(bench.scheduler.cancel(near));
    const int64_t from = nowMicros();
    const int64_t next = bench.scheduler.processTimerEvents();
    const int64_t to = nowMicros();
    EXPECT_GT(next, 200000);
    EXPECT_LE(next, 400000);
    EXPECT_LE(far - to, next);
    EXPECT_GE(far - from, next);
    EXPECT_EQ(0U, observer->count());
}

TEST(ZnSchedulerTest, ProcessPostsDueTimersAndReturnsTheDelayOfTheRest)
{
    Bench bench;
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    bench.scheduler.schedule(0, observer, nullptr);
    bench.scheduler.schedule(1, observer, nullptr);
    const int64_t later = bench.scheduler.schedule(600000, observer, nullptr);

    const int64_t before = nowMicros();
    const int64_t delay = bench.scheduler.processTimerEvents();
    EXPECT_LE(delay, later - before);
    EXPECT_GT(delay, 599000000LL);
    EXPECT_EQ(1U, bench.scheduler.getSize());
    ASSERT_TRUE(observer->waitForCount(2));
}

TEST(ZnSchedulerTest, NilObserverEntryIsDroppedAndEndsThePass)
{
    Bench bench;
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    ZnHandle<Tag> argument(new Tag("dropped"));

    // With a later timer waiting, the pass still answers 0.
    bench.scheduler.schedule(0, nullptr, argument);
    const int64_t later = bench.scheduler.schedule(600000, observer, nullptr);
    ASSERT_EQ(2UL, argument->getRefCount());
    EXPECT_EQ(0, bench.scheduler.processTimerEvents());
    EXPECT_EQ(1U, bench.scheduler.getSize());
    EXPECT_EQ(1UL, argument->getRefCount());
    const int64_t before = nowMicros();
    const int64_t delay = bench.scheduler.processTimerEvents();
    const int64_t after = nowMicros();
    EXPECT_LE(later - after, delay);
    EXPECT_GE(later - before, delay);
    EXPECT_TRUE(bench.scheduler.cancel(later));

    // A due timer behind it waits for the next pass.
    bench.scheduler.schedule(0, nullptr, nullptr);
    bench.scheduler.schedule(0, observer, argument);
    EXPECT_EQ(0, bench.scheduler.processTimerEvents());
    EXPECT_EQ(1U, bench.scheduler.getSize());
    EXPECT_EQ(0, bench.scheduler.processTimerEvents());
    EXPECT_EQ(0U, bench.scheduler.getSize());
    ASSERT_TRUE(observer->waitForCount(1));
    EXPECT_EQ(static_cast<ZnObject*>(argument),
              static_cast<ZnObject*>(observer->notifications()[0].argument));
}

TEST(ZnSchedulerTest, GetSizeCountsTheEntriesHeld)
{
    Bench bench;
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    EXPECT_EQ(0U, bench.scheduler.getSize());
    const int64_t first = bench.scheduler.schedule(600000, observer, nullptr);
    EXPECT_EQ(1U, bench.scheduler.getSize());
    bench.scheduler.schedule(700000, observer, nullptr);
    bench.scheduler.schedule(0, observer, nullptr);
    EXPECT_EQ(3U, bench.scheduler.getSize());
    EXPECT_TRUE(bench.scheduler.cancel(first));
    EXPECT_EQ(2U, bench.scheduler.getSize());
    bench.scheduler.processTimerEvents();
    EXPECT_EQ(1U, bench.scheduler.getSize());
    ASSERT_TRUE(observer->waitForCount(1));
    bench.scheduler.shutdown();
    EXPECT_EQ(0U, bench.scheduler.getSize());
}

TEST(ZnSchedulerTest, CancelMatchesTheObserverThroughCompareWith)
{
    Bench bench;
    ZnHandle<NamedObserver> stored(new NamedObserver("x"));
    ZnHandle<NamedObserver> twin(new NamedObserver("x"));
    ZnHandle<NamedObserver> stranger(new NamedObserver("y"));
    ASSERT_NE(static_cast<ZnObserver*>(stored), static_cast<ZnObserver*>(twin));

    const int64_t key = bench.scheduler.schedule(600000, stored, nullptr);
    EXPECT_FALSE(bench.scheduler.cancel(stranger, key));
    EXPECT_EQ(1U, bench.scheduler.getSize());
    EXPECT_GE(stored->comparisons(), 1);
    EXPECT_EQ(static_cast<ZnObject*>(stranger), stored->lastCompared());

    // A distinct object that compares equal cancels the entry: the stored observer's compareWith
    // is asked with the given one.
    EXPECT_TRUE(bench.scheduler.cancel(twin, key));
    EXPECT_EQ(0U, bench.scheduler.getSize());
    EXPECT_EQ(static_cast<ZnObject*>(twin), stored->lastCompared());
}

} // namespace
