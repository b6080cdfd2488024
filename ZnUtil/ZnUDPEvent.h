// The event by which a datagram travels through the UDP dispatchers.
#ifndef ZNUTIL_ZNUDPEVENT_H
#define ZNUTIL_ZNUDPEVENT_H

#include "ZnUtil/ZnBaseEvent.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnObserver.h"

#include <cstddef>

/// A datagram on its way: for input, the socket it came in on and a ZnDatagramPacket, or a
/// ZnException when the read failed; for output, the ZnDatagramPacket to send (the observer is
/// not looked at).
///
/// Ownership: holds both by handles; a copy holds them too.
/// Thread safety: none of its own; an event belongs to one thread at a time.
class ZnUDPEvent : public ZnBaseEvent
{
public:
    /// Takes a reference on \p aObserver and \p aData, either of which may be null.
    ZnUDPEvent(ZnObserver* aObserver, ZnObject* aData);
    ZnUDPEvent(const ZnUDPEvent& other);
    ZnUDPEvent& operator=(const ZnUDPEvent& other);
    ~ZnUDPEvent() override;

    /// The socket the data came in on (input), nil if none.
    ZnHandle<ZnObserver> getObserver() const { return m_hObserver; }
    /// The packet, or a ZnException for a failed read; nil if none.
    ZnHandle<ZnObject> getData() const { return m_hData; }

    /// "ZnUDPEvent".
    static const char* getMemAccountName() { return "ZnUDPEvent"; }
    static void* operator new(size_t size);
    /// Sized, so that a derived event gives back the size it was allocated with.
    static void operator delete(void* p, size_t size);
    static void* operator new[](size_t size);
    static void operator delete[](void* p);

private:
    ZnHandle<ZnObserver> m_hObserver;
    ZnHandle<ZnObject> m_hData;
};

#endif // ZNUTIL_ZNUDPEVENT_H
