#include "ZnUtil/ZnWorkerThread.h"

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnObserver.h"
#include "ZnUtil/ZnThread.h"

#include "tavoris/LogLevel.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/CapturingAppender.h"
#include "support/ThreadEnd.h"
#include "support/WaitUntil.h"

namespace
{

using ZnTest::kLimit;
using ZnTest::waitUntil;

/// An argument with a name, to tell notifications apart.
class Named : public ZnObject
{
public:
    explicit Named(const char* name) : m_name(name) {}
    const std::string& getName() const { return m_name; }

private:
    std::string m_name;
};

/// What one notification brought.
struct Call
{
    ZnObservable* source; // compared, never used
    ZnObject* argument;   // compared, never used
    ZnThread* thread;     // compared, never used
    std::thread::id threadId;
};

/// Records every notification; a notification whose argument is named "raise" raises a
/// ZnException "job failed" after it has been recorded.
class RecordingObserver : public ZnObserver
{
public:
    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_calls.push_back(
                Call{aSource, aArgument, ZnThread::sGetCurrent(), std::this_thread::get_id()});
            m_changed.notify_all();
        }
        const Named* named = dynamic_cast<const Named*>(static_cast<ZnObject*>(aArgument));
        if (named != nullptr && named->getName() == "raise")
        {
            ZnException::sThrow("job failed");
        }
    }

    /// Waits until \p count notifications have come.
    bool waitForCalls(size_t count)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, kLimit, [&] { return m_calls.size() >= count; });
    }

    std::vector<Call> calls() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_calls;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Call> m_calls;
};

/// A worker of no pool, forked, that the test ends and waits for however it leaves. The handle
/// of the test is the only one left once the thread has ended.
class PoollessWorker
{
public:
    PoollessWorker() : m_worker(new ZnWorkerThread) {}

    ~PoollessWorker()
    {
        if (m_worker->getState() != ZnThread::STATE_DETACHED)
        {
            m_worker->terminate();
        }
        EXPECT_TRUE(ZnTest::waitUntilEnded(*m_worker));
    }

    PoollessWorker(const PoollessWorker&) = delete;
    PoollessWorker& operator=(const PoollessWorker&) = delete;

    ZnWorkerThread* operator->() const { return m_worker; }
    ZnWorkerThread* get() const { return m_worker; }

    /// True once the thread has ended and the thread table has let go of the object.
    bool hasEnded() const { return ZnTest::hasEnded(*m_worker); }

    /// Waits until the worker sits in wait() again. Called once the job is known to have
    /// started, it tells that the job is over and the worker is ready for the next.
    bool waitUntilIdle() const
    {
        return waitUntil([this] { return m_worker->getState() == ZnThread::STATE_BLOCKED; });
    }

private:
    ZnHandle<ZnWorkerThread> m_worker;
};

TEST(ZnWorkerThreadTest, NewWorkerHoldsNoJob)
{
    ZnHandle<ZnWorkerThread> worker(new ZnWorkerThread);
    EXPECT_EQ(0u, worker->getJobKind());
    EXPECT_EQ(static_cast<unsigned int>(ZnWorkerThread::JOB_NONE), worker->getJobKind());
    EXPECT_EQ(ZnThread::STATE_DETACHED, worker->getState());
}

TEST(ZnWorkerThreadTest, JobKindsHaveTheirNumbers)
{
    EXPECT_EQ(0, ZnWorkerThread::JOB_NONE);
    EXPECT_EQ(1, ZnWorkerThread::JOB_SOURCE_NOTIFICATION);
    EXPECT_EQ(2, ZnWorkerThread::JOB_OBSERVER_NOTIFICATION);
}

TEST(ZnWorkerThreadTest, SourceJobNotifiesTheSourcesObserver)
{
    ZnHandle<ZnObservable> source(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    source->attachObserver(observer);
    ZnHandle<Named> argument(new Named("first"));
    PoollessWorker worker;
    worker->fork();
    ASSERT_TRUE(worker.waitUntilIdle());

    worker->doSourceNotifications(source, argument);
    ASSERT_TRUE(observer->waitForCalls(1));
    ASSERT_TRUE(worker.waitUntilIdle());
    const std::vector<Call> calls = observer->calls();
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(static_cast<ZnObservable*>(source), calls[0].source);
    EXPECT_EQ(static_cast<ZnObject*>(argument), calls[0].argument);
    EXPECT_EQ(static_cast<ZnThread*>(worker.get()), calls[0].thread);
    EXPECT_NE(std::this_thread::get_id(), calls[0].threadId);

    // The job is over: the worker has let go of it.
    EXPECT_EQ(0u, worker->getJobKind());
    EXPECT_EQ(1u, argument->getRefCount());
    EXPECT_EQ(2u, source->getRefCount()); // the test's handle and the observer's
    source->detachObserver(observer);
}

TEST(ZnWorkerThreadTest, ObserverJobCarriesANilSource)
{
    ZnHandle<ZnObservable> source(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    // Even an observer that has a source is told of an observer job with a nil one.
    source->attachObserver(observer);
    ZnHandle<Named> argument(new Named("second"));
    PoollessWorker worker;
    worker->fork();
    ASSERT_TRUE(worker.waitUntilIdle());

    worker->doObserverNotifications(observer, argument);
    ASSERT_TRUE(observer->waitForCalls(1));
    ASSERT_TRUE(worker.waitUntilIdle());
    const std::vector<Call> calls = observer->calls();
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(nullptr, calls[0].source);
    EXPECT_EQ(static_cast<ZnObject*>(argument), calls[0].argument);
    EXPECT_EQ(static_cast<ZnThread*>(worker.get()), calls[0].thread);
    EXPECT_EQ(0u, worker->getJobKind());
    EXPECT_EQ(1u, argument->getRefCount());
    EXPECT_EQ(2u, observer->getRefCount()); // the test's handle and the source's
    source->detachObserver(observer);
}

TEST(ZnWorkerThreadTest, JobHandedOverBeforeForkRunsOnceTheThreadStarts)
{
    ZnHandle<ZnObservable> source(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    source->attachObserver(observer);
    ZnHandle<Named> argument(new Named("early"));
    PoollessWorker worker;
    worker->doSourceNotifications(source, argument);
    EXPECT_EQ(static_cast<unsigned int>(ZnWorkerThread::JOB_SOURCE_NOTIFICATION),
              worker->getJobKind());
    EXPECT_EQ(2u, argument->getRefCount());
    EXPECT_TRUE(observer->calls().empty());

    worker->fork();
    ASSERT_TRUE(observer->waitForCalls(1));
    ASSERT_TRUE(worker.waitUntilIdle());
    EXPECT_EQ(0u, worker->getJobKind());
    EXPECT_EQ(1u, argument->getRefCount());
    EXPECT_EQ(static_cast<ZnObservable*>(source), observer->calls()[0].source);
    source->detachObserver(observer);
}

TEST(ZnWorkerThreadTest, ObserverJobKindIsTwoUntilTheJobRuns)
{
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    ZnHandle<Named> argument(new Named("early"));
    PoollessWorker worker;
    worker->doObserverNotifications(observer, argument);
    EXPECT_EQ(static_cast<unsigned int>(ZnWorkerThread::JOB_OBSERVER_NOTIFICATION),
              worker->getJobKind());
    EXPECT_EQ(2u, observer->getRefCount());

    worker->fork();
    ASSERT_TRUE(observer->waitForCalls(1));
    ASSERT_TRUE(worker.waitUntilIdle());
    EXPECT_EQ(0u, worker->getJobKind());
    EXPECT_EQ(1u, observer->getRefCount());
}

TEST(ZnWorkerThreadTest, WorkerWaitsForTheNextJobAfterEachOne)
{
    ZnHandle<ZnObservable> source(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    source->attachObserver(observer);
    PoollessWorker worker;
    worker->fork();
    ASSERT_TRUE(worker.waitUntilIdle());

    std::vector<ZnHandle<Named>> arguments;
    for (size_t job = 0; job < 6; ++job)
    {
        arguments.push_back(ZnHandle<Named>(new Named("job")));
        if (job % 2 == 0)
        {
            worker->doSourceNotifications(source, arguments.back());
        }
        else
        {
            worker->doObserverNotifications(observer, arguments.back());
        }
        ASSERT_TRUE(observer->waitForCalls(job + 1));
        ASSERT_TRUE(worker.waitUntilIdle());
        EXPECT_EQ(0u, worker->getJobKind());
    }

    const std::vector<Call> calls = observer->calls();
    ASSERT_EQ(6u, calls.size());
    for (size_t job = 0; job < calls.size(); ++job)
    {
        EXPECT_EQ(static_cast<ZnObject*>(arguments[job]), calls[job].argument);
        EXPECT_EQ(job % 2 == 0 ? static_cast<ZnObservable*>(source) : nullptr, calls[job].source);
        EXPECT_EQ(static_cast<ZnThread*>(worker.get()), calls[job].thread);
        EXPECT_EQ(calls[0].threadId, calls[job].threadId);
    }
    // Still the same thread, waiting for more.
    EXPECT_EQ(ZnThread::STATE_BLOCKED, worker->getState());
    source->detachObserver(observer);
}

TEST(ZnWorkerThreadTest, ExceptionInAJobIsLoggedAndTheWorkerStaysUsable)
{
    ZnTest::LogCapture cap("corvane.zn.ZnWorkerThread", Tavoris::TRACE_LOG_LEVEL);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    ZnHandle<Named> failing(new Named("raise"));
    PoollessWorker worker;
    worker->fork();
    ASSERT_TRUE(worker.waitUntilIdle());

    worker->doObserverNotifications(observer, failing);
    ASSERT_TRUE(observer->waitForCalls(1));
    ASSERT_TRUE(worker.waitUntilIdle());
    const auto events = cap.find("Caught a ZnException");
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("Caught a ZnException in ZnWorkerThread::run(): job failed", events[0].message);
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, events[0].level);
    EXPECT_EQ("corvane.zn.ZnWorkerThread", events[0].logger);
    EXPECT_NE(ZnThread::STATE_DETACHED, worker->getState());

    // On this path the job is left in place until the next one replaces it.
    EXPECT_EQ(static_cast<unsigned int>(ZnWorkerThread::JOB_OBSERVER_NOTIFICATION),
              worker->getJobKind());
    EXPECT_EQ(2u, failing->getRefCount());

    ZnHandle<ZnObservable> source(new ZnObservable);
    source->attachObserver(observer);
    ZnHandle<Named> fine(new Named("fine"));
    worker->doSourceNotifications(source, fine);
    ASSERT_TRUE(observer->waitForCalls(2));
    ASSERT_TRUE(worker.waitUntilIdle());
    const std::vector<Call> calls = observer->calls();
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ(static_cast<ZnObservable*>(source), calls[1].source);
    EXPECT_EQ(static_cast<ZnObject*>(fine), calls[1].argument);
    EXPECT_EQ(static_cast<ZnThread*>(worker.get()), calls[1].thread);
    EXPECT_EQ(0u, worker->getJobKind());
    EXPECT_EQ(1u, failing->getRefCount());
    EXPECT_EQ(1u, fine->getRefCount());
    EXPECT_EQ(1u, cap.find("Caught a ZnException").size());
    source->detachObserver(observer);
}

TEST(ZnWorkerThreadTest, RunIsTraced)
{
    ZnTest::LogCapture cap("corvane.zn.ZnWorkerThread", Tavoris::TRACE_LOG_LEVEL);
    {
        PoollessWorker worker;
        worker->fork();
        ASSERT_TRUE(worker.waitUntilIdle());
        const auto entered = cap.find("ENTER: ZnWorkerThread::run");
        ASSERT_EQ(1u, entered.size());
        EXPECT_EQ("ENTER: ZnWorkerThread::run", entered[0].message);
        EXPECT_EQ(Tavoris::TRACE_LOG_LEVEL, entered[0].level);
        EXPECT_EQ("corvane.zn.ZnWorkerThread", entered[0].logger);
        EXPECT_TRUE(cap.find("EXIT: ZnWorkerThread::run").empty());
    }
    EXPECT_EQ(1u, cap.find("EXIT: ZnWorkerThread::run").size());
}

TEST(ZnWorkerThreadTest, TerminateEndsAWorkerOfNoPool)
{
    const unsigned int tableBefore = ZnThread::sGetThreadTableSize();
    PoollessWorker worker;
    worker->fork();
    ASSERT_TRUE(worker.waitUntilIdle());
    EXPECT_EQ(tableBefore + 1, ZnThread::sGetThreadTableSize());
    worker->terminate();
    EXPECT_TRUE(waitUntil([&] { return worker.hasEnded(); }));
    EXPECT_EQ(tableBefore, ZnThread::sGetThreadTableSize());
}

} // namespace
