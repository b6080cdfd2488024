#include "ZnUtil/ZnMonitorThread.h"

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnObserverThread.h"
#include "ZnUtil/ZnScheduler.h"
#include "ZnUtil/ZnThread.h"
#include "ZnUtil/ZnTimer.h"

#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "support/RecordingObserver.h"
#include "support/ThreadEnd.h"
#include "support/ThreadSettling.h"
#include "support/WaitUntil.h"

namespace
{

using Tavoris::MemAccount;
using ZnTest::kLimit;
using ZnTest::Notification;
using ZnTest::nowMicros;
using ZnTest::RecordingObserver;
using ZnTest::SettlingEnvironment;
using ZnTest::Tag;
using ZnTest::terminateAndWait;
using ZnTest::waitUntil;

[[maybe_unused]] ::testing::Environment* const s_settling =
    ::testing::AddGlobalTestEnvironment(new SettlingEnvironment());

/// The default monitor, which is to be asleep again when the program ends.
ZnMonitorThread* defaultMonitor()
{
    ZnMonitorThread* monitor = ZnMonitorThread::sGetCurrent();
    SettlingEnvironment::sNote(monitor);
    return monitor;
}

/// A monitor thread that first runs a probe on its own thread, then its ordinary timer loop.
class ProbingMonitor : public ZnMonitorThread
{
public:
    explicit ProbingMonitor(std::function<void()> probe) : m_probe(std::move(probe)) {}

    void run() override
    {
        m_probe();
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_probed = true;
            m_changed.notify_all();
        }
        ZnMonitorThread::run();
    }

    bool waitForProbe()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, kLimit, [this] { return m_probed; });
    }

private:
    std::function<void()> m_probe;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_probed = false;
};

/// The head of a chain for an observer thread: the first block() delivers at once, every later
/// one waits until unblock(). Each block() notes the thread it runs on; the first one keeps a
/// handle on it, so that the test can end it.
class GatedSource : public ZnObservable
{
public:
    bool block() override
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        ++m_blockCalls;
        m_threads.push_back(ZnThread::sGetCurrent());
        if (m_hThread.isNil())
        {
            m_hThread = ZnThread::sGetCurrent();
        }
        m_changed.notify_all();
        if (m_blockCalls == 1)
        {
            return true;
        }
        m_changed.wait(lock, [this] { return m_released; });
        return false;
    }

    bool unblock() override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_unblockCalls;
        m_released = true;
        m_changed.notify_all();
        return true;
    }

    bool waitForBlockCalls(int count)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, kLimit, [&] { return m_blockCalls >= count; });
    }

    std::vector<ZnThread*> threads() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_threads;
    }

    ZnHandle<ZnThread> thread() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_hThread;
    }

    int unblockCalls() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_unblockCalls;
    }

    /// Lets go of the thread, once it has ended.
    void forgetThread()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_hThread = nullptr;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_blockCalls = 0;
    int m_unblockCalls = 0;
    bool m_released = false;
    std::vector<ZnThread*> m_threads; // compared, never used
    ZnHandle<ZnThread> m_hThread;
};

/// Checks what an observer thread started for \p source does: it drives block() on a thread of
/// its own, again and again, until it is terminated, which goes through unblock().
void expectDrivenByAnObserverThread(GatedSource* source, const ZnThread* monitor)
{
    ASSERT_TRUE(source->waitForBlockCalls(2));
    ZnHandle<ZnThread> thread = source->thread();
    ASSERT_FALSE(thread.isNil());
    EXPECT_NE(nullptr, dynamic_cast<ZnObserverThread*>(static_cast<ZnThread*>(thread)));
    EXPECT_NE(monitor, static_cast<ZnThread*>(thread));
    for (ZnThread* caller : source->threads())
    {
        EXPECT_EQ(static_cast<ZnThread*>(thread), caller);
    }
    EXPECT_EQ(
        static_cast<ZnObservable*>(source),
        static_cast<ZnObservable*>(
            dynamic_cast<ZnObserverThread*>(static_cast<ZnThread*>(thread))->getObservable()));

    thread->terminate();
    EXPECT_TRUE(waitUntil([&] { return thread->getState() == ZnThread::STATE_DETACHED; }));
    EXPECT_EQ(1, source->unblockCalls());
    source->forgetThread();
    EXPECT_TRUE(waitUntil([&] { return thread->getRefCount() == 1; }));
}

TEST(ZnMonitorThreadTest, SGetCurrentOffAMonitorThreadIsTheDefaultInstance)
{
    const MemAccount::Reading before = MemAccount::sRead("ZnMonitorThread");
    ZnMonitorThread* first = defaultMonitor();
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(first, ZnMonitorThread::sGetCurrent());
    ZnMonitorThread* fromElsewhere = nullptr;
    std::thread other([&fromElsewhere] { fromElsewhere = ZnMonitorThread::sGetCurrent(); });
    other.join();
    EXPECT_EQ(first, fromElsewhere);

    // Forked, and with no timer it sleeps until signalled.
    EXPECT_NE(0U, first->getToken());
    EXPECT_TRUE(waitUntil([first] { return first->getState() == ZnThread::STATE_BLOCKED; }));
    EXPECT_FALSE(first->getScheduler().isShutDown());

    // It lives on its memory account.
    const MemAccount::Reading after = MemAccount::sRead("ZnMonitorThread");
    EXPECT_GE(after.liveBlocks, 1);
    EXPECT_GE(after.liveBytes, static_cast<int64_t>(sizeof(ZnMonitorThread)));
    if (before.liveBlocks == 0)
    {
        EXPECT_EQ(1, after.liveBlocks);
        EXPECT_EQ(before.totalBlocks + 1, after.totalBlocks);
    }
    EXPECT_STREQ("ZnMonitorThread", ZnMonitorThread::getMemAccountName());
}

TEST(ZnMonitorThreadTest, OwnMonitorObjectsLiveOnTheMemoryAccount)
{
    const MemAccount::Reading before = MemAccount::sRead("ZnMonitorThread");
    {
        ZnHandle<ZnMonitorThread> own(new ZnMonitorThread());
        const MemAccount::Reading during = MemAccount::sRead("ZnMonitorThread");
        EXPECT_EQ(before.liveBlocks + 1, during.liveBlocks);
        EXPECT_EQ(before.totalBlocks + 1, during.totalBlocks);
        EXPECT_GE(during.liveBytes - before.liveBytes,
                  static_cast<int64_t>(sizeof(ZnMonitorThread)));
        EXPECT_EQ(ZnThread::STATE_DETACHED, own->getState());
    }
    EXPECT_EQ(before.liveBlocks, MemAccount::sRead("ZnMonitorThread").liveBlocks);
}

TEST(ZnMonitorThreadTest, SCancelTimeOnAMonitorThreadOfOnesOwnUsesItsScheduler)
{
    ZnMonitorThread* theDefault = defaultMonitor();
    ZnHandle<RecordingObserver> defaultObserver(new RecordingObserver());
    ZnHandle<RecordingObserver> ownObserver(new RecordingObserver());
    const unsigned int defaultSize = theDefault->getScheduler().getSize();
    const int64_t defaultKey = ZnMonitorThread::sMonitorTime(600000, defaultObserver, nullptr);
    EXPECT_EQ(defaultSize + 1, theDefault->getScheduler().getSize());

    ZnMonitorThread* seen = nullptr;
    bool cancelDefaultByKey = true;
    bool cancelDefaultByObserver = true;
    bool cancelOwnByObserver = false;
    bool cancelOwnByKey = false;
    int64_t ownLaterKey = 0;
    int64_t ownKey = 0;
    int64_t ownSecondKey = 0;
    ZnHandle<ProbingMonitor> own;
    own = new ProbingMonitor(
        [&]
        {
            seen = ZnMonitorThread::sGetCurrent();
            // The default monitor's timer isn't reached from here.
            cancelDefaultByKey = ZnMonitorThread::sCancelTime(defaultKey);
            cancelDefaultByObserver = ZnMonitorThread::sCancelTime(defaultObserver, defaultKey);
            // This thread's own timers are.
            cancelOwnByObserver = ZnMonitorThread::sCancelTime(ownObserver, ownKey);
            cancelOwnByKey = ZnMonitorThread::sCancelTime(ownSecondKey);
            // And a timer set from here goes on this thread's scheduler.
            ownLaterKey = ZnMonitorThread::sMonitorTime(800000, ownObserver, nullptr);
        });
    ownKey = own->monitorTime(700000, ownObserver, nullptr);
    ownSecondKey = own->monitorTime(750000, ownObserver, nullptr);
    ASSERT_EQ(2U, own->getScheduler().getSize());
    ASSERT_NE(ownKey, defaultKey);
    ASSERT_NE(ownSecondKey, defaultKey);

    own->fork();
    ASSERT_TRUE(own->waitForProbe());
    EXPECT_EQ(static_cast<ZnMonitorThread*>(own), seen);
    EXPECT_FALSE(cancelDefaultByKey);
    EXPECT_FALSE(cancelDefaultByObserver);
    EXPECT_TRUE(cancelOwnByObserver);
    EXPECT_TRUE(cancelOwnByKey);
    EXPECT_EQ(1U, own->getScheduler().getSize());
    EXPECT_EQ(defaultSize + 1, theDefault->getScheduler().getSize());

    // From here, the default scheduler answers: the own timer isn't on it, the default one is.
    EXPECT_FALSE(ZnMonitorThread::sCancelTime(ownLaterKey));
    EXPECT_EQ(1U, own->getScheduler().getSize());
    EXPECT_TRUE(ZnMonitorThread::sCancelTime(defaultObserver, defaultKey));
    EXPECT_EQ(defaultSize, theDefault->getScheduler().getSize());

    EXPECT_TRUE(terminateAndWait(own));
    EXPECT_EQ(0U, defaultObserver->count());
    EXPECT_EQ(0U, ownObserver->count());
}

TEST(ZnMonitorThreadTest, EmptyMapMakesTheMonitorWaitUntilSignalled)
{
    ZnHandle<ZnMonitorThread> monitor(new ZnMonitorThread());
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    ZnHandle<Tag> first(new Tag("first"));
    ZnHandle<Tag> second(new Tag("second"));
    monitor->fork();

    // Nothing scheduled: the pass answers 0 and the thread sleeps.
    ASSERT_TRUE(waitUntil([&] { return monitor->getState() == ZnThread::STATE_BLOCKED; }));
    EXPECT_EQ(0U, monitor->getScheduler().getSize());
    EXPECT_EQ(0, monitor->getScheduler().processTimerEvents());

    // A new timer wakes it, fires, and the map is empty again.
    monitor->monitorTime(0, observer, first);
    ASSERT_TRUE(observer->waitForCount(1));
    EXPECT_TRUE(waitUntil([&] { return monitor->getScheduler().getSize() == 0U; }));
    EXPECT_TRUE(waitUntil([&] { return monitor->getState() == ZnThread::STATE_BLOCKED; }));

    // Asleep until a timer ten minutes away, it is woken by an earlier one, which fires at once.
    const int64_t far = monitor->monitorTime(600000, observer, nullptr);
    EXPECT_TRUE(waitUntil([&] { return monitor->getState() == ZnThread::STATE_BLOCKED; }));
    const int64_t near = monitor->monitorTime(0, observer, second);
    ASSERT_TRUE(observer->waitForCount(2));
    const std::vector<Notification> got = observer->notifications();
    EXPECT_EQ(static_cast<ZnObject*>(first), static_cast<ZnObject*>(got[0].argument));
    EXPECT_EQ(static_cast<ZnObject*>(second), static_cast<ZnObject*>(got[1].argument));
    EXPECT_GE(got[1].time, near - 1000);
    EXPECT_LT(got[1].time, far - 1000);
    EXPECT_EQ(1U, monitor->getScheduler().getSize());

    EXPECT_TRUE(terminateAndWait(monitor));
    EXPECT_EQ(2U, observer->count());
}

TEST(ZnMonitorThreadTest, SMonitorTimeFiresWithTheArgumentGiven)
{
    ZnMonitorThread* monitor = defaultMonitor();
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    ZnHandle<Tag> argument(new Tag("given"));

    const int64_t before = nowMicros();
    const int64_t key = ZnMonitorThread::sMonitorTime(20, observer, argument);
    const int64_t after = nowMicros();
    EXPECT_LE(before + 20000, key);
    EXPECT_GE(after + 20000, key);

    ASSERT_TRUE(observer->waitForCount(1));
    const Notification got = observer->notifications()[0];
    EXPECT_EQ(static_cast<ZnObject*>(argument), static_cast<ZnObject*>(got.argument));
    EXPECT_EQ(nullptr, got.source);
    EXPECT_GE(got.time, key - 1000);
    // Not on the monitor: the timer dispatcher hands it on.
    EXPECT_NE(static_cast<ZnThread*>(monitor), got.thread);
    EXPECT_NE(nullptr, got.thread);

    // Without an argument, the observer gets the due time.
    const int64_t bare = ZnMonitorThread::sMonitorTime(0, observer, nullptr);
    ASSERT_TRUE(observer->waitForCount(2));
    const ZnTimer* timer =
        dynamic_cast<const ZnTimer*>(static_cast<ZnObject*>(observer->notifications()[1].argument));
    ASSERT_NE(nullptr, timer);
    EXPECT_EQ(bare, static_cast<int64_t>(*timer));
    EXPECT_EQ(2U, observer->count());
}

TEST(ZnMonitorThreadTest, SMonitorObservableStartsAnObserverThreadOnTheSource)
{
    const MemAccount::Reading before = MemAccount::sRead("ZnObserverThread");
    ZnHandle<GatedSource> source(new GatedSource());
    ZnMonitorThread::sMonitorObservable(source);
    EXPECT_GE(MemAccount::sRead("ZnObserverThread").totalBlocks, before.totalBlocks + 1);
    expectDrivenByAnObserverThread(source, defaultMonitor());
}

TEST(ZnMonitorThreadTest, MonitorObservableWorksOnAMonitorThatIsNotRunning)
{
    ZnHandle<ZnMonitorThread> monitor(new ZnMonitorThread());
    ZnHandle<GatedSource> source(new GatedSource());
    monitor->monitorObservable(source);
    expectDrivenByAnObserverThread(source, monitor);
    EXPECT_EQ(ZnThread::STATE_DETACHED, monitor->getState());
}

TEST(ZnMonitorThreadTest, RunEndsOnTerminateAndShutsTheSchedulerDown)
{
    ZnHandle<ZnMonitorThread> monitor(new ZnMonitorThread());
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    ZnHandle<Tag> argument(new Tag("pending"));
    monitor->fork();
    monitor->monitorTime(600000, observer, argument);
    EXPECT_EQ(1U, monitor->getScheduler().getSize());
    EXPECT_TRUE(waitUntil([&] { return monitor->getState() == ZnThread::STATE_BLOCKED; }));

    EXPECT_TRUE(terminateAndWait(monitor));
    EXPECT_TRUE(monitor->getScheduler().isShutDown());
    EXPECT_EQ(0U, monitor->getScheduler().getSize());
    EXPECT_EQ(1UL, argument->getRefCount());

    // Later timers are accepted with a key and stored nowhere.
    const int64_t before = nowMicros();
    const int64_t key = monitor->monitorTime(0, observer, argument);
    const int64_t after = nowMicros();
    EXPECT_LE(before, key);
    EXPECT_GE(after, key);
    EXPECT_EQ(0U, monitor->getScheduler().getSize());
    EXPECT_EQ(1UL, argument->getRefCount());
    EXPECT_EQ(0U, observer->count());
}

} // namespace
