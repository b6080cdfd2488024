// Process-wide shutdown as the UDP classes meet it. Every test shuts its process down for good,
// so each runs in a process of its own.
#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnDatagramPacket.h"
#include "ZnUtil/ZnDatagramSocket.h"
#include "ZnUtil/ZnErrorStream.h"
#include "ZnUtil/ZnEventQueue.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInetAddress.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnOutputStream.h"
#include "ZnUtil/ZnThread.h"
#include "ZnUtil/ZnUDPEvent.h"
#include "ZnUtil/ZnUDPIDispatcher.h"
#include "ZnUtil/ZnUDPODispatcher.h"

#include "tavoris/LogLevel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>

#include "support/CapturingAppender.h"
#include "support/UdpTestSupport.h"

namespace
{

using ZnUdpTest::boundPort;
using ZnUdpTest::Datagram;
using ZnUdpTest::kLimit;
using ZnUdpTest::loopback;
using ZnUdpTest::Peer;
using ZnUdpTest::readable;
using ZnUdpTest::RecordingObserver;
using ZnUdpTest::runAlone;
using ZnUdpTest::Tag;
using ZnUdpTest::waitUntil;

const char* const kLogger = "corvane.zn.ZnDatagramSocket";

/// Events whose message is exactly \p text.
size_t countExactly(const ZnTest::LogCapture& capture, const std::string& text)
{
    size_t count = 0;
    for (const ZnTest::CapturedEvent& event : capture.events())
    {
        count += event.message == text;
    }
    return count;
}

/// An output stream that holds the writes of one thread until it is opened (at most for the
/// bound); the writes of other threads pass. What is written is dropped.
class GateOutputStream : public ZnOutputStream
{
public:
    using ZnOutputStream::write;

    void write(void const*, unsigned int, unsigned int) override { pass(); }
    void write(int) override { pass(); }
    void flush() override {}

    /// Holds the writes of \p aThread from now on.
    void holdThread(ZnThread* aThread)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_held = aThread;
    }

    void open()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }

    /// Waits until the held thread is at the gate.
    bool waitForArrival()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, kLimit, [this] { return m_arrived; });
    }

private:
    void pass()
    {
        if (ZnThread::sGetCurrent() == nullptr)
        {
            return;
        }
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_held == nullptr || ZnThread::sGetCurrent() != m_held)
        {
            return;
        }
        m_arrived = true;
        m_changed.notify_all();
        m_changed.wait_for(lock, kLimit, [this] { return m_open; });
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    ZnThread* m_held = nullptr;
    bool m_open = false;
    bool m_arrived = false;
};

/// A producer on a thread the library did not start: it never gives up waiting for a slot.
class ForeignProducer
{
public:
    ForeignProducer(ZnDispatcherThread* aDispatcher, ZnBaseEvent* aEvent)
        : m_thread(
              [this, aDispatcher, aEvent]
              {
                  aDispatcher->addEvent(aEvent);
                  m_done.store(true);
              })
    {
    }

    ~ForeignProducer()
    {
        // A producer that was never released is left behind; the process ends anyway.
        if (m_done.load())
        {
            m_thread.join();
        }
        else
        {
            m_thread.detach();
        }
    }

    bool done() const { return m_done.load(); }

private:
    std::atomic<bool> m_done{false};
    std::thread m_thread;
};

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

ZnHandle<ZnDatagramPacket> packetFor(const std::string& text, unsigned int port)
{
    return new ZnDatagramPacket(ZnByteArray::sCreate(text.c_str()), 0, 0, loopback(), port,
                                ZnInetAddress(), 0);
}

TEST(ZnShutdownUdpTest, ShutdownWakesTheProducersBlockedOnBothUdpQueues)
{
    if (ZnThread::sShuttingDown())
    {
        EXPECT_EQ(0, runAlone("ZnShutdownUdpTest.ShutdownWakesTheProducersBlockedOnBothUdpQueues"));
        return;
    }
    // The input dispatcher is held in a notification on its own thread, its ten workers being
    // held too, with a full queue.
    ZnUDPIDispatcher* input = ZnUDPIDispatcher::getInstance();
    ZnHandle<ZnObservable> source(new ZnObservable());
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    source->attachObserver(observer);
    observer->closeGate();
    for (int i = 0; i < 11; ++i)
    {
        input->addEvent(new ZnUDPEvent(source, new Tag("held")));
    }
    ASSERT_TRUE(observer->waitForCount(11));
    for (unsigned int i = 0; i < ZnEventQueue::kRingSize; ++i)
    {
        input->addEvent(new ZnUDPEvent(source, new Tag("queued")));
    }
    EXPECT_EQ(ZnEventQueue::kRingSize, input->getEventQueue()->getSize());
    ForeignProducer inputProducer(input, new ZnUDPEvent(source, new Tag("one too many")));

    // The output dispatcher is held in its send, where it reports on the error stream, with a
    // full queue.
    Peer peer;
    ZnUDPODispatcher* output = ZnUDPODispatcher::getInstance();
    ZnHandle<GateOutputStream> gate(new GateOutputStream());
    gate->holdThread(output);
    ZnHandle<ZnErrorStream> errors(new ZnErrorStream(gate));
    errors->setDebugLevel(6);
    ZnErrorStream::sGetDefault();
    ZnErrorStream* previous = ZnErrorStream::sSetDefault(errors);
    output->addEvent(new ZnUDPEvent(nullptr, packetFor("held", peer.port())));
    ASSERT_TRUE(gate->waitForArrival());
    for (unsigned int i = 0; i < ZnEventQueue::kRingSize; ++i)
    {
        output->addEvent(new ZnUDPEvent(nullptr, packetFor("queued", peer.port())));
    }
    EXPECT_EQ(ZnEventQueue::kRingSize, output->getEventQueue()->getSize());
    ForeignProducer outputProducer(output, new ZnUDPEvent(nullptr, packetFor("late", 9)));
    EXPECT_FALSE(inputProducer.done());
    EXPECT_FALSE(outputProducer.done());

    // A producer the library did not start never gives up by itself: only the wake-up of its
    // queue lets it in.
    ZnThread::sAsyncShutdown();
    EXPECT_TRUE(waitUntil([&] { return inputProducer.done(); }));
    EXPECT_TRUE(waitUntil([&] { return outputProducer.done(); }));

    observer->openGate();
    gate->open();
    EXPECT_TRUE(ZnThread::sWaitUntilDone());
    EXPECT_EQ(ZnThread::STATE_DETACHED, input->getState());
    EXPECT_EQ(ZnThread::STATE_DETACHED, output->getState());
    EXPECT_FALSE(observer->gateTimedOut());
    // The held packet was sent; nothing queued behind it was.
    Datagram got;
    ASSERT_TRUE(peer.receive(got));
    EXPECT_EQ("held", got.bytes);
    EXPECT_FALSE(peer.hasDatagram());
    ZnErrorStream::sSetDefault(previous);
    source->detachObserver(observer);
}

TEST(ZnShutdownUdpTest, ShutdownMakesNoUdpDispatcher)
{
    if (ZnThread::sShuttingDown())
    {
        EXPECT_EQ(0, runAlone("ZnShutdownUdpTest.ShutdownMakesNoUdpDispatcher"));
        return;
    }
    ASSERT_EQ(nullptr, ZnUDPIDispatcher::getUDPEventQueue());
    ASSERT_EQ(nullptr, ZnUDPODispatcher::getUDPEventQueue());
    EXPECT_TRUE(ZnThread::sShutdown());
    EXPECT_EQ(nullptr, ZnUDPIDispatcher::getUDPEventQueue());
    EXPECT_EQ(nullptr, ZnUDPODispatcher::getUDPEventQueue());
}

TEST(ZnShutdownUdpTest, ADatagramReceivedAfterShutdownBeganNeverReachesTheDispatcher)
{
    if (ZnThread::sShuttingDown())
    {
        EXPECT_EQ(0, runAlone("ZnShutdownUdpTest."
                              "ADatagramReceivedAfterShutdownBeganNeverReachesTheDispatcher"));
        return;
    }
    Peer peer;
    ZnHandle<ZnDatagramSocket> socket(new ZnDatagramSocket(0, loopback()));
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    socket->attachObserver(observer);
    ASSERT_TRUE(peer.sendTo(boundPort(socket->getFd()), "too late"));
    ASSERT_TRUE(readable(socket->getFd()));

    ZnThread::sAsyncShutdown();
    ZnTest::LogCapture capture(kLogger, Tavoris::DEBUG_LOG_LEVEL);
    EXPECT_TRUE(socket->block());
    EXPECT_EQ(1U, countExactly(capture, "Not adding an event because shutting down"));
    EXPECT_EQ(Tavoris::DEBUG_LOG_LEVEL,
              capture.find("Not adding an event because shutting down")[0].level);
    // The datagram was read, and dropped: no dispatcher was even asked for.
    EXPECT_FALSE(readable(socket->getFd(), std::chrono::milliseconds(0)));
    EXPECT_EQ(nullptr, ZnUDPIDispatcher::getUDPEventQueue());
    EXPECT_EQ(0U, observer->count());
    EXPECT_TRUE(capture.find("recvfrom failure").empty());
    // The socket stays open and reads on.
    EXPECT_NE(~static_cast<uint64_t>(0), socket->getFd());
    ASSERT_TRUE(peer.sendTo(boundPort(socket->getFd()), "later still"));
    EXPECT_TRUE(socket->block());
    EXPECT_EQ(2U, countExactly(capture, "Not adding an event because shutting down"));
    EXPECT_TRUE(ZnThread::sWaitUntilDone());
    socket->detachObserver(observer);
}

TEST(ZnShutdownUdpTest, AnExceptionDuringShutdownClosesTheSocketAndIsNotDispatched)
{
    if (ZnThread::sShuttingDown())
    {
        EXPECT_EQ(0, runAlone("ZnShutdownUdpTest."
                              "AnExceptionDuringShutdownClosesTheSocketAndIsNotDispatched"));
        return;
    }
    Peer peer;
    ZnHandle<FailingLocalPortSocket> socket(new FailingLocalPortSocket());
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    socket->attachObserver(observer);
    ASSERT_TRUE(peer.sendTo(boundPort(socket->getFd()), "doomed"));
    ASSERT_TRUE(readable(socket->getFd()));
    socket->fail();

    ZnThread::sAsyncShutdown();
    ZnTest::LogCapture capture(kLogger, Tavoris::ERROR_LOG_LEVEL);
    EXPECT_FALSE(socket->block());
    EXPECT_EQ(~static_cast<uint64_t>(0), socket->getFd());
    // The exception object's address is logged.
    const std::vector<ZnTest::CapturedEvent> events = capture.events();
    ASSERT_EQ(1U, events.size());
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, events[0].level);
    EXPECT_EQ(0U, events[0].message.find("0x")) << events[0].message;
    EXPECT_EQ(nullptr, ZnUDPIDispatcher::getUDPEventQueue());
    EXPECT_EQ(0U, observer->count());
    EXPECT_TRUE(ZnThread::sWaitUntilDone());
    socket->detachObserver(observer);
}

} // namespace
