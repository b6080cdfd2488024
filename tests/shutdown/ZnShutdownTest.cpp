// Process-wide shutdown of the thread objects. Every test shuts its process down for good, so
// each runs in a process of its own.
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnProcess.h"
#include "ZnUtil/ZnThread.h"

#include "tavoris/LogLevel.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/CapturingAppender.h"
#include "support/GuardedRecord.h"
#include "support/WaitUntil.h"

namespace
{

using ZnTest::waitUntil;

const char* const kThreadLogger = "corvane.zn.ZnThread";

/// What the test threads report, and the gate that holds them at the end of run().
class Tracker : public ZnTest::GuardedRecord<Tracker>
{
public:
    void openGate()
    {
        update([](Tracker& t) { t.gateOpen = true; });
    }

    int entered = 0;
    int ended = 0;
    int destroyed = 0;
    int terminates = 0;
    int atGate = 0;
    bool gateOpen = false;
    bool gateTimedOut = false;
    std::vector<ZnThread::State> statesAfterWait;
    std::vector<int> terminatesAtRunEnd;
};

/// A thread that waits on its event until it is told to exit; with \p holdAtEnd it then stops at
/// the tracker's gate, and with \p once it waits only once.
class LoopThread : public ZnThread
{
public:
    LoopThread(Tracker& tracker, bool holdAtEnd = false, bool once = false)
        : m_tracker(tracker), m_holdAtEnd(holdAtEnd), m_once(once)
    {
    }

    ~LoopThread() override
    {
        m_tracker.update([](Tracker& t) { ++t.destroyed; });
    }

    void run() override
    {
        m_tracker.update([](Tracker& t) { ++t.entered; });
        do
        {
            wait(kInfinite);
            const State after = getState();
            m_tracker.update([after](Tracker& t) { t.statesAfterWait.push_back(after); });
        } while (!m_once && getState() != STATE_EXITING);
        if (m_holdAtEnd)
        {
            m_tracker.update([](Tracker& t) { ++t.atGate; });
            if (!m_tracker.await([](Tracker& t) { return t.gateOpen; }))
            {
                m_tracker.update([](Tracker& t) { t.gateTimedOut = true; });
            }
        }
        m_tracker.update([](Tracker& t) { ++t.ended; });
    }

    void terminate() override
    {
        m_tracker.update([](Tracker& t) { ++t.terminates; });
        ZnThread::terminate();
    }

private:
    Tracker& m_tracker;
    const bool m_holdAtEnd;
    const bool m_once;
};

/// Index of the first event with message \p text, or -1.
int indexOf(const std::vector<ZnTest::CapturedEvent>& events, const std::string& text)
{
    for (size_t i = 0; i < events.size(); ++i)
    {
        if (events[i].message == text)
        {
            return static_cast<int>(i);
        }
    }
    return -1;
}

/// Forks \p count loop threads and lets go of them; returns when all of them wait.
void startLoopThreads(Tracker& tracker, int count, bool holdAtEnd = false, bool once = false)
{
    std::vector<ZnHandle<LoopThread>> threads;
    for (int i = 0; i < count; ++i)
    {
        threads.emplace_back(new LoopThread(tracker, holdAtEnd, once));
        threads.back()->fork();
    }
    for (ZnHandle<LoopThread>& thread : threads)
    {
        ASSERT_TRUE(waitUntil([&] { return thread->getState() == ZnThread::STATE_BLOCKED; }));
    }
}

TEST(ZnShutdownTest, ShutdownWithAnEmptyTableReturnsAfterOnePass)
{
    ASSERT_FALSE(ZnThread::sShuttingDown()) << "each test needs a process of its own";
    ZnProcess::sGetCurrent();
    ASSERT_EQ(0u, ZnThread::sGetThreadTableSize());
    ZnTest::LogCapture all("", Tavoris::TRACE_LOG_LEVEL);
    ZnTest::LogCapture cap(kThreadLogger, Tavoris::TRACE_LOG_LEVEL);

    EXPECT_TRUE(ZnThread::sShutdown());

    EXPECT_TRUE(ZnThread::sShuttingDown());
    EXPECT_TRUE(ZnThread::sIsShuttingdown());
    EXPECT_TRUE(ZnThread::sIsShutdownCompleted());
    const auto events = cap.events();
    EXPECT_EQ(1u, cap.findExactly("ENTER: ZnThread::sInitiateShutdown").size());
    EXPECT_EQ(1u, cap.findExactly("EXIT: ZnThread::sInitiateShutdown").size());
    EXPECT_EQ(1u, cap.findExactly("ENTER: ZnThread::sWaitUntilDone").size());
    EXPECT_EQ(1u, cap.findExactly("EXIT: ZnThread::sWaitUntilDone").size());
    // Nothing to wait for: not one step of 100 ms.
    EXPECT_TRUE(cap.find("Waiting 100ms for ZnProcess.").empty());
    const auto figures = cap.findExactly("threadNum=1");
    ASSERT_EQ(1u, figures.size());
    EXPECT_EQ(Tavoris::DEBUG_LOG_LEVEL, figures[0].level);
    EXPECT_EQ(kThreadLogger, figures[0].logger);
    // Shutdown first, then the figure, then the wait.
    EXPECT_LT(indexOf(events, "EXIT: ZnThread::sInitiateShutdown"), indexOf(events, "threadNum=1"));
    EXPECT_LT(indexOf(events, "threadNum=1"), indexOf(events, "ENTER: ZnThread::sWaitUntilDone"));
    // No thread object was made during shutdown.
    EXPECT_TRUE(all.find("Assertion failed").empty());
    EXPECT_EQ(1, ZnThread::getThreadNum());
}

TEST(ZnShutdownTest, ShutdownTerminatesEveryThreadInTheTable)
{
    ASSERT_FALSE(ZnThread::sShuttingDown()) << "each test needs a process of its own";
    ZnProcess::sGetCurrent();
    Tracker tracker;
    constexpr int kThreads = 4;
    startLoopThreads(tracker, kThreads);
    ASSERT_EQ(static_cast<unsigned int>(kThreads), ZnThread::sGetThreadTableSize());
    ASSERT_EQ(1 + kThreads, ZnThread::getThreadNum());
    ZnTest::LogCapture cap(kThreadLogger, Tavoris::TRACE_LOG_LEVEL);

    EXPECT_TRUE(ZnThread::sShutdown());

    EXPECT_TRUE(ZnThread::sIsShutdownCompleted());
    EXPECT_EQ(0u, ZnThread::sGetThreadTableSize());
    tracker.read(
        [&](Tracker& t)
        {
            EXPECT_EQ(kThreads, t.terminates);
            EXPECT_EQ(kThreads, t.entered);
            EXPECT_EQ(kThreads, t.ended);
            for (ZnThread::State state : t.statesAfterWait)
            {
                EXPECT_EQ(ZnThread::STATE_EXITING, state);
            }
            return 0;
        });
    EXPECT_TRUE(tracker.await([](Tracker& t) { return t.destroyed == kThreads; }));
    EXPECT_TRUE(waitUntil([] { return ZnThread::getThreadNum() == 1; }));
    // Each was told once, while blocked, and after the flag was set: no early-exit warning.
    EXPECT_EQ(static_cast<size_t>(kThreads), cap.findExactly("m_State=3").size());
    EXPECT_TRUE(cap.find("before shutdown was called").empty());
    // Each ending thread signalled the process.
    EXPECT_TRUE(waitUntil(
        [&]
        {
            return cap.findExactly("EXIT: fs_bShutDown && this != ZnProcess::sm_pTheOneAndOnly")
                       .size() == static_cast<size_t>(kThreads);
        }));
    EXPECT_EQ(
        static_cast<size_t>(kThreads),
        cap.findExactly("ENTER: fs_bShutDown && this != ZnProcess::sm_pTheOneAndOnly").size());
    // The figure is read after the threads were told: some may be gone by then.
    const auto figures = cap.find("threadNum=");
    ASSERT_EQ(1u, figures.size());
    bool known = false;
    for (int count = 1; count <= 1 + kThreads; ++count)
    {
        known = known || figures[0].message == "threadNum=" + std::to_string(count);
    }
    EXPECT_TRUE(known) << figures[0].message;
}

TEST(ZnShutdownTest, ThreadMadeAfterShutdownTripsTheAssertion)
{
    ASSERT_FALSE(ZnThread::sShuttingDown()) << "each test needs a process of its own";
    ZnProcess::sGetCurrent();
    ASSERT_TRUE(ZnThread::sShutdown());
    ZnTest::LogCapture cap(kThreadLogger, Tavoris::TRACE_LOG_LEVEL);
    const int before = ZnThread::getThreadNum();
    Tracker tracker;
    {
        ZnHandle<LoopThread> late(new LoopThread(tracker));
        // The report does not stop the construction.
        EXPECT_EQ(ZnThread::STATE_DETACHED, late->getState());
        EXPECT_EQ(before + 1, ZnThread::getThreadNum());
    }
    const auto reports = cap.findExactly("Assertion failed: !fs_bShutDown");
    ASSERT_EQ(1u, reports.size());
    EXPECT_EQ(kThreadLogger, reports[0].logger);
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, reports[0].level);
    EXPECT_EQ(before, ZnThread::getThreadNum());
    EXPECT_EQ(1, tracker.read([](Tracker& t) { return t.destroyed; }));
}

TEST(ZnShutdownTest, ShutdownWaitsInStepsForAThreadSlowToEnd)
{
    ASSERT_FALSE(ZnThread::sShuttingDown()) << "each test needs a process of its own";
    ZnProcess::sGetCurrent();
    Tracker tracker;
    startLoopThreads(tracker, 1, /*holdAtEnd=*/true);
    ZnTest::LogCapture cap(kThreadLogger, Tavoris::DEBUG_LOG_LEVEL);
    const std::string step = "Waiting 100ms for ZnProcess. Thread table size = 1";
    // Opens the gate once the waiting has been reported.
    std::thread opener(
        [&]
        {
            waitUntil([&] { return !cap.findExactly(step).empty(); });
            tracker.openGate();
        });

    EXPECT_TRUE(ZnThread::sShutdown());
    opener.join();

    EXPECT_TRUE(ZnThread::sIsShutdownCompleted());
    const auto steps = cap.findExactly(step);
    ASSERT_GE(steps.size(), 1u);
    EXPECT_EQ(Tavoris::DEBUG_LOG_LEVEL, steps[0].level);
    EXPECT_EQ(kThreadLogger, steps[0].logger);
    EXPECT_EQ(1u, cap.findExactly("threadNum=2").size());
    tracker.read(
        [](Tracker& t)
        {
            EXPECT_EQ(1, t.ended);
            EXPECT_FALSE(t.gateTimedOut);
            return 0;
        });
    EXPECT_TRUE(tracker.await([](Tracker& t) { return t.destroyed == 1; }));
}

TEST(ZnShutdownTest, AsyncShutdownReturnsWhileAThreadRunsAndWaitUntilDoneWaits)
{
    ASSERT_FALSE(ZnThread::sShuttingDown()) << "each test needs a process of its own";
    ZnProcess::sGetCurrent();
    Tracker tracker;
    ZnHandle<LoopThread> thread(new LoopThread(tracker, /*holdAtEnd=*/true));
    thread->fork();
    ASSERT_TRUE(waitUntil([&] { return thread->getState() == ZnThread::STATE_BLOCKED; }));
    ZnTest::LogCapture cap(kThreadLogger, Tavoris::TRACE_LOG_LEVEL);

    ZnThread::sAsyncShutdown();

    EXPECT_TRUE(ZnThread::sShuttingDown());
    EXPECT_EQ(ZnThread::STATE_EXITING, thread->getState());
    ASSERT_TRUE(tracker.await([](Tracker& t) { return t.atGate == 1; }));
    // The thread is still at work: nothing waited for it.
    EXPECT_EQ(1u, ZnThread::sGetThreadTableSize());
    EXPECT_FALSE(ZnThread::sIsShutdownCompleted());
    EXPECT_EQ(0, tracker.read([](Tracker& t) { return t.ended; }));
    EXPECT_TRUE(cap.find("threadNum=").empty());
    EXPECT_TRUE(cap.find("ZnThread::sWaitUntilDone").empty());

    // A second pass reaches the thread again.
    ZnThread::sAsyncShutdown();
    EXPECT_EQ(2, tracker.read([](Tracker& t) { return t.terminates; }));
    EXPECT_EQ(1u, cap.findExactly("m_State=4").size());

    std::thread opener(
        [&]
        {
            waitUntil([&] { return !cap.findExactly("ENTER: ZnThread::sWaitUntilDone").empty(); });
            tracker.openGate();
        });
    EXPECT_TRUE(ZnThread::sWaitUntilDone());
    opener.join();

    EXPECT_TRUE(ZnThread::sIsShutdownCompleted());
    EXPECT_EQ(1, tracker.read([](Tracker& t) { return t.ended; }));
    EXPECT_FALSE(tracker.read([](Tracker& t) { return t.gateTimedOut; }));
    EXPECT_EQ(1u, cap.findExactly("EXIT: ZnThread::sWaitUntilDone").size());
    ASSERT_TRUE(waitUntil([&] { return thread->getRefCount() == 1; }));
    EXPECT_EQ(ZnThread::STATE_DETACHED, thread->getState());
}

TEST(ZnShutdownTest, ShutdownReleasesAThreadInAnInfiniteWait)
{
    ASSERT_FALSE(ZnThread::sShuttingDown()) << "each test needs a process of its own";
    ZnProcess::sGetCurrent();
    Tracker tracker;
    startLoopThreads(tracker, 1, /*holdAtEnd=*/false, /*once=*/true);
    EXPECT_TRUE(tracker.read([](Tracker& t) { return t.statesAfterWait.empty(); }));

    EXPECT_TRUE(ZnThread::sShutdown());

    tracker.read(
        [](Tracker& t)
        {
            EXPECT_EQ(1, t.ended);
            EXPECT_EQ(1u, t.statesAfterWait.size());
            EXPECT_EQ(ZnThread::STATE_EXITING, t.statesAfterWait.at(0));
            return 0;
        });
    EXPECT_TRUE(tracker.await([](Tracker& t) { return t.destroyed == 1; }));
    EXPECT_TRUE(ZnThread::sIsShutdownCompleted());
}

} // namespace
