#include "ZnUtil/ZnDatagramSocket.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnDatagramPacket.h"
#include "ZnUtil/ZnErrorStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInetAddress.h"
#include "ZnUtil/ZnSocketError.h"
#include "ZnUtil/ZnThread.h"
#include "ZnUtil/ZnUDPIDispatcher.h"
#include "ZnUtil/ZnWorkerThread.h"

#include "tavoris/LogLevel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "support/CapturingAppender.h"
#include "support/RecordingOutputStream.h"
#include "support/UdpTestSupport.h"
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

using ZnUdpTest::boundPort;
using ZnUdpTest::Datagram;
using ZnUdpTest::loopback;
using ZnUdpTest::Notification;
using ZnUdpTest::Peer;
using ZnUdpTest::readable;
using ZnUdpTest::RecordingObserver;
using ZnUdpTest::waitUntil;

const char* const kLogger = "corvane.zn.ZnDatagramSocket";
const unsigned int kFailure = 0xFFFFFFFFU;

ZnInetAddress address(const char* dotted)
{
    ZnInetAddress result;
    result.initFromAddress(dotted);
    return result;
}

/// A packet over a copy of \p text, for \p port on 127.0.0.1.
ZnHandle<ZnDatagramPacket> packetFor(const std::string& text, unsigned int port)
{
    return new ZnDatagramPacket(ZnByteArray::sCreate(text.c_str()), 0, 0, loopback(), port,
                                ZnInetAddress(), 0);
}

/// A socket connected to 127.0.0.1:\p port; nil, with the failure reported, when that raises.
ZnHandle<ZnDatagramSocket> connectedTo(unsigned int port)
{
    try
    {
        return new ZnDatagramSocket(port, loopback(), true);
    }
    catch (ZnHandle<ZnException>& e)
    {
        const char* message = e->getExceptionMessage();
        ADD_FAILURE() << "connecting a datagram socket raised: "
                      << (message != nullptr ? message : "(nil)");
    }
    return ZnHandle<ZnDatagramSocket>();
}

/// The packet's window as text.
std::string payload(const ZnDatagramPacket& packet)
{
    ZnHandle<ZnByteArray> data = packet.getData();
    return std::string(reinterpret_cast<const char*>(data->getBytes()) + packet.getOffset(),
                       packet.getLength());
}

/// The debug line with which block() begins, for \p socket.
std::string blockLine(ZnDatagramSocket* socket, const char* host, unsigned int port)
{
    std::ostringstream text;
    text << "ZnDatagramSocket::block : this=0x" << std::hex << reinterpret_cast<uintptr_t>(socket)
         << std::dec << ", local_addr=" << host << ", local_port=" << port;
    return text.str();
}

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

/// Makes the default error stream one that writes into a recording stream at a debug level, for
/// the life of the object, and puts the previous one back afterwards.
class ErrorStreamRecorder
{
public:
    explicit ErrorStreamRecorder(unsigned int level)
        : m_recording(new ZnTest::RecordingOutputStream()), m_stream(new ZnErrorStream(m_recording))
    {
        ZnErrorStream::sGetDefault();
        m_stream->setDebugLevel(level);
        m_previous = ZnErrorStream::sSetDefault(m_stream);
    }

    ~ErrorStreamRecorder() { ZnErrorStream::sSetDefault(m_previous); }

    const std::string& text() const { return m_recording->text(); }

private:
    ZnHandle<ZnTest::RecordingOutputStream> m_recording;
    ZnHandle<ZnErrorStream> m_stream;
    ZnErrorStream* m_previous = nullptr;
};

/// A datagram socket whose local port can be made to fail, which makes building the packet in
/// block() raise.
class FailingLocalPortSocket : public ZnDatagramSocket
{
public:
    FailingLocalPortSocket() : ZnDatagramSocket(0, loopback()) {}

    unsigned int getLocalPort() const override
    {
        if (m_fail.load())
        {
            ZnException::sThrow("no local port today");
        }
        return ZnDatagramSocket::getLocalPort();
    }

    void fail() { m_fail.store(true); }

private:
    std::atomic<bool> m_fail{false};
};

/// A port of 127.0.0.1 that the system had free a moment ago.
unsigned int freePort()
{
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const unsigned int port =
        ::bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof(local)) == 0 ? boundPort(fd) : 0;
    ::close(fd);
    return port;
}

/// The scheduling state letter of thread \p tid of this process ('S' while it sleeps in a call).
char threadState(long tid)
{
    std::ifstream stat("/proc/self/task/" + std::to_string(tid) + "/stat");
    std::string line;
    std::getline(stat, line);
    const size_t close = line.rfind(')');
    return close == std::string::npos || close + 2 >= line.size() ? '?' : line[close + 2];
}

TEST(ZnDatagramSocketTest, ConstructorBindsAnUnconnectedDatagramSocket)
{
    ZnHandle<ZnDatagramSocket> socket(new ZnDatagramSocket());
    ASSERT_NE(~static_cast<uint64_t>(0), socket->getFd());
    EXPECT_FALSE(socket->isConnected());
    int type = 0;
    socklen_t length = sizeof(type);
    ASSERT_EQ(0,
              ::getsockopt(static_cast<int>(socket->getFd()), SOL_SOCKET, SO_TYPE, &type, &length));
    EXPECT_EQ(SOCK_DGRAM, type);
    // Bound to an ephemeral port on the default address; the socket keeps what it was given.
    EXPECT_NE(0U, boundPort(socket->getFd()));
    EXPECT_EQ(0U, socket->getLocalPort());
    EXPECT_TRUE(socket->getLocalAddress() == ZnInetAddress());
}

TEST(ZnDatagramSocketTest, ConstructorBindsToTheGivenAddressAndPort)
{
    const unsigned int port = freePort();
    ASSERT_NE(0U, port);
    ZnHandle<ZnDatagramSocket> socket(new ZnDatagramSocket(port, loopback()));
    EXPECT_EQ(port, boundPort(socket->getFd()));
    EXPECT_EQ(port, socket->getLocalPort());
    EXPECT_TRUE(socket->getLocalAddress() == loopback());
    EXPECT_FALSE(socket->isConnected());
}

TEST(ZnDatagramSocketTest, ConstructorRaisesWhenTheAddressCannotBeBound)
{
    // An address of a documentation network, which is on no interface of this machine.
    try
    {
        ZnHandle<ZnDatagramSocket> socket(new ZnDatagramSocket(0, address("198.51.100.77")));
        FAIL() << "bind to a foreign address succeeded";
    }
    catch (ZnHandle<ZnException>& e)
    {
        ZnHandle<ZnSocketError> error(e);
        EXPECT_STREQ("bind", error->getExceptionMessage());
        EXPECT_EQ(10049, error->getErrNo()); // EADDRNOTAVAIL
    }
}

TEST(ZnDatagramSocketTest, ConnectedConstructorConnectsToThePeer)
{
    Peer peer;
    ZnHandle<ZnDatagramSocket> socket = connectedTo(peer.port());
    ASSERT_FALSE(socket.isNil());
    EXPECT_TRUE(socket->isConnected());
    EXPECT_EQ(peer.port(), socket->getRemotePort());
    EXPECT_TRUE(socket->getRemoteAddress() == loopback());
    // connect reads the local end back from the system.
    EXPECT_EQ(boundPort(socket->getFd()), socket->getLocalPort());
    EXPECT_NE(0U, socket->getLocalPort());

    ZnHandle<ZnDatagramPacket> packet = packetFor("hello peer", peer.port());
    socket->send(packet);
    Datagram got;
    ASSERT_TRUE(peer.receive(got));
    EXPECT_EQ("hello peer", got.bytes);
    EXPECT_EQ(socket->getLocalPort(), got.fromPort);
}

TEST(ZnDatagramSocketTest, ConnectConnectsABoundSocket)
{
    Peer peer;
    ZnHandle<ZnDatagramSocket> socket(new ZnDatagramSocket(0, loopback()));
    const unsigned int bound = boundPort(socket->getFd());
    EXPECT_FALSE(socket->isConnected());

    try
    {
        socket->connect(loopback(), peer.port());
    }
    catch (ZnHandle<ZnException>& e)
    {
        FAIL() << "connect raised: " << e->getExceptionMessage();
    }
    EXPECT_TRUE(socket->isConnected());
    EXPECT_EQ(peer.port(), socket->getRemotePort());
    // The descriptor that bind made is kept.
    EXPECT_EQ(bound, socket->getLocalPort());
}

TEST(ZnDatagramSocketTest, SendOnAnUnconnectedSocketGoesToThePacketsAddressBySendTo)
{
    Peer peer;
    ZnHandle<ZnDatagramSocket> socket(new ZnDatagramSocket(0, loopback()));
    // Only the window of the packet goes out.
    ZnHandle<ZnDatagramPacket> packet(new ZnDatagramPacket(
        ZnByteArray::sCreate("..INVITE.."), 2, 6, loopback(), peer.port(), ZnInetAddress(), 0));
    {
        ErrorStreamRecorder recorder(7);
        socket->send(packet);
        EXPECT_NE(std::string::npos, recorder.text().find("UDP Sending 6 bytes to 127.0.0.1:" +
                                                          std::to_string(peer.port()) + "INVITE"));
        EXPECT_EQ(std::string::npos, recorder.text().find("TCP"));
    }
    Datagram got;
    ASSERT_TRUE(peer.receive(got));
    EXPECT_EQ("INVITE", got.bytes);
    EXPECT_EQ("127.0.0.1", got.fromHost);
    EXPECT_EQ(boundPort(socket->getFd()), got.fromPort);
}

TEST(ZnDatagramSocketTest, ConnectedSocketSendsToItsPeerBySendWithTheTcpDump)
{
    Peer peer;
    ZnHandle<ZnDatagramSocket> socket = connectedTo(peer.port());
    ASSERT_FALSE(socket.isNil());
    ZnHandle<ZnDatagramPacket> packet = packetFor("BYE", peer.port());
    {
        ErrorStreamRecorder recorder(6);
        socket->send(packet);
        const std::string banner =
            "\n================TCP Sent 3 bytes Host: 127.0.0.1:" + std::to_string(peer.port()) +
            "================\n\nBYE";
        EXPECT_NE(std::string::npos, recorder.text().find(banner)) << recorder.text();
        EXPECT_EQ(std::string::npos, recorder.text().find("UDP Sending"));
    }
    Datagram got;
    ASSERT_TRUE(peer.receive(got));
    EXPECT_EQ("BYE", got.bytes);
}

TEST(ZnDatagramSocketTest, ConnectedSocketSendsAPacketForAnotherAddressBySendTo)
{
    Peer connectedPeer;
    Peer otherPeer;
    ZnHandle<ZnDatagramSocket> socket = connectedTo(connectedPeer.port());
    ASSERT_FALSE(socket.isNil());
    ZnHandle<ZnDatagramPacket> packet = packetFor("ACK", otherPeer.port());
    {
        ErrorStreamRecorder recorder(6);
        socket->send(packet);
        EXPECT_NE(std::string::npos,
                  recorder.text().find("UDP Sending 3 bytes to 127.0.0.1:" +
                                       std::to_string(otherPeer.port()) + "ACK"));
        EXPECT_EQ(std::string::npos, recorder.text().find("TCP"));
    }
    // The other peer gets it; the connected one gets nothing before the datagram that follows.
    Datagram got;
    ASSERT_TRUE(otherPeer.receive(got));
    EXPECT_EQ("ACK", got.bytes);
    EXPECT_EQ(socket->getLocalPort(), got.fromPort);
    socket->send(packetFor("next", connectedPeer.port()));
    ASSERT_TRUE(connectedPeer.receive(got));
    EXPECT_EQ("next", got.bytes);
}

TEST(ZnDatagramSocketTest, ReceiveFillsThePacketsWindowAndSender)
{
    Peer peer;
    ZnHandle<ZnDatagramSocket> socket(new ZnDatagramSocket(0, loopback()));
    const unsigned int port = boundPort(socket->getFd());
    ZnHandle<ZnByteArray> buffer = ZnByteArray::sCreate("--------------------");
    ZnHandle<ZnDatagramPacket> packet(
        new ZnDatagramPacket(buffer, 4, 10, ZnInetAddress(), 0, ZnInetAddress(), 0));

    ASSERT_TRUE(peer.sendTo(port, "REGISTER"));
    socket->receive(packet);
    EXPECT_EQ(8U, packet->getLength());
    EXPECT_EQ(4U, packet->getOffset());
    EXPECT_EQ("REGISTER", payload(*packet));
    EXPECT_EQ("----REGISTER--------",
              std::string(reinterpret_cast<const char*>(buffer->getBytes()), buffer->length()));
    EXPECT_TRUE(packet->getAddress() == loopback());
    EXPECT_EQ(peer.port(), packet->getPort());
}

TEST(ZnDatagramSocketTest, AFailedReceiveLeavesTheLengthAllOnes)
{
    Peer peer;
    ZnHandle<ZnDatagramSocket> socket(new ZnDatagramSocket(0, loopback()));
    const unsigned int port = boundPort(socket->getFd());
    ZnHandle<ZnByteArray> buffer = ZnByteArray::sCreate("--------------------");
    ZnHandle<ZnDatagramPacket> packet(
        new ZnDatagramPacket(buffer, 4, 10, address("9.9.9.9"), 99, ZnInetAddress(), 0));

    // Longer than the window: the read fails, and the sender is not stored.
    ASSERT_TRUE(peer.sendTo(port, "a datagram longer than ten bytes"));
    socket->receive(packet);
    EXPECT_EQ(kFailure, packet->getLength());
    EXPECT_TRUE(packet->getAddress() == address("9.9.9.9"));
    EXPECT_EQ(99U, packet->getPort());

    // The packet is usable again once reset.
    packet->setData(buffer, 4, 10);
    ASSERT_TRUE(peer.sendTo(port, "OPTIONS"));
    socket->receive(packet);
    EXPECT_EQ("OPTIONS", payload(*packet));

    // A closed socket fails at once.
    socket->close();
    packet->setData(buffer, 0, 0);
    socket->receive(packet);
    EXPECT_EQ(kFailure, packet->getLength());
}

TEST(ZnDatagramSocketTest, AvailableSaysWhetherADatagramWaits)
{
    Peer peer;
    ZnHandle<ZnDatagramSocket> socket(new ZnDatagramSocket(0, loopback()));
    const unsigned int port = boundPort(socket->getFd());
    ASSERT_TRUE(peer.sendTo(port, std::string(100, 'x')));
    ASSERT_TRUE(readable(socket->getFd()));
    EXPECT_EQ(4U, socket->available());
    // Peeking takes nothing away.
    EXPECT_EQ(4U, socket->available());

    ZnHandle<ZnByteArray> buffer = ZnByteArray::sCreate(std::string(200, ' ').c_str());
    ZnHandle<ZnDatagramPacket> packet(
        new ZnDatagramPacket(buffer, 0, 0, ZnInetAddress(), 0, ZnInetAddress(), 0));
    socket->receive(packet);
    EXPECT_EQ(100U, packet->getLength());

    ASSERT_TRUE(peer.sendTo(port, "ab"));
    ASSERT_TRUE(readable(socket->getFd()));
    EXPECT_EQ(2U, socket->available());
}

TEST(ZnDatagramSocketTest, BlockPostsACopyOfTheDatagramToTheInputDispatcher)
{
    Peer peer;
    ZnHandle<ZnDatagramSocket> socket(new ZnDatagramSocket(0, loopback()));
    const unsigned int port = boundPort(socket->getFd());
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    socket->attachObserver(observer);

    ASSERT_TRUE(peer.sendTo(port, "MESSAGE sip:a@b SIP/2.0"));
    EXPECT_TRUE(socket->block());
    ASSERT_TRUE(observer->waitForCount(1));
    const Notification got = observer->notifications()[0];

    // The socket's observer hears it, with the socket as the source, on a worker of the input
    // dispatcher.
    EXPECT_EQ(static_cast<ZnObservable*>(socket), got.source);
    EXPECT_NE(nullptr, dynamic_cast<ZnWorkerThread*>(got.thread));
    EXPECT_NE(nullptr, ZnUDPIDispatcher::getUDPEventQueue());

    ZnHandle<ZnDatagramPacket> packet(got.argument);
    ASSERT_FALSE(packet.isNil());
    EXPECT_EQ("MESSAGE sip:a@b SIP/2.0", payload(*packet));
    // An array of exactly the datagram's length, not the socket's buffer.
    EXPECT_EQ(0U, packet->getOffset());
    EXPECT_EQ(23U, packet->getData()->length());
    EXPECT_TRUE(packet->getAddress() == loopback());
    EXPECT_EQ(peer.port(), packet->getPort());
    // The local end is the socket's, as it keeps it.
    EXPECT_TRUE(packet->getLocalAddress() == loopback());
    EXPECT_EQ(socket->getLocalPort(), packet->getLocalPort());

    // The next datagram comes in a packet of its own.
    ASSERT_TRUE(peer.sendTo(port, "2nd"));
    EXPECT_TRUE(socket->block());
    ASSERT_TRUE(observer->waitForCount(2));
    ZnHandle<ZnDatagramPacket> second(observer->notifications()[1].argument);
    EXPECT_EQ("2nd", payload(*second));
    EXPECT_EQ("MESSAGE sip:a@b SIP/2.0", payload(*packet));
    EXPECT_NE(static_cast<ZnByteArray*>(packet->getData()),
              static_cast<ZnByteArray*>(second->getData()));
    socket->detachObserver(observer);
}

TEST(ZnDatagramSocketTest, BlockTracesAndLogsItsSocketAtDebugLevel)
{
    Peer peer;
    ZnHandle<ZnDatagramSocket> socket(new ZnDatagramSocket(0, loopback()));
    const unsigned int port = boundPort(socket->getFd());
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    socket->attachObserver(observer);
    ASSERT_TRUE(peer.sendTo(port, "x"));

    ZnTest::LogCapture capture(kLogger, Tavoris::TRACE_LOG_LEVEL);
    EXPECT_TRUE(socket->block());
    ASSERT_TRUE(observer->waitForCount(1));

    const std::vector<ZnTest::CapturedEvent> events = capture.events();
    ASSERT_EQ(3U, events.size());
    EXPECT_EQ("ENTER: ZnDatagramSocket::block", events[0].message);
    EXPECT_EQ(Tavoris::TRACE_LOG_LEVEL, events[0].level);
    EXPECT_EQ(blockLine(socket, "127.0.0.1", 0), events[1].message);
    EXPECT_EQ(Tavoris::DEBUG_LOG_LEVEL, events[1].level);
    EXPECT_EQ(kLogger, events[1].logger);
    EXPECT_EQ("EXIT: ZnDatagramSocket::block", events[2].message);
    socket->detachObserver(observer);
}

TEST(ZnDatagramSocketTest, ADatagramLongerThanTheBufferIsARecvfromFailure)
{
    Peer peer;
    ZnHandle<ZnDatagramSocket> socket(new ZnDatagramSocket(0, loopback(), false, 16));
    const unsigned int port = boundPort(socket->getFd());
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    socket->attachObserver(observer);

    ASSERT_TRUE(peer.sendTo(port, std::string(17, 'L')));
    ASSERT_TRUE(peer.sendTo(port, std::string(16, 'S')));
    {
        ZnTest::LogCapture capture(kLogger, Tavoris::DEBUG_LOG_LEVEL);
        EXPECT_TRUE(socket->block());
        EXPECT_EQ(1U, countExactly(capture, "ZnDatagramSocket::block : recvfrom failure"));
    }
    // Nothing was dispatched for it, and the socket reads on: the next datagram fits.
    EXPECT_TRUE(socket->block());
    ASSERT_TRUE(observer->waitForCount(1));
    ZnHandle<ZnDatagramPacket> packet(observer->notifications()[0].argument);
    EXPECT_EQ(std::string(16, 'S'), payload(*packet));
    EXPECT_EQ(1U, observer->count());
    EXPECT_NE(~static_cast<uint64_t>(0), socket->getFd());
    socket->detachObserver(observer);
}

TEST(ZnDatagramSocketTest, UnblockReleasesABlockedBlockWhichReportsAFailure)
{
    ZnHandle<ZnDatagramSocket> socket(new ZnDatagramSocket(0, loopback()));
    ZnTest::LogCapture capture(kLogger, Tavoris::DEBUG_LOG_LEVEL);
    std::atomic<long> tid{0};
    std::atomic<int> result{-1};
    std::thread reader(
        [&]
        {
            tid.store(::syscall(SYS_gettid));
            result.store(socket->block() ? 1 : 0);
        });
    // Let it get into recvfrom: after the line that opens block() it sleeps in the system.
    EXPECT_TRUE(waitUntil(
        [&]
        {
            return countExactly(capture, blockLine(socket, "127.0.0.1", 0)) == 1 &&
                   threadState(tid.load()) == 'S';
        }));
    EXPECT_EQ(-1, result.load());

    EXPECT_TRUE(socket->unblock());
    reader.join();
    EXPECT_EQ(1, result.load());
    EXPECT_EQ(1U, countExactly(capture, "ZnDatagramSocket::block : recvfrom failure"));
    EXPECT_EQ(~static_cast<uint64_t>(0), socket->getFd());

    // Once closed, block() fails at once, and still answers true.
    EXPECT_TRUE(socket->block());
    EXPECT_EQ(2U, countExactly(capture, "ZnDatagramSocket::block : recvfrom failure"));
}

TEST(ZnDatagramSocketTest, AnExceptionInBuildingThePacketClosesTheSocketAndIsDispatched)
{
    Peer peer;
    ZnHandle<FailingLocalPortSocket> socket(new FailingLocalPortSocket());
    const unsigned int port = boundPort(socket->getFd());
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    socket->attachObserver(observer);
    ASSERT_TRUE(peer.sendTo(port, "doomed"));
    socket->fail();

    ZnTest::LogCapture capture(kLogger, Tavoris::ERROR_LOG_LEVEL);
    EXPECT_FALSE(socket->block());
    EXPECT_EQ(~static_cast<uint64_t>(0), socket->getFd());

    // The exception takes the packet's place, on a worker, with the socket as the source.
    ASSERT_TRUE(observer->waitForCount(1));
    const Notification got = observer->notifications()[0];
    EXPECT_EQ(static_cast<ZnObservable*>(static_cast<ZnDatagramSocket*>(socket)), got.source);
    EXPECT_NE(nullptr, dynamic_cast<ZnWorkerThread*>(got.thread));
    ZnHandle<ZnException> exception(got.argument);
    ASSERT_FALSE(exception.isNil());
    EXPECT_STREQ("no local port today", exception->getExceptionMessage());

    // The log has the exception object's address, not its text.
    const std::vector<ZnTest::CapturedEvent> events = capture.events();
    ASSERT_EQ(1U, events.size());
    std::ostringstream pointer;
    pointer << static_cast<const void*>(static_cast<ZnException*>(exception));
    EXPECT_EQ(pointer.str(), events[0].message);
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, events[0].level);
    socket->detachObserver(observer);
}

TEST(ZnDatagramSocketTest, OnNotificationForwardsToTheObserverWithTheSocketAsSource)
{
    ZnHandle<ZnDatagramSocket> socket(new ZnDatagramSocket(0, loopback()));
    ZnHandle<RecordingObserver> observer(new RecordingObserver());
    socket->attachObserver(observer);
    ZnHandle<ZnObject> argument(new ZnUdpTest::Tag("forwarded"));

    socket->onNotification(ZnHandle<ZnObservable>(), argument);
    ASSERT_EQ(1U, observer->count());
    const Notification got = observer->notifications()[0];
    EXPECT_EQ(static_cast<ZnObservable*>(socket), got.source);
    EXPECT_EQ(static_cast<ZnObject*>(argument), static_cast<ZnObject*>(got.argument));
    socket->detachObserver(observer);
}

} // namespace
