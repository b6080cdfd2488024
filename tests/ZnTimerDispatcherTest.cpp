#include "ZnUtil/ZnTimerDispatcher.h"

#include "ZnUtil/ZnDispatcherThread.h"
#include "ZnUtil/ZnEventQueue.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnPlatform.h"
#include "ZnUtil/ZnThread.h"
#include "ZnUtil/ZnThreadPool.h"
#include "ZnUtil/ZnTimerEvent.h"
#include "ZnUtil/ZnWorkerThread.h"

#include "tavoris/LogLevel.h"
#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "support/CapturingAppender.h"
#include "support/RecordingObserver.h"
#include "support/ThreadSettling.h"
#include "support/WaitUntil.h"
#include <spawn.h>
#include <sys/wait.h>

extern char** environ;

namespace
{

using Tavoris::MemAccount;
using ZnTest::Notification;
using ZnTest::RecordingObserver;
using ZnTest::SettlingEnvironment;
using ZnTest::Tag;
using ZnTest::waitUntil;

[[maybe_unused]] ::testing::Environment* const s_settling =
    ::testing::AddGlobalTestEnvironment(new SettlingEnvironment());

/// Set once a test of this program has asked for the dispatcher: from then on the process has
/// one, and never again none.
std::atomic<bool> s_dispatcherUsed{false};

/// The instance, through getInstance(), noting that this process has one now.
ZnTimerDispatcher* dispatcher()
{
    s_dispatcherUsed.store(true);
    return ZnTimerDispatcher::getInstance();
}

/// Runs this program again with \p filter as its only test, in a process of its own.
/// \return the child's exit status, or -1 when it could not be run.
int runAlone(const std::string& filter)
{
    std::string filterArgument = "--gtest_filter=" + filter;
    char program[] = "/proc/self/exe";
    char* argv[] = {program, &filterArgument[0], nullptr};
    pid_t child = 0;
    if (posix_spawn(&child, program, nullptr, nullptr, argv, environ) != 0)
    {
        return -1;
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFEXITED(status))
    {
        return -1;
    }
    return WEXITSTATUS(status);
}

// Kept first, so that a run of the whole program meets it before any other test made the
// instance; should another one come first, it runs again in a fresh process.
TEST(ZnTimerDispatcherTest, TheQueueIsNullBeforeAnyInstance)
{
    if (s_dispatcherUsed.load())
    {
        EXPECT_EQ(0, runAlone("ZnTimerDispatcherTest.TheQueueIsNullBeforeAnyInstance"));
        return;
    }
    EXPECT_EQ(nullptr, ZnTimerDispatcher::getTimerEventQueue());
    ZnTimerDispatcher* instance = dispatcher();
    ASSERT_NE(nullptr, instance);
    EXPECT_EQ(instance->getEventQueue(), ZnTimerDispatcher::getTimerEventQueue());
}

TEST(ZnTimerDispatcherTest, GetInstanceMakesAndForksOneInstance)
{
    const bool first = ZnTimerDispatcher::getTimerEventQueue() == nullptr;
    const MemAccount::Reading before = MemAccount::sRead("ZnDispatcherThread");
    ZnTimerDispatcher* instance = dispatcher();
    ASSERT_NE(nullptr, instance);
    EXPECT_EQ(instance, ZnTimerDispatcher::getInstance());
    EXPECT_EQ(instance, ZnTimerDispatcher::getInstance());
    EXPECT_EQ(instance->getEventQueue(), ZnTimerDispatcher::getTimerEventQueue());

    // Forked: it has a thread, which sits in its queue.
    EXPECT_NE(0U, instance->getToken());
    EXPECT_TRUE(waitUntil([instance] { return instance->getState() == ZnThread::STATE_RUNNING; }));

    // It lives on the dispatchers' memory account.
    const MemAccount::Reading after = MemAccount::sRead("ZnDispatcherThread");
    EXPECT_GE(after.liveBytes, static_cast<int64_t>(sizeof(ZnTimerDispatcher)));
    if (first)
    {
        EXPECT_EQ(before.liveBlocks + 1, after.liveBlocks);
        EXPECT_EQ(before.totalBlocks + 1, after.totalBlocks);
    }
    else
    {
        EXPECT_EQ(before.liveBlocks, after.liveBlocks);
    }
}

TEST(ZnTimerDispatcherTest, PoolHasTenWorkersAtMostAndTheDispatcherAsSignalThread)
{
    ZnTimerDispatcher* instance = dispatcher();
    ZnThreadPool* pool = instance->getThreadPool();
    EXPECT_EQ(10U, pool->getMaxThreadCount());
    EXPECT_EQ(static_cast<ZnThread*>(instance), static_cast<ZnThread*>(pool->getSignalThread()));
}

TEST(ZnTimerDispatcherTest, QueueHasASingleProducer)
{
    ZnTimerDispatcher* instance = dispatcher();
    EXPECT_EQ(ZnEventQueue::POLICY_SINGLE_PRODUCER, instance->getEventQueue()->getPolicy());

    // The first thread to add is noted as the producer.
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    instance->addEvent(new ZnTimerEvent(observer, ZnHandle<ZnObject>(new Tag("noted"))));
    ASSERT_TRUE(observer->waitForCount(1));
    EXPECT_EQ(ZnPlatform::sGetCurrentThreadId(), instance->getEventQueue()->getProducerThreadId());
}

TEST(ZnTimerDispatcherTest, ProcessHandsTheNotificationToAPoolWorker)
{
    ZnTimerDispatcher* instance = dispatcher();
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    ZnHandle<Tag> argument(new Tag("direct"));

    ZnTimerEvent event(observer, argument);
    instance->process(&event);
    ASSERT_TRUE(observer->waitForCount(1));
    const Notification got = observer->notifications()[0];
    EXPECT_EQ(nullptr, got.source);
    EXPECT_EQ(static_cast<ZnObject*>(argument), static_cast<ZnObject*>(got.argument));
    EXPECT_NE(nullptr, dynamic_cast<ZnWorkerThread*>(got.thread));
    EXPECT_NE(static_cast<ZnThread*>(instance), got.thread);
    EXPECT_GE(instance->getThreadPool()->getThreadCount(), 1U);
}

TEST(ZnTimerDispatcherTest, QueuedEventsReachTheirObserversOnWorkers)
{
    ZnTimerDispatcher* instance = dispatcher();
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    std::vector<ZnHandle<ZnObject>> arguments;
    for (int i = 0; i < 50; ++i)
    {
        arguments.push_back(new Tag("queued " + std::to_string(i)));
        instance->addEvent(new ZnTimerEvent(observer, arguments.back()));
    }
    ASSERT_TRUE(observer->waitForCount(arguments.size()));
    std::vector<Notification> got = observer->notifications();
    ASSERT_EQ(arguments.size(), got.size());
    int onWorkers = 0;
    for (const Notification& notification : got)
    {
        EXPECT_EQ(nullptr, notification.source);
        // When all ten workers are busy the dispatcher runs the notification itself; otherwise
        // a worker does.
        if (notification.thread != static_cast<ZnThread*>(instance))
        {
            EXPECT_NE(nullptr, dynamic_cast<ZnWorkerThread*>(notification.thread));
            ++onWorkers;
        }
        int found = 0;
        for (const ZnHandle<ZnObject>& argument : arguments)
        {
            found +=
                static_cast<ZnObject*>(argument) == static_cast<ZnObject*>(notification.argument);
        }
        EXPECT_EQ(1, found);
    }
    EXPECT_GE(onWorkers, 1);
    EXPECT_LE(instance->getThreadPool()->getThreadCount(), 10U);
}

TEST(ZnTimerDispatcherTest, AtExitForgetsTheInstanceOnlyWhenItIsThisOne)
{
    ZnTimerDispatcher* old = dispatcher();
    ASSERT_TRUE(waitUntil([old] { return old->getState() == ZnThread::STATE_RUNNING; }));
    ZnHandle<ZnThread> holdOld(old);

    // The instance forgets itself.
    old->atExit();
    EXPECT_EQ(nullptr, ZnTimerDispatcher::getTimerEventQueue());

    // The next use makes another one.
    ZnTimerDispatcher* fresh = dispatcher();
    ASSERT_NE(old, fresh);
    EXPECT_EQ(fresh->getEventQueue(), ZnTimerDispatcher::getTimerEventQueue());

    // The first one leaves that alone, also when it ends, which calls atExit() again.
    old->atExit();
    EXPECT_EQ(fresh->getEventQueue(), ZnTimerDispatcher::getTimerEventQueue());
    {
        ZnTest::LogCapture capture("corvane.zn.ZnDispatcherThread", Tavoris::WARN_LOG_LEVEL);
        old->terminate();
        // Ended: only this test and the reference kept until exit hold it.
        ASSERT_TRUE(waitUntil(
            [old]
            { return old->getState() == ZnThread::STATE_DETACHED && old->getRefCount() == 2; }));
        EXPECT_EQ(1U, capture
                          .find("ZnDispatcherThread::run() exiting before shutdown has been "
                                "called.Doing so might result in system crash.")
                          .size());
    }
    EXPECT_EQ(fresh, ZnTimerDispatcher::getInstance());
    EXPECT_EQ(fresh->getEventQueue(), ZnTimerDispatcher::getTimerEventQueue());

    // The new instance does the work.
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    ZnHandle<Tag> argument(new Tag("after"));
    fresh->addEvent(new ZnTimerEvent(observer, argument));
    ASSERT_TRUE(observer->waitForCount(1));
    EXPECT_EQ(static_cast<ZnObject*>(argument),
              static_cast<ZnObject*>(observer->notifications()[0].argument));
}

} // namespace
