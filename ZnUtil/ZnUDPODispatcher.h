// The process-wide dispatcher that sends outgoing datagrams through one shared socket.
#ifndef ZNUTIL_ZNUDPODISPATCHER_H
#define ZNUTIL_ZNUDPODISPATCHER_H

#include "ZnUtil/ZnDispatcherThread.h"
#include "ZnUtil/ZnHandle.h"

#include <cstddef>
#include <mutex>

class ZnDatagramSocket;
class ZnEventQueue;
template <class D>
class ZnDispatcherInstance;

/// Takes ZnUDPEvent objects carrying a ZnDatagramPacket from any thread and sends them, in the
/// order of arrival, on its own thread through one socket: the one given by setDatagramSocket(),
/// or else one it makes on the first packet (an ephemeral port on the default address). It has no
/// workers.
///
/// A packet that cannot be sent, or data that is no ZnDatagramPacket, raises out of process() and
/// ends the dispatcher; the events behind it are deleted with the queue.
///
/// Ownership: the instance is process-wide, made on first use, and released at exit after a
/// completed shutdown. A socket that is replaced, and the socket held when the dispatcher goes,
/// are deliberately never destroyed: another thread may still be sending on them.
/// Thread safety: any number of threads may post events (POLICY_MULTI_PRODUCER) and call
/// setDatagramSocket(); getInstance() may be called from any thread, and makes one instance only.
class ZnUDPODispatcher : public ZnDispatcherThread
{
public:
    /// Keeps the socket held alive for good (see the class comment).
    ~ZnUDPODispatcher() override;

    /// The instance, made and forked on first use. Does not add a reference.
    /// \throws ZnHandle<ZnException> (a ZnSystemError "CreateThread") when no thread can be
    /// started; no instance is kept then.
    static ZnUDPODispatcher* getInstance();

    /// The instance's queue, or null when there is no instance; makes none.
    static ZnEventQueue* getUDPEventQueue();

    /// Makes \p aSocket the socket that later packets go out on; a reference is taken. Null is
    /// ignored. The socket held before is kept alive for good, not destroyed.
    void setDatagramSocket(ZnDatagramSocket* aSocket);

    /// Sends the event's packet on the dispatcher's socket, making the socket first if there is
    /// none.
    /// \throws ZnHandle<ZnException> "dynamic_cast failed on ZnHandle construction" (a
    /// ZnAssertionFailure) when the data is no ZnDatagramPacket; a ZnSocketError when the socket
    /// cannot be made.
    void process(ZnBaseEvent* aEvent) override;

    /// Forgets the instance, if it is this one.
    void atExit() override;

    /// "ZnUDPODispatcher".
    static const char* getMemAccountName() { return "ZnUDPODispatcher"; }
    static void* operator new(size_t size);
    static void operator delete(void* p, size_t size);
    static void* operator new[](size_t size);
    static void operator delete[](void* p);

private:
    ZnUDPODispatcher();

    friend class ZnDispatcherInstance<ZnUDPODispatcher>;

    /// Keeps \p aSocket alive for good.
    static void sRetire(ZnDatagramSocket* aSocket);

    std::mutex m_socketMutex;
    ZnHandle<ZnDatagramSocket> m_hSocket; // guarded by m_socketMutex
};

#endif // ZNUTIL_ZNUDPODISPATCHER_H
