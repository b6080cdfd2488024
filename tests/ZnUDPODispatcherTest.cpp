#include "ZnUtil/ZnUDPODispatcher.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnDatagramPacket.h"
#include "ZnUtil/ZnDatagramSocket.h"
#include "ZnUtil/ZnDispatcherThread.h"
#include "ZnUtil/ZnEventQueue.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInetAddress.h"
#include "ZnUtil/ZnThread.h"
#include "ZnUtil/ZnThreadPool.h"
#include "ZnUtil/ZnUDPEvent.h"

#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <string>
#include <vector>

#include "support/RunTogether.h"
#include "support/UdpTestSupport.h"

namespace
{

using Tavoris::MemAccount;
using ZnUdpTest::boundPort;
using ZnUdpTest::Datagram;
using ZnUdpTest::loopback;
using ZnUdpTest::Peer;
using ZnUdpTest::runAlone;
using ZnUdpTest::Tag;
using ZnUdpTest::waitUntil;

/// Set once a test of this program has asked for the dispatcher.
std::atomic<bool> s_dispatcherUsed{false};

/// The instance, through getInstance(), noting that this process has one now.
ZnUDPODispatcher* dispatcher()
{
    s_dispatcherUsed.store(true);
    return ZnUDPODispatcher::getInstance();
}

/// Posts a packet of \p text for 127.0.0.1:\p port to the dispatcher.
void post(const std::string& text, unsigned int port)
{
    ZnHandle<ZnDatagramPacket> packet(new ZnDatagramPacket(ZnByteArray::sCreate(text.c_str()), 0, 0,
                                                           loopback(), port, ZnInetAddress(), 0));
    dispatcher()->addEvent(new ZnUDPEvent(nullptr, packet));
}

/// Before the program ends, the dispatcher's thread is seen to have let go of a packet. Its
/// thread made what it made (a logger of its queue, for one) before that: the test thread then
/// sees it made, before the end of the program takes it down. The sockets on the way say nothing
/// of that order.
class DrainingEnvironment : public ::testing::Environment
{
public:
    void TearDown() override
    {
        if (ZnUDPODispatcher::getUDPEventQueue() == nullptr)
        {
            return;
        }
        Peer sink;
        ZnHandle<ZnDatagramPacket> first(new ZnDatagramPacket(
            ZnByteArray::sCreate("drain"), 0, 0, loopback(), sink.port(), ZnInetAddress(), 0));
        ZnUDPODispatcher* instance = ZnUDPODispatcher::getInstance();
        instance->addEvent(new ZnUDPEvent(nullptr, first));
        post("drained", sink.port());
        // The first event is deleted when the second has arrived.
        EXPECT_TRUE(waitUntil([&] { return first->getRefCount() == 1; }));
    }
};

[[maybe_unused]] ::testing::Environment* const s_draining =
    ::testing::AddGlobalTestEnvironment(new DrainingEnvironment());

// Kept first, so that a run of the whole program meets it before any other test made the
// instance; should another one come first, it runs again in a fresh process.
TEST(ZnUDPODispatcherTest, TheQueueIsNullBeforeAnyInstance)
{
    if (s_dispatcherUsed.load())
    {
        EXPECT_EQ(0, runAlone("ZnUDPODispatcherTest.TheQueueIsNullBeforeAnyInstance"));
        return;
    }
    EXPECT_EQ(nullptr, ZnUDPODispatcher::getUDPEventQueue());
    EXPECT_EQ(nullptr, ZnUDPODispatcher::getUDPEventQueue());
    ZnUDPODispatcher* instance = dispatcher();
    ASSERT_NE(nullptr, instance);
    EXPECT_EQ(instance->getEventQueue(), ZnUDPODispatcher::getUDPEventQueue());
}

TEST(ZnUDPODispatcherTest, TheFirstPacketMakesTheSocketAndTheSecondReusesIt)
{
    if (s_dispatcherUsed.load())
    {
        EXPECT_EQ(
            0, runAlone("ZnUDPODispatcherTest.TheFirstPacketMakesTheSocketAndTheSecondReusesIt"));
        return;
    }
    Peer peer;
    const MemAccount::Reading start = MemAccount::sRead("ZnSocketImpl");
    dispatcher();
    // No socket before the first packet.
    EXPECT_EQ(start.totalBlocks, MemAccount::sRead("ZnSocketImpl").totalBlocks);

    post("one", peer.port());
    Datagram first;
    ASSERT_TRUE(peer.receive(first));
    EXPECT_EQ("one", first.bytes);
    EXPECT_EQ(start.totalBlocks + 1, MemAccount::sRead("ZnSocketImpl").totalBlocks);

    post("two", peer.port());
    Datagram second;
    ASSERT_TRUE(peer.receive(second));
    EXPECT_EQ("two", second.bytes);
    EXPECT_EQ(start.totalBlocks + 1, MemAccount::sRead("ZnSocketImpl").totalBlocks);

    // Both from the same ephemeral port, on the default address.
    EXPECT_NE(0U, first.fromPort);
    EXPECT_EQ(first.fromPort, second.fromPort);
    EXPECT_EQ("127.0.0.1", first.fromHost);
}

TEST(ZnUDPODispatcherTest, ThreadsMeetingOnFirstUseGetOneInstance)
{
    if (s_dispatcherUsed.load())
    {
        EXPECT_EQ(0, runAlone("ZnUDPODispatcherTest.ThreadsMeetingOnFirstUseGetOneInstance"));
        return;
    }
    s_dispatcherUsed.store(true);
    const MemAccount::Reading before = MemAccount::sRead("ZnUDPODispatcher");
    std::vector<ZnUDPODispatcher*> seen(8, nullptr);
    ZnTest::runTogether(8, [&](int i) { seen[i] = ZnUDPODispatcher::getInstance(); });
    ASSERT_NE(nullptr, seen[0]);
    for (ZnUDPODispatcher* instance : seen)
    {
        EXPECT_EQ(seen[0], instance);
    }
    const MemAccount::Reading after = MemAccount::sRead("ZnUDPODispatcher");
    EXPECT_EQ(before.totalBlocks + 1, after.totalBlocks);
    EXPECT_EQ(before.liveBlocks + 1, after.liveBlocks);
}

TEST(ZnUDPODispatcherTest, NoWorkersSignalledByItselfAndAQueueForManyProducers)
{
    EXPECT_STREQ("ZnUDPODispatcher", ZnUDPODispatcher::getMemAccountName());
    ZnUDPODispatcher* instance = dispatcher();
    EXPECT_EQ(instance, ZnUDPODispatcher::getInstance());
    EXPECT_NE(0U, instance->getToken());
    EXPECT_TRUE(waitUntil([instance] { return instance->getState() == ZnThread::STATE_RUNNING; }));
    ZnThreadPool* pool = instance->getThreadPool();
    EXPECT_EQ(0U, pool->getMaxThreadCount());
    EXPECT_EQ(static_cast<ZnThread*>(instance), static_cast<ZnThread*>(pool->getSignalThread()));
    EXPECT_EQ(ZnEventQueue::POLICY_MULTI_PRODUCER, instance->getEventQueue()->getPolicy());
    EXPECT_GE(MemAccount::sRead("ZnUDPODispatcher").liveBytes,
              static_cast<int64_t>(sizeof(ZnUDPODispatcher)));
}

TEST(ZnUDPODispatcherTest, PacketsGoOutInTheOrderOfArrival)
{
    Peer peer;
    constexpr int kPackets = 100;
    for (int i = 0; i < kPackets; ++i)
    {
        post("packet " + std::to_string(i), peer.port());
    }
    unsigned int port = 0;
    for (int i = 0; i < kPackets; ++i)
    {
        Datagram got;
        ASSERT_TRUE(peer.receive(got)) << i;
        EXPECT_EQ("packet " + std::to_string(i), got.bytes);
        port = i == 0 ? got.fromPort : port;
        EXPECT_EQ(port, got.fromPort);
    }
    EXPECT_EQ(0U, dispatcher()->getThreadPool()->getThreadCount());
}

TEST(ZnUDPODispatcherTest, PacketsFromManyThreadsAllGoOutInEachThreadsOrder)
{
    Peer peer;
    constexpr int kThreads = 4;
    constexpr int kEach = 25;
    dispatcher();
    ZnTest::runTogether(kThreads,
                        [&](int t)
                        {
                            for (int i = 0; i < kEach; ++i)
                            {
                                post(std::to_string(t) + ":" + std::to_string(i), peer.port());
                            }
                        });
    std::map<int, int> next;
    for (int n = 0; n < kThreads * kEach; ++n)
    {
        Datagram got;
        ASSERT_TRUE(peer.receive(got)) << n;
        const size_t colon = got.bytes.find(':');
        ASSERT_NE(std::string::npos, colon);
        const int thread = std::stoi(got.bytes.substr(0, colon));
        const int index = std::stoi(got.bytes.substr(colon + 1));
        EXPECT_EQ(next[thread], index);
        next[thread] = index + 1;
    }
    for (int t = 0; t < kThreads; ++t)
    {
        EXPECT_EQ(kEach, next[t]);
    }
}

TEST(ZnUDPODispatcherTest, PacketsGoOutOnTheSocketGivenAndANullSocketKeepsIt)
{
    Peer peer;
    ZnHandle<ZnDatagramSocket> socket(new ZnDatagramSocket(0, loopback()));
    const unsigned int port = boundPort(socket->getFd());
    ZnUDPODispatcher* instance = dispatcher();

    instance->setDatagramSocket(socket);
    EXPECT_EQ(2U, socket->getRefCount());
    post("through the given socket", peer.port());
    Datagram got;
    ASSERT_TRUE(peer.receive(got));
    EXPECT_EQ("through the given socket", got.bytes);
    EXPECT_EQ(port, got.fromPort);

    instance->setDatagramSocket(nullptr);
    post("still the same", peer.port());
    ASSERT_TRUE(peer.receive(got));
    EXPECT_EQ("still the same", got.bytes);
    EXPECT_EQ(port, got.fromPort);
}

TEST(ZnUDPODispatcherTest, AReplacedSocketIsKeptAliveAndOpen)
{
    Peer peer;
    ZnHandle<ZnDatagramSocket> first(new ZnDatagramSocket(0, loopback()));
    ZnHandle<ZnDatagramSocket> second(new ZnDatagramSocket(0, loopback()));
    ZnUDPODispatcher* instance = dispatcher();
    instance->setDatagramSocket(first);
    EXPECT_EQ(2U, first->getRefCount());

    instance->setDatagramSocket(second);
    // The dispatcher's reference went over to the second, and the first keeps one for good.
    EXPECT_EQ(2U, first->getRefCount());
    EXPECT_EQ(2U, second->getRefCount());
    ZnDatagramSocket* kept = first;
    const uint64_t fd = kept->getFd();
    const int64_t liveSockets = MemAccount::sRead("ZnSocketImpl").liveBlocks;
    first = nullptr;
    EXPECT_EQ(1U, kept->getRefCount());
    EXPECT_EQ(fd, kept->getFd());
    EXPECT_EQ(liveSockets, MemAccount::sRead("ZnSocketImpl").liveBlocks);

    // Another thread may still send on it.
    ZnHandle<ZnDatagramPacket> packet(new ZnDatagramPacket(
        ZnByteArray::sCreate("late"), 0, 0, loopback(), peer.port(), ZnInetAddress(), 0));
    kept->send(packet);
    Datagram got;
    ASSERT_TRUE(peer.receive(got));
    EXPECT_EQ("late", got.bytes);
    EXPECT_EQ(boundPort(fd), got.fromPort);

    // The dispatcher sends on the second.
    post("on the second", peer.port());
    ASSERT_TRUE(peer.receive(got));
    EXPECT_EQ(boundPort(second->getFd()), got.fromPort);
}

TEST(ZnUDPODispatcherTest, OtherDataRaisesTheFailedCastOfTheHandle)
{
    ZnUDPODispatcher* instance = dispatcher();
    ZnUDPEvent event(nullptr, new Tag("no packet"));
    try
    {
        instance->process(&event);
        FAIL() << "process accepted data that is no packet";
    }
    catch (ZnHandle<ZnException>& e)
    {
        EXPECT_STREQ("dynamic_cast failed on ZnHandle construction", e->getExceptionMessage());
    }
}

// Last: it ends the instance, and the tests after it in a run of the whole program get a new one.
TEST(ZnUDPODispatcherTest, AnEventWithOtherDataEndsTheDispatcher)
{
    Peer peer;
    ZnUDPODispatcher* old = dispatcher();
    ZnHandle<ZnThread> holdOld(old);
    ZnEventQueue* oldQueue = old->getEventQueue();
    post("before", peer.port());
    Datagram got;
    ASSERT_TRUE(peer.receive(got));

    old->addEvent(new ZnUDPEvent(nullptr, new Tag("no packet")));
    ASSERT_TRUE(waitUntil([old] { return old->getState() == ZnThread::STATE_DETACHED; }));
    // Its end forgets it: the next use makes another one, which sends.
    EXPECT_NE(oldQueue, ZnUDPODispatcher::getUDPEventQueue());
    ZnUDPODispatcher* fresh = dispatcher();
    ASSERT_NE(old, fresh);
    post("after", peer.port());
    ASSERT_TRUE(peer.receive(got));
    EXPECT_EQ("after", got.bytes);
}

} // namespace
