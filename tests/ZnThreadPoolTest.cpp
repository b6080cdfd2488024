#include "ZnUtil/ZnThreadPool.h"

#include "ZnUtil/ZnErrorStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnObserver.h"
#include "ZnUtil/ZnThread.h"
#include "ZnUtil/ZnWorkerThread.h"

#include "tavoris/LogLevel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <iostream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/CapturingAppender.h"
#include "support/DefaultErrorStream.h"
#include "support/LockedRecordingStream.h"
#include "support/ThreadEnd.h"
#include "support/WaitUntil.h"

namespace
{

using ZnTest::kLimit;
using ZnTest::LockedRecordingStream;
using ZnTest::waitUntil;

/// The argument of a notification, which records where it ran. A gated job holds its thread
/// until the test releases it; a raising job raises a ZnException "job failed" once recorded.
class Job : public ZnObject
{
public:
    enum Kind
    {
        kPlain,
        kGated,
        kRaising
    };

    explicit Job(Kind kind = kPlain) : m_kind(kind) {}

    /// Called by the observer on the thread that runs the job.
    void run(ZnObservable* aSource)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        ++m_runs;
        m_source = aSource;
        m_thread = ZnThread::sGetCurrent();
        m_threadId = std::this_thread::get_id();
        m_changed.notify_all();
        if (m_kind == kGated)
        {
            m_changed.wait_for(lock, kLimit, [this] { return m_released; });
        }
        if (m_kind == kRaising)
        {
            lock.unlock();
            ZnException::sThrow("job failed");
        }
    }

    /// Waits until the job has begun to run.
    bool waitStarted()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, kLimit, [this] { return m_runs > 0; });
    }

    /// Lets a gated job end.
    void release()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_released = true;
        m_changed.notify_all();
    }

    int runs() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_runs;
    }

    /// The thread object it ran on: a worker, or null on the test's own thread.
    ZnThread* ranOn() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_thread;
    }

    std::thread::id ranOnId() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_threadId;
    }

    /// The source the observer was told of.
    ZnObservable* sourceSeen() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_source;
    }

private:
    const Kind m_kind;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_runs = 0;
    bool m_released = false;
    ZnObservable* m_source = nullptr; // compared, never used
    ZnThread* m_thread = nullptr;     // compared, never used
    std::thread::id m_threadId;
};

/// Runs every Job it is notified of, and keeps a handle on each worker thread seen, so that the
/// test can end them.
class JobObserver : public ZnObserver
{
public:
    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override
    {
        ZnThread* current = ZnThread::sGetCurrent();
        if (current != nullptr && std::this_thread::get_id() != m_testThread)
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            bool known = false;
            for (const ZnHandle<ZnThread>& worker : m_workers)
            {
                known = known || static_cast<ZnThread*>(worker) == current;
            }
            if (!known)
            {
                m_workers.push_back(ZnHandle<ZnThread>(current));
            }
        }
        Job* job = dynamic_cast<Job*>(static_cast<ZnObject*>(aArgument));
        if (job != nullptr)
        {
            job->run(aSource);
        }
    }

    std::vector<ZnHandle<ZnThread>> takeWorkers()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<ZnHandle<ZnThread>> workers;
        workers.swap(m_workers);
        return workers;
    }

    size_t workerCount() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_workers.size();
    }

private:
    const std::thread::id m_testThread = std::this_thread::get_id();
    mutable std::mutex m_mutex;
    std::vector<ZnHandle<ZnThread>> m_workers;
};

/// Hands \p job to \p pool for \p observer, and waits until it has begun to run.
/// \return true when it began within the limit.
bool startJob(ZnThreadPool& pool, JobObserver* observer, Job* job)
{
    pool.doObserverNotifications(observer, job);
    return job->waitStarted();
}

/// Hands \p first and, without waiting, \p second to \p pool for \p observer, then waits until
/// both have begun to run.
/// \return true when both began within the limit.
bool startTwoJobs(ZnThreadPool& pool, JobObserver* observer, Job* first, Job* second)
{
    pool.doObserverNotifications(observer, first);
    pool.doObserverNotifications(observer, second);
    return first->waitStarted() && second->waitStarted();
}

/// Ends the workers of a pool when a test leaves: waits until every worker is idle, terminates
/// each, which takes it off the pool, and waits until its thread has ended.
class WorkerEnder
{
public:
    WorkerEnder(ZnThreadPool& pool, JobObserver& observer) : m_pool(pool), m_observer(observer) {}

    ~WorkerEnder()
    {
        EXPECT_TRUE(
            waitUntil([this] { return m_pool.getAvailableCount() == m_pool.getThreadCount(); }));
        std::vector<ZnHandle<ZnThread>> workers = m_observer.takeWorkers();
        EXPECT_EQ(m_pool.getThreadCount(), workers.size());
        EXPECT_TRUE(ZnTest::terminateAllAndWait(workers));
        EXPECT_EQ(0u, m_pool.getThreadCount());
        EXPECT_EQ(0u, m_pool.getAvailableCount());
    }

    WorkerEnder(const WorkerEnder&) = delete;
    WorkerEnder& operator=(const WorkerEnder&) = delete;

private:
    ZnThreadPool& m_pool;
    JobObserver& m_observer;
};

/// A pool that counts the workers it makes.
class CountingPool : public ZnThreadPool
{
public:
    explicit CountingPool(unsigned int aMaximum) : ZnThreadPool(ZnHandle<ZnThread>(), aMaximum) {}

    int created() const { return m_created.load(); }

protected:
    ZnWorkerThread* createThread() override
    {
        ++m_created;
        return ZnThreadPool::createThread();
    }

private:
    std::atomic<int> m_created{0};
};

/// A pool that cannot make workers.
class WorkerlessPool : public ZnThreadPool
{
public:
    WorkerlessPool() : ZnThreadPool(ZnHandle<ZnThread>(), 4) {}

    int asked() const { return m_asked; }

protected:
    ZnWorkerThread* createThread() override
    {
        ++m_asked;
        return nullptr;
    }

private:
    int m_asked = 0;
};

/// Sends std::cerr into a string for the life of the object.
class CerrCapture
{
public:
    CerrCapture() : m_old(std::cerr.rdbuf(m_buffer.rdbuf())) {}
    ~CerrCapture() { std::cerr.rdbuf(m_old); }

    std::string text() const { return m_buffer.str(); }

private:
    std::ostringstream m_buffer;
    std::streambuf* m_old;
};

TEST(ZnThreadPoolTest, NewPoolHasNoWorkers)
{
    const unsigned int tableBefore = ZnThread::sGetThreadTableSize();
    ZnThreadPool pool(ZnHandle<ZnThread>(), 3);
    EXPECT_EQ(0u, pool.getThreadCount());
    EXPECT_EQ(0u, pool.getAvailableCount());
    EXPECT_EQ(0u, pool.getBusyCount());
    EXPECT_EQ(3u, pool.getMaxThreadCount());
    EXPECT_EQ(tableBefore, ZnThread::sGetThreadTableSize());
}

TEST(ZnThreadPoolTest, DefaultsAreNoSignalThreadAndTenWorkers)
{
    ZnThreadPool pool;
    EXPECT_EQ(10u, pool.getMaxThreadCount());
    EXPECT_TRUE(pool.getSignalThread().isNil());
    EXPECT_EQ(0u, pool.getThreadCount());
}

TEST(ZnThreadPoolTest, WorkersAreMadeOnDemandAndReused)
{
    const unsigned int tableBefore = ZnThread::sGetThreadTableSize();
    CountingPool pool(3);
    ZnHandle<JobObserver> observer(new JobObserver);
    WorkerEnder ender(pool, *observer);
    EXPECT_EQ(0, pool.created());

    ZnHandle<Job> first(new Job);
    ASSERT_TRUE(startJob(pool, observer, first));
    EXPECT_NE(std::this_thread::get_id(), first->ranOnId());
    ASSERT_NE(nullptr, first->ranOn());
    EXPECT_EQ(1, pool.created());
    EXPECT_EQ(1u, pool.getThreadCount());
    EXPECT_EQ(tableBefore + 1, ZnThread::sGetThreadTableSize());
    ASSERT_TRUE(waitUntil([&] { return pool.getAvailableCount() == 1; }));
    EXPECT_EQ(0u, pool.getBusyCount());

    // An idle worker is used again: no new one is made.
    for (int round = 0; round < 3; ++round)
    {
        ZnHandle<Job> next(new Job);
        ASSERT_TRUE(startJob(pool, observer, next));
        EXPECT_EQ(first->ranOn(), next->ranOn());
        ASSERT_TRUE(waitUntil([&] { return pool.getAvailableCount() == 1; }));
    }
    EXPECT_EQ(1, pool.created());
    EXPECT_EQ(1u, pool.getThreadCount());
}

TEST(ZnThreadPoolTest, CountsFollowBusyAndIdleWorkers)
{
    CountingPool pool(3);
    ZnHandle<JobObserver> observer(new JobObserver);
    WorkerEnder ender(pool, *observer);
    ZnHandle<Job> first(new Job(Job::kGated));
    ZnHandle<Job> second(new Job(Job::kGated));
    ASSERT_TRUE(startTwoJobs(pool, observer, first, second));
    EXPECT_NE(first->ranOn(), second->ranOn());
    EXPECT_EQ(2u, pool.getThreadCount());
    EXPECT_EQ(0u, pool.getAvailableCount());
    EXPECT_EQ(2u, pool.getBusyCount());

    first->release();
    ASSERT_TRUE(waitUntil([&] { return pool.getAvailableCount() == 1; }));
    EXPECT_EQ(2u, pool.getThreadCount());
    EXPECT_EQ(1u, pool.getBusyCount());

    second->release();
    ASSERT_TRUE(waitUntil([&] { return pool.getAvailableCount() == 2; }));
    EXPECT_EQ(2u, pool.getThreadCount());
    EXPECT_EQ(0u, pool.getBusyCount());
    EXPECT_EQ(2, pool.created());
}

TEST(ZnThreadPoolTest, MaximumZeroRunsEverythingOnTheCallersThread)
{
    const unsigned int tableBefore = ZnThread::sGetThreadTableSize();
    CountingPool pool(0);
    ZnHandle<JobObserver> observer(new JobObserver);
    ZnHandle<ZnObservable> source(new ZnObservable);
    source->attachObserver(observer);

    ZnHandle<Job> sourceJob(new Job);
    pool.doSourceNotifications(source, sourceJob);
    // Done before the call returned, on this thread.
    EXPECT_EQ(1, sourceJob->runs());
    EXPECT_EQ(std::this_thread::get_id(), sourceJob->ranOnId());
    EXPECT_EQ(static_cast<ZnObservable*>(source), sourceJob->sourceSeen());

    ZnHandle<Job> observerJob(new Job);
    pool.doObserverNotifications(observer, observerJob);
    EXPECT_EQ(1, observerJob->runs());
    EXPECT_EQ(std::this_thread::get_id(), observerJob->ranOnId());
    EXPECT_EQ(nullptr, observerJob->sourceSeen());

    EXPECT_EQ(0, pool.created());
    EXPECT_EQ(0u, pool.getThreadCount());
    EXPECT_EQ(0u, pool.getAvailableCount());
    EXPECT_EQ(0u, pool.getBusyCount());
    EXPECT_EQ(0u, observer->workerCount());
    EXPECT_EQ(tableBefore, ZnThread::sGetThreadTableSize());
    // The pool keeps no reference on what it ran.
    EXPECT_EQ(1u, sourceJob->getRefCount());
    EXPECT_EQ(1u, observerJob->getRefCount());
    source->detachObserver(observer);
}

TEST(ZnThreadPoolTest, BusyPoolAtItsMaximumRunsOnTheCallersThread)
{
    CountingPool pool(1);
    ZnHandle<JobObserver> observer(new JobObserver);
    WorkerEnder ender(pool, *observer);
    ZnHandle<Job> busy(new Job(Job::kGated));
    ASSERT_TRUE(startJob(pool, observer, busy));
    EXPECT_NE(std::this_thread::get_id(), busy->ranOnId());

    ZnHandle<Job> second(new Job);
    pool.doObserverNotifications(observer, second);
    EXPECT_EQ(1, second->runs());
    EXPECT_EQ(std::this_thread::get_id(), second->ranOnId());
    EXPECT_EQ(nullptr, second->sourceSeen());

    ZnHandle<ZnObservable> source(new ZnObservable);
    source->attachObserver(observer);
    ZnHandle<Job> third(new Job);
    pool.doSourceNotifications(source, third);
    EXPECT_EQ(1, third->runs());
    EXPECT_EQ(std::this_thread::get_id(), third->ranOnId());
    EXPECT_EQ(static_cast<ZnObservable*>(source), third->sourceSeen());
    EXPECT_EQ(1u, pool.getThreadCount());
    EXPECT_EQ(1, pool.created());

    busy->release();
    ASSERT_TRUE(waitUntil([&] { return pool.getAvailableCount() == 1; }));
    // Once the worker is idle again, it takes the next notification.
    ZnHandle<Job> fourth(new Job);
    ASSERT_TRUE(startJob(pool, observer, fourth));
    EXPECT_EQ(busy->ranOn(), fourth->ranOn());
    EXPECT_NE(std::this_thread::get_id(), fourth->ranOnId());
    source->detachObserver(observer);
}

TEST(ZnThreadPoolTest, SetMaxThreadCountBelowThePresentThreadCountIsIgnored)
{
    CountingPool pool(3);
    ZnHandle<JobObserver> observer(new JobObserver);
    WorkerEnder ender(pool, *observer);
    ZnHandle<Job> first(new Job(Job::kGated));
    ZnHandle<Job> second(new Job(Job::kGated));
    ASSERT_TRUE(startTwoJobs(pool, observer, first, second));
    ASSERT_EQ(2u, pool.getThreadCount());

    pool.setMaxThreadCount(1);
    EXPECT_EQ(3u, pool.getMaxThreadCount());
    // The maximum is still three: a third busy request gets a worker of its own.
    ZnHandle<Job> third(new Job(Job::kGated));
    ASSERT_TRUE(startJob(pool, observer, third));
    EXPECT_NE(std::this_thread::get_id(), third->ranOnId());
    EXPECT_EQ(3u, pool.getThreadCount());

    pool.setMaxThreadCount(2);
    EXPECT_EQ(3u, pool.getMaxThreadCount());
    pool.setMaxThreadCount(0);
    EXPECT_EQ(3u, pool.getMaxThreadCount());
    pool.setMaxThreadCount(5);
    EXPECT_EQ(5u, pool.getMaxThreadCount());
    pool.setMaxThreadCount(3);
    EXPECT_EQ(3u, pool.getMaxThreadCount());

    first->release();
    second->release();
    third->release();
    ASSERT_TRUE(waitUntil([&] { return pool.getAvailableCount() == 3; }));
    // Idle workers stay: the pool never shrinks by itself, and the maximum still holds.
    pool.setMaxThreadCount(2);
    EXPECT_EQ(3u, pool.getMaxThreadCount());
    EXPECT_EQ(3u, pool.getThreadCount());
    EXPECT_EQ(3, pool.created());
}

TEST(ZnThreadPoolTest, RaisedMaximumLetsMoreWorkersBeMade)
{
    CountingPool pool(1);
    ZnHandle<JobObserver> observer(new JobObserver);
    WorkerEnder ender(pool, *observer);
    ZnHandle<Job> first(new Job(Job::kGated));
    ASSERT_TRUE(startJob(pool, observer, first));

    pool.setMaxThreadCount(2);
    EXPECT_EQ(2u, pool.getMaxThreadCount());
    ZnHandle<Job> second(new Job(Job::kGated));
    ASSERT_TRUE(startJob(pool, observer, second));
    EXPECT_NE(std::this_thread::get_id(), second->ranOnId());
    EXPECT_EQ(2u, pool.getThreadCount());
    first->release();
    second->release();
}

TEST(ZnThreadPoolTest, ExceptionInAWorkersJobLeavesTheWorkerUsable)
{
    ZnTest::LogCapture cap("corvane.zn.ZnWorkerThread", Tavoris::TRACE_LOG_LEVEL);
    CountingPool pool(1);
    ZnHandle<JobObserver> observer(new JobObserver);
    WorkerEnder ender(pool, *observer);

    ZnHandle<Job> failing(new Job(Job::kRaising));
    EXPECT_NO_THROW(pool.doObserverNotifications(observer, failing));
    ASSERT_TRUE(failing->waitStarted());
    EXPECT_NE(std::this_thread::get_id(), failing->ranOnId());
    // The worker goes back on the stack.
    ASSERT_TRUE(waitUntil([&] { return pool.getAvailableCount() == 1; }));
    EXPECT_EQ(1u, pool.getThreadCount());
    EXPECT_EQ(0u, pool.getBusyCount());
    const auto events = cap.find("Caught a ZnException");
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("Caught a ZnException in ZnWorkerThread::run(): job failed", events[0].message);
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, events[0].level);

    // And it takes the next job; with a maximum of one, no other worker could.
    ZnHandle<Job> next(new Job);
    ASSERT_TRUE(startJob(pool, observer, next));
    EXPECT_EQ(failing->ranOn(), next->ranOn());
    EXPECT_NE(std::this_thread::get_id(), next->ranOnId());
    ASSERT_TRUE(waitUntil([&] { return pool.getAvailableCount() == 1; }));
    EXPECT_EQ(1, pool.created());
}

TEST(ZnThreadPoolTest, NextRequestGetsTheWorkerThatWentIdleLast)
{
    CountingPool pool(2);
    ZnHandle<JobObserver> observer(new JobObserver);
    WorkerEnder ender(pool, *observer);
    ZnHandle<Job> a(new Job(Job::kGated));
    ZnHandle<Job> b(new Job(Job::kGated));
    ASSERT_TRUE(startTwoJobs(pool, observer, a, b));
    ZnThread* const workerA = a->ranOn();
    ZnThread* const workerB = b->ranOn();
    ASSERT_NE(nullptr, workerA);
    ASSERT_NE(nullptr, workerB);
    ASSERT_NE(workerA, workerB);

    // B goes idle first, A last.
    b->release();
    ASSERT_TRUE(waitUntil([&] { return pool.getAvailableCount() == 1; }));
    a->release();
    ASSERT_TRUE(waitUntil([&] { return pool.getAvailableCount() == 2; }));

    ZnHandle<Job> c(new Job(Job::kGated));
    ASSERT_TRUE(startJob(pool, observer, c));
    EXPECT_EQ(workerA, c->ranOn());
    ZnHandle<Job> d(new Job(Job::kGated));
    ASSERT_TRUE(startJob(pool, observer, d));
    EXPECT_EQ(workerB, d->ranOn());

    // Now A goes idle first and B last: B is next.
    c->release();
    ASSERT_TRUE(waitUntil([&] { return pool.getAvailableCount() == 1; }));
    d->release();
    ASSERT_TRUE(waitUntil([&] { return pool.getAvailableCount() == 2; }));
    for (int round = 0; round < 2; ++round)
    {
        // Each job puts its worker back on top, so the same worker takes the one after.
        ZnHandle<Job> e(new Job);
        ASSERT_TRUE(startJob(pool, observer, e));
        EXPECT_EQ(workerB, e->ranOn());
        ASSERT_TRUE(waitUntil([&] { return pool.getAvailableCount() == 2; }));
    }
    EXPECT_EQ(2, pool.created());
}

TEST(ZnThreadPoolTest, ObserverNotificationsThroughAWorkerCarryANilSource)
{
    CountingPool pool(2);
    ZnHandle<JobObserver> observer(new JobObserver);
    WorkerEnder ender(pool, *observer);
    // The observer has a source, and is still not told of it.
    ZnHandle<ZnObservable> source(new ZnObservable);
    source->attachObserver(observer);
    ZnHandle<Job> job(new Job);
    ASSERT_TRUE(startJob(pool, observer, job));
    EXPECT_NE(std::this_thread::get_id(), job->ranOnId());
    EXPECT_EQ(nullptr, job->sourceSeen());
    EXPECT_EQ(1, job->runs());
    source->detachObserver(observer);
}

TEST(ZnThreadPoolTest, SourceNotificationsThroughAWorkerCarryTheSource)
{
    CountingPool pool(2);
    ZnHandle<JobObserver> observer(new JobObserver);
    WorkerEnder ender(pool, *observer);
    ZnHandle<ZnObservable> source(new ZnObservable);
    source->attachObserver(observer);
    ZnHandle<Job> job(new Job);
    pool.doSourceNotifications(source, job);
    ASSERT_TRUE(job->waitStarted());
    EXPECT_NE(std::this_thread::get_id(), job->ranOnId());
    ASSERT_NE(nullptr, job->ranOn());
    EXPECT_EQ(static_cast<ZnObservable*>(source), job->sourceSeen());
    ASSERT_TRUE(waitUntil([&] { return pool.getAvailableCount() == 1; }));
    // The worker let go of the job's source and argument when the job was done.
    EXPECT_TRUE(waitUntil([&] { return job->getRefCount() == 1; }));
    EXPECT_EQ(2u, source->getRefCount());
    source->detachObserver(observer);
}

TEST(ZnThreadPoolTest, SignalThreadIsKeptReplacedAndCleared)
{
    ZnHandle<ZnThread> first(new ZnWorkerThread);
    ZnHandle<ZnThread> second(new ZnWorkerThread);
    {
        ZnThreadPool pool(first, 2);
        EXPECT_EQ(static_cast<ZnThread*>(first), static_cast<ZnThread*>(pool.getSignalThread()));
        EXPECT_EQ(2u, first->getRefCount());

        pool.setSignalThread(second);
        EXPECT_EQ(static_cast<ZnThread*>(second), static_cast<ZnThread*>(pool.getSignalThread()));
        EXPECT_EQ(1u, first->getRefCount());
        EXPECT_EQ(2u, second->getRefCount());

        pool.setSignalThread(ZnHandle<ZnThread>());
        EXPECT_TRUE(pool.getSignalThread().isNil());
        EXPECT_EQ(1u, second->getRefCount());

        pool.setSignalThread(first);
        EXPECT_EQ(2u, first->getRefCount());
    }
    // The pool gives its hold up when it goes.
    EXPECT_EQ(1u, first->getRefCount());
    EXPECT_EQ(1u, second->getRefCount());
    EXPECT_EQ(ZnThread::STATE_DETACHED, first->getState());
}

TEST(ZnThreadPoolTest, PoolThatCannotMakeWorkersRunsOnTheCallersThread)
{
    const unsigned int tableBefore = ZnThread::sGetThreadTableSize();
    WorkerlessPool pool;
    ZnHandle<JobObserver> observer(new JobObserver);
    ZnHandle<ZnObservable> source(new ZnObservable);
    source->attachObserver(observer);

    ZnHandle<Job> first(new Job);
    pool.doObserverNotifications(observer, first);
    EXPECT_EQ(1, first->runs());
    EXPECT_EQ(std::this_thread::get_id(), first->ranOnId());
    EXPECT_EQ(nullptr, first->sourceSeen());
    EXPECT_EQ(1, pool.asked());

    ZnHandle<Job> second(new Job);
    pool.doSourceNotifications(source, second);
    EXPECT_EQ(1, second->runs());
    EXPECT_EQ(std::this_thread::get_id(), second->ranOnId());
    EXPECT_EQ(static_cast<ZnObservable*>(source), second->sourceSeen());
    // A refused worker is not counted, so the pool asks again each time.
    EXPECT_EQ(2, pool.asked());
    EXPECT_EQ(0u, pool.getThreadCount());
    EXPECT_EQ(0u, pool.getAvailableCount());
    EXPECT_EQ(tableBefore, ZnThread::sGetThreadTableSize());
    source->detachObserver(observer);
}

TEST(ZnThreadPoolTest, CallersOwnJobSwallowsItsException)
{
    // Even with the exception debug mode on, the report of the caller's own job goes nowhere.
    ZnHandle<LockedRecordingStream> destination(new LockedRecordingStream);
    ZnTest::DefaultErrorStreamScope errors(new ZnErrorStream(destination));
    errors.get()->setDebugMode(ZnException::sDebugToken);
    CerrCapture cerr;

    CountingPool pool(0);
    ZnHandle<JobObserver> observer(new JobObserver);
    ZnHandle<ZnObservable> source(new ZnObservable);
    source->attachObserver(observer);
    ZnHandle<Job> viaObserver(new Job(Job::kRaising));
    EXPECT_NO_THROW(pool.doObserverNotifications(observer, viaObserver));
    EXPECT_EQ(1, viaObserver->runs());
    EXPECT_EQ(std::this_thread::get_id(), viaObserver->ranOnId());

    ZnHandle<Job> viaSource(new Job(Job::kRaising));
    EXPECT_NO_THROW(pool.doSourceNotifications(source, viaSource));
    EXPECT_EQ(1, viaSource->runs());
    EXPECT_EQ(std::this_thread::get_id(), viaSource->ranOnId());

    // The pool goes on as before.
    ZnHandle<Job> after(new Job);
    pool.doObserverNotifications(observer, after);
    EXPECT_EQ(1, after->runs());

    EXPECT_EQ("", destination->text());
    EXPECT_EQ("", cerr.text());
    source->detachObserver(observer);
}

TEST(ZnThreadPoolTest, TerminatedIdleWorkerLeavesThePool)
{
    const unsigned int tableBefore = ZnThread::sGetThreadTableSize();
    CountingPool pool(2);
    ZnHandle<JobObserver> observer(new JobObserver);
    ZnHandle<Job> job(new Job);
    ASSERT_TRUE(startJob(pool, observer, job));
    ASSERT_TRUE(waitUntil([&] { return pool.getAvailableCount() == 1; }));
    EXPECT_EQ(tableBefore + 1, ZnThread::sGetThreadTableSize());

    std::vector<ZnHandle<ZnThread>> workers = observer->takeWorkers();
    ASSERT_EQ(1u, workers.size());
    workers[0]->terminate();
    EXPECT_TRUE(waitUntil([&] { return workers[0]->getState() == ZnThread::STATE_DETACHED; }));
    EXPECT_TRUE(waitUntil([&] { return workers[0]->getRefCount() == 1; }));
    EXPECT_EQ(0u, pool.getThreadCount());
    EXPECT_EQ(0u, pool.getAvailableCount());
    EXPECT_EQ(tableBefore, ZnThread::sGetThreadTableSize());

    // The next notification gets a new worker.
    WorkerEnder ender(pool, *observer);
    ZnHandle<Job> next(new Job);
    ASSERT_TRUE(startJob(pool, observer, next));
    EXPECT_NE(std::this_thread::get_id(), next->ranOnId());
    EXPECT_NE(static_cast<ZnThread*>(workers[0]), next->ranOn());
    EXPECT_EQ(2, pool.created());
}

TEST(ZnThreadPoolTest, DestroyedPoolTellsItsIdleWorkersToEnd)
{
    ZnHandle<JobObserver> observer(new JobObserver);
    std::vector<ZnHandle<ZnThread>> workers;
    {
        ZnThreadPool pool(ZnHandle<ZnThread>(), 2);
        ZnHandle<Job> first(new Job(Job::kGated));
        ZnHandle<Job> second(new Job());
        ASSERT_TRUE(startJob(pool, observer, first));
        ASSERT_TRUE(startJob(pool, observer, second));
        first->release();
        ASSERT_TRUE(waitUntil([&] { return pool.getAvailableCount() == 2; }));
        workers = observer->takeWorkers();
        ASSERT_EQ(workers.size(), 2u);
    }
    for (ZnHandle<ZnThread>& worker : workers)
    {
        EXPECT_TRUE(ZnTest::waitUntilEnded(worker));
    }
}

} // namespace
