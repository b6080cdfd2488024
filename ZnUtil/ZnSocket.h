// The interface that every socket of the library presents: endpoints, descriptor, close.
#ifndef ZNUTIL_ZNSOCKET_H
#define ZNUTIL_ZNSOCKET_H

#include "ZnUtil/ZnInetAddress.h"
#include "ZnUtil/ZnObservable.h"

#include <cstdint>

/// An IPv4 socket seen from outside: its two endpoints, its descriptor, and how to close it.
///
/// A pure interface. It is an observable, so that whoever owns the blocking loop of a socket can
/// drive it with block() and release it from another thread with unblock(). The base is virtual:
/// client, server and TLS sockets meet it through several paths. ZnSocketImpl implements it.
/// Thread safety: as the implementation; close() may come from another thread than the one
/// blocked on the socket.
class ZnSocket : public virtual ZnObservable
{
public:
    ~ZnSocket() override;

    /// The local address the socket was bound or connected from.
    virtual ZnInetAddress getLocalAddress() const = 0;

    /// The local port, host order; 0 when not known.
    virtual unsigned int getLocalPort() const = 0;

    /// The peer's address; asked of the system when not yet known.
    virtual ZnInetAddress getRemoteAddress() = 0;

    /// The peer's port, host order; asked of the system when not yet known, 0 when there is none.
    virtual unsigned int getRemotePort() = 0;

    /// The system descriptor, or all ones (-1) when the socket has none.
    virtual uint64_t getFd() = 0;

    /// Closes the descriptor if there is one; closing twice is harmless.
    virtual void close() = 0;

    /// Whether data is waiting to be read.
    /// \return a byte count that says only whether data is waiting, or 0.
    virtual unsigned int available() = 0;
};

#endif // ZNUTIL_ZNSOCKET_H
