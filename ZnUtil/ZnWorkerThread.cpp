#include "ZnUtil/ZnWorkerThread.h"

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnThreadPool.h"

#include "tavoris/LogSite.h"
#include "tavoris/TraceScope.h"

namespace
{

TAVORIS_DEFINE_STATIC_LOGGER(workerLogger, "corvane.zn.ZnWorkerThread")

} // namespace

ZnWorkerThread::ZnWorkerThread(ZnThreadPool* aPool) : m_jobKind(JOB_NONE), m_pPool(aPool) {}

ZnWorkerThread::~ZnWorkerThread() = default;

void ZnWorkerThread::doSourceNotifications(ZnObservable* aSource, ZnObject* aArgument)
{
    m_jobKind = JOB_SOURCE_NOTIFICATION;
    m_hJobSource = aSource;
    m_hJobArgument = aArgument;
    // The signal orders the job's fields before the worker reads them.
    signal();
}

void ZnWorkerThread::doObserverNotifications(ZnObserver* aObserver, ZnObject* aArgument)
{
    m_jobKind = JOB_OBSERVER_NOTIFICATION;
    m_hJobObserver = aObserver;
    m_hJobArgument = aArgument;
    signal();
}

void ZnWorkerThread::mRunJob()
{
    switch (m_jobKind)
    {
    case JOB_SOURCE_NOTIFICATION:
        m_hJobSource->notifyObservers(m_hJobArgument);
        break;
    case JOB_OBSERVER_NOTIFICATION:
        // Observer notifications through a pool carry no source.
        m_hJobObserver->onNotification(ZnHandle<ZnObservable>(), m_hJobArgument);
        break;
    default:
        break;
    }
}

void ZnWorkerThread::run()
{
    TAVORIS_TRACE_SCOPE(workerLogger(), "ZnWorkerThread::run");
    for (;;)
    {
        wait(kInfinite);
        if (getState() == STATE_EXITING)
        {
            break;
        }
        try
        {
            mRunJob();
            m_jobKind = JOB_NONE;
            m_hJobSource = ZnHandle<ZnObservable>();
            m_hJobObserver = ZnHandle<ZnObserver>();
            m_hJobArgument = ZnHandle<ZnObject>();
        }
        catch (ZnHandle<ZnException>& e)
        {
            // The job's handles stay until the next job replaces them.
            if (!sShuttingDown())
            {
                TAVORIS_LOG_ERROR(workerLogger(), "Caught a ZnException in ZnWorkerThread::run(): "
                                                      << e->getMessage());
            }
            else
            {
                TAVORIS_LOG_DEBUG(workerLogger(),
                                  "ZnWorkerThread::run"
                                      << " : "
                                      << "Caught a ZnException in ZnWorkerThread::run() while "
                                         "shutting down : "
                                      << e->getMessage());
            }
        }
        if (ZnThreadPool* pool = m_pPool.load())
        {
            pool->makeAvailable(this);
        }
    }
    ZnThreadPool* pool = m_pPool.load();
    if (pool != nullptr && !sShuttingDown())
    {
        pool->remove(this);
    }
    else if (pool != nullptr)
    {
        // During shutdown the worker still counts, but an ending worker must not be handed out.
        pool->forget(this);
    }
}
