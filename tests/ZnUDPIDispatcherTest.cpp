#include "ZnUtil/ZnUDPIDispatcher.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnDatagramPacket.h"
#include "ZnUtil/ZnDatagramSocket.h"
#include "ZnUtil/ZnDispatcherThread.h"
#include "ZnUtil/ZnEventQueue.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInetAddress.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnThread.h"
#include "ZnUtil/ZnThreadPool.h"
#include "ZnUtil/ZnUDPEvent.h"
#include "ZnUtil/ZnWorkerThread.h"

#include "tavoris/LogLevel.h"
#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <vector>

#include "support/CapturingAppender.h"
#include "support/RunTogether.h"
#include "support/UdpTestSupport.h"

namespace
{

using Tavoris::MemAccount;
using ZnUdpTest::boundPort;
using ZnUdpTest::loopback;
using ZnUdpTest::Notification;
using ZnUdpTest::Peer;
using ZnUdpTest::RecordingObserver;
using ZnUdpTest::runAlone;
using ZnUdpTest::Tag;
using ZnUdpTest::waitUntil;

/// Set once a test of this program has asked for the dispatcher: from then on the process has
/// one, and never again none.
std::atomic<bool> s_dispatcherUsed{false};

/// The instance, through getInstance(), noting that this process has one now.
ZnUDPIDispatcher* dispatcher()
{
    s_dispatcherUsed.store(true);
    return ZnUDPIDispatcher::getInstance();
}

ZnHandle<ZnDatagramPacket> packetOf(const std::string& text)
{
    return new ZnDatagramPacket(ZnByteArray::sCreate(text.c_str()), 0, 0, loopback(), 5060,
                                loopback(), 5070);
}

/// A datagram socket whose local port can be made to fail, which makes block() raise after a
/// datagram was read.
class FailingLocalPortSocket : public ZnDatagramSocket
{
public:
    FailingLocalPortSocket() : ZnDatagramSocket(0, loopback()) {}

    unsigned int getLocalPort() const override
    {
        if (m_fail.load())
        {
            ZnException::sThrow("the read failed");
        }
        return ZnDatagramSocket::getLocalPort();
    }

    void fail() { m_fail.store(true); }

private:
    std::atomic<bool> m_fail{false};
};

// Kept first, so that a run of the whole program meets it before any other test made the
// instance; should another one come first, it runs again in a fresh process.
TEST(ZnUDPIDispatcherTest, TheQueueIsNullBeforeAnyInstance)
{
    if (s_dispatcherUsed.load())
    {
        EXPECT_EQ(0, runAlone("ZnUDPIDispatcherTest.TheQueueIsNullBeforeAnyInstance"));
        return;
    }
    EXPECT_EQ(nullptr, ZnUDPIDispatcher::getUDPEventQueue());
    // Asking for the queue makes nothing.
    EXPECT_EQ(nullptr, ZnUDPIDispatcher::getUDPEventQueue());
    ZnUDPIDispatcher* instance = dispatcher();
    ASSERT_NE(nullptr, instance);
    EXPECT_EQ(instance->getEventQueue(), ZnUDPIDispatcher::getUDPEventQueue());
}

TEST(ZnUDPIDispatcherTest, ThreadsMeetingOnFirstUseGetOneInstance)
{
    if (s_dispatcherUsed.load())
    {
        EXPECT_EQ(0, runAlone("ZnUDPIDispatcherTest.ThreadsMeetingOnFirstUseGetOneInstance"));
        return;
    }
    s_dispatcherUsed.store(true);
    const MemAccount::Reading before = MemAccount::sRead("ZnUDPIDispatcher");
    std::vector<ZnUDPIDispatcher*> seen(8, nullptr);
    ZnTest::runTogether(8, [&](int i) { seen[i] = ZnUDPIDispatcher::getInstance(); });
    ASSERT_NE(nullptr, seen[0]);
    for (ZnUDPIDispatcher* instance : seen)
    {
        EXPECT_EQ(seen[0], instance);
    }
    const MemAccount::Reading after = MemAccount::sRead("ZnUDPIDispatcher");
    EXPECT_EQ(before.totalBlocks + 1, after.totalBlocks);
    EXPECT_EQ(before.liveBlocks + 1, after.liveBlocks);
}

TEST(ZnUDPIDispatcherTest, GetInstanceMakesAndForksOneInstanceOnItsMemoryAccount)
{
    EXPECT_STREQ("ZnUDPIDispatcher", ZnUDPIDispatcher::getMemAccountName());
    const bool first = ZnUDPIDispatcher::getUDPEventQueue() == nullptr;
    const MemAccount::Reading before = MemAccount::sRead("ZnUDPIDispatcher");
    ZnUDPIDispatcher* instance = dispatcher();
    ASSERT_NE(nullptr, instance);
    EXPECT_EQ(instance, ZnUDPIDispatcher::getInstance());
    EXPECT_EQ(instance->getEventQueue(), ZnUDPIDispatcher::getUDPEventQueue());

    // Forked: it has a thread, which sits in its queue.
    EXPECT_NE(0U, instance->getToken());
    EXPECT_TRUE(waitUntil([instance] { return instance->getState() == ZnThread::STATE_RUNNING; }));

    const MemAccount::Reading after = MemAccount::sRead("ZnUDPIDispatcher");
    EXPECT_GE(after.liveBytes, static_cast<int64_t>(sizeof(ZnUDPIDispatcher)));
    EXPECT_EQ(before.liveBlocks + (first ? 1 : 0), after.liveBlocks);
}

TEST(ZnUDPIDispatcherTest, PoolOfTenSignalledByItselfAndAQueueForManyProducers)
{
    ZnUDPIDispatcher* instance = dispatcher();
    ZnThreadPool* pool = instance->getThreadPool();
    EXPECT_EQ(10U, pool->getMaxThreadCount());
    EXPECT_EQ(static_cast<ZnThread*>(instance), static_cast<ZnThread*>(pool->getSignalThread()));
    EXPECT_EQ(ZnEventQueue::POLICY_MULTI_PRODUCER, instance->getEventQueue()->getPolicy());
}

TEST(ZnUDPIDispatcherTest, ProcessHasTheSocketNotifyItsObserverOnAWorker)
{
    ZnUDPIDispatcher* instance = dispatcher();
    ZnHandle<ZnDatagramSocket> socket(new ZnDatagramSocket(0, loopback()));
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    socket->attachObserver(observer);
    ZnHandle<ZnDatagramPacket> packet = packetOf("direct");

    ZnUDPEvent event(socket, packet);
    instance->process(&event);
    ASSERT_TRUE(observer->waitForCount(1));
    const Notification got = observer->notifications()[0];
    EXPECT_EQ(static_cast<ZnObservable*>(socket), got.source);
    EXPECT_EQ(static_cast<ZnObject*>(packet), static_cast<ZnObject*>(got.argument));
    EXPECT_NE(nullptr, dynamic_cast<ZnWorkerThread*>(got.thread));
    EXPECT_NE(static_cast<ZnThread*>(instance), got.thread);
    socket->detachObserver(observer);
}

TEST(ZnUDPIDispatcherTest, EventsFromManyThreadsAllReachTheirObservers)
{
    ZnUDPIDispatcher* instance = dispatcher();
    ZnHandle<ZnObservable> source(new ZnObservable());
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    source->attachObserver(observer);
    constexpr int kThreads = 4;
    constexpr int kEach = 50;
    ZnTest::runTogether(
        kThreads,
        [&](int t)
        {
            for (int i = 0; i < kEach; ++i)
            {
                instance->addEvent(new ZnUDPEvent(source, packetOf(std::to_string(t * kEach + i))));
            }
        });
    ASSERT_TRUE(observer->waitForCount(kThreads * kEach));
    std::set<std::string> texts;
    for (const Notification& notification : observer->notifications())
    {
        EXPECT_EQ(static_cast<ZnObservable*>(source), notification.source);
        ZnHandle<ZnDatagramPacket> packet(notification.argument);
        const ZnByteArray* data = packet->getData();
        texts.insert(std::string(reinterpret_cast<const char*>(data->getBytes()), data->length()));
    }
    EXPECT_EQ(static_cast<size_t>(kThreads * kEach), texts.size());
    EXPECT_LE(instance->getThreadPool()->getThreadCount(), 10U);
    source->detachObserver(observer);
}

TEST(ZnUDPIDispatcherTest, WithAllTenWorkersBusyTheDispatcherRunsTheNotificationItself)
{
    ZnUDPIDispatcher* instance = dispatcher();
    ZnHandle<ZnObservable> source(new ZnObservable());
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    source->attachObserver(observer);
    // Workers of earlier notifications are back in the pool first.
    ZnThreadPool* pool = instance->getThreadPool();
    ASSERT_TRUE(waitUntil([pool] { return pool->getAvailableCount() == pool->getThreadCount(); }));
    observer->closeGate();

    // Ten notifications hold every worker the pool may have.
    for (int i = 0; i < 10; ++i)
    {
        instance->addEvent(new ZnUDPEvent(source, new Tag("busy " + std::to_string(i))));
    }
    ASSERT_TRUE(observer->waitForCount(10));
    EXPECT_EQ(10U, pool->getThreadCount());

    // The eleventh runs on the dispatcher's own thread, which holds up the one after it.
    instance->addEvent(new ZnUDPEvent(source, new Tag("eleventh")));
    ASSERT_TRUE(observer->waitForCount(11));
    instance->addEvent(new ZnUDPEvent(source, new Tag("twelfth")));
    EXPECT_TRUE(waitUntil([&] { return instance->getEventQueue()->getSize() == 1; }));
    EXPECT_EQ(11U, observer->count());

    observer->openGate();
    ASSERT_TRUE(observer->waitForCount(12));
    const std::vector<Notification> got = observer->notifications();
    std::set<ZnThread*> workers;
    for (int i = 0; i < 10; ++i)
    {
        EXPECT_NE(nullptr, dynamic_cast<ZnWorkerThread*>(got[i].thread));
        workers.insert(got[i].thread);
    }
    EXPECT_EQ(10U, workers.size());
    EXPECT_EQ("eleventh", ZnHandle<Tag>(got[10].argument)->getName());
    EXPECT_EQ(static_cast<ZnThread*>(instance), got[10].thread);
    EXPECT_EQ("twelfth", ZnHandle<Tag>(got[11].argument)->getName());
    EXPECT_FALSE(observer->gateTimedOut());
    EXPECT_EQ(10U, pool->getThreadCount());
    // All the workers go back to the pool.
    EXPECT_TRUE(waitUntil([pool] { return pool->getAvailableCount() == 10; }));
    source->detachObserver(observer);
}

TEST(ZnUDPIDispatcherTest, AFailingReadReachesTheObserverAsAnExceptionOnAWorker)
{
    ZnUDPIDispatcher* instance = dispatcher();
    Peer peer;
    ZnHandle<FailingLocalPortSocket> socket(new FailingLocalPortSocket());
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    socket->attachObserver(observer);
    ASSERT_TRUE(peer.sendTo(boundPort(socket->getFd()), "INVITE"));
    socket->fail();

    EXPECT_FALSE(socket->block());
    ASSERT_TRUE(observer->waitForCount(1));
    const Notification got = observer->notifications()[0];
    ZnHandle<ZnException> exception(got.argument);
    ASSERT_FALSE(exception.isNil());
    EXPECT_STREQ("the read failed", exception->getExceptionMessage());
    EXPECT_EQ(static_cast<ZnObservable*>(static_cast<ZnDatagramSocket*>(socket)), got.source);
    EXPECT_NE(nullptr, dynamic_cast<ZnWorkerThread*>(got.thread));
    EXPECT_NE(static_cast<ZnThread*>(instance), got.thread);
    socket->detachObserver(observer);
}

TEST(ZnUDPIDispatcherTest, AtExitForgetsTheInstanceOnlyWhenItIsThisOne)
{
    ZnUDPIDispatcher* old = dispatcher();
    ASSERT_TRUE(waitUntil([old] { return old->getState() == ZnThread::STATE_RUNNING; }));
    ZnHandle<ZnThread> holdOld(old);

    // The instance forgets itself, and the next use makes another one.
    old->atExit();
    EXPECT_EQ(nullptr, ZnUDPIDispatcher::getUDPEventQueue());
    ZnUDPIDispatcher* fresh = dispatcher();
    ASSERT_NE(old, fresh);
    EXPECT_EQ(fresh->getEventQueue(), ZnUDPIDispatcher::getUDPEventQueue());

    // The first one leaves that alone, also when it ends, which calls atExit() again.
    old->atExit();
    EXPECT_EQ(fresh->getEventQueue(), ZnUDPIDispatcher::getUDPEventQueue());
    {
        ZnTest::LogCapture capture("corvane.zn.ZnDispatcherThread", Tavoris::WARN_LOG_LEVEL);
        old->terminate();
        ASSERT_TRUE(waitUntil(
            [old]
            { return old->getState() == ZnThread::STATE_DETACHED && old->getRefCount() == 2; }));
    }
    EXPECT_EQ(fresh, ZnUDPIDispatcher::getInstance());

    // The new instance does the work.
    ZnHandle<ZnObservable> source(new ZnObservable());
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    source->attachObserver(observer);
    fresh->addEvent(new ZnUDPEvent(source, new Tag("after")));
    ASSERT_TRUE(observer->waitForCount(1));
    EXPECT_EQ("after", ZnHandle<Tag>(observer->notifications()[0].argument)->getName());
    source->detachObserver(observer);
}

} // namespace
