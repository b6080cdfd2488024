// A datagram socket that joins IP multicast groups and sets the time to live of what it sends.
#ifndef ZNUTIL_ZNMULTICASTSOCKET_H
#define ZNUTIL_ZNMULTICASTSOCKET_H

#include "ZnUtil/ZnDatagramSocket.h"
#include "ZnUtil/ZnInetAddress.h"

/// A ZnDatagramSocket bound to a port on the default address, with multicast group membership
/// (on the interface the system picks) and the multicast time to live.
///
/// Ownership: as ZnDatagramSocket.
/// Thread safety: as ZnDatagramSocket; the time to live is a property of the socket, shared by
/// every thread that sends on it.
class ZnMulticastSocket : public ZnDatagramSocket
{
public:
    /// A datagram socket bound to \p port on the default address, with a receive buffer of 49152
    /// bytes.
    /// \throws ZnHandle<ZnException> (a ZnSocketError) as ZnSocketImpl::bind.
    explicit ZnMulticastSocket(unsigned int port);
    ~ZnMulticastSocket() override;

    /// Joins \p group on any interface (IP_ADD_MEMBERSHIP).
    /// \throws ZnHandle<ZnException> "error in setsockopt()" when the system refuses.
    void joinGroup(ZnInetAddress group);

    /// Leaves \p group (IP_DROP_MEMBERSHIP).
    /// \throws ZnHandle<ZnException> "error in setsockopt()" when the system refuses, as for a
    /// group not joined.
    void leaveGroup(ZnInetAddress group);

    /// Sets the multicast time to live of later sends (IP_MULTICAST_TTL, one byte). A refusal of
    /// the system is ignored.
    void setTimeToLive(unsigned char ttl);

    /// The multicast time to live (IP_MULTICAST_TTL, one byte).
    /// \return the value, or 0 when the system does not answer.
    unsigned char getTimeToLive();

    using ZnDatagramSocket::send;

    /// Sets the time to live to \p ttl, which stays in force afterwards, then sends the packet as
    /// ZnDatagramSocket::send. Never throws.
    void send(ZnDatagramPacket* packet, unsigned char ttl);
};

#endif // ZNUTIL_ZNMULTICASTSOCKET_H
