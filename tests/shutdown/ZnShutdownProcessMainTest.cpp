// The main thread in the process object's main(), ended by a shutdown that another thread starts.
// Every test shuts its process down for good, so each runs in a process of its own.
#include "ZnUtil/ZnErrorStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnProcess.h"
#include "ZnUtil/ZnThread.h"

#include "tavoris/LogLevel.h"
#include "tavoris/Net.h"

#include <gtest/gtest.h>

#include "support/CapturingAppender.h"
#include "support/DefaultErrorStream.h"
#include "support/GuardedRecord.h"
#include "support/RecordingOutputStream.h"
#include "support/WaitUntil.h"

namespace
{

using ZnTest::DefaultErrorStreamScope;
using ZnTest::waitUntil;

const char* const kThreadLogger = "corvane.zn.ZnThread";

/// What the test threads report.
class Tracker : public ZnTest::GuardedRecord<Tracker>
{
public:
    bool processSeenWaiting = false;
    int netCountDuringRun = -1;
    int shutdownsStarted = 0;
    int ended = 0;
    int raised = 0;
    int destroyed = 0;
};

/// Waits until the process sleeps in its run(), notes the network library's count, starts the
/// shutdown, and ends when told to.
class ShutdownStarter : public ZnThread
{
public:
    explicit ShutdownStarter(Tracker& tracker) : m_tracker(tracker) {}
    ~ShutdownStarter() override
    {
        m_tracker.update([](Tracker& t) { ++t.destroyed; });
    }

    void run() override
    {
        ZnProcess* process = ZnProcess::sGetCurrent();
        const bool waiting =
            waitUntil([&] { return process->getState() == ZnThread::STATE_BLOCKED; });
        const int count = Tavoris::Net::getInitializeCount();
        m_tracker.update(
            [&](Tracker& t)
            {
                t.processSeenWaiting = waiting;
                t.netCountDuringRun = count;
                ++t.shutdownsStarted;
            });
        ZnThread::sAsyncShutdown();
        while (getState() != STATE_EXITING && !sShuttingDown())
        {
            wait(kInfinite);
        }
        m_tracker.update([](Tracker& t) { ++t.ended; });
    }

private:
    Tracker& m_tracker;
};

/// Loops on its event until told to exit, then fails on the way out.
class FailingOnExit : public ZnThread
{
public:
    explicit FailingOnExit(Tracker& tracker) : m_tracker(tracker) {}
    ~FailingOnExit() override
    {
        m_tracker.update([](Tracker& t) { ++t.destroyed; });
    }

    void run() override
    {
        while (getState() != STATE_EXITING)
        {
            wait(kInfinite);
        }
        m_tracker.update([](Tracker& t) { ++t.raised; });
        ZnException::sThrow("failed on the way out");
    }

private:
    Tracker& m_tracker;
};

TEST(ZnShutdownProcessMainTest, MainReturnsOnceAnotherThreadShutsTheProcessDown)
{
    ASSERT_FALSE(ZnThread::sShuttingDown()) << "each test needs a process of its own";
    ASSERT_EQ(0, Tavoris::Net::getInitializeCount());
    ZnProcess* process = ZnProcess::sGetCurrent();
    Tracker tracker;
    ZnTest::LogCapture cap(kThreadLogger, Tavoris::TRACE_LOG_LEVEL);
    {
        ZnHandle<ShutdownStarter> starter(new ShutdownStarter(tracker));
        starter->fork();
    }

    const int result = process->main();

    EXPECT_EQ(0, result);
    tracker.read(
        [](Tracker& t)
        {
            EXPECT_TRUE(t.processSeenWaiting);
            // The network library was set up while the process ran.
            EXPECT_EQ(1, t.netCountDuringRun);
            EXPECT_EQ(1, t.shutdownsStarted);
            EXPECT_EQ(1, t.ended);
            return 0;
        });
    EXPECT_EQ(0, Tavoris::Net::getInitializeCount());
    EXPECT_FALSE(Tavoris::Net::isInitialized());
    EXPECT_EQ(0u, ZnThread::sGetThreadTableSize());
    EXPECT_TRUE(ZnThread::sIsShutdownCompleted());
    EXPECT_TRUE(ZnThread::sShuttingDown());
    EXPECT_EQ(ZnThread::STATE_DETACHED, process->getState());
    // main() shut down again on its way out, on the main thread.
    EXPECT_EQ(1u, cap.findExactly("ENTER: this == ZnProcess::sm_pTheOneAndOnly").size());
    EXPECT_EQ(1u, cap.findExactly("EXIT: this == ZnProcess::sm_pTheOneAndOnly").size());
    EXPECT_GE(cap.findExactly("ENTER: ZnThread::sInitiateShutdown").size(), 2u);
    EXPECT_TRUE(tracker.await([](Tracker& t) { return t.destroyed == 1; }));
    EXPECT_TRUE(waitUntil([] { return ZnThread::getThreadNum() == 1; }));
}

TEST(ZnShutdownProcessMainTest, RunRaisingDuringShutdownStillLeavesTheTable)
{
    ASSERT_FALSE(ZnThread::sShuttingDown()) << "each test needs a process of its own";
    ZnHandle<ZnTest::RecordingOutputStream> destination(new ZnTest::RecordingOutputStream);
    ZnErrorStream* errors = new ZnErrorStream(destination);
    errors->setDebugMode(ZnException::sDebugToken);
    DefaultErrorStreamScope scope(errors);

    ZnProcess* process = ZnProcess::sGetCurrent();
    Tracker tracker;
    {
        ZnHandle<FailingOnExit> failing(new FailingOnExit(tracker));
        failing->fork();
        ASSERT_TRUE(waitUntil([&] { return failing->getState() == ZnThread::STATE_BLOCKED; }));
        ZnHandle<ShutdownStarter> starter(new ShutdownStarter(tracker));
        starter->fork();
    }

    EXPECT_EQ(0, process->main());

    EXPECT_EQ(0u, ZnThread::sGetThreadTableSize());
    EXPECT_TRUE(ZnThread::sIsShutdownCompleted());
    EXPECT_EQ(0, Tavoris::Net::getInitializeCount());
    ASSERT_TRUE(tracker.await([](Tracker& t) { return t.destroyed == 2; }));
    EXPECT_EQ(1, tracker.read([](Tracker& t) { return t.raised; }));
    EXPECT_EQ("catch exception in ZnThread::block(): failed on the way out\n", destination->text());
    EXPECT_TRUE(waitUntil([] { return ZnThread::getThreadNum() == 1; }));
}

} // namespace
