// The process-wide dispatcher that hands received datagrams to pool workers.
#ifndef ZNUTIL_ZNUDPIDISPATCHER_H
#define ZNUTIL_ZNUDPIDISPATCHER_H

#include "ZnUtil/ZnDispatcherThread.h"

#include <cstddef>

class ZnEventQueue;
template <class D>
class ZnDispatcherInstance;

/// Takes the ZnUDPEvent objects that ZnDatagramSocket::block() posts and has each socket notify
/// its observer on a worker of a pool of at most 10, so that the thread reading the socket goes
/// straight back to recvfrom. When all 10 workers are busy the notification runs on the
/// dispatcher's own thread, which holds up the events behind it.
///
/// Ownership: the instance is process-wide, made on first use, and released at exit after a
/// completed shutdown. Events belong to the dispatcher from addEvent() on.
/// Thread safety: any number of threads may post events (POLICY_MULTI_PRODUCER); getInstance()
/// may be called from any thread, and makes one instance only.
class ZnUDPIDispatcher : public ZnDispatcherThread
{
public:
    ~ZnUDPIDispatcher() override;

    /// The instance, made and forked on first use. Does not add a reference.
    /// \throws ZnHandle<ZnException> (a ZnSystemError "CreateThread") when no thread can be
    /// started; no instance is kept then.
    static ZnUDPIDispatcher* getInstance();

    /// The instance's queue, or null when there is no instance; makes none.
    static ZnEventQueue* getUDPEventQueue();

    /// Gives the event's data to its socket (the event's observer) on a pool worker, or on this
    /// thread when none can be had: the socket then notifies its own observer.
    void process(ZnBaseEvent* aEvent) override;

    /// Forgets the instance, if it is this one.
    void atExit() override;

    /// "ZnUDPIDispatcher".
    static const char* getMemAccountName() { return "ZnUDPIDispatcher"; }
    static void* operator new(size_t size);
    static void operator delete(void* p, size_t size);
    static void* operator new[](size_t size);
    static void operator delete[](void* p);

private:
    ZnUDPIDispatcher();

    friend class ZnDispatcherInstance<ZnUDPIDispatcher>;
};

#endif // ZNUTIL_ZNUDPIDISPATCHER_H
