#include "ZnUtil/ZnDispatcherThread.h"

#include "ZnUtil/ZnBaseEvent.h"

#include "tavoris/Assertion.h"
#include "tavoris/LogSite.h"
#include "tavoris/NoSizeMemAllocator.h"
#include "tavoris/TraceScope.h"

namespace
{

TAVORIS_DEFINE_STATIC_LOGGER(dispatcherLogger, "corvane.zn.ZnDispatcherThread")

} // namespace

ZnDispatcherThread::ZnDispatcherThread(ZnThread* aSignalThread, unsigned int aMaximumPoolThreads,
                                       ZnEventQueue::Policy aPolicy)
    : m_pool(ZnHandle<ZnThread>(aSignalThread), aMaximumPoolThreads), m_queue(aPolicy)
{
    // The logger is made now, before any release at exit is registered for this dispatcher:
    // releases at exit run in reverse order, and the destructor's trace needs the logger.
    dispatcherLogger();
}

ZnDispatcherThread::~ZnDispatcherThread()
{
    TAVORIS_TRACE_SCOPE(dispatcherLogger(), "ZnDispatcherThread::~ZnDispatcherThread");
}

void ZnDispatcherThread::addEvent(ZnBaseEvent* aEvent)
{
    Tavoris::Assertion(aEvent != nullptr, "pEvent != 0", dispatcherLogger(), TAVORIS_SOURCE_NAME,
                       __LINE__);
    m_queue.addItem(aEvent);
}

ZnBaseEvent* ZnDispatcherThread::getEvent()
{
    return m_queue.getItem();
}

void ZnDispatcherThread::atExit() {}

void ZnDispatcherThread::run()
{
    TAVORIS_TRACE_SCOPE(dispatcherLogger(), "ZnDispatcherThread::run");
    ZnBaseEvent* current = nullptr;
    try
    {
        while (getState() != STATE_EXITING)
        {
            ZnBaseEvent* next = m_queue.getItem();
            // The event before is deleted only now, when the next one has arrived: what
            // process() handed on stays valid at least that long.
            delete current;
            current = next;
            if (next == nullptr || getState() == STATE_EXITING)
            {
                break;
            }
            process(next);
        }
    }
    catch (...)
    {
        // What process() raises ends the thread (main() reports it); the event and the hold on
        // the signal thread go first.
        m_pool.setSignalThread(ZnHandle<ZnThread>());
        delete current;
        atExit();
        throw;
    }
    if (!sShuttingDown())
    {
        TAVORIS_LOG_WARN(dispatcherLogger(),
                         "ZnDispatcherThread::run() exiting before shutdown has been called."
                         "Doing so might result in system crash.");
    }
    // Ends the hold of a dispatcher that passed itself as its pool's signal thread.
    m_pool.setSignalThread(ZnHandle<ZnThread>());
    delete current;
    atExit();
}

void* ZnDispatcherThread::operator new(size_t size)
{
    return Tavoris::NoSizeMemAllocator::allocate(size, getMemAccountName());
}

void ZnDispatcherThread::operator delete(void* p)
{
    Tavoris::NoSizeMemAllocator::deallocate(p, getMemAccountName());
}
