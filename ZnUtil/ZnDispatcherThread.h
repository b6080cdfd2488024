// A thread that takes events off its queue one at a time and processes each.
#ifndef ZNUTIL_ZNDISPATCHERTHREAD_H
#define ZNUTIL_ZNDISPATCHERTHREAD_H

#include "ZnUtil/ZnEventQueue.h"
#include "ZnUtil/ZnThread.h"
#include "ZnUtil/ZnThreadPool.h"

#include <cstddef>

class ZnBaseEvent;

/// Moves work off its callers' threads: addEvent() queues an event, and the dispatcher's thread
/// hands each to process(), which normally passes the work on to the pool.
///
/// An event is deleted not after process() but when the next event has arrived (or the thread
/// ends): what process() handed on stays valid at least that long.
///
/// Ownership: the dispatcher owns its queue and pool, and the events from addEvent on.
/// Thread safety: addEvent() as the queue's policy allows; the rest runs on the dispatcher's
/// thread.
class ZnDispatcherThread : public ZnThread
{
public:
    /// A dispatcher not yet started; \p aSignalThread becomes the pool's signal thread.
    ZnDispatcherThread(ZnThread* aSignalThread, unsigned int aMaximumPoolThreads,
                       ZnEventQueue::Policy aPolicy);
    ~ZnDispatcherThread() override;

    /// Queues \p aEvent, which the dispatcher owns from now on; blocks while the queue is full.
    /// A null event trips the assertion "pEvent != 0" and is ignored.
    void addEvent(ZnBaseEvent* aEvent);

    /// Takes the next event off the dispatcher's own queue; the caller owns it.
    ZnBaseEvent* getEvent();

    ZnEventQueue* getEventQueue() { return &m_queue; }
    ZnThreadPool* getThreadPool() { return &m_pool; }

    /// As the pool's setMaxThreadCount.
    void setMaxThreadCount(unsigned int aMaximum) { m_pool.setMaxThreadCount(aMaximum); }

    /// Handles one event on the dispatcher's thread. The event is not to be kept: it is deleted
    /// when the next one arrives.
    virtual void process(ZnBaseEvent* aEvent) = 0;

    /// Called as the dispatcher ends; does nothing here.
    virtual void atExit();

    /// The loop of getItem() and process().
    void run() override;

    static const char* getMemAccountName() { return "ZnDispatcherThread"; }
    static void* operator new(size_t size);
    static void operator delete(void* p);

private:
    ZnThreadPool m_pool;
    ZnEventQueue m_queue;
};

#endif // ZNUTIL_ZNDISPATCHERTHREAD_H
