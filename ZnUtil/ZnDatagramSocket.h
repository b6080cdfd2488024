// A UDP socket whose receive step hands each datagram to the UDP input dispatcher.
#ifndef ZNUTIL_ZNDATAGRAMSOCKET_H
#define ZNUTIL_ZNDATAGRAMSOCKET_H

#include "ZnUtil/ZnDatagramPacket.h"
#include "ZnUtil/ZnInetAddress.h"
#include "ZnUtil/ZnSocketImpl.h"

/// A blocking IPv4 datagram socket. block() reads one datagram into the socket's own receive
/// packet, copies it out into a new ZnDatagramPacket and posts it, with this socket as the
/// observer, to ZnUDPIDispatcher; a pool worker then calls onNotification on the socket, which
/// notifies the socket's observer with the socket as the source. The observer of a datagram
/// socket is thus called on a worker thread, with a ZnDatagramPacket, or a ZnException when
/// building or posting the packet failed.
///
/// A socket that was connected sends packets for its peer with send(), and every other packet
/// with sendTo().
///
/// Ownership: counted like every socket; the receive buffer of maxPacketSize bytes belongs to the
/// socket, and each received datagram is copied out into an array of its own length.
/// Thread safety: block() runs on one thread per socket (normally a ZnObserverThread), which
/// alone uses the receive packet; send() may be called from any thread meanwhile; unblock() and
/// close() from any thread release a blocked block().
class ZnDatagramSocket : public ZnSocketImpl
{
public:
    /// Makes the receive buffer, then the descriptor: connected to \p address and \p port when
    /// \p connect is set, else bound to them.
    /// \param maxPacketSize the size of the receive buffer: a longer datagram fails to be read.
    /// \throws ZnHandle<ZnException> (a ZnSocketError) when the socket cannot be made, bound or
    /// connected (see ZnSocketImpl::bind and ZnSocketImpl::connect).
    explicit ZnDatagramSocket(unsigned int port = 0, ZnInetAddress address = ZnInetAddress(),
                              bool connect = false, unsigned int maxPacketSize = 49152);
    ~ZnDatagramSocket() override;

    /// Connects the socket to one peer (ZnSocketImpl::connect for a datagram socket), after
    /// which packets for that peer go out by send().
    /// \throws ZnHandle<ZnException> (a ZnSocketError) as ZnSocketImpl::connect.
    void connect(ZnInetAddress address, unsigned int port);

    /// True once the socket was connected to a peer.
    bool isConnected() const { return m_bConnected; }

    /// ZnSocketImpl::available(): whether a datagram waits (at most 4 bytes are peeked).
    /// \return 0 to 4, 0 when the peek fails.
    unsigned int available() override;

    /// Sends the packet's payload: by send() when the socket is connected and the packet is for
    /// its peer, else by sendTo() to the packet's address and port. Never throws; the result is
    /// not reported. The packet must have an array.
    void send(ZnDatagramPacket* packet);

    /// Receives one datagram into the packet's window, with the packet's length as the capacity,
    /// and stores the sender in the packet's address and port. Never throws: the length becomes
    /// the byte count, or 0xFFFFFFFF on failure; reset such a packet with setData() before using
    /// it again.
    void receive(ZnDatagramPacket* packet);

    /// Reads one datagram (blocking, without time limit) and posts a copy of it to
    /// ZnUDPIDispatcher; during shutdown the datagram is dropped. A failed read is only logged
    /// ("recvfrom failure"): a socket closed by unblock() fails at once.
    /// \return true, or false when building or posting the packet raised a ZnException; the
    /// socket is then closed and, unless shutting down, the exception is posted in the packet's
    /// place.
    bool block() override;

    /// Passes both handles to ZnObservable::onNotification: the socket's observer is notified
    /// with the socket as the source.
    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override;

private:
    bool m_bConnected;
    unsigned int m_maxPacketSize;
    ZnDatagramPacket m_packet; // used only by the thread in block()
};

#endif // ZNUTIL_ZNDATAGRAMSOCKET_H
