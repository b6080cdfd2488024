// A counted window on a byte array with both endpoints: the unit of UDP traffic and of framed
// stream messages.
#ifndef ZNUTIL_ZNDATAGRAMPACKET_H
#define ZNUTIL_ZNDATAGRAMPACKET_H

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInetAddress.h"
#include "ZnUtil/ZnObject.h"

#include <cstddef>

/// A datagram, or a message cut out of a stream: a shared ZnByteArray with the window of its
/// payload (offset and length), the remote end (the destination of a send, the source of a
/// receive) and the local end of the socket that received it.
///
/// The window always lies inside the array: setData() clips the offset to the array's end and the
/// length to what follows the offset. A packet over a failed receive has the length 0xFFFFFFFF;
/// reset it with setData() before receiving into it again.
///
/// Ownership: holds a counted reference on its array, which may be shared with other packets.
/// A packet made by new has count 0: wrap it in a ZnHandle at once.
/// Thread safety: none of its own; a packet is used by one thread at a time.
class ZnDatagramPacket : public ZnObject
{
public:
    /// Stores the endpoints, then applies setData(\p data, \p offset, \p length).
    /// \param data the buffer, or null; a reference is taken.
    ZnDatagramPacket(ZnByteArray* data, unsigned int offset, unsigned int length,
                     ZnInetAddress address, unsigned int port, ZnInetAddress localAddress,
                     unsigned int localPort);
    ~ZnDatagramPacket() override;

    /// Makes \p data the buffer (a reference is taken; null is accepted), with the offset clipped
    /// to the array's length (0 for no array) and the length set as follows: 0 takes everything
    /// after the offset, a longer length is cut at the array's end.
    void setData(ZnByteArray* data, unsigned int offset, unsigned int length);

    /// The buffer, nil if none. The packet keeps its own reference.
    ZnHandle<ZnByteArray> getData() const { return m_hData; }
    /// The start of the payload in the buffer.
    unsigned int getOffset() const { return m_offset; }
    /// The payload's length, or 0xFFFFFFFF after a failed receive.
    unsigned int getLength() const { return m_length; }
    /// The remote address: destination of a send, source of a receive.
    ZnInetAddress getAddress() const { return m_address; }
    /// The remote port, host order.
    unsigned int getPort() const { return m_port; }
    /// The local address of the socket that received the packet.
    ZnInetAddress getLocalAddress() const { return m_localAddress; }
    /// The local port of the socket that received the packet.
    unsigned int getLocalPort() const { return m_localPort; }

    void setAddress(ZnInetAddress address) { m_address = address; }
    void setPort(unsigned int port) { m_port = port; }

    /// "ZnDatagramPacket".
    static const char* getMemAccountName() { return "ZnDatagramPacket"; }
    static void* operator new(size_t size);
    /// Sized, so that a derived packet gives back the size it was allocated with.
    static void operator delete(void* p, size_t size);
    static void* operator new[](size_t size);
    static void operator delete[](void* p);

private:
    // The socket receives into its packets in place: the window, the sender and its port.
    friend class ZnDatagramSocket;

    /// Sets the length to \p length cut at the array's end, or to all after the offset for 0.
    void setLength(unsigned int length);

    /// The start of the payload for writing; null without an array.
    unsigned char* payload() const;

    ZnHandle<ZnByteArray> m_hData;
    ZnInetAddress m_address;
    ZnInetAddress m_localAddress;
    unsigned int m_port;
    unsigned int m_localPort;
    unsigned int m_offset;
    unsigned int m_length;
};

#endif // ZNUTIL_ZNDATAGRAMPACKET_H
