#include "ZnUtil/ZnDispatcherThread.h"

#include "ZnUtil/ZnBaseEvent.h"
#include "ZnUtil/ZnEventQueue.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnPlatform.h"
#include "ZnUtil/ZnThread.h"
#include "ZnUtil/ZnThreadPool.h"

#include "tavoris/LogLevel.h"
#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "support/CapturingAppender.h"
#include "support/CountedEvent.h"
#include "support/WaitUntil.h"

namespace
{

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;
using ZnTest::CountedEvent;
using ZnTest::DestructionLog;
using ZnTest::waitUntil;

/// Three slices and more of the queue: long enough to see that something does not happen.
const Clock::duration kQuietWindow = 300ms;

const char* const kDispatcherLogger = "corvane.zn.ZnDispatcherThread";
const char* const kEarlyExitWarning = "ZnDispatcherThread::run() exiting before shutdown has "
                                      "been called.Doing so might result in system crash.";
const char* const kNullEventAssertion = "Assertion failed: pEvent != 0";

/// The event number on which the test dispatcher's process() raises.
const int kThrowingId = 666;

/// One call of process().
struct ProcessCall
{
    int id;
    unsigned int thread;
    std::vector<int> destroyedBefore;
};

/// A dispatcher that records what it is given, raises on kThrowingId, and tells when it goes.
class RecordingDispatcher : public ZnDispatcherThread
{
public:
    explicit RecordingDispatcher(DestructionLog* log, ZnThread* signalThread = nullptr,
                                 unsigned int maxPoolThreads = 10,
                                 ZnEventQueue::Policy policy = ZnEventQueue::POLICY_MULTI_PRODUCER)
        : ZnDispatcherThread(signalThread, maxPoolThreads, policy), m_log(log),
          m_destroyed(std::make_shared<std::atomic<bool>>(false))
    {
    }
    ~RecordingDispatcher() override { m_destroyed->store(true); }

    void process(ZnBaseEvent* aEvent) override
    {
        const CountedEvent* event = dynamic_cast<const CountedEvent*>(aEvent);
        const int id = event == nullptr ? -1 : event->getId();
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_calls.push_back(ProcessCall{id, ZnPlatform::sGetCurrentThreadId(), m_log->ids()});
        }
        m_processed.fetch_add(1);
        if (id == kThrowingId)
        {
            ZnException::sThrow("process failed");
        }
    }

    void atExit() override
    {
        m_atExitThread.store(ZnPlatform::sGetCurrentThreadId());
        m_atExitCalls.fetch_add(1);
    }

    std::vector<ProcessCall> calls() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_calls;
    }

    int processed() const { return m_processed.load(); }
    int atExitCalls() const { return m_atExitCalls.load(); }
    unsigned int atExitThread() const { return m_atExitThread.load(); }
    std::shared_ptr<std::atomic<bool>> destroyedFlag() const { return m_destroyed; }

private:
    DestructionLog* m_log;
    mutable std::mutex m_mutex;
    std::vector<ProcessCall> m_calls; // guarded by m_mutex
    std::atomic<int> m_processed{0};
    std::atomic<int> m_atExitCalls{0};
    std::atomic<unsigned int> m_atExitThread{0};
    std::shared_ptr<std::atomic<bool>> m_destroyed;
};

/// A dispatcher whose pool's signal thread is the dispatcher itself, as the library's own
/// dispatchers do it.
class SelfSignallingDispatcher : public RecordingDispatcher
{
public:
    explicit SelfSignallingDispatcher(DestructionLog* log) : RecordingDispatcher(log, this, 0) {}
};

/// A thread object that is never forked, held as a signal thread; tells when it goes.
class IdleThread : public ZnThread
{
public:
    explicit IdleThread(std::atomic<bool>* destroyed) : m_destroyed(destroyed) {}
    ~IdleThread() override { m_destroyed->store(true); }
    void run() override {}

private:
    std::atomic<bool>* m_destroyed;
};

/// Holds a dispatcher for a test. Should the test stop early, a running dispatcher is ended
/// (terminate, then WakeUpAll) and waited for, so that it never outlives what it uses.
template <class Dispatcher = RecordingDispatcher>
class DispatcherHolder
{
public:
    explicit DispatcherHolder(Dispatcher* dispatcher)
        : m_dispatcher(dispatcher), m_destroyed(dispatcher->destroyedFlag())
    {
    }

    ~DispatcherHolder()
    {
        if (!m_dispatcher.isNil() && m_dispatcher->getState() != ZnThread::STATE_DETACHED)
        {
            end();
        }
        release();
    }

    DispatcherHolder(const DispatcherHolder&) = delete;
    DispatcherHolder& operator=(const DispatcherHolder&) = delete;

    Dispatcher* operator->() const { return m_dispatcher; }
    Dispatcher* get() const { return m_dispatcher; }

    /// Forks the dispatcher and hands it event 1, which tells its destruction to \p log.
    /// \return true once process() has had the event.
    bool forkWithOneEvent(DestructionLog& log)
    {
        m_dispatcher->fork();
        m_dispatcher->addEvent(new CountedEvent(1, &log));
        return waitUntil([this] { return m_dispatcher->processed() == 1; });
    }

    /// Tells the dispatcher to end and wakes its queue. \return true once it is detached.
    bool end()
    {
        m_dispatcher->terminate();
        m_dispatcher->getEventQueue()->WakeUpAll();
        return waitForDetached();
    }

    bool waitForDetached()
    {
        return waitUntil([this] { return m_dispatcher->getState() == ZnThread::STATE_DETACHED; });
    }

    /// Drops the test's hold and waits until the object is gone. \return false when it was
    /// still there after the bound.
    bool release()
    {
        m_dispatcher = nullptr;
        return waitUntil([this] { return m_destroyed->load(); });
    }

    bool destroyed() const { return m_destroyed->load(); }

private:
    ZnHandle<Dispatcher> m_dispatcher;
    std::shared_ptr<std::atomic<bool>> m_destroyed;
};

std::vector<int> idsOf(const std::vector<ProcessCall>& calls)
{
    std::vector<int> ids;
    for (const ProcessCall& call : calls)
    {
        ids.push_back(call.id);
    }
    return ids;
}

// ---------------------------------------------------------------------------------------------
// Without a thread

TEST(ZnDispatcherThreadTest, AccessorsReachTheEmbeddedQueueAndPool)
{
    DestructionLog log;
    std::atomic<bool> signalThreadGone{false};
    IdleThread* signalThread = new IdleThread(&signalThreadGone);
    {
        DispatcherHolder<> dispatcher(
            new RecordingDispatcher(&log, signalThread, 5, ZnEventQueue::POLICY_SINGLE_PRODUCER));
        EXPECT_EQ(ZnThread::STATE_DETACHED, dispatcher->getState());
        ZnEventQueue* queue = dispatcher->getEventQueue();
        ASSERT_NE(nullptr, queue);
        EXPECT_EQ(queue, dispatcher->getEventQueue());
        EXPECT_EQ(ZnEventQueue::POLICY_SINGLE_PRODUCER, queue->getPolicy());
        EXPECT_EQ(0u, queue->getSize());

        ZnThreadPool* pool = dispatcher->getThreadPool();
        ASSERT_NE(nullptr, pool);
        EXPECT_EQ(pool, dispatcher->getThreadPool());
        EXPECT_EQ(5u, pool->getMaxThreadCount());
        EXPECT_EQ(0u, pool->getThreadCount());
        EXPECT_EQ(static_cast<ZnThread*>(signalThread),
                  static_cast<ZnThread*>(pool->getSignalThread()));

        dispatcher->setMaxThreadCount(7);
        EXPECT_EQ(7u, pool->getMaxThreadCount());
        dispatcher->setMaxThreadCount(0);
        EXPECT_EQ(0u, pool->getMaxThreadCount());
        EXPECT_FALSE(signalThreadGone.load());
        EXPECT_TRUE(dispatcher.release());
    }
    // The pool held the signal thread, and let it go with the dispatcher.
    EXPECT_TRUE(signalThreadGone.load());
}

TEST(ZnDispatcherThreadTest, PolicyGoesToTheQueue)
{
    DestructionLog log;
    DispatcherHolder<> multi(
        new RecordingDispatcher(&log, nullptr, 1, ZnEventQueue::POLICY_MULTI_PRODUCER));
    EXPECT_EQ(ZnEventQueue::POLICY_MULTI_PRODUCER, multi->getEventQueue()->getPolicy());
    EXPECT_TRUE(multi->getThreadPool()->getSignalThread().isNil());
    EXPECT_EQ(1u, multi->getThreadPool()->getMaxThreadCount());
}

TEST(ZnDispatcherThreadTest, GetEventTakesFromTheOwnQueue)
{
    DestructionLog log;
    DispatcherHolder<> dispatcher(new RecordingDispatcher(&log));
    CountedEvent* first = new CountedEvent(1, &log);
    CountedEvent* second = new CountedEvent(2, &log);
    dispatcher->addEvent(first);
    dispatcher->addEvent(second);
    EXPECT_EQ(2u, dispatcher->getEventQueue()->getSize());
    std::unique_ptr<ZnBaseEvent> taken(dispatcher->getEvent());
    EXPECT_EQ(first, taken.get());
    taken.reset(dispatcher->getEvent());
    EXPECT_EQ(second, taken.get());
    taken.reset();
    EXPECT_EQ(0u, dispatcher->getEventQueue()->getSize());
    EXPECT_TRUE(dispatcher->calls().empty());
}

TEST(ZnDispatcherThreadTest, AddEventOfNullTripsTheAssertionAndQueuesNothing)
{
    ZnTest::LogCapture cap(kDispatcherLogger, Tavoris::TRACE_LOG_LEVEL);
    DestructionLog log;
    DispatcherHolder<> dispatcher(new RecordingDispatcher(&log));
    dispatcher->addEvent(nullptr);
    const auto events = cap.find("Assertion failed");
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ(kNullEventAssertion, events[0].message);
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, events[0].level);
    EXPECT_EQ(kDispatcherLogger, events[0].logger);
    EXPECT_EQ(0u, dispatcher->getEventQueue()->getSize());
    EXPECT_EQ(0u, dispatcher->getEventQueue()->getWriteIndex());

    // A real event after it is the first in the queue.
    CountedEvent* event = new CountedEvent(1, &log);
    dispatcher->addEvent(event);
    std::unique_ptr<ZnBaseEvent> taken(dispatcher->getEvent());
    EXPECT_EQ(event, taken.get());
}

TEST(ZnDispatcherThreadTest, EventsLeftInTheQueueGoWithTheDispatcherUnprocessed)
{
    DestructionLog log;
    {
        DispatcherHolder<> dispatcher(new RecordingDispatcher(&log));
        for (int id = 1; id <= 3; ++id)
        {
            dispatcher->addEvent(new CountedEvent(id, &log));
        }
        EXPECT_EQ(0u, log.count());
        EXPECT_TRUE(dispatcher.release());
    }
    std::vector<int> ids = log.ids();
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ((std::vector<int>{1, 2, 3}), ids);
}

TEST(ZnDispatcherThreadTest, MemoryIsCountedOnTheDispatcherAccount)
{
    EXPECT_STREQ("ZnDispatcherThread", ZnDispatcherThread::getMemAccountName());
    const Tavoris::MemAccount::Reading before = Tavoris::MemAccount::sRead("ZnDispatcherThread");
    DestructionLog log;
    {
        DispatcherHolder<> dispatcher(new RecordingDispatcher(&log));
        const Tavoris::MemAccount::Reading during =
            Tavoris::MemAccount::sRead("ZnDispatcherThread");
        EXPECT_EQ(before.liveBlocks + 1, during.liveBlocks);
        EXPECT_EQ(before.totalBlocks + 1, during.totalBlocks);
        EXPECT_EQ(before.liveBytes + static_cast<int64_t>(sizeof(RecordingDispatcher)),
                  during.liveBytes);
        EXPECT_TRUE(dispatcher.release());
    }
    const Tavoris::MemAccount::Reading after = Tavoris::MemAccount::sRead("ZnDispatcherThread");
    EXPECT_EQ(before.liveBlocks, after.liveBlocks);
    EXPECT_EQ(before.liveBytes, after.liveBytes);
    EXPECT_EQ(before.totalBlocks + 1, after.totalBlocks);
}

TEST(ZnDispatcherThreadTest, DestructorIsTraced)
{
    ZnTest::LogCapture cap(kDispatcherLogger, Tavoris::TRACE_LOG_LEVEL);
    DestructionLog log;
    DispatcherHolder<> dispatcher(new RecordingDispatcher(&log));
    EXPECT_TRUE(cap.find("ZnDispatcherThread::~ZnDispatcherThread").empty());
    EXPECT_TRUE(dispatcher.release());
    const auto enter = cap.find("ENTER: ZnDispatcherThread::~ZnDispatcherThread");
    ASSERT_EQ(1u, enter.size());
    EXPECT_EQ(Tavoris::TRACE_LOG_LEVEL, enter[0].level);
    EXPECT_EQ(kDispatcherLogger, enter[0].logger);
    EXPECT_EQ(1u, cap.find("EXIT: ZnDispatcherThread::~ZnDispatcherThread").size());
}

// ---------------------------------------------------------------------------------------------
// Running

TEST(ZnDispatcherThreadTest, EventsAreProcessedInOrderOnTheDispatcherThread)
{
    DestructionLog log;
    DispatcherHolder<> dispatcher(new RecordingDispatcher(&log));
    dispatcher->fork();
    const unsigned int token = dispatcher->getToken();
    ASSERT_NE(0u, token);
    for (int id = 1; id <= 20; ++id)
    {
        dispatcher->addEvent(new CountedEvent(id, &log));
    }
    ASSERT_TRUE(waitUntil([&] { return dispatcher->processed() == 20; }));
    const std::vector<ProcessCall> calls = dispatcher->calls();
    std::vector<int> expected;
    for (int id = 1; id <= 20; ++id)
    {
        expected.push_back(id);
    }
    EXPECT_EQ(expected, idsOf(calls));
    for (const ProcessCall& call : calls)
    {
        EXPECT_EQ(token, call.thread);
    }
    EXPECT_NE(ZnPlatform::sGetCurrentThreadId(), token);
    EXPECT_TRUE(dispatcher.end());
    EXPECT_EQ(20u, log.count());
}

TEST(ZnDispatcherThreadTest, LastEventHandledStaysAliveUntilTheNextArrives)
{
    DestructionLog log;
    DispatcherHolder<> dispatcher(new RecordingDispatcher(&log));
    ASSERT_TRUE(dispatcher.forkWithOneEvent(log));
    // process(1) has returned long since, and the queue is idle: event 1 lives on.
    EXPECT_FALSE(waitUntil([&] { return log.has(1); }, kQuietWindow));

    dispatcher->addEvent(new CountedEvent(2, &log));
    ASSERT_TRUE(waitUntil([&] { return dispatcher->processed() == 2; }));
    const std::vector<ProcessCall> calls = dispatcher->calls();
    ASSERT_EQ(2u, calls.size());
    EXPECT_TRUE(calls[0].destroyedBefore.empty());
    // Event 1 was deleted when event 2 arrived, before process(2).
    EXPECT_EQ((std::vector<int>{1}), calls[1].destroyedBefore);
    EXPECT_FALSE(waitUntil([&] { return log.has(2); }, kQuietWindow));

    // And the last one goes when the dispatcher ends.
    EXPECT_TRUE(dispatcher.end());
    EXPECT_EQ((std::vector<int>{1, 2}), log.ids());
}

TEST(ZnDispatcherThreadTest, TerminateAndWakeUpEndTheDispatcherAndDeleteTheCurrentEvent)
{
    DestructionLog log;
    DispatcherHolder<> dispatcher(new RecordingDispatcher(&log));
    ASSERT_TRUE(dispatcher.forkWithOneEvent(log));
    EXPECT_FALSE(log.has(1));

    dispatcher->terminate();
    dispatcher->getEventQueue()->WakeUpAll();
    ASSERT_TRUE(dispatcher.waitForDetached());
    EXPECT_EQ((std::vector<int>{1}), log.ids());
    EXPECT_EQ(1, dispatcher->processed());
    EXPECT_TRUE(dispatcher.release());
}

TEST(ZnDispatcherThreadTest, TerminateAloneEndsTheDispatcherAtTheNextSlice)
{
    DestructionLog log;
    DispatcherHolder<> dispatcher(new RecordingDispatcher(&log));
    ASSERT_TRUE(dispatcher.forkWithOneEvent(log));
    dispatcher->terminate();
    EXPECT_TRUE(waitUntil([&] { return dispatcher->getState() == ZnThread::STATE_DETACHED; }, 5s));
    EXPECT_EQ((std::vector<int>{1}), log.ids());
    EXPECT_TRUE(dispatcher.release());
}

TEST(ZnDispatcherThreadTest, EndingBeforeShutdownLogsTheWarning)
{
    ZnTest::LogCapture cap(kDispatcherLogger, Tavoris::TRACE_LOG_LEVEL);
    DestructionLog log;
    DispatcherHolder<> dispatcher(new RecordingDispatcher(&log));
    ASSERT_TRUE(dispatcher.forkWithOneEvent(log));
    EXPECT_TRUE(cap.find("exiting before shutdown").empty());
    ASSERT_TRUE(dispatcher.end());
    const auto warnings = cap.find("exiting before shutdown");
    ASSERT_EQ(1u, warnings.size());
    EXPECT_EQ(kEarlyExitWarning, warnings[0].message);
    EXPECT_EQ(Tavoris::WARN_LOG_LEVEL, warnings[0].level);
    EXPECT_EQ(kDispatcherLogger, warnings[0].logger);
}

TEST(ZnDispatcherThreadTest, RunIsTraced)
{
    ZnTest::LogCapture cap(kDispatcherLogger, Tavoris::TRACE_LOG_LEVEL);
    DestructionLog log;
    DispatcherHolder<> dispatcher(new RecordingDispatcher(&log));
    dispatcher->fork();
    ASSERT_TRUE(waitUntil([&] { return !cap.find("ENTER: ZnDispatcherThread::run").empty(); }));
    ASSERT_TRUE(dispatcher.end());
    const auto enter = cap.find("ENTER: ZnDispatcherThread::run");
    ASSERT_EQ(1u, enter.size());
    EXPECT_EQ(Tavoris::TRACE_LOG_LEVEL, enter[0].level);
    EXPECT_EQ(kDispatcherLogger, enter[0].logger);
    EXPECT_EQ(1u, cap.find("EXIT: ZnDispatcherThread::run").size());
    EXPECT_TRUE(dispatcher.release());
    EXPECT_EQ(1u, cap.find("ENTER: ZnDispatcherThread::~ZnDispatcherThread").size());
}

TEST(ZnDispatcherThreadTest, AtExitIsCalledOnceOnTheDispatcherThreadWhenRunEnds)
{
    DestructionLog log;
    DispatcherHolder<> dispatcher(new RecordingDispatcher(&log));
    ASSERT_TRUE(dispatcher.forkWithOneEvent(log));
    EXPECT_EQ(0, dispatcher->atExitCalls());
    ASSERT_TRUE(dispatcher.end());
    EXPECT_EQ(1, dispatcher->atExitCalls());
    EXPECT_EQ(dispatcher->getToken(), dispatcher->atExitThread());
}

TEST(ZnDispatcherThreadTest, SignalThreadIsReleasedWhenRunEnds)
{
    DestructionLog log;
    std::atomic<bool> signalThreadGone{false};
    DispatcherHolder<> dispatcher(
        new RecordingDispatcher(&log, new IdleThread(&signalThreadGone), 2));
    ASSERT_TRUE(dispatcher.forkWithOneEvent(log));
    EXPECT_FALSE(dispatcher->getThreadPool()->getSignalThread().isNil());
    EXPECT_FALSE(signalThreadGone.load());

    ASSERT_TRUE(dispatcher.end());
    // The dispatcher is still here; only its pool's hold on the signal thread is gone.
    EXPECT_TRUE(dispatcher->getThreadPool()->getSignalThread().isNil());
    EXPECT_TRUE(signalThreadGone.load());
}

TEST(ZnDispatcherThreadTest, DispatcherThatSignalsItselfIsFreedAfterItEnds)
{
    DestructionLog log;
    DispatcherHolder<SelfSignallingDispatcher> dispatcher(new SelfSignallingDispatcher(&log));
    EXPECT_EQ(static_cast<ZnThread*>(dispatcher.get()),
              static_cast<ZnThread*>(dispatcher->getThreadPool()->getSignalThread()));
    // The test's handle and the pool's.
    EXPECT_EQ(2u, dispatcher->getRefCount());
    ASSERT_TRUE(dispatcher.forkWithOneEvent(log));

    ASSERT_TRUE(dispatcher.end());
    EXPECT_TRUE(dispatcher->getThreadPool()->getSignalThread().isNil());
    // Once its thread is all done, the test's handle is the last.
    ASSERT_TRUE(waitUntil([&] { return dispatcher->getRefCount() == 1u; }));
    EXPECT_FALSE(dispatcher.destroyed());
    EXPECT_TRUE(dispatcher.release());
    EXPECT_EQ((std::vector<int>{1}), log.ids());
}

TEST(ZnDispatcherThreadTest, NullFromTheQueueEndsTheLoopWithoutTerminate)
{
    ZnTest::LogCapture queueCap("corvane.zn.ZnEventQueue", Tavoris::TRACE_LOG_LEVEL);
    ZnTest::LogCapture cap(kDispatcherLogger, Tavoris::TRACE_LOG_LEVEL);
    DestructionLog log;
    DispatcherHolder<> dispatcher(new RecordingDispatcher(&log));
    ASSERT_TRUE(dispatcher.forkWithOneEvent(log));

    // Not told to exit: the empty slot a wake-up lets it take is enough to end it.
    dispatcher->getEventQueue()->WakeUpAll();
    ASSERT_TRUE(dispatcher.waitForDetached());
    EXPECT_EQ(1u, queueCap.find(kNullEventAssertion).size());
    EXPECT_EQ(1u, cap.find(kEarlyExitWarning).size());
    EXPECT_EQ((std::vector<int>{1}), log.ids());
    EXPECT_EQ(1, dispatcher->processed());
    EXPECT_EQ(1, dispatcher->atExitCalls());
    EXPECT_TRUE(dispatcher->getThreadPool()->getSignalThread().isNil());
    EXPECT_TRUE(dispatcher.release());
}

TEST(ZnDispatcherThreadTest, ExceptionFromProcessEndsTheThread)
{
    DestructionLog log;
    DispatcherHolder<> dispatcher(new RecordingDispatcher(&log));
    dispatcher->addEvent(new CountedEvent(1, &log));
    dispatcher->addEvent(new CountedEvent(kThrowingId, &log));
    dispatcher->addEvent(new CountedEvent(3, &log));
    dispatcher->fork();
    ASSERT_TRUE(dispatcher.waitForDetached());
    EXPECT_EQ((std::vector<int>{1, kThrowingId}), idsOf(dispatcher->calls()));
    // The event after it was never taken.
    EXPECT_EQ(1u, dispatcher->getEventQueue()->getSize());
    EXPECT_FALSE(log.has(3));
    EXPECT_TRUE(dispatcher.release());
    std::vector<int> ids = log.ids();
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ((std::vector<int>{1, 3, kThrowingId}), ids);
}

TEST(ZnDispatcherThreadTest, ExceptionFromProcessReachesMainWhichReturnsMinusOne)
{
    DestructionLog log;
    DispatcherHolder<> dispatcher(new RecordingDispatcher(&log));
    dispatcher->addEvent(new CountedEvent(1, &log));
    dispatcher->addEvent(new CountedEvent(kThrowingId, &log));
    dispatcher->addEvent(new CountedEvent(3, &log));
    // The body of the thread, entered as fork's thread would, to read its result.
    int result = 0;
    std::thread body([&] { result = dispatcher->main(); });
    body.join();
    EXPECT_EQ(-1, result);
    EXPECT_EQ(ZnThread::STATE_DETACHED, dispatcher->getState());
    EXPECT_EQ((std::vector<int>{1, kThrowingId}), idsOf(dispatcher->calls()));
    EXPECT_EQ(1u, dispatcher->getEventQueue()->getSize());
    EXPECT_TRUE(dispatcher.release());
}

TEST(ZnDispatcherThreadTest, MainOfADispatcherEndedNormallyReturnsZero)
{
    DestructionLog log;
    DispatcherHolder<> dispatcher(new RecordingDispatcher(&log));
    dispatcher->addEvent(new CountedEvent(1, &log));
    // A wake-up with nothing behind event 1 ends the loop when event 1 is done.
    dispatcher->getEventQueue()->WakeUpAll();
    int result = -2;
    std::thread body([&] { result = dispatcher->main(); });
    body.join();
    EXPECT_EQ(0, result);
    EXPECT_EQ((std::vector<int>{1}), idsOf(dispatcher->calls()));
    EXPECT_EQ((std::vector<int>{1}), log.ids());
    EXPECT_TRUE(dispatcher.release());
}

} // namespace
