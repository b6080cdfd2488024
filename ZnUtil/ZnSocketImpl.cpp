#include "ZnUtil/ZnSocketImpl.h"

#include "ZnUtil/ZnErrorStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnMutex.h"
#include "ZnUtil/ZnOutputStream.h"
#include "ZnUtil/ZnSocketError.h"

#include "tavoris/Assertion.h"
#include "tavoris/DefaultStaticMemAllocator.h"
#include "tavoris/LogSite.h"
#include "tavoris/NoSizeMemAllocator.h"
#include "tavoris/TraceScope.h"

#include <ace/OS_NS_string.h>

#include <cerrno>
#include <sstream>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#if defined(__SANITIZE_THREAD__)
#define ZNUTIL_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ZNUTIL_THREAD_SANITIZER 1
#endif
#endif

#ifdef ZNUTIL_THREAD_SANITIZER
extern "C" void AnnotateIgnoreWritesBegin(const char* file, int line);
extern "C" void AnnotateIgnoreWritesEnd(const char* file, int line);
#endif

namespace
{

TAVORIS_DEFINE_STATIC_LOGGER(socketLogger, "corvane.zn.ZnSocketImpl")

const unsigned int kFailure = 0xFFFFFFFFu;
const unsigned int kMaximumPort = 65535;

/// The int descriptor the system calls take.
int asSystemFd(uint64_t fd)
{
    return static_cast<int>(fd);
}

sockaddr_in makeAddress(ZnInetAddress address, unsigned int port)
{
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_addr.s_addr = static_cast<in_addr_t>(address.getAddress());
    result.sin_port = htons(static_cast<uint16_t>(port));
    return result;
}

/// The address held by \p address, as a ZnInetAddress. "255.255.255.255" converts to the all-ones
/// value as well, although initFromAddress() calls that text a failure.
ZnInetAddress toInetAddress(const sockaddr_in& address)
{
    char text[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &address.sin_addr, text, sizeof(text));
    ZnInetAddress result;
    result.initFromAddress(text);
    return result;
}

/// The dotted text of \p address, without a call that could throw.
std::string dottedText(const sockaddr_in& address)
{
    char text[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &address.sin_addr, text, sizeof(text));
    return text;
}

void setOption(int fd, int level, int name, int value)
{
    if (::setsockopt(fd, level, name, &value, sizeof(value)) != 0)
    {
        ZnSocketError::sThrow("ZnSocketImpl::setsockopt(...)", 0);
    }
}

/// The release of a descriptor. shutdown() first: close() alone does not wake a thread blocked
/// in recv(), recvfrom() or accept() on it.
void closeSocket(int fd)
{
    ::shutdown(fd, SHUT_RDWR);
#ifdef ZNUTIL_THREAD_SANITIZER
    // A close under a call blocked on the descriptor in another thread is how that call is
    // released; the thread sanitizer would take it for a race on the descriptor.
    AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
#endif
    ::close(fd);
#ifdef ZNUTIL_THREAD_SANITIZER
    AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
#endif
}

/// ASCII-only comparison without regard to case.
bool equalsIgnoreCase(const char* a, const char* b)
{
    for (;; ++a, ++b)
    {
        unsigned char ca = static_cast<unsigned char>(*a);
        unsigned char cb = static_cast<unsigned char>(*b);
        if (ca >= 'A' && ca <= 'Z')
        {
            ca = static_cast<unsigned char>(ca - 'A' + 'a');
        }
        if (cb >= 'A' && cb <= 'Z')
        {
            cb = static_cast<unsigned char>(cb - 'A' + 'a');
        }
        if (ca != cb)
        {
            return false;
        }
        if (ca == 0)
        {
            return true;
        }
    }
}

/// Holds the lock of an error stream for the life of a scope.
class ErrorStreamLock
{
public:
    explicit ErrorStreamLock(ZnErrorStream& stream) : m_stream(stream) { m_stream.synchronize(); }
    ~ErrorStreamLock() { m_stream.release(); }

    ErrorStreamLock(const ErrorStreamLock&) = delete;
    ErrorStreamLock& operator=(const ErrorStreamLock&) = delete;

private:
    ZnErrorStream& m_stream;
};

} // namespace

const char* const ZnSocketImpl::sDebugToken = "ZnSocket";

int32_t ZnSocketImpl::sm_SO_RCVBUF = 0x3C000;
int32_t ZnSocketImpl::sm_SO_SNDBUF = 0x3C000;

ZnSocketImpl::ZnSocketImpl()
    : m_pMutex(ZnMutex::sAllocate()), m_fd(kNoDescriptor), m_localPort(0), m_localAddress(),
      m_remotePort(0), m_remoteAddress()
{
}

ZnSocketImpl::ZnSocketImpl(unsigned int localPort, ZnInetAddress localAddress)
    : m_pMutex(ZnMutex::sAllocate()), m_fd(kNoDescriptor), m_localPort(localPort),
      m_localAddress(localAddress), m_remotePort(0), m_remoteAddress()
{
}

ZnSocketImpl::~ZnSocketImpl()
{
    if (m_fd.load() != kNoDescriptor)
    {
        ZnSocketImpl::close();
    }
    ZnMutex::sRecycle(m_pMutex);
    m_pMutex = nullptr;
}

ZnInetAddress ZnSocketImpl::getLocalAddress() const
{
    return m_localAddress;
}

unsigned int ZnSocketImpl::getLocalPort() const
{
    return m_localPort;
}

ZnInetAddress ZnSocketImpl::getRemoteAddress()
{
    if (m_remotePort == 0)
    {
        getRemoteInfo(&m_remoteAddress, &m_remotePort);
    }
    return m_remoteAddress;
}

unsigned int ZnSocketImpl::getRemotePort()
{
    if (m_remotePort == 0)
    {
        getRemoteInfo(&m_remoteAddress, &m_remotePort);
    }
    return m_remotePort;
}

uint64_t ZnSocketImpl::getFd()
{
    return m_fd.load();
}

void ZnSocketImpl::close()
{
    // The descriptor is taken out before it is closed, so that a call that another thread had
    // blocked on it finds the socket closed when it returns.
    uint64_t fd = m_fd.exchange(kNoDescriptor);
    if (fd == kNoDescriptor)
    {
        return;
    }
    ZnErrorStream& errors = ZnErrorStream::sGetDefault();
    if (errors.getDebugLevel() > 5)
    {
        errors << "Closing a socket" << endl;
        if (m_localPort != 0)
        {
            errors << "Closing socket with local port " << m_localPort << endl;
        }
    }
    closeSocket(asSystemFd(fd));
}

unsigned int ZnSocketImpl::available()
{
    char peeked[4];
    ssize_t result = ::recv(asSystemFd(m_fd.load()), peeked, sizeof(peeked), MSG_PEEK);
    if (result < 0)
    {
        int error = ZnSocketError::sGetLastError();
        ZnErrorStream::sGetDefault().getDebugStream(5)
            << "\nZnSocketImpl::available(): " << error << "\n";
        return 0;
    }
    return static_cast<unsigned int>(result);
}

bool ZnSocketImpl::unblock()
{
    bool result = ZnObservable::unblock();
    static_cast<ZnSocket*>(this)->close();
    return result;
}

void ZnSocketImpl::accept(ZnSocketImpl& server)
{
    sockaddr_in peer{};
    socklen_t peerLength = sizeof(peer);
    int fd =
        ::accept(asSystemFd(server.m_fd.load()), reinterpret_cast<sockaddr*>(&peer), &peerLength);
    m_fd.store(fd < 0 ? kNoDescriptor : static_cast<uint64_t>(fd));
    if (fd < 0)
    {
        ZnSocketError::sThrow("failed to accept new socket", 0);
    }
    setBufferSizes();
    setOption(fd, IPPROTO_TCP, TCP_NODELAY, 1);
    m_localPort = server.getLocalPort();
    m_localAddress = server.getLocalAddress();
    m_remotePort = ntohs(peer.sin_port);
    m_remoteAddress = toInetAddress(peer);
}

void ZnSocketImpl::bind(unsigned int port, ZnInetAddress address, bool stream)
{
    if (m_fd.load() != kNoDescriptor)
    {
        ZnException::sThrow("socket already created");
    }
    int fd = ::socket(AF_INET, stream ? SOCK_STREAM : SOCK_DGRAM, 0);
    if (fd < 0)
    {
        ZnSocketError::sThrow("socket(AF_INET, aType, 0)", 0);
    }
    m_fd.store(static_cast<uint64_t>(fd));
    setBufferSizes();
    setOption(fd, SOL_SOCKET, SO_REUSEADDR, 1);

    sockaddr_in local = makeAddress(address, port);
    ZnErrorStream& errors = ZnErrorStream::sGetDefault();
    if (errors.getDebugLevel() > 5)
    {
        errors << "Binding socket to port " << port << endl;
    }
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) != 0)
    {
        ZnSocketError::sThrow("bind", 0);
    }
    // No getsockname(): a socket bound to port 0 keeps 0 here until a connect().
    m_localPort = ntohs(local.sin_port);
    m_localAddress = address;
}

void ZnSocketImpl::listen(unsigned int backlog)
{
    if (::listen(asSystemFd(m_fd.load()), static_cast<int>(backlog)) != 0)
    {
        ZnSocketError::sThrow("listen", 0);
    }
}

void ZnSocketImpl::connect(ZnInetAddress address, unsigned int port, bool stream)
{
    TAVORIS_TRACE_SCOPE(socketLogger(), "ZnSocketImpl::connect");
    if (m_fd.load() == kNoDescriptor)
    {
        int made = ::socket(AF_INET, stream ? SOCK_STREAM : SOCK_DGRAM, 0);
        if (made < 0)
        {
            ZnSocketError::sThrow("socket(AF_INET, SOCK_STREAM, 0)", 0);
        }
        m_fd.store(static_cast<uint64_t>(made));
    }
    int fd = asSystemFd(m_fd.load());
    setBufferSizes();

    sockaddr_in remote = makeAddress(address, port);
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&remote), sizeof(remote)) != 0)
    {
        int error = errno;
        std::ostringstream text;
        text << "ZnSocketImpl::connect"
             << " : failed to connect socket : errno=" << error
             << " errmsg=" << ACE_OS::strerror(error);
        ZnSocketError::sThrow(text.str().c_str(), ZnSocketError::sFromErrno(error));
    }
    // Set on every connected socket. A datagram socket has no such option, and the system's
    // refusal is let pass there, so that a connected datagram socket can be made at all.
    if (stream)
    {
        setOption(fd, IPPROTO_TCP, TCP_NODELAY, 1);
    }
    else
    {
        const int on = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    }
    m_remotePort = ntohs(remote.sin_port);
    m_remoteAddress = address;

    socklen_t localLength = sizeof(remote);
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&remote), &localLength) != 0)
    {
        ZnSocketError::sThrow("getsockname()", 0);
    }
    m_localPort = ntohs(remote.sin_port);
    m_localAddress = toInetAddress(remote);
}

unsigned int ZnSocketImpl::receive(void* buffer, unsigned int length)
{
    uint64_t fd = m_fd.load();
    if (fd == kNoDescriptor)
    {
        return kFailure;
    }
    ssize_t result = ::recv(asSystemFd(fd), buffer, length, 0);
    // A close from another thread makes the blocked recv() return 0 here; it is a failure.
    if (result == 0 && m_fd.load() == kNoDescriptor)
    {
        result = -1;
    }
    if (result < 0)
    {
        close();
        return kFailure;
    }
    TCPlog("TCP", "Received", buffer, static_cast<int>(result));
    return static_cast<unsigned int>(result);
}

unsigned int ZnSocketImpl::send(const void* buffer, unsigned int length)
{
    uint64_t fd = m_fd.load();
    if (fd == kNoDescriptor)
    {
        return kFailure;
    }
    // MSG_NOSIGNAL: a peer that reset the connection is a failed call, not a signal.
    ssize_t result = ::send(asSystemFd(fd), buffer, length, MSG_NOSIGNAL);
    if (result < 0)
    {
        close();
        return kFailure;
    }
    TCPlog("TCP", "Sent", buffer, static_cast<int>(result));
    return static_cast<unsigned int>(result);
}

unsigned int ZnSocketImpl::receiveFrom(void* buffer, unsigned int length, ZnInetAddress* from,
                                       unsigned int* port)
{
    sockaddr_in sender{};
    socklen_t senderLength = sizeof(sender);
    // MSG_TRUNC: the result is the datagram's whole length, so a datagram longer than the
    // buffer is seen and made a failure, as the original platform reports it.
    ssize_t result = ::recvfrom(asSystemFd(m_fd.load()), buffer, length, MSG_TRUNC,
                                reinterpret_cast<sockaddr*>(&sender), &senderLength);
    if (result > static_cast<ssize_t>(length))
    {
        errno = EMSGSIZE;
        result = -1;
    }
    // A close from another thread makes the blocked recvfrom() return 0 here; it is a failure.
    if (result == 0 && m_fd.load() == kNoDescriptor)
    {
        result = -1;
    }
    if (result < 0)
    {
        return kFailure;
    }
    unsigned int senderPort = ntohs(sender.sin_port);
    if (from != nullptr)
    {
        *from = toInetAddress(sender);
    }
    if (port != nullptr)
    {
        *port = senderPort;
    }
    ZnErrorStream& errors = ZnErrorStream::sGetDefault();
    if (errors.getDebugLevel() >= 6)
    {
        errors << "UDP Received " << static_cast<unsigned int>(result) << " bytes from "
               << dottedText(sender).c_str() << ":" << senderPort;
        errors.write(buffer, static_cast<unsigned int>(result), 0);
    }
    return static_cast<unsigned int>(result);
}

unsigned int ZnSocketImpl::sendTo(const void* buffer, unsigned int length, ZnInetAddress to,
                                  unsigned int port)
{
    if (port > kMaximumPort)
    {
        TAVORIS_LOG_ERROR(socketLogger(), "Can't send msg to port "
                                              << port
                                              << " because the maximum valid value for a port is "
                                              << kMaximumPort);
        return kFailure;
    }
    sockaddr_in remote = makeAddress(to, port);
    ZnErrorStream& errors = ZnErrorStream::sGetDefault();
    if (errors.getDebugLevel() > 5)
    {
        errors << "UDP Sending " << length << " bytes to " << dottedText(remote).c_str() << ":"
               << port;
        errors.write(buffer, length, 0);
    }
    ssize_t result = ::sendto(asSystemFd(m_fd.load()), buffer, length, MSG_NOSIGNAL,
                              reinterpret_cast<const sockaddr*>(&remote), sizeof(remote));
    return static_cast<unsigned int>(result);
}

void ZnSocketImpl::setTcpNoDelay(bool on)
{
    setOption(asSystemFd(m_fd.load()), IPPROTO_TCP, TCP_NODELAY, on ? 1 : 0);
}

void ZnSocketImpl::getRemoteInfo(ZnInetAddress* address, unsigned int* port)
{
    sockaddr_in peer{};
    socklen_t peerLength = sizeof(peer);
    if (::getpeername(asSystemFd(m_fd.load()), reinterpret_cast<sockaddr*>(&peer), &peerLength) ==
        0)
    {
        *address = toInetAddress(peer);
        *port = ntohs(peer.sin_port);
        return;
    }
    *address = ZnInetAddress();
    *port = 0;
    // The descriptor is forgotten, not closed.
    m_fd.store(kNoDescriptor);
}

void ZnSocketImpl::sendLocalUnblockMessage()
{
    if (m_fd.load() == kNoDescriptor)
    {
        return;
    }
    static const char kMessage[] = "UNBLOCK";
    sockaddr_in self = makeAddress(getLocalAddress(), getLocalPort());
    ::sendto(asSystemFd(getFd()), kMessage, sizeof(kMessage) - 1, MSG_NOSIGNAL,
             reinterpret_cast<const sockaddr*>(&self), sizeof(self));
}

void ZnSocketImpl::TCPlog(const char* transport, const char* direction, const void* data,
                          int length)
{
    ZnErrorStream& errors = ZnErrorStream::sGetDefault();
    if (errors.getDebugLevel() < 6 || m_fd.load() == kNoDescriptor || length == 0)
    {
        return;
    }
    ErrorStreamLock lock(errors);
    errors << "\n================" << transport << " " << direction << " " << length
           << " bytes Host: " << getRemoteAddress().getHostAddress() << ":" << getRemotePort()
           << "================\n\n";
    errors.write(data, static_cast<unsigned int>(length), 0);
    errors << "================================================\n" << endl;
}

void ZnSocketImpl::setBufferSizes()
{
    int fd = asSystemFd(m_fd.load());
    int sendSize = sm_SO_SNDBUF;
    int receiveSize = sm_SO_RCVBUF;
    ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sendSize, sizeof(sendSize));
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveSize, sizeof(receiveSize));
}

int ZnSocketImpl::sGetReceiveBufferSize()
{
    return sm_SO_RCVBUF;
}

int ZnSocketImpl::sGetSendBufferSize()
{
    return sm_SO_SNDBUF;
}

void ZnSocketImpl::sSetReceiveBufferSize(unsigned int size)
{
    sm_SO_RCVBUF = static_cast<int32_t>(size);
}

void ZnSocketImpl::sSetSendBufferSize(unsigned int size)
{
    sm_SO_SNDBUF = static_cast<int32_t>(size);
}

Tavoris::Fallible<ZnSocketImpl::Transport> ZnSocketImpl::parseTransport(const char* text)
{
    if (text == nullptr)
    {
        return Tavoris::Fallible<Transport>();
    }
    if (equalsIgnoreCase(text, "udp"))
    {
        return ZN_UDP;
    }
    if (equalsIgnoreCase(text, "tls"))
    {
        return ZN_TLS;
    }
    if (equalsIgnoreCase(text, "tcp"))
    {
        return ZN_TCP;
    }
    return Tavoris::Fallible<Transport>();
}

Tavoris::Fallible<Tavoris::Sip::Transport> ZnSocketImpl::convertTransport(Transport transport)
{
    switch (transport)
    {
    case ZN_UDP:
        return Tavoris::Sip::UDP;
    case ZN_TCP:
        return Tavoris::Sip::TCP;
    case ZN_TLS:
        return Tavoris::Sip::TLS;
    }
    return Tavoris::Fallible<Tavoris::Sip::Transport>();
}

const char* ZnSocketImpl::getTransportString(Transport transport, bool lowerCase)
{
    switch (transport)
    {
    case ZN_UDP:
        return lowerCase ? "udp" : "UDP";
    case ZN_TCP:
        return lowerCase ? "tcp" : "TCP";
    case ZN_TLS:
        return lowerCase ? "tls" : "TLS";
    }
    Tavoris::Assertion(false,
                       "in_transport == ZN_UDP || in_transport == ZN_TCP || in_transport == ZN_TLS",
                       socketLogger(), "ZnSocketImpl", __LINE__);
    return "???";
}

void* ZnSocketImpl::operator new(size_t size)
{
    return Tavoris::DefaultStaticMemAllocator::allocate(size, getMemAccountName());
}

void ZnSocketImpl::operator delete(void* p, size_t size)
{
    Tavoris::DefaultStaticMemAllocator::deallocate(p, size, getMemAccountName());
}

void* ZnSocketImpl::operator new[](size_t size)
{
    return Tavoris::NoSizeMemAllocator::allocate(size, getMemAccountName());
}

void ZnSocketImpl::operator delete[](void* p)
{
    Tavoris::NoSizeMemAllocator::deallocate(p, getMemAccountName());
}
