#include "ZnUtil/ZnObserverThread.h"

#include "ZnUtil/ZnErrorStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnObserver.h"
#include "ZnUtil/ZnThread.h"

#include "tavoris/LogLevel.h"
#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
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
using ZnTest::waitUntilEnded;

/// The head of a chain whose block() waits until the test hands it an outcome: true (with a nil
/// notification down the chain), false, or a ZnException. unblock() releases every present and
/// future block() with false, unless told not to, and answers what it is told to answer.
class GatedSource : public ZnObservable
{
public:
    enum Outcome
    {
        kDeliver,
        kEnded,
        kRaise
    };

    bool block() override
    {
        Outcome outcome;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            ++m_blockCalls;
            m_blockThreads.push_back(ZnThread::sGetCurrent());
            m_changed.notify_all();
            m_changed.wait(lock, [this] { return m_released || !m_outcomes.empty(); });
            if (m_outcomes.empty())
            {
                return false;
            }
            outcome = m_outcomes.front();
            m_outcomes.pop_front();
        }
        switch (outcome)
        {
        case kRaise:
            ZnException::sThrow("source broke");
        case kEnded:
            return false;
        case kDeliver:
            break;
        }
        notifyObservers(ZnHandle<ZnObject>());
        return true;
    }

    bool unblock() override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_unblockCalls;
        if (m_unblockReleases)
        {
            m_released = true;
            m_changed.notify_all();
        }
        return m_unblockAnswer;
    }

    /// The next block() ends with \p outcome.
    void push(Outcome outcome)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_outcomes.push_back(outcome);
        m_changed.notify_all();
    }

    /// Every block() from now on returns false at once.
    void release()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_released = true;
        m_changed.notify_all();
    }

    /// What unblock() answers, and whether it releases block().
    void setUnblock(bool answer, bool releases)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_unblockAnswer = answer;
        m_unblockReleases = releases;
    }

    /// Waits until block() has been entered \p count times.
    bool waitForBlockCalls(int count)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, kLimit, [&] { return m_blockCalls >= count; });
    }

    int blockCalls() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_blockCalls;
    }

    int unblockCalls() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_unblockCalls;
    }

    std::vector<ZnThread*> blockThreads() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_blockThreads;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Outcome> m_outcomes;
    std::vector<ZnThread*> m_blockThreads;
    int m_blockCalls = 0;
    int m_unblockCalls = 0;
    bool m_released = false;
    bool m_unblockAnswer = true;
    bool m_unblockReleases = true;
};

/// Counts the notifications it is given, with the source and the argument of the last one.
class CountingObserver : public ZnObserver
{
public:
    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_count;
        m_lastSource = aSource;
        m_lastArgumentWasNil = aArgument.isNil();
    }

    int count() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_count;
    }

    ZnObservable* lastSource() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lastSource;
    }

    bool lastArgumentWasNil() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lastArgumentWasNil;
    }

private:
    mutable std::mutex m_mutex;
    int m_count = 0;
    ZnObservable* m_lastSource = nullptr; // compared, never used
    bool m_lastArgumentWasNil = false;
};

/// Makes an error stream on a recording destination the default for the life of the object,
/// with the exception debug mode switched on or not, then puts the previous default back.
class RecordingDefaultErrorStream
{
public:
    explicit RecordingDefaultErrorStream(bool exceptionMode)
        : m_destination(new LockedRecordingStream), m_scope(new ZnErrorStream(m_destination))
    {
        if (exceptionMode)
        {
            m_scope.get()->setDebugMode(ZnException::sDebugToken);
        }
    }

    std::string text() const { return m_destination->text(); }
    int flushes() const { return m_destination->flushes(); }

private:
    ZnHandle<LockedRecordingStream> m_destination;
    ZnTest::DefaultErrorStreamScope m_scope;
};

/// Ends an observer thread when a test leaves, however it leaves: terminates it, releases its
/// source so that a block() that ignores unblock() returns as well, and waits for the end. The
/// test's own handle on the thread is to outlive this object.
class ThreadEnder
{
public:
    explicit ThreadEnder(const ZnHandle<ZnObserverThread>& thread, GatedSource* source = nullptr)
        : m_thread(thread), m_source(source)
    {
    }

    ~ThreadEnder()
    {
        if (m_thread.getState() != ZnThread::STATE_DETACHED)
        {
            m_thread.terminate();
        }
        if (m_source != nullptr)
        {
            m_source->release();
        }
        EXPECT_TRUE(waitUntilEnded(m_thread));
    }

    ThreadEnder(const ThreadEnder&) = delete;
    ThreadEnder& operator=(const ThreadEnder&) = delete;

private:
    ZnObserverThread& m_thread;
    GatedSource* m_source;
};

/// Forks \p thread and waits until it sits in its first wait.
/// \return true when that happened within the limit.
bool forkAndWaitForTheFirstWait(const ZnHandle<ZnObserverThread>& thread)
{
    thread->fork();
    return waitUntil([&] { return thread->getState() == ZnThread::STATE_BLOCKED; });
}

/// Forks \p thread, and once it sits in its first wait has it monitor \p source; waits until
/// the thread has entered the source's block().
/// \return true when all of that happened within the limit.
bool monitorFromTheFirstWait(const ZnHandle<ZnObserverThread>& thread, GatedSource* source)
{
    if (!forkAndWaitForTheFirstWait(thread))
    {
        return false;
    }
    thread->monitorObservable(source);
    return source->waitForBlockCalls(1);
}

TEST(ZnObserverThreadTest, ObservableIsNilBeforeMonitorObservable)
{
    ZnHandle<ZnObserverThread> thread(new ZnObserverThread);
    EXPECT_TRUE(thread->getObservable().isNil());
    EXPECT_EQ(ZnThread::STATE_DETACHED, thread->getState());
}

TEST(ZnObserverThreadTest, MonitorObservableDrivesBlockRepeatedly)
{
    ZnHandle<GatedSource> source(new GatedSource);
    ZnHandle<CountingObserver> observer(new CountingObserver);
    source->attachObserver(observer);
    ZnHandle<ZnObserverThread> thread(new ZnObserverThread);
    ThreadEnder ender(thread, source);
    ASSERT_TRUE(forkAndWaitForTheFirstWait(thread));
    EXPECT_EQ(0, source->blockCalls());

    thread->monitorObservable(source);
    EXPECT_EQ(static_cast<ZnObservable*>(source),
              static_cast<ZnObservable*>(thread->getObservable()));
    ASSERT_TRUE(source->waitForBlockCalls(1));
    for (int delivered = 1; delivered <= 3; ++delivered)
    {
        source->push(GatedSource::kDeliver);
        ASSERT_TRUE(source->waitForBlockCalls(delivered + 1));
        EXPECT_EQ(delivered, observer->count());
    }
    EXPECT_EQ(static_cast<ZnObservable*>(source), observer->lastSource());
    EXPECT_TRUE(observer->lastArgumentWasNil());

    // Every block() ran on the observer thread itself.
    for (ZnThread* caller : source->blockThreads())
    {
        EXPECT_EQ(static_cast<ZnThread*>(thread), caller);
    }
    EXPECT_EQ(0, source->unblockCalls());
    source->detachObserver(observer);
}

TEST(ZnObserverThreadTest, MonitorObservableBeforeForkIsTakenUpByTheThread)
{
    ZnHandle<GatedSource> source(new GatedSource);
    ZnHandle<ZnObserverThread> thread(new ZnObserverThread);
    ThreadEnder ender(thread, source);
    thread->monitorObservable(source);
    EXPECT_EQ(0, source->blockCalls());
    thread->fork();
    ASSERT_TRUE(source->waitForBlockCalls(1));
    source->push(GatedSource::kDeliver);
    EXPECT_TRUE(source->waitForBlockCalls(2));
}

TEST(ZnObserverThreadTest, TerminateUnblocksTheSourceAndEndsTheThread)
{
    const unsigned int tableBefore = ZnThread::sGetThreadTableSize();
    ZnHandle<GatedSource> source(new GatedSource);
    // unblock() answers true but lets block() go on waiting, so that the exit can be watched.
    source->setUnblock(true, false);
    ZnHandle<ZnObserverThread> thread(new ZnObserverThread);
    ThreadEnder ender(thread, source);
    ASSERT_TRUE(forkAndWaitForTheFirstWait(thread));
    EXPECT_EQ(tableBefore + 1, ZnThread::sGetThreadTableSize());
    thread->monitorObservable(source);
    ASSERT_TRUE(source->waitForBlockCalls(1));

    thread->terminate();
    EXPECT_EQ(1, source->unblockCalls());
    EXPECT_EQ(ZnThread::STATE_EXITING, thread->getState());

    // The thread leaves once its block() returns, without calling block() again.
    source->push(GatedSource::kDeliver);
    EXPECT_TRUE(waitUntilEnded(thread));
    EXPECT_EQ(ZnThread::STATE_DETACHED, thread->getState());
    EXPECT_EQ(1, source->blockCalls());
    EXPECT_EQ(1, source->unblockCalls());
    EXPECT_EQ(tableBefore, ZnThread::sGetThreadTableSize());
}

TEST(ZnObserverThreadTest, UnblockReleasesAThreadSittingInBlock)
{
    ZnHandle<GatedSource> source(new GatedSource);
    ZnHandle<ZnObserverThread> thread(new ZnObserverThread);
    ThreadEnder ender(thread);
    ASSERT_TRUE(monitorFromTheFirstWait(thread, source));

    // Only unblock() can free this block(): the test gives it no outcome.
    thread->terminate();
    EXPECT_TRUE(waitUntilEnded(thread));
    EXPECT_EQ(1, source->unblockCalls());
}

TEST(ZnObserverThreadTest, TerminateBeforeMonitorObservableCallsNoUnblock)
{
    ZnTest::LogCapture cap("corvane.zn.ZnObserverThread", Tavoris::TRACE_LOG_LEVEL);
    const unsigned int tableBefore = ZnThread::sGetThreadTableSize();
    ZnHandle<ZnObserverThread> thread(new ZnObserverThread);
    ThreadEnder ender(thread);
    ASSERT_TRUE(forkAndWaitForTheFirstWait(thread));

    thread->terminate();
    EXPECT_TRUE(waitUntilEnded(thread));
    EXPECT_TRUE(thread->getObservable().isNil());
    EXPECT_TRUE(cap.find("Assertion failed").empty());
    EXPECT_EQ(tableBefore, ZnThread::sGetThreadTableSize());
}

TEST(ZnObserverThreadTest, TerminateOfAThreadNeverForkedCallsNoUnblock)
{
    ZnTest::LogCapture cap("corvane.zn.ZnObserverThread", Tavoris::TRACE_LOG_LEVEL);
    ZnHandle<ZnObserverThread> thread(new ZnObserverThread);
    thread->terminate();
    EXPECT_EQ(ZnThread::STATE_EXITING, thread->getState());
    EXPECT_TRUE(cap.find("Assertion failed").empty());
    EXPECT_EQ(1u, thread->getRefCount());
}

TEST(ZnObserverThreadTest, FalseUnblockTripsTheAssertion)
{
    ZnTest::LogCapture cap("corvane.zn.ZnObserverThread", Tavoris::TRACE_LOG_LEVEL);
    ZnHandle<GatedSource> source(new GatedSource);
    source->setUnblock(false, true);
    ZnHandle<ZnObserverThread> thread(new ZnObserverThread);
    ThreadEnder ender(thread, source);
    ASSERT_TRUE(monitorFromTheFirstWait(thread, source));
    EXPECT_TRUE(cap.find("Assertion failed").empty());

    thread->terminate();
    const auto events = cap.find("Assertion failed");
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("corvane.zn.ZnObserverThread", events[0].logger);
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, events[0].level);
    EXPECT_EQ("Assertion failed: m_hS->unblock()", events[0].message);
    // The assertion only reports: the thread still ends.
    EXPECT_TRUE(waitUntilEnded(thread));
    EXPECT_EQ(1, source->unblockCalls());
}

TEST(ZnObserverThreadTest, TrueUnblockTripsNoAssertion)
{
    ZnTest::LogCapture cap("corvane.zn.ZnObserverThread", Tavoris::TRACE_LOG_LEVEL);
    ZnHandle<GatedSource> source(new GatedSource);
    ZnHandle<ZnObserverThread> thread(new ZnObserverThread);
    ThreadEnder ender(thread, source);
    ASSERT_TRUE(monitorFromTheFirstWait(thread, source));
    thread->terminate();
    EXPECT_TRUE(waitUntilEnded(thread));
    EXPECT_TRUE(cap.find("Assertion failed").empty());
}

TEST(ZnObserverThreadTest, FalseBlockDoesNotEndTheThread)
{
    ZnHandle<GatedSource> source(new GatedSource);
    ZnHandle<CountingObserver> observer(new CountingObserver);
    source->attachObserver(observer);
    ZnHandle<ZnObserverThread> thread(new ZnObserverThread);
    ThreadEnder ender(thread, source);
    ASSERT_TRUE(monitorFromTheFirstWait(thread, source));

    source->push(GatedSource::kEnded);
    ASSERT_TRUE(source->waitForBlockCalls(2));
    source->push(GatedSource::kEnded);
    ASSERT_TRUE(source->waitForBlockCalls(3));
    EXPECT_NE(ZnThread::STATE_DETACHED, thread->getState());
    EXPECT_NE(ZnThread::STATE_EXITING, thread->getState());
    EXPECT_EQ(0, observer->count());

    // The thread still delivers what comes next.
    source->push(GatedSource::kDeliver);
    ASSERT_TRUE(source->waitForBlockCalls(4));
    EXPECT_EQ(1, observer->count());
    source->detachObserver(observer);
}

TEST(ZnObserverThreadTest, ExceptionFromBlockDoesNotEndTheThread)
{
    RecordingDefaultErrorStream errors(false);
    ZnHandle<GatedSource> source(new GatedSource);
    ZnHandle<CountingObserver> observer(new CountingObserver);
    source->attachObserver(observer);
    {
        ZnHandle<ZnObserverThread> thread(new ZnObserverThread);
        ThreadEnder ender(thread, source);
        ASSERT_TRUE(monitorFromTheFirstWait(thread, source));

        source->push(GatedSource::kRaise);
        ASSERT_TRUE(source->waitForBlockCalls(2));
        source->push(GatedSource::kRaise);
        ASSERT_TRUE(source->waitForBlockCalls(3));
        EXPECT_NE(ZnThread::STATE_DETACHED, thread->getState());

        source->push(GatedSource::kDeliver);
        ASSERT_TRUE(source->waitForBlockCalls(4));
        EXPECT_EQ(1, observer->count());
    }
    // Without the exception debug mode the report goes nowhere.
    EXPECT_EQ("", errors.text());
    source->detachObserver(observer);
}

TEST(ZnObserverThreadTest, ExceptionFromBlockIsReportedOnTheDefaultErrorStream)
{
    RecordingDefaultErrorStream errors(true);
    ZnHandle<GatedSource> source(new GatedSource);
    {
        ZnHandle<ZnObserverThread> thread(new ZnObserverThread);
        ThreadEnder ender(thread, source);
        ASSERT_TRUE(monitorFromTheFirstWait(thread, source));

        source->push(GatedSource::kRaise);
        ASSERT_TRUE(source->waitForBlockCalls(2));
        EXPECT_EQ("catch exception in ZnObserverThread::block(): source broke\n", errors.text());
        EXPECT_GE(errors.flushes(), 1);

        // A false block() is no exception: nothing more is reported.
        source->push(GatedSource::kEnded);
        ASSERT_TRUE(source->waitForBlockCalls(3));
        EXPECT_EQ("catch exception in ZnObserverThread::block(): source broke\n", errors.text());
    }
}

TEST(ZnObserverThreadTest, SecondMonitorObservableReplacesTheSource)
{
    ZnHandle<GatedSource> first(new GatedSource);
    ZnHandle<GatedSource> second(new GatedSource);
    ZnHandle<ZnObserverThread> thread(new ZnObserverThread);
    ThreadEnder ender(thread, second);
    ASSERT_TRUE(monitorFromTheFirstWait(thread, first));

    thread->monitorObservable(second);
    EXPECT_EQ(static_cast<ZnObservable*>(second),
              static_cast<ZnObservable*>(thread->getObservable()));
    // The thread goes on to the new source as soon as the old block() returns.
    first->push(GatedSource::kDeliver);
    ASSERT_TRUE(second->waitForBlockCalls(1));
    second->push(GatedSource::kDeliver);
    ASSERT_TRUE(second->waitForBlockCalls(2));
    EXPECT_EQ(1, first->blockCalls());

    // The old source is no longer held by the thread, and terminate unblocks the new one only.
    EXPECT_EQ(1u, first->getRefCount());
    thread->terminate();
    EXPECT_TRUE(waitUntilEnded(thread));
    EXPECT_EQ(0, first->unblockCalls());
    EXPECT_EQ(1, second->unblockCalls());
}

TEST(ZnObserverThreadTest, ThreadHoldsAReferenceOnItsObservable)
{
    ZnHandle<GatedSource> source(new GatedSource);
    ZnHandle<ZnObserverThread> thread(new ZnObserverThread);
    thread->monitorObservable(source);
    EXPECT_EQ(2u, source->getRefCount());
    thread = nullptr;
    EXPECT_EQ(1u, source->getRefCount());
}

TEST(ZnObserverThreadTest, ObjectsCountOnTheirMemoryAccount)
{
    EXPECT_STREQ("ZnObserverThread", ZnObserverThread::getMemAccountName());
    const Tavoris::MemAccount::Reading before = Tavoris::MemAccount::sRead("ZnObserverThread");
    ZnHandle<ZnObserverThread> thread(new ZnObserverThread);
    const Tavoris::MemAccount::Reading during = Tavoris::MemAccount::sRead("ZnObserverThread");
    EXPECT_EQ(before.liveBlocks + 1, during.liveBlocks);
    EXPECT_GE(during.liveBytes - before.liveBytes, static_cast<int64_t>(sizeof(ZnObserverThread)));
    EXPECT_EQ(before.totalBlocks + 1, during.totalBlocks);
    thread = nullptr;
    const Tavoris::MemAccount::Reading after = Tavoris::MemAccount::sRead("ZnObserverThread");
    EXPECT_EQ(before.liveBlocks, after.liveBlocks);
    EXPECT_EQ(before.liveBytes, after.liveBytes);
}

TEST(ZnObserverThreadTest, ForkedThreadIsGivenBackToItsAccountWhenItEnds)
{
    const Tavoris::MemAccount::Reading before = Tavoris::MemAccount::sRead("ZnObserverThread");
    {
        ZnHandle<ZnObserverThread> thread(new ZnObserverThread);
        ThreadEnder ender(thread);
        ASSERT_TRUE(forkAndWaitForTheFirstWait(thread));
        EXPECT_EQ(before.liveBlocks + 1, Tavoris::MemAccount::sRead("ZnObserverThread").liveBlocks);
    }
    EXPECT_EQ(before.liveBlocks, Tavoris::MemAccount::sRead("ZnObserverThread").liveBlocks);
}

TEST(ZnObserverThreadTest, RunIsTraced)
{
    ZnTest::LogCapture cap("corvane.zn.ZnObserverThread", Tavoris::TRACE_LOG_LEVEL);
    ZnHandle<ZnObserverThread> thread(new ZnObserverThread);
    {
        ThreadEnder ender(thread);
        ASSERT_TRUE(forkAndWaitForTheFirstWait(thread));
        const auto entered = cap.find("ENTER: ZnObserverThread::run");
        ASSERT_EQ(1u, entered.size());
        EXPECT_EQ("ENTER: ZnObserverThread::run", entered[0].message);
        EXPECT_EQ(Tavoris::TRACE_LOG_LEVEL, entered[0].level);
        EXPECT_EQ("corvane.zn.ZnObserverThread", entered[0].logger);
    }
    EXPECT_EQ(1u, cap.find("EXIT: ZnObserverThread::run").size());
}

} // namespace
