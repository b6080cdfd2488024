// The dispatcher that hands due timers to pool workers.
#ifndef ZNUTIL_ZNTIMERDISPATCHER_H
#define ZNUTIL_ZNTIMERDISPATCHER_H

#include "ZnUtil/ZnDispatcherThread.h"

class ZnEventQueue;
template <class D>
class ZnDispatcherInstance;

/// Takes ZnTimerEvent objects from the monitor thread and gives each observer its notification
/// on a worker of a pool of at most 10, so that a slow observer holds up no timer.
///
/// Ownership: the instance is process-wide, made on first use, and released at exit.
/// Thread safety: the queue has one producer, the monitor thread; getInstance() is meant for the
/// monitor threads alone.
class ZnTimerDispatcher : public ZnDispatcherThread
{
public:
    ~ZnTimerDispatcher() override;

    /// The instance, made and forked on first use. Does not add a reference.
    static ZnTimerDispatcher* getInstance();

    /// The instance's queue, or null when there is no instance.
    static ZnEventQueue* getTimerEventQueue();

    /// Hands the timer's observer and argument to the pool.
    void process(ZnBaseEvent* aEvent) override;

    /// Forgets the instance, if it is this one.
    void atExit() override;

private:
    ZnTimerDispatcher();

    friend class ZnDispatcherInstance<ZnTimerDispatcher>;
};

#endif // ZNUTIL_ZNTIMERDISPATCHER_H
