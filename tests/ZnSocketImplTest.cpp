#include "ZnUtil/ZnSocketImpl.h"

#include "ZnUtil/ZnErrorStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInetAddress.h"
#include "ZnUtil/ZnObserver.h"
#include "ZnUtil/ZnSocketError.h"

#include "tavoris/Fallible.h"
#include "tavoris/LogLevel.h"
#include "tavoris/MemAccount.h"
#include "tavoris/SipTransport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <future>
#include <initializer_list>
#include <string>
#include <thread>
#include <vector>

#include "support/CapturingAppender.h"
#include "support/RecordingOutputStream.h"
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

const unsigned int kFailure = 0xFFFFFFFFu;
const uint64_t kNoDescriptor = ~static_cast<uint64_t>(0);
const std::chrono::seconds kBound(10);

ZnInetAddress loopback()
{
    ZnInetAddress address;
    address.initFromAddress("127.0.0.1");
    return address;
}

/// The port the system gave the descriptor.
unsigned int boundPort(uint64_t fd)
{
    sockaddr_in address{};
    socklen_t length = sizeof(address);
    if (::getsockname(static_cast<int>(fd), reinterpret_cast<sockaddr*>(&address), &length) != 0)
    {
        return 0;
    }
    return ntohs(address.sin_port);
}

/// A loopback port that was free a moment ago, for tests that need the port in the object.
unsigned int freePort(int type)
{
    int fd = ::socket(AF_INET, type, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    unsigned int port = boundPort(static_cast<uint64_t>(fd));
    ::close(fd);
    return port;
}

int intOption(uint64_t fd, int level, int name)
{
    int value = -1;
    socklen_t length = sizeof(value);
    ::getsockopt(static_cast<int>(fd), level, name, &value, &length);
    return value;
}

bool descriptorIsOpen(int fd)
{
    return ::fcntl(fd, F_GETFD) != -1;
}

long readProcNumber(const char* path)
{
    std::ifstream in(path);
    long value = 0;
    in >> value;
    return value;
}

/// Runs \p call, which is expected to throw, and gives the exception caught (nil if none).
template <typename Call>
ZnHandle<ZnException> thrownBy(Call call)
{
    try
    {
        call();
    }
    catch (ZnHandle<ZnException>& e)
    {
        return e;
    }
    return ZnHandle<ZnException>();
}

std::string messageOf(const ZnHandle<ZnException>& e)
{
    const char* text = e->getExceptionMessage();
    return text == nullptr ? std::string() : std::string(text);
}

/// The socket error number of \p e, or -1 when it is no ZnSocketError.
int socketErrorOf(const ZnHandle<ZnException>& e)
{
    ZnSocketError* error = dynamic_cast<ZnSocketError*>(static_cast<ZnException*>(e));
    return error == nullptr ? -1 : error->getErrNo();
}

/// Makes an error stream on a recording destination, at the given debug level, the default for
/// the life of the object; then puts the previous default back.
class ErrorStreamCapture
{
public:
    explicit ErrorStreamCapture(unsigned int level)
        : m_destination(new ZnTest::RecordingOutputStream),
          m_stream(new ZnErrorStream(m_destination))
    {
        m_stream->setDebugLevel(level);
        m_previous = ZnErrorStream::sSetDefault(m_stream);
    }

    ~ErrorStreamCapture()
    {
        ZnErrorStream::sSetDefault(m_previous);
        delete m_stream;
    }

    ErrorStreamCapture(const ErrorStreamCapture&) = delete;
    ErrorStreamCapture& operator=(const ErrorStreamCapture&) = delete;

    std::string text() const { return m_destination->text(); }
    int flushes() const { return m_destination->flushes(); }

private:
    ZnHandle<ZnTest::RecordingOutputStream> m_destination;
    ZnErrorStream* m_stream;
    ZnErrorStream* m_previous = nullptr;
};

/// Waits until the thread \p tid sits in one of the system calls \p calls, polling with yields.
bool waitUntilInSystemCall(const std::atomic<long>& tid, std::initializer_list<long> calls)
{
    auto deadline = std::chrono::steady_clock::now() + kBound;
    while (std::chrono::steady_clock::now() < deadline)
    {
        long thread = tid.load();
        if (thread != 0)
        {
            std::ifstream in("/proc/self/task/" + std::to_string(thread) + "/syscall");
            long number = -1;
            if (in >> number && std::find(calls.begin(), calls.end(), number) != calls.end())
            {
                return true;
            }
        }
        std::this_thread::yield();
    }
    return false;
}

long currentThreadId()
{
    return static_cast<long>(::syscall(SYS_gettid));
}

/// A listening socket on a system-chosen loopback port, a client connected to it and the
/// accepted end.
struct TcpPair
{
    TcpPair()
    {
        server.bind(0, loopback(), true);
        server.listen(5);
        port = boundPort(server.getFd());
        client.connect(loopback(), port, true);
        accepted.accept(server);
    }

    ZnSocketImpl server;
    ZnSocketImpl client;
    ZnSocketImpl accepted;
    unsigned int port = 0;
};

/// Puts the class's buffer sizes back at the end of a test.
class BufferSizeRestorer
{
public:
    BufferSizeRestorer()
        : m_receive(ZnSocketImpl::sGetReceiveBufferSize()),
          m_send(ZnSocketImpl::sGetSendBufferSize())
    {
    }
    ~BufferSizeRestorer()
    {
        ZnSocketImpl::sSetReceiveBufferSize(static_cast<unsigned int>(m_receive));
        ZnSocketImpl::sSetSendBufferSize(static_cast<unsigned int>(m_send));
    }

private:
    int m_receive;
    int m_send;
};

/// Counts the notifications it gets.
class CountingObserver : public ZnObserver
{
public:
    void onNotification(ZnHandle<ZnObservable>, ZnHandle<ZnObject> aArgument) override
    {
        ++m_count;
        if (aArgument.isNil())
        {
            ++m_nilCount;
        }
    }

    int count() const { return m_count; }
    int nilCount() const { return m_nilCount; }

private:
    int m_count = 0;
    int m_nilCount = 0;
};

// ---------------------------------------------------------------------------------------------
// Class data and construction

TEST(ZnSocketImplTest, ClassDataHasInitialValues)
{
    EXPECT_STREQ("ZnSocket", ZnSocketImpl::sDebugToken);
    EXPECT_EQ(245760, ZnSocketImpl::sGetReceiveBufferSize());
    EXPECT_EQ(245760, ZnSocketImpl::sGetSendBufferSize());
    EXPECT_STREQ("ZnSocketImpl", ZnSocketImpl::getMemAccountName());
}

TEST(ZnSocketImplTest, DefaultConstructorHasNoDescriptor)
{
    ZnSocketImpl socket;
    EXPECT_EQ(kNoDescriptor, socket.getFd());
    EXPECT_EQ(0u, socket.getLocalPort());
    EXPECT_TRUE(socket.getLocalAddress() == ZnInetAddress());
}

TEST(ZnSocketImplTest, ConstructorWithLocalEndpointRemembersIt)
{
    ZnSocketImpl socket(5060, loopback());
    EXPECT_EQ(kNoDescriptor, socket.getFd());
    EXPECT_EQ(5060u, socket.getLocalPort());
    EXPECT_TRUE(socket.getLocalAddress() == loopback());
}

TEST(ZnSocketImplTest, AllocatedOnItsMemoryAccount)
{
    int64_t socketsBefore = Tavoris::MemAccount::sRead("ZnSocketImpl").liveBlocks;
    int64_t mutexesBefore = Tavoris::MemAccount::sRead("ZnMutex").liveBlocks;
    ZnSocketImpl* socket = new ZnSocketImpl;
    EXPECT_EQ(socketsBefore + 1, Tavoris::MemAccount::sRead("ZnSocketImpl").liveBlocks);
    EXPECT_EQ(mutexesBefore + 1, Tavoris::MemAccount::sRead("ZnMutex").liveBlocks);
    delete socket;
    EXPECT_EQ(socketsBefore, Tavoris::MemAccount::sRead("ZnSocketImpl").liveBlocks);
    EXPECT_EQ(mutexesBefore, Tavoris::MemAccount::sRead("ZnMutex").liveBlocks);
}

TEST(ZnSocketImplTest, DestructorClosesDescriptor)
{
    int fd = -1;
    {
        ZnSocketImpl socket;
        socket.bind(0, loopback(), false);
        fd = static_cast<int>(socket.getFd());
        ASSERT_TRUE(descriptorIsOpen(fd));
    }
    int result = ::fcntl(fd, F_GETFD);
    int error = errno;
    EXPECT_EQ(-1, result);
    EXPECT_EQ(EBADF, error);
}

// ---------------------------------------------------------------------------------------------
// bind and listen

TEST(ZnSocketImplTest, BindTwiceThrowsAndLeavesDescriptorOpen)
{
    ZnSocketImpl socket;
    socket.bind(0, loopback(), false);
    uint64_t fd = socket.getFd();
    ASSERT_NE(kNoDescriptor, fd);

    ZnHandle<ZnException> e = thrownBy([&] { socket.bind(0, loopback(), false); });
    ASSERT_FALSE(e.isNil());
    EXPECT_EQ("socket already created", messageOf(e));
    EXPECT_EQ(-1, socketErrorOf(e)) << "a plain ZnException";
    EXPECT_EQ(fd, socket.getFd());
    EXPECT_TRUE(descriptorIsOpen(static_cast<int>(fd)));

    // The socket still works: a datagram to its port arrives.
    ZnSocketImpl sender;
    sender.bind(0, loopback(), false);
    ASSERT_EQ(2u, sender.sendTo("ok", 2, loopback(), boundPort(fd)));
    char buffer[8] = {};
    EXPECT_EQ(2u, socket.receiveFrom(buffer, sizeof(buffer), nullptr, nullptr));
    EXPECT_EQ(0, std::memcmp("ok", buffer, 2));
}

TEST(ZnSocketImplTest, BindToPortZeroKeepsLocalPortZero)
{
    ZnSocketImpl socket;
    socket.bind(0, loopback(), false);
    EXPECT_EQ(0u, socket.getLocalPort());
    EXPECT_TRUE(socket.getLocalAddress() == loopback());
    EXPECT_NE(0u, boundPort(socket.getFd())) << "the system chose a port all the same";
}

TEST(ZnSocketImplTest, BindKeepsPortAndAddressPassed)
{
    unsigned int port = freePort(SOCK_DGRAM);
    ZnSocketImpl socket;
    socket.bind(port, loopback(), false);
    EXPECT_EQ(port, socket.getLocalPort());
    EXPECT_EQ(port, boundPort(socket.getFd()));
    EXPECT_TRUE(socket.getLocalAddress() == loopback());
}

TEST(ZnSocketImplTest, BindMakesStreamOrDatagramSocket)
{
    ZnSocketImpl stream;
    stream.bind(0, loopback(), true);
    EXPECT_EQ(SOCK_STREAM, intOption(stream.getFd(), SOL_SOCKET, SO_TYPE));
    EXPECT_EQ(1, intOption(stream.getFd(), SOL_SOCKET, SO_REUSEADDR));

    ZnSocketImpl datagram;
    datagram.bind(0, loopback(), false);
    EXPECT_EQ(SOCK_DGRAM, intOption(datagram.getFd(), SOL_SOCKET, SO_TYPE));
    EXPECT_EQ(1, intOption(datagram.getFd(), SOL_SOCKET, SO_REUSEADDR));
}

TEST(ZnSocketImplTest, BindToPortInUseThrowsAddressInUse)
{
    ZnSocketImpl listener;
    listener.bind(0, loopback(), true);
    listener.listen(5);
    unsigned int port = boundPort(listener.getFd());

    ZnSocketImpl second;
    ZnHandle<ZnException> e = thrownBy([&] { second.bind(port, loopback(), true); });
    ASSERT_FALSE(e.isNil());
    EXPECT_EQ("bind", messageOf(e));
    EXPECT_EQ(10048, socketErrorOf(e));
}

TEST(ZnSocketImplTest, BindingMessageWrittenAboveLevelFive)
{
    ErrorStreamCapture capture(6);
    ZnSocketImpl socket;
    socket.bind(0, loopback(), false);
    EXPECT_EQ("Binding socket to port 0\n", capture.text());
    EXPECT_GE(capture.flushes(), 1);
}

TEST(ZnSocketImplTest, BindingMessageNotWrittenAtLevelFive)
{
    ErrorStreamCapture capture(5);
    ZnSocketImpl socket;
    socket.bind(0, loopback(), false);
    socket.close();
    EXPECT_EQ("", capture.text());
}

TEST(ZnSocketImplTest, ListenOnDatagramSocketThrows)
{
    ZnSocketImpl socket;
    socket.bind(0, loopback(), false);
    ZnHandle<ZnException> e = thrownBy([&] { socket.listen(5); });
    ASSERT_FALSE(e.isNil());
    EXPECT_EQ("listen", messageOf(e));
    EXPECT_EQ(10045, socketErrorOf(e));
}

// ---------------------------------------------------------------------------------------------
// connect and accept

TEST(ZnSocketImplTest, TcpConnectAndAcceptOnLoopback)
{
    unsigned int port = freePort(SOCK_STREAM);
    ZnSocketImpl server;
    server.bind(port, loopback(), true);
    server.listen(5);

    ZnSocketImpl client;
    client.connect(loopback(), port, true);
    ZnSocketImpl accepted;
    accepted.accept(server);

    unsigned int clientPort = boundPort(client.getFd());
    ASSERT_NE(0u, clientPort);
    EXPECT_EQ(clientPort, client.getLocalPort());
    EXPECT_TRUE(client.getLocalAddress() == loopback());
    EXPECT_EQ(port, client.getRemotePort());
    EXPECT_TRUE(client.getRemoteAddress() == loopback());

    EXPECT_EQ(port, accepted.getLocalPort()) << "copied from the server";
    EXPECT_TRUE(accepted.getLocalAddress() == loopback());
    EXPECT_EQ(clientPort, accepted.getRemotePort());
    EXPECT_TRUE(accepted.getRemoteAddress() == loopback());

    ASSERT_EQ(4u, client.send("ping", 4));
    char buffer[16] = {};
    ASSERT_EQ(4u, accepted.receive(buffer, sizeof(buffer)));
    EXPECT_EQ(0, std::memcmp("ping", buffer, 4));
    ASSERT_EQ(4u, accepted.send("pong", 4));
    ASSERT_EQ(4u, client.receive(buffer, sizeof(buffer)));
    EXPECT_EQ(0, std::memcmp("pong", buffer, 4));
}

TEST(ZnSocketImplTest, AcceptedSocketCopiesServerLocalPortZero)
{
    TcpPair pair;
    EXPECT_EQ(0u, pair.server.getLocalPort());
    EXPECT_EQ(0u, pair.accepted.getLocalPort());
    EXPECT_EQ(pair.port, boundPort(pair.accepted.getFd()));
}

TEST(ZnSocketImplTest, ConnectAndAcceptSwitchTcpNoDelayOn)
{
    TcpPair pair;
    EXPECT_EQ(1, intOption(pair.client.getFd(), IPPROTO_TCP, TCP_NODELAY));
    EXPECT_EQ(1, intOption(pair.accepted.getFd(), IPPROTO_TCP, TCP_NODELAY));
    EXPECT_EQ(0, intOption(pair.server.getFd(), IPPROTO_TCP, TCP_NODELAY));
}

TEST(ZnSocketImplTest, SetTcpNoDelaySwitchesOption)
{
    TcpPair pair;
    pair.client.setTcpNoDelay(false);
    EXPECT_EQ(0, intOption(pair.client.getFd(), IPPROTO_TCP, TCP_NODELAY));
    pair.client.setTcpNoDelay(true);
    EXPECT_EQ(1, intOption(pair.client.getFd(), IPPROTO_TCP, TCP_NODELAY));
}

TEST(ZnSocketImplTest, SetTcpNoDelayOnDatagramSocketThrows)
{
    ZnSocketImpl socket;
    socket.bind(0, loopback(), false);
    ZnHandle<ZnException> e = thrownBy([&] { socket.setTcpNoDelay(true); });
    ASSERT_FALSE(e.isNil());
    EXPECT_EQ("ZnSocketImpl::setsockopt(...)", messageOf(e));
    EXPECT_EQ(10042, socketErrorOf(e));
}

TEST(ZnSocketImplTest, ConnectKeepsSocketMadeByBind)
{
    ZnSocketImpl server;
    server.bind(0, loopback(), true);
    server.listen(5);
    unsigned int port = boundPort(server.getFd());

    ZnSocketImpl client;
    client.bind(0, loopback(), true);
    uint64_t fd = client.getFd();
    EXPECT_EQ(0u, client.getLocalPort());
    client.connect(loopback(), port, true);
    EXPECT_EQ(fd, client.getFd());
    EXPECT_NE(0u, client.getLocalPort()) << "read back by getsockname";
    EXPECT_EQ(boundPort(fd), client.getLocalPort());
}

TEST(ZnSocketImplTest, ConnectToClosedPortThrowsConnectionRefused)
{
    unsigned int port = freePort(SOCK_STREAM);
    ZnSocketImpl client;
    ZnHandle<ZnException> e = thrownBy([&] { client.connect(loopback(), port, true); });
    ASSERT_FALSE(e.isNil());
    std::string expected =
        "ZnSocketImpl::connect : failed to connect socket : errno=" + std::to_string(ECONNREFUSED) +
        " errmsg=" + std::strerror(ECONNREFUSED);
    EXPECT_EQ(expected, messageOf(e));
    EXPECT_EQ(10061, socketErrorOf(e));
}

TEST(ZnSocketImplTest, ConnectOfDatagramSocketSucceedsWithoutTcpNoDelay)
{
    ZnSocketImpl receiver;
    receiver.bind(0, loopback(), false);
    unsigned int port = boundPort(receiver.getFd());

    ZnSocketImpl socket;
    ZnHandle<ZnException> e = thrownBy([&] { socket.connect(loopback(), port, false); });
    EXPECT_TRUE(e.isNil());
    ASSERT_NE(kNoDescriptor, socket.getFd());
    EXPECT_EQ(SOCK_DGRAM, intOption(socket.getFd(), SOL_SOCKET, SO_TYPE));
    EXPECT_NE(0u, socket.getLocalPort()) << "the local end is read back after the connect";
    EXPECT_EQ(port, socket.getRemotePort());
    EXPECT_TRUE(socket.getRemoteAddress() == loopback());
    EXPECT_EQ(5u, socket.send("hello", 5));
}

TEST(ZnSocketImplTest, AcceptOnServerWithoutDescriptorThrows)
{
    ZnSocketImpl server;
    ZnSocketImpl accepted;
    ZnHandle<ZnException> e = thrownBy([&] { accepted.accept(server); });
    ASSERT_FALSE(e.isNil());
    EXPECT_EQ("failed to accept new socket", messageOf(e));
    EXPECT_EQ(10009, socketErrorOf(e));
    EXPECT_EQ(kNoDescriptor, accepted.getFd());
}

TEST(ZnSocketImplTest, CloseOfServerReleasesBlockedAccept)
{
    ZnErrorStream::sGetDefault();
    ZnSocketImpl server;
    server.bind(0, loopback(), true);
    server.listen(5);

    std::atomic<long> tid{0};
    std::promise<std::string> outcome;
    std::future<std::string> result = outcome.get_future();
    std::thread acceptor(
        [&]
        {
            tid = currentThreadId();
            ZnSocketImpl accepted;
            ZnHandle<ZnException> e = thrownBy([&] { accepted.accept(server); });
            outcome.set_value(e.isNil() ? std::string("accepted") : messageOf(e));
        });
    EXPECT_TRUE(waitUntilInSystemCall(tid, {SYS_accept, SYS_accept4}));
    server.close();
    EXPECT_EQ(std::future_status::ready, result.wait_for(kBound));
    acceptor.join();
    EXPECT_EQ("failed to accept new socket", result.get());
}

// ---------------------------------------------------------------------------------------------
// receive and send

TEST(ZnSocketImplTest, ReceiveAndSendWithoutDescriptorMakeNoSystemCall)
{
    ZnSocketImpl socket;
    char buffer[4] = {};
    errno = 0;
    unsigned int received = socket.receive(buffer, sizeof(buffer));
    unsigned int sent = socket.send("abcd", 4);
    int error = errno;
    EXPECT_EQ(kFailure, received);
    EXPECT_EQ(kFailure, sent);
    EXPECT_EQ(0, error) << "a system call on no descriptor would have set EBADF";
}

TEST(ZnSocketImplTest, ReceiveAndSendAfterCloseFailWithoutSystemCall)
{
    TcpPair pair;
    pair.client.close();
    char buffer[4] = {};
    errno = 0;
    unsigned int received = pair.client.receive(buffer, sizeof(buffer));
    unsigned int sent = pair.client.send("abcd", 4);
    int error = errno;
    EXPECT_EQ(kFailure, received);
    EXPECT_EQ(kFailure, sent);
    EXPECT_EQ(0, error);
}

TEST(ZnSocketImplTest, ReceiveOfZeroReturnsZeroAndLogsNothing)
{
    TcpPair pair;
    pair.client.close();
    ErrorStreamCapture capture(6);
    char buffer[16] = {};
    EXPECT_EQ(0u, pair.accepted.receive(buffer, sizeof(buffer)));
    EXPECT_EQ("", capture.text()) << "no dump of an empty message";
    EXPECT_NE(kNoDescriptor, pair.accepted.getFd()) << "the socket stays open";
    EXPECT_EQ(0u, pair.accepted.receive(buffer, sizeof(buffer)));
}

TEST(ZnSocketImplTest, ReceiveFailureClosesSocket)
{
    ZnSocketImpl listener;
    listener.bind(0, loopback(), true);
    listener.listen(5);
    int fd = static_cast<int>(listener.getFd());
    char buffer[4] = {};
    EXPECT_EQ(kFailure, listener.receive(buffer, sizeof(buffer)));
    EXPECT_EQ(kNoDescriptor, listener.getFd());
    EXPECT_FALSE(descriptorIsOpen(fd));
}

TEST(ZnSocketImplTest, SendFailureClosesSocket)
{
    ZnSocketImpl listener;
    listener.bind(0, loopback(), true);
    listener.listen(5);
    EXPECT_EQ(kFailure, listener.send("abcd", 4));
    EXPECT_EQ(kNoDescriptor, listener.getFd());
}

TEST(ZnSocketImplTest, StreamDumpBannersAtLevelSix)
{
    TcpPair pair;
    unsigned int clientPort = pair.client.getLocalPort();
    const char message[] = {'h', 'e', 'l', '\0', 'o'};
    std::string payload(message, sizeof(message));
    std::string closing = "================================================\n\n";

    ErrorStreamCapture capture(6);
    ASSERT_EQ(5u, pair.client.send(message, sizeof(message)));
    std::string sent =
        "\n================TCP Sent 5 bytes Host: 127.0.0.1:" + std::to_string(pair.port) +
        "================\n\n" + payload + closing;
    EXPECT_EQ(sent, capture.text());
    int flushesAfterSend = capture.flushes();
    EXPECT_GE(flushesAfterSend, 1);

    char buffer[16] = {};
    ASSERT_EQ(5u, pair.accepted.receive(buffer, sizeof(buffer)));
    std::string received =
        "\n================TCP Received 5 bytes Host: 127.0.0.1:" + std::to_string(clientPort) +
        "================\n\n" + payload + closing;
    EXPECT_EQ(sent + received, capture.text());
    EXPECT_GT(capture.flushes(), flushesAfterSend);
}

TEST(ZnSocketImplTest, StreamDumpSilentAtLevelFive)
{
    TcpPair pair;
    ErrorStreamCapture capture(5);
    ASSERT_EQ(5u, pair.client.send("hello", 5));
    char buffer[16] = {};
    ASSERT_EQ(5u, pair.accepted.receive(buffer, sizeof(buffer)));
    EXPECT_EQ("", capture.text());
}

TEST(ZnSocketImplTest, TcpLogWithoutDescriptorOrLengthWritesNothing)
{
    TcpPair pair;
    ErrorStreamCapture capture(6);
    pair.client.TCPlog("TLS", "Sent", "abc", 0);
    EXPECT_EQ("", capture.text());
    ZnSocketImpl closed;
    closed.TCPlog("TLS", "Sent", "abc", 3);
    EXPECT_EQ("", capture.text());
    pair.client.TCPlog("TLS", "Sent", "abc", 3);
    EXPECT_EQ("\n================TLS Sent 3 bytes Host: 127.0.0.1:" + std::to_string(pair.port) +
                  "================\n\nabc================================================\n\n",
              capture.text());
}

// ---------------------------------------------------------------------------------------------
// Datagrams

TEST(ZnSocketImplTest, ReceiveFromStoresSenderAddressAndPort)
{
    ZnSocketImpl receiver;
    receiver.bind(0, loopback(), false);
    ZnSocketImpl sender;
    sender.bind(0, loopback(), false);

    ASSERT_EQ(5u, sender.sendTo("hello", 5, loopback(), boundPort(receiver.getFd())));
    char buffer[32] = {};
    ZnInetAddress from;
    unsigned int port = 0;
    ASSERT_EQ(5u, receiver.receiveFrom(buffer, sizeof(buffer), &from, &port));
    EXPECT_EQ(0, std::memcmp("hello", buffer, 5));
    EXPECT_TRUE(from == loopback());
    EXPECT_EQ(boundPort(sender.getFd()), port);
}

TEST(ZnSocketImplTest, ReceiveFromDatagramLongerThanBufferFails)
{
    ZnSocketImpl receiver;
    receiver.bind(0, loopback(), false);
    unsigned int receiverPort = boundPort(receiver.getFd());
    ZnSocketImpl sender;
    sender.bind(0, loopback(), false);

    std::string longer(200, 'x');
    ASSERT_EQ(200u, sender.sendTo(longer.data(), 200, loopback(), receiverPort));
    ASSERT_EQ(2u, sender.sendTo("ok", 2, loopback(), receiverPort));

    char buffer[100] = {};
    ZnInetAddress from;
    from.initFromAddress("10.1.2.3");
    unsigned int port = 4242;
    errno = 0;
    unsigned int count = receiver.receiveFrom(buffer, sizeof(buffer), &from, &port);
    int error = errno;
    int socketError = ZnSocketError::sFromErrno(error);
    EXPECT_EQ(kFailure, count);
    EXPECT_EQ(EMSGSIZE, error);
    EXPECT_EQ(10040, socketError);
    EXPECT_STREQ("10.1.2.3", from.getHostAddress()) << "left untouched";
    EXPECT_EQ(4242u, port) << "left untouched";
    EXPECT_NE(kNoDescriptor, receiver.getFd()) << "no close on failure";

    // The long datagram is gone; the next one is read whole.
    EXPECT_EQ(2u, receiver.receiveFrom(buffer, sizeof(buffer), &from, &port));
    EXPECT_EQ(0, std::memcmp("ok", buffer, 2));
    EXPECT_TRUE(from == loopback());
}

TEST(ZnSocketImplTest, DatagramDumpsAtLevelSix)
{
    ZnSocketImpl receiver;
    receiver.bind(0, loopback(), false);
    unsigned int receiverPort = boundPort(receiver.getFd());
    ZnSocketImpl sender;
    sender.bind(0, loopback(), false);
    unsigned int senderPort = boundPort(sender.getFd());

    ErrorStreamCapture capture(6);
    ASSERT_EQ(3u, sender.sendTo("a\0c", 3, loopback(), receiverPort));
    std::string sending =
        "UDP Sending 3 bytes to 127.0.0.1:" + std::to_string(receiverPort) + std::string("a\0c", 3);
    EXPECT_EQ(sending, capture.text());

    char buffer[16] = {};
    ASSERT_EQ(3u, receiver.receiveFrom(buffer, sizeof(buffer), nullptr, nullptr));
    std::string received = "UDP Received 3 bytes from 127.0.0.1:" + std::to_string(senderPort) +
                           std::string("a\0c", 3);
    EXPECT_EQ(sending + received, capture.text());
}

TEST(ZnSocketImplTest, DatagramDumpsSilentAtLevelFive)
{
    ZnSocketImpl receiver;
    receiver.bind(0, loopback(), false);
    ZnSocketImpl sender;
    sender.bind(0, loopback(), false);

    ErrorStreamCapture capture(5);
    ASSERT_EQ(3u, sender.sendTo("abc", 3, loopback(), boundPort(receiver.getFd())));
    char buffer[16] = {};
    ASSERT_EQ(3u, receiver.receiveFrom(buffer, sizeof(buffer), nullptr, nullptr));
    EXPECT_EQ("", capture.text());
}

TEST(ZnSocketImplTest, SendToPortAboveMaximumIsRefused)
{
    ZnTest::LogCapture log("corvane.zn.ZnSocketImpl", Tavoris::TRACE_LOG_LEVEL);
    ErrorStreamCapture capture(6);
    ZnSocketImpl sender;
    sender.bind(0, loopback(), false);
    std::string bound = capture.text();

    EXPECT_EQ(kFailure, sender.sendTo("abc", 3, loopback(), 65536));
    EXPECT_EQ(bound, capture.text()) << "no \"UDP Sending\": nothing went to the send path";
    std::vector<ZnTest::CapturedEvent> events = log.find("Can't send msg to port");
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("Can't send msg to port 65536 because the maximum valid value for a port is 65535",
              events[0].message);
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, events[0].level);
    EXPECT_EQ("corvane.zn.ZnSocketImpl", events[0].logger);
    EXPECT_NE(kNoDescriptor, sender.getFd());
}

TEST(ZnSocketImplTest, SendToPortMaximumSends)
{
    ZnTest::LogCapture log("corvane.zn.ZnSocketImpl", Tavoris::TRACE_LOG_LEVEL);
    // A receiver on 127.0.0.1:65535 when that port is free; the datagram is then read there.
    int receiver = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(65535);
    bool haveReceiver =
        ::bind(receiver, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;

    ZnSocketImpl sender;
    sender.bind(0, loopback(), false);
    EXPECT_EQ(3u, sender.sendTo("max", 3, loopback(), 65535)) << "the datagram left";
    EXPECT_TRUE(log.find("Can't send msg").empty());
    if (haveReceiver)
    {
        char buffer[8] = {};
        EXPECT_EQ(3, ::recv(receiver, buffer, sizeof(buffer), 0));
        EXPECT_EQ(0, std::memcmp("max", buffer, 3));
    }
    ::close(receiver);
}

TEST(ZnSocketImplTest, SendToFailureLeavesSocketOpen)
{
    ZnSocketImpl sender;
    sender.bind(0, loopback(), false);
    std::string tooLong(70000, 'x');
    unsigned int count =
        sender.sendTo(tooLong.data(), static_cast<unsigned int>(tooLong.size()), loopback(), 9);
    int socketError = ZnSocketError::sGetLastError();
    EXPECT_EQ(kFailure, count);
    EXPECT_EQ(10040, socketError);
    EXPECT_NE(kNoDescriptor, sender.getFd());
}

// ---------------------------------------------------------------------------------------------
// available

TEST(ZnSocketImplTest, AvailableWithHundredBytesWaitingReturnsFour)
{
    TcpPair pair;
    std::string data(100, 'a');
    ASSERT_EQ(100u, pair.client.send(data.data(), 100));
    EXPECT_EQ(4u, pair.accepted.available());
    // Peeking took nothing away.
    char buffer[128] = {};
    EXPECT_EQ(100u, pair.accepted.receive(buffer, sizeof(buffer)));
}

TEST(ZnSocketImplTest, AvailableOnDatagramWithHundredBytesReturnsFour)
{
    ZnSocketImpl receiver;
    receiver.bind(0, loopback(), false);
    ZnSocketImpl sender;
    sender.bind(0, loopback(), false);
    std::string data(100, 'b');
    ASSERT_EQ(100u, sender.sendTo(data.data(), 100, loopback(), boundPort(receiver.getFd())));
    EXPECT_EQ(4u, receiver.available());
    char buffer[128] = {};
    EXPECT_EQ(100u, receiver.receiveFrom(buffer, sizeof(buffer), nullptr, nullptr));
}

TEST(ZnSocketImplTest, AvailableWithTwoBytesReturnsTwo)
{
    TcpPair pair;
    ASSERT_EQ(2u, pair.client.send("ab", 2));
    EXPECT_EQ(2u, pair.accepted.available());
}

TEST(ZnSocketImplTest, AvailableFailureReturnsZeroAndReports)
{
    ErrorStreamCapture capture(6);
    ZnSocketImpl socket;
    EXPECT_EQ(0u, socket.available());
    EXPECT_EQ("\nZnSocketImpl::available(): 10009\n", capture.text());
}

TEST(ZnSocketImplTest, AvailableFailureNotReportedAtLevelFive)
{
    ErrorStreamCapture capture(5);
    ZnSocketImpl socket;
    EXPECT_EQ(0u, socket.available());
    EXPECT_EQ("", capture.text());
}

// ---------------------------------------------------------------------------------------------
// close

TEST(ZnSocketImplTest, CloseWritesMessageAboveLevelFive)
{
    ErrorStreamCapture capture(6);
    ZnSocketImpl socket;
    socket.bind(0, loopback(), false);
    std::string bound = capture.text();
    socket.close();
    EXPECT_EQ(bound + "Closing a socket\n", capture.text());
}

TEST(ZnSocketImplTest, CloseNamesLocalPortWhenKnown)
{
    unsigned int port = freePort(SOCK_DGRAM);
    ErrorStreamCapture capture(6);
    ZnSocketImpl socket;
    socket.bind(port, loopback(), false);
    std::string bound = capture.text();
    int flushes = capture.flushes();
    socket.close();
    EXPECT_EQ(bound + "Closing a socket\nClosing socket with local port " + std::to_string(port) +
                  "\n",
              capture.text());
    EXPECT_GT(capture.flushes(), flushes);
}

TEST(ZnSocketImplTest, CloseTwiceIsHarmless)
{
    ErrorStreamCapture capture(6);
    ZnSocketImpl socket;
    socket.bind(0, loopback(), false);
    int fd = static_cast<int>(socket.getFd());
    socket.close();
    std::string once = capture.text();
    EXPECT_EQ(kNoDescriptor, socket.getFd());
    EXPECT_FALSE(descriptorIsOpen(fd));
    socket.close();
    EXPECT_EQ(kNoDescriptor, socket.getFd());
    EXPECT_EQ(once, capture.text()) << "nothing written for the second close";
}

TEST(ZnSocketImplTest, BindAfterCloseOpensNewDescriptor)
{
    ZnSocketImpl socket;
    socket.bind(0, loopback(), false);
    socket.close();
    socket.bind(0, loopback(), true);
    EXPECT_NE(kNoDescriptor, socket.getFd());
    EXPECT_EQ(SOCK_STREAM, intOption(socket.getFd(), SOL_SOCKET, SO_TYPE));
}

// ---------------------------------------------------------------------------------------------
// Remote endpoint

TEST(ZnSocketImplTest, GetRemoteInfoOfConnectedSocket)
{
    TcpPair pair;
    ZnInetAddress address;
    unsigned int port = 0;
    pair.client.getRemoteInfo(&address, &port);
    EXPECT_TRUE(address == loopback());
    EXPECT_EQ(pair.port, port);
    EXPECT_NE(kNoDescriptor, pair.client.getFd());
}

TEST(ZnSocketImplTest, GetRemoteInfoFailureForgetsDescriptor)
{
    ZnSocketImpl socket;
    socket.bind(0, loopback(), false);
    int fd = static_cast<int>(socket.getFd());
    ZnInetAddress address = loopback();
    unsigned int port = 99;
    socket.getRemoteInfo(&address, &port);
    EXPECT_TRUE(address == ZnInetAddress());
    EXPECT_EQ(0u, port);
    EXPECT_EQ(kNoDescriptor, socket.getFd());
    EXPECT_TRUE(descriptorIsOpen(fd)) << "forgotten, not closed";
    ::close(fd);
}

TEST(ZnSocketImplTest, GetRemotePortOfUnconnectedSocketIsZeroAndForgetsDescriptor)
{
    ZnSocketImpl socket;
    socket.bind(0, loopback(), false);
    int fd = static_cast<int>(socket.getFd());
    EXPECT_EQ(0u, socket.getRemotePort());
    EXPECT_TRUE(socket.getRemoteAddress() == ZnInetAddress());
    EXPECT_EQ(kNoDescriptor, socket.getFd());
    EXPECT_TRUE(descriptorIsOpen(fd));
    ::close(fd);
}

// ---------------------------------------------------------------------------------------------
// unblock

TEST(ZnSocketImplTest, UnblockReleasesThreadBlockedInReceiveFrom)
{
    ZnErrorStream::sGetDefault();
    ZnSocketImpl socket;
    socket.bind(0, loopback(), false);

    std::atomic<long> tid{0};
    std::promise<unsigned int> outcome;
    std::future<unsigned int> result = outcome.get_future();
    std::thread receiver(
        [&]
        {
            tid = currentThreadId();
            char buffer[64];
            outcome.set_value(socket.receiveFrom(buffer, sizeof(buffer), nullptr, nullptr));
        });
    EXPECT_TRUE(waitUntilInSystemCall(tid, {SYS_recvfrom}));
    EXPECT_TRUE(socket.unblock());
    EXPECT_EQ(std::future_status::ready, result.wait_for(kBound));
    receiver.join();
    EXPECT_EQ(kFailure, result.get());
    EXPECT_EQ(kNoDescriptor, socket.getFd());
}

TEST(ZnSocketImplTest, UnblockReleasesThreadBlockedInReceive)
{
    ZnErrorStream::sGetDefault();
    TcpPair pair;

    std::atomic<long> tid{0};
    std::promise<unsigned int> outcome;
    std::future<unsigned int> result = outcome.get_future();
    std::thread receiver(
        [&]
        {
            tid = currentThreadId();
            char buffer[64];
            outcome.set_value(pair.accepted.receive(buffer, sizeof(buffer)));
        });
    EXPECT_TRUE(waitUntilInSystemCall(tid, {SYS_recvfrom}));
    EXPECT_TRUE(pair.accepted.unblock());
    EXPECT_EQ(std::future_status::ready, result.wait_for(kBound));
    receiver.join();
    EXPECT_EQ(kFailure, result.get()) << "released by a close, not an end of stream";
    EXPECT_EQ(kNoDescriptor, pair.accepted.getFd());
}

TEST(ZnSocketImplTest, UnblockNotifiesObserverAndClosesSocket)
{
    ZnHandle<ZnSocketImpl> socket(new ZnSocketImpl);
    socket->bind(0, loopback(), false);
    ZnHandle<CountingObserver> observer(new CountingObserver);
    socket->attachObserver(ZnHandle<ZnObserver>(observer));

    EXPECT_TRUE(socket->unblock()) << "no source: the observable's answer is true";
    EXPECT_EQ(1, observer->count());
    EXPECT_EQ(1, observer->nilCount());
    EXPECT_EQ(kNoDescriptor, socket->getFd());

    socket->detachObserver(ZnHandle<ZnObserver>(observer));
}

TEST(ZnSocketImplTest, SendLocalUnblockMessageReleasesReceiveFrom)
{
    ZnErrorStream::sGetDefault();
    unsigned int port = freePort(SOCK_DGRAM);
    ZnSocketImpl socket;
    socket.bind(port, loopback(), false);

    std::atomic<long> tid{0};
    struct Received
    {
        unsigned int count;
        std::string text;
        ZnInetAddress from;
        unsigned int port;
    };
    std::promise<Received> outcome;
    std::future<Received> result = outcome.get_future();
    std::thread receiver(
        [&]
        {
            tid = currentThreadId();
            char buffer[64] = {};
            Received received{0, std::string(), ZnInetAddress(), 0};
            received.count =
                socket.receiveFrom(buffer, sizeof(buffer), &received.from, &received.port);
            if (received.count != kFailure)
            {
                received.text.assign(buffer, received.count);
            }
            outcome.set_value(received);
        });
    EXPECT_TRUE(waitUntilInSystemCall(tid, {SYS_recvfrom}));
    socket.sendLocalUnblockMessage();
    EXPECT_EQ(std::future_status::ready, result.wait_for(kBound));
    receiver.join();
    Received received = result.get();
    EXPECT_EQ(7u, received.count);
    EXPECT_EQ("UNBLOCK", received.text);
    EXPECT_TRUE(received.from == loopback());
    EXPECT_EQ(port, received.port);
    EXPECT_NE(kNoDescriptor, socket.getFd());
}

TEST(ZnSocketImplTest, SendLocalUnblockMessageWithoutDescriptorDoesNothing)
{
    ZnSocketImpl socket(5060, loopback());
    errno = 0;
    socket.sendLocalUnblockMessage();
    int error = errno;
    EXPECT_EQ(0, error);
    EXPECT_EQ(kNoDescriptor, socket.getFd());
}

// ---------------------------------------------------------------------------------------------
// Buffer sizes

TEST(ZnSocketImplTest, BufferSizesApplyToNewSockets)
{
    BufferSizeRestorer restorer;
    // Linux doubles the size asked for, up to twice its maximum.
    long receiveMax = readProcNumber("/proc/sys/net/core/rmem_max");
    long sendMax = readProcNumber("/proc/sys/net/core/wmem_max");
    auto expected = [](long asked, long maximum)
    { return static_cast<int>(2 * (maximum > 0 ? std::min(asked, maximum) : asked)); };

    ZnSocketImpl before;
    before.bind(0, loopback(), false);
    EXPECT_EQ(expected(245760, receiveMax), intOption(before.getFd(), SOL_SOCKET, SO_RCVBUF));
    EXPECT_EQ(expected(245760, sendMax), intOption(before.getFd(), SOL_SOCKET, SO_SNDBUF));

    ZnSocketImpl::sSetReceiveBufferSize(65536);
    ZnSocketImpl::sSetSendBufferSize(32768);
    EXPECT_EQ(65536, ZnSocketImpl::sGetReceiveBufferSize());
    EXPECT_EQ(32768, ZnSocketImpl::sGetSendBufferSize());

    ZnSocketImpl after;
    after.bind(0, loopback(), false);
    EXPECT_EQ(expected(65536, receiveMax), intOption(after.getFd(), SOL_SOCKET, SO_RCVBUF));
    EXPECT_EQ(expected(32768, sendMax), intOption(after.getFd(), SOL_SOCKET, SO_SNDBUF));
    EXPECT_EQ(expected(245760, receiveMax), intOption(before.getFd(), SOL_SOCKET, SO_RCVBUF))
        << "an existing socket keeps its size";

    TcpPair pair;
    EXPECT_EQ(expected(65536, receiveMax), intOption(pair.client.getFd(), SOL_SOCKET, SO_RCVBUF))
        << "connect sets the sizes too";
    EXPECT_EQ(expected(32768, sendMax), intOption(pair.client.getFd(), SOL_SOCKET, SO_SNDBUF));
    EXPECT_EQ(expected(32768, sendMax), intOption(pair.accepted.getFd(), SOL_SOCKET, SO_SNDBUF))
        << "and accept";
}

// ---------------------------------------------------------------------------------------------
// Transports

TEST(ZnSocketImplTest, TransportValues)
{
    EXPECT_EQ(0, ZnSocketImpl::ZN_UDP);
    EXPECT_EQ(1, ZnSocketImpl::ZN_TCP);
    EXPECT_EQ(2, ZnSocketImpl::ZN_TLS);
}

TEST(ZnSocketImplTest, GetTransportStringGivesNames)
{
    EXPECT_STREQ("UDP", ZnSocketImpl::getTransportString(ZnSocketImpl::ZN_UDP, false));
    EXPECT_STREQ("TCP", ZnSocketImpl::getTransportString(ZnSocketImpl::ZN_TCP, false));
    EXPECT_STREQ("TLS", ZnSocketImpl::getTransportString(ZnSocketImpl::ZN_TLS, false));
    EXPECT_STREQ("udp", ZnSocketImpl::getTransportString(ZnSocketImpl::ZN_UDP, true));
    EXPECT_STREQ("tcp", ZnSocketImpl::getTransportString(ZnSocketImpl::ZN_TCP, true));
    EXPECT_STREQ("tls", ZnSocketImpl::getTransportString(ZnSocketImpl::ZN_TLS, true));
}

TEST(ZnSocketImplTest, GetTransportStringOfBadValueAssertsAndGivesQuestionMarks)
{
    ZnTest::LogCapture log;
    EXPECT_STREQ("???",
                 ZnSocketImpl::getTransportString(static_cast<ZnSocketImpl::Transport>(3), true));
    std::vector<ZnTest::CapturedEvent> events =
        log.find("in_transport == ZN_UDP || in_transport == ZN_TCP || in_transport == ZN_TLS");
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("ZnSocketImpl", events[0].file);
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, events[0].level);
    EXPECT_STREQ("???",
                 ZnSocketImpl::getTransportString(static_cast<ZnSocketImpl::Transport>(-1), false));
    EXPECT_EQ(2u, log.find("in_transport == ZN_UDP").size());
}

TEST(ZnSocketImplTest, ParseTransportIgnoresCase)
{
    Tavoris::Fallible<ZnSocketImpl::Transport> tcp = ZnSocketImpl::parseTransport("Tcp");
    ASSERT_TRUE(tcp.isValid());
    EXPECT_EQ(ZnSocketImpl::ZN_TCP, tcp.value());
    EXPECT_TRUE(ZnSocketImpl::parseTransport("udp") == ZnSocketImpl::ZN_UDP);
    EXPECT_TRUE(ZnSocketImpl::parseTransport("UDP") == ZnSocketImpl::ZN_UDP);
    EXPECT_TRUE(ZnSocketImpl::parseTransport("tLs") == ZnSocketImpl::ZN_TLS);
    EXPECT_TRUE(ZnSocketImpl::parseTransport("TCP") == ZnSocketImpl::ZN_TCP);
}

TEST(ZnSocketImplTest, ParseTransportOfOtherTextIsUnset)
{
    for (const char* text : {"", "sctp", "tcpx", "tc", " udp", "udp ", "tl5", "UDP\t", "ws"})
    {
        EXPECT_FALSE(ZnSocketImpl::parseTransport(text).isValid()) << "\"" << text << "\"";
    }
    EXPECT_FALSE(ZnSocketImpl::parseTransport(nullptr).isValid());
}

TEST(ZnSocketImplTest, ConvertTransportToSipNumbers)
{
    EXPECT_TRUE(ZnSocketImpl::convertTransport(ZnSocketImpl::ZN_UDP) == Tavoris::Sip::UDP);
    EXPECT_TRUE(ZnSocketImpl::convertTransport(ZnSocketImpl::ZN_TCP) == Tavoris::Sip::TCP);
    EXPECT_TRUE(ZnSocketImpl::convertTransport(ZnSocketImpl::ZN_TLS) == Tavoris::Sip::TLS);
    EXPECT_EQ(0, ZnSocketImpl::convertTransport(ZnSocketImpl::ZN_UDP).value());
    EXPECT_EQ(1, ZnSocketImpl::convertTransport(ZnSocketImpl::ZN_TCP).value());
    EXPECT_EQ(2, ZnSocketImpl::convertTransport(ZnSocketImpl::ZN_TLS).value());
    EXPECT_FALSE(ZnSocketImpl::convertTransport(static_cast<ZnSocketImpl::Transport>(3)).isValid());
    EXPECT_FALSE(
        ZnSocketImpl::convertTransport(static_cast<ZnSocketImpl::Transport>(-1)).isValid());
}

} // namespace
