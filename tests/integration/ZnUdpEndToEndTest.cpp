// A UDP echo service built the way the transport layer builds one: a datagram socket driven by an
// observer thread of the monitor thread, its datagrams handed to pool workers by the input
// dispatcher, and the replies sent from the listening port by the output dispatcher.
#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnDatagramPacket.h"
#include "ZnUtil/ZnDatagramSocket.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInetAddress.h"
#include "ZnUtil/ZnMonitorThread.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnObserver.h"
#include "ZnUtil/ZnObserverThread.h"
#include "ZnUtil/ZnThread.h"
#include "ZnUtil/ZnUDPEvent.h"
#include "ZnUtil/ZnUDPIDispatcher.h"
#include "ZnUtil/ZnUDPODispatcher.h"
#include "ZnUtil/ZnWorkerThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <set>
#include <string>

#include "support/UdpTestSupport.h"

namespace
{

using ZnUdpTest::boundPort;
using ZnUdpTest::Datagram;
using ZnUdpTest::loopback;
using ZnUdpTest::Peer;
using ZnUdpTest::SettlingEnvironment;
using ZnUdpTest::waitUntil;

/// The listening socket; it notes the thread that drives its block(), so that the test can end
/// that thread.
class ListeningSocket : public ZnDatagramSocket
{
public:
    ListeningSocket() : ZnDatagramSocket(0, loopback()) {}

    bool block() override
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_driver.isNil())
            {
                m_driver = ZnThread::sGetCurrent();
            }
        }
        return ZnDatagramSocket::block();
    }

    /// The thread in block(), nil before the first call.
    ZnHandle<ZnThread> driver() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_driver;
    }

    /// Lets go of the thread, which holds this socket in turn.
    void forgetDriver()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_driver = nullptr;
    }

private:
    mutable std::mutex m_mutex;
    ZnHandle<ZnThread> m_driver; // guarded by m_mutex
};

/// Answers every datagram with "re: " and its text, to its sender, through the output
/// dispatcher; counts what it saw that it should not have.
class EchoObserver : public ZnObserver
{
public:
    explicit EchoObserver(ZnDatagramSocket* aSocket) : m_socket(aSocket) {}

    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override
    {
        ZnThread* current = ZnThread::sGetCurrent();
        SettlingEnvironment::sNote(current);
        if (static_cast<ZnObservable*>(aSource) != static_cast<ZnObservable*>(m_socket))
        {
            ++m_wrongSource;
        }
        // A worker, or the input dispatcher itself when all its workers are busy.
        if (dynamic_cast<ZnWorkerThread*>(current) == nullptr &&
            current != static_cast<ZnThread*>(ZnUDPIDispatcher::getInstance()))
        {
            ++m_notOnWorker;
        }
        ZnDatagramPacket* packet =
            dynamic_cast<ZnDatagramPacket*>(static_cast<ZnObject*>(aArgument));
        if (packet == nullptr)
        {
            ++m_notPacket;
            return;
        }
        if (packet->getLocalAddress() != loopback())
        {
            ++m_wrongLocalEnd;
        }
        const ZnByteArray* data = packet->getData();
        const std::string reply =
            "re: " +
            std::string(reinterpret_cast<const char*>(data->getBytes()) + packet->getOffset(),
                        packet->getLength());
        ZnHandle<ZnDatagramPacket> answer(
            new ZnDatagramPacket(ZnByteArray::sCreate(reply.c_str()), 0, 0, packet->getAddress(),
                                 packet->getPort(), ZnInetAddress(), 0));
        // Counted before the reply leaves: the client may read it before this worker goes on.
        ++m_answered;
        ZnUDPODispatcher::getInstance()->addEvent(new ZnUDPEvent(nullptr, answer));
    }

    int answered() const { return m_answered.load(); }
    int wrongSource() const { return m_wrongSource.load(); }
    int notOnWorker() const { return m_notOnWorker.load(); }
    int notPacket() const { return m_notPacket.load(); }
    int wrongLocalEnd() const { return m_wrongLocalEnd.load(); }

private:
    ZnDatagramSocket* m_socket; // compared, never used
    std::atomic<int> m_answered{0};
    std::atomic<int> m_wrongSource{0};
    std::atomic<int> m_notOnWorker{0};
    std::atomic<int> m_notPacket{0};
    std::atomic<int> m_wrongLocalEnd{0};
};

TEST(ZnUdpEndToEndTest, AThousandDatagramsGetAThousandRepliesFromTheListeningPort)
{
    ZnHandle<ListeningSocket> socket(new ListeningSocket());
    const unsigned int port = boundPort(socket->getFd());
    ASSERT_NE(0U, port);
    ZnHandle<EchoObserver> observer(new EchoObserver(socket));
    socket->attachObserver(observer);
    ZnUDPODispatcher::getInstance()->setDatagramSocket(socket);
    ZnMonitorThread::sMonitorObservable(socket);

    // A plain client; at most a window of datagrams is in flight, so that no buffer on the way
    // overflows.
    Peer client(1 << 20);
    constexpr int kDatagrams = 1000;
    constexpr int kWindow = 32;
    std::set<std::string> replies;
    int sent = 0;
    int received = 0;
    bool lost = false;
    while (received < kDatagrams && !lost)
    {
        while (sent < kDatagrams && sent - received < kWindow)
        {
            ASSERT_TRUE(client.sendTo(port, "datagram " + std::to_string(sent)));
            ++sent;
        }
        Datagram reply;
        if (!client.receive(reply))
        {
            lost = true;
            break;
        }
        ++received;
        EXPECT_EQ("127.0.0.1", reply.fromHost);
        EXPECT_EQ(port, reply.fromPort);
        replies.insert(reply.bytes);
    }
    EXPECT_FALSE(lost) << "a reply did not come; " << received << " did";
    EXPECT_EQ(static_cast<size_t>(kDatagrams), replies.size());
    for (int i = 0; i < kDatagrams; ++i)
    {
        EXPECT_EQ(1U, replies.count("re: datagram " + std::to_string(i))) << i;
    }
    EXPECT_EQ(kDatagrams, observer->answered());
    EXPECT_EQ(0, observer->wrongSource());
    EXPECT_EQ(0, observer->notOnWorker());
    EXPECT_EQ(0, observer->notPacket());
    EXPECT_EQ(0, observer->wrongLocalEnd());

    // The observer thread is ended: terminate unblocks the socket, and block() lets it go.
    ZnHandle<ZnThread> driver = socket->driver();
    ASSERT_FALSE(driver.isNil());
    EXPECT_NE(nullptr, dynamic_cast<ZnObserverThread*>(static_cast<ZnThread*>(driver)));
    driver->terminate();
    EXPECT_TRUE(waitUntil([&] { return driver->getState() == ZnThread::STATE_DETACHED; }));
    EXPECT_EQ(~static_cast<uint64_t>(0), socket->getFd());
    socket->forgetDriver();
    socket->detachObserver(observer);
    EXPECT_TRUE(SettlingEnvironment::sSettle());
}

} // namespace
