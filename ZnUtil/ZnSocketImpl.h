// The shared core of the library's sockets: one IPv4 socket and every system call made on it.
#ifndef ZNUTIL_ZNSOCKETIMPL_H
#define ZNUTIL_ZNSOCKETIMPL_H

#include "ZnUtil/ZnInetAddress.h"
#include "ZnUtil/ZnSocket.h"

#include "tavoris/Fallible.h"
#include "tavoris/SipTransport.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

class ZnMutex;

/// Owns one blocking AF_INET socket (UDP or TCP) and makes the system calls on it: create, bind,
/// listen, accept, connect, send, receive, close. The TCP client and server sockets, the datagram
/// sockets and the TLS sockets all derive from it.
///
/// The object is either without descriptor (getFd() is all ones) or open. The first bind(),
/// connect() or accept() opens it; close(), a failed receive() or send(), or unblock() closes it;
/// a failed getRemoteInfo() forgets the descriptor without closing it. Set-up calls throw a
/// ZnSocketError; the data calls report failure by the result 0xFFFFFFFF and never throw.
///
/// Message dumps and progress lines go to the default ZnErrorStream, by its debug level.
///
/// Ownership: the object is counted (a ZnObject) and allocated on the memory account
/// "ZnSocketImpl"; it closes its descriptor when destroyed.
/// Thread safety: the data calls take no lock. One thread may block in a receive, accept or
/// receiveFrom while another calls close() or unblock(): the descriptor field is atomic, and the
/// closing releases the blocked call, which then fails. Anything else is used by one thread at a
/// time. m_pMutex guards only what derived classes put under it.
class ZnSocketImpl : public virtual ZnSocket
{
public:
    /// The transport of a socket, with the numbers the configuration uses. The underlying type
    /// is fixed, so that any int may be passed and be told apart as outside the enumeration.
    enum Transport : int
    {
        ZN_UDP = 0,
        ZN_TCP = 1,
        ZN_TLS = 2
    };

    /// "ZnSocket": the debug key of socket reports.
    static const char* const sDebugToken;

    /// No descriptor, local and remote port 0, default addresses.
    ZnSocketImpl();

    /// No descriptor yet; remembers \p localPort and \p localAddress, remote port 0. bind() or
    /// connect() makes the descriptor later.
    ZnSocketImpl(unsigned int localPort, ZnInetAddress localAddress);

    /// Closes an open descriptor (ZnSocketImpl::close itself), then gives the mutex back.
    ~ZnSocketImpl() override;

    // ZnSocket

    ZnInetAddress getLocalAddress() const override;
    unsigned int getLocalPort() const override;

    /// The peer's address; when the remote port is still 0, asks getRemoteInfo() first.
    ZnInetAddress getRemoteAddress() override;

    /// The peer's port; when it is still 0, asks getRemoteInfo() first (which forgets the
    /// descriptor if the socket has no peer).
    unsigned int getRemotePort() override;

    uint64_t getFd() override;

    /// Closes the descriptor if there is one and marks the socket as without. With the default
    /// ZnErrorStream's level above 5, writes "Closing a socket" and, with a local port, "Closing
    /// socket with local port <port>". A thread blocked on the socket is released. Closing twice
    /// is harmless.
    void close() override;

    /// Peeks at up to 4 waiting bytes (blocking until something arrives).
    /// \return the number of bytes peeked, at most 4: whether data is waiting, not how much; 0
    /// when the peek fails, which is reported on the debug stream at level 5.
    unsigned int available() override;

    // ZnObservable

    /// ZnObservable::unblock(), then close(): closing is what wakes a thread blocked on this
    /// socket.
    /// \return the result of ZnObservable::unblock().
    bool unblock() override;

    // Set-up

    /// Waits for a connection on \p server's descriptor and makes this object its end. Local port
    /// and address are \p server's; the remote ones are the peer's. TCP_NODELAY is switched on.
    /// \throws ZnHandle<ZnException> (a ZnSocketError "failed to accept new socket") when accept
    /// fails, also when \p server is closed under it; "ZnSocketImpl::setsockopt(...)" when
    /// TCP_NODELAY cannot be set.
    virtual void accept(ZnSocketImpl& server);

    /// Makes the descriptor (a stream socket for \p stream, else a datagram socket), sets the
    /// buffer sizes and SO_REUSEADDR, and binds it to \p address and \p port. The local port and
    /// address kept are those passed: a socket bound to port 0 keeps local port 0.
    /// \throws ZnHandle<ZnException> "socket already created" (a plain ZnException) when there is a
    /// descriptor already; a ZnSocketError "socket(AF_INET, aType, 0)",
    /// "ZnSocketImpl::setsockopt(...)" or "bind" when that call fails.
    void bind(unsigned int port, ZnInetAddress address, bool stream);

    /// \throws ZnHandle<ZnException> (a ZnSocketError "listen") when listen fails.
    void listen(unsigned int backlog);

    /// Connects to \p address and \p port, making the descriptor first if bind() has not; then
    /// switches TCP_NODELAY on (also for a datagram socket, where the system refuses it) and
    /// reads back the local endpoint.
    /// \throws ZnHandle<ZnException>, a ZnSocketError: "socket(AF_INET, SOCK_STREAM, 0)";
    /// "ZnSocketImpl::connect : failed to connect socket : errno=<n> errmsg=<text>";
    /// "ZnSocketImpl::setsockopt(...)"; "getsockname()".
    void connect(ZnInetAddress address, unsigned int port, bool stream);

    // Data calls: they never throw.

    /// Receives up to \p length bytes. Received data is dumped by TCPlog("TCP", "Received", ...).
    /// \return the byte count, 0 at the orderly end of the peer's stream (the socket stays open),
    /// or 0xFFFFFFFF on failure, after which the socket is closed; 0xFFFFFFFF at once, with no
    /// system call, when there is no descriptor.
    unsigned int receive(void* buffer, unsigned int length);

    /// Sends up to \p length bytes, dumped by TCPlog("TCP", "Sent", ...).
    /// \return the byte count, possibly short, or 0xFFFFFFFF on failure, after which the socket is
    /// closed; 0xFFFFFFFF at once, with no system call, when there is no descriptor.
    unsigned int send(const void* buffer, unsigned int length);

    /// Receives one datagram of at most \p length bytes, and stores its sender in \p from and
    /// \p port (host order); null outputs are skipped. A longer datagram is a failure (errno
    /// EMSGSIZE, socket error 10040). With the default ZnErrorStream's level at 6 or more, writes
    /// "UDP Received <n> bytes from <host>:<port>" and the datagram.
    /// \return the byte count, or 0xFFFFFFFF on failure, with \p from and \p port untouched and the
    /// socket left open.
    unsigned int receiveFrom(void* buffer, unsigned int length, ZnInetAddress* from,
                             unsigned int* port);

    /// Sends one datagram to \p to and \p port. With the default ZnErrorStream's level above 5,
    /// writes "UDP Sending <n> bytes to <host>:<port>" and the bytes first.
    /// \return the system's result: the byte count, or 0xFFFFFFFF on failure (the socket stays
    /// open); 0xFFFFFFFF without sending for a \p port of 65536 or more, which is logged at ERROR.
    unsigned int sendTo(const void* buffer, unsigned int length, ZnInetAddress to,
                        unsigned int port);

    // Others

    /// Switches TCP_NODELAY on or off.
    /// \throws ZnHandle<ZnException> (a ZnSocketError "ZnSocketImpl::setsockopt(...)").
    void setTcpNoDelay(bool on);

    /// Asks the system for the peer's address and port (host order). On failure both become 0
    /// and the descriptor is forgotten without being closed: the socket then has none.
    void getRemoteInfo(ZnInetAddress* address, unsigned int* port);

    /// Sends the 7 bytes "UNBLOCK" from this socket to its own local address and port, so that
    /// a thread blocked in receiveFrom() on it wakes. Does nothing without a descriptor; the
    /// result is ignored.
    void sendLocalUnblockMessage();

    /// Dumps a sent or received stream message on the default ZnErrorStream, when its level is 6
    /// or more, the socket is open and \p length is not 0: a banner with \p transport,
    /// \p direction, the length and the peer, the bytes, and a closing line. The stream's lock is
    /// held over the whole dump.
    void TCPlog(const char* transport, const char* direction, const void* data, int length);

    // Class data

    /// The SO_RCVBUF size given to sockets created or connected from now on (245760 at start).
    static int sGetReceiveBufferSize();
    /// The SO_SNDBUF size given to sockets created or connected from now on (245760 at start).
    static int sGetSendBufferSize();
    static void sSetReceiveBufferSize(unsigned int size);
    static void sSetSendBufferSize(unsigned int size);

    /// The transport named \p text, compared without regard to ASCII case with "udp", "tls" and
    /// "tcp".
    /// \return the transport, or an unset value for any other text (and for null).
    static Tavoris::Fallible<Transport> parseTransport(const char* text);

    /// The SIP stack's number of \p transport.
    /// \return Tavoris::Sip::UDP, TCP or TLS, or an unset value for a value outside the
    /// enumeration.
    static Tavoris::Fallible<Tavoris::Sip::Transport> convertTransport(Transport transport);

    /// "UDP", "TCP", "TLS", or with \p lowerCase "udp", "tcp", "tls".
    /// \return a static text; "???" for a value outside the enumeration, which is reported as an
    /// assertion.
    static const char* getTransportString(Transport transport, bool lowerCase);

    /// "ZnSocketImpl".
    static const char* getMemAccountName() { return "ZnSocketImpl"; }

    static void* operator new(size_t size);
    /// Sized, so that a derived socket without an account of its own gives back its own size.
    static void operator delete(void* p, size_t size);
    static void* operator new[](size_t size);
    static void operator delete[](void* p);

protected:
    /// The value of m_fd while there is no descriptor.
    static constexpr uint64_t kNoDescriptor = ~static_cast<uint64_t>(0);

    /// From ZnMutex::sAllocate; taken by derived classes around their lazy parts.
    ZnMutex* m_pMutex;
    /// The descriptor, kNoDescriptor while there is none. Atomic: another thread may close the
    /// socket under a blocked call; that race is part of the design.
    std::atomic<uint64_t> m_fd;
    /// Host order.
    unsigned int m_localPort;
    ZnInetAddress m_localAddress;
    /// Host order; 0 while not known.
    unsigned int m_remotePort;
    ZnInetAddress m_remoteAddress;

private:
    ZnSocketImpl(const ZnSocketImpl&) = delete;
    ZnSocketImpl& operator=(const ZnSocketImpl&) = delete;

    /// Sets SO_SNDBUF and SO_RCVBUF from the class values; the results are ignored.
    void setBufferSizes();

    static int32_t sm_SO_RCVBUF;
    static int32_t sm_SO_SNDBUF;
};

#endif // ZNUTIL_ZNSOCKETIMPL_H
