#include "ZnUtil/ZnTimerDispatcher.h"

#include "ZnUtil/ZnDispatcherThread.h"
#include "ZnUtil/ZnEventQueue.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnObserver.h"
#include "ZnUtil/ZnPlatform.h"
#include "ZnUtil/ZnThread.h"
#include "ZnUtil/ZnThreadPool.h"
#include "ZnUtil/ZnTimerEvent.h"
#include "ZnUtil/ZnWorkerThread.h"

#include "tavoris/LogLevel.h"
#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/CapturingAppender.h"
#include <spawn.h>
#include <sys/wait.h>

extern char** environ;

namespace
{

using namespace std::chrono_literals;
using Tavoris::MemAccount;

const std::chrono::seconds kLimit(10);

/// Polls \p pred until it holds or \p limit has passed.
/// \return the last answer of \p pred.
template <class Pred>
bool waitUntil(Pred pred, std::chrono::milliseconds limit = kLimit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (int round = 0; !pred(); ++round)
    {
        if (std::chrono::steady_clock::now() > deadline)
        {
            return pred();
        }
        if (round < 1000)
        {
            std::this_thread::yield();
        }
        else
        {
            std::this_thread::sleep_for(100us);
        }
    }
    return true;
}

/// The library's threads that ran notifications of this program. Before the program ends each of
/// them is to be back in its wait: a worker on its way there still uses the loggers, which go
/// away at exit.
class SettlingEnvironment : public ::testing::Environment
{
public:
    static void sNote(ZnThread* aThread)
    {
        if (aThread == nullptr)
        {
            return;
        }
        std::lock_guard<std::mutex> lock(sm_mutex);
        sm_threads.insert(aThread);
    }

    void TearDown() override
    {
        std::set<ZnThread*> threads;
        {
            std::lock_guard<std::mutex> lock(sm_mutex);
            threads = sm_threads;
        }
        for (ZnThread* thread : threads)
        {
            // A dispatcher that ran a notification itself, its pool being busy, went back to its
            // queue, not to wait().
            if (dynamic_cast<ZnDispatcherThread*>(thread) != nullptr)
            {
                continue;
            }
            EXPECT_TRUE(
                waitUntil([thread] { return thread->getState() == ZnThread::STATE_BLOCKED; }));
        }
    }

private:
    static std::mutex sm_mutex;
    static std::set<ZnThread*> sm_threads; // never ended: no shutdown here
};

std::mutex SettlingEnvironment::sm_mutex;
std::set<ZnThread*> SettlingEnvironment::sm_threads;

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

/// An argument that can be told apart from others by its name.
class Tag : public ZnObject
{
public:
    explicit Tag(std::string name) : m_name(std::move(name)) {}
    const std::string& getName() const { return m_name; }

private:
    std::string m_name;
};

/// What one notification brought.
struct Notification
{
    ZnObservable* source; // compared, never used
    ZnHandle<ZnObject> argument;
    ZnThread* thread; // compared, never used
};

/// Records every notification it gets.
class RecordingObserver : public ZnObserver
{
public:
    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override
    {
        Notification notification{aSource, aArgument, ZnThread::sGetCurrent()};
        SettlingEnvironment::sNote(notification.thread);
        std::lock_guard<std::mutex> lock(m_mutex);
        m_notifications.push_back(notification);
        m_changed.notify_all();
    }

    /// Waits until \p count notifications have come.
    bool waitForCount(size_t count)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, kLimit, [&] { return m_notifications.size() >= count; });
    }

    std::vector<Notification> notifications() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_notifications;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Notification> m_notifications;
};

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
    for (const Notification& notification : got)
    {
        EXPECT_EQ(nullptr, notification.source);
        EXPECT_NE(static_cast<ZnThread*>(instance), notification.thread);
        int found = 0;
        for (const ZnHandle<ZnObject>& argument : arguments)
        {
            found +=
                static_cast<ZnObject*>(argument) == static_cast<ZnObject*>(notification.argument);
        }
        EXPECT_EQ(1, found);
    }
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
