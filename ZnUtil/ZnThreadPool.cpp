#include "ZnUtil/ZnThreadPool.h"

#include "ZnUtil/ZnErrorStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnMutex.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnOutputStream.h"
#include "ZnUtil/ZnWorkerThread.h"

#include <algorithm>

ZnThreadPool::ZnThreadPool(ZnHandle<ZnThread> aSignalThread, unsigned int aMaximum)
    : m_maxThreadCount(aMaximum), m_threadCount(0), m_hSignalThread(aSignalThread),
      m_pMutex(ZnMutex::sAllocate())
{
}

ZnThreadPool::~ZnThreadPool()
{
    // Idle workers are let go and told to end; they no longer come back to this pool.
    std::vector<ZnWorkerThread*> idle;
    lock();
    idle.swap(m_available);
    for (ZnWorkerThread* worker : idle)
    {
        worker->m_pPool.store(nullptr);
    }
    unlock();
    for (ZnWorkerThread* worker : idle)
    {
        worker->terminate();
    }
    ZnMutex::sRecycle(m_pMutex);
}

void ZnThreadPool::lock()
{
    m_pMutex->lock();
}

void ZnThreadPool::unlock()
{
    m_pMutex->unlock();
}

unsigned int ZnThreadPool::getAvailableCount() const
{
    ZnMutexGuard guard(m_pMutex);
    return static_cast<unsigned int>(m_available.size());
}

void ZnThreadPool::setMaxThreadCount(unsigned int aMaximum)
{
    // The pool never shrinks: a maximum below the workers made is ignored.
    if (m_threadCount.load() <= aMaximum)
    {
        m_maxThreadCount.store(aMaximum);
    }
}

void ZnThreadPool::setSignalThread(ZnHandle<ZnThread> aSignalThread)
{
    ZnHandle<ZnThread> previous;
    lock();
    previous = m_hSignalThread;
    m_hSignalThread = aSignalThread;
    unlock();
    // The previous thread is released here, outside the lock: it may be the last reference.
}

ZnHandle<ZnThread> ZnThreadPool::getSignalThread() const
{
    ZnMutexGuard guard(m_pMutex);
    return m_hSignalThread;
}

ZnWorkerThread* ZnThreadPool::createThread()
{
    ZnWorkerThread* worker = new ZnWorkerThread(this);
    ZnHandle<ZnThread> hold(worker); // a failed fork frees the worker
    worker->fork();
    return worker;
}

ZnWorkerThread* ZnThreadPool::getAvailable()
{
    // Idle workers were told to end when shutdown began: none is handed out any more, and late
    // notifications run on their caller.
    if (ZnThread::sShuttingDown())
    {
        return nullptr;
    }
    ZnWorkerThread* worker = nullptr;
    lock();
    if (!m_available.empty())
    {
        // The worker that went idle last goes first: its stack and cache are still warm.
        worker = m_available.back();
        m_available.pop_back();
    }
    unlock();
    if (worker != nullptr)
    {
        return worker;
    }
    if (m_threadCount.load() >= m_maxThreadCount.load() || ZnThread::sShuttingDown())
    {
        return nullptr;
    }
    // Outside the lock: callers that pass the test together may pass the maximum by their number.
    worker = createThread();
    if (worker != nullptr)
    {
        m_threadCount.fetch_add(1);
    }
    return worker;
}

void ZnThreadPool::makeAvailable(ZnWorkerThread* aWorker)
{
    // During shutdown workers stay off the stack, and late notifications run on their caller.
    if (ZnThread::sShuttingDown())
    {
        return;
    }
    lock();
    m_available.push_back(aWorker);
    unlock();
}

void ZnThreadPool::remove(ZnWorkerThread* aWorker)
{
    lock();
    std::vector<ZnWorkerThread*>::iterator found =
        std::find(m_available.begin(), m_available.end(), aWorker);
    if (found != m_available.end())
    {
        m_available.erase(found);
        m_threadCount.fetch_sub(1);
    }
    unlock();
}

void ZnThreadPool::forget(ZnWorkerThread* aWorker)
{
    lock();
    std::vector<ZnWorkerThread*>::iterator found =
        std::find(m_available.begin(), m_available.end(), aWorker);
    if (found != m_available.end())
    {
        m_available.erase(found);
    }
    unlock();
}

void ZnThreadPool::doSourceNotifications(ZnObservable* aSource, ZnObject* aArgument)
{
    ZnWorkerThread* worker = getAvailable();
    if (worker != nullptr)
    {
        worker->doSourceNotifications(aSource, aArgument);
    }
    else
    {
        mDoItYourSelf(ZnWorkerThread::JOB_SOURCE_NOTIFICATION, aSource, nullptr, aArgument);
    }
}

void ZnThreadPool::doObserverNotifications(ZnObserver* aObserver, ZnObject* aArgument)
{
    ZnWorkerThread* worker = getAvailable();
    if (worker != nullptr)
    {
        worker->doObserverNotifications(aObserver, aArgument);
    }
    else
    {
        mDoItYourSelf(ZnWorkerThread::JOB_OBSERVER_NOTIFICATION, nullptr, aObserver, aArgument);
    }
}

void ZnThreadPool::mDoItYourSelf(unsigned int aKind, ZnObservable* aSource, ZnObserver* aObserver,
                                 ZnObject* aArgument)
{
    // The argument is held for the length of the job, as a worker would hold it.
    ZnHandle<ZnObject> argument(aArgument);
    try
    {
        switch (aKind)
        {
        case ZnWorkerThread::JOB_SOURCE_NOTIFICATION:
            aSource->notifyObservers(argument);
            break;
        case ZnWorkerThread::JOB_OBSERVER_NOTIFICATION:
            aObserver->onNotification(ZnHandle<ZnObservable>(), argument);
            break;
        default:
            break;
        }
    }
    catch (ZnHandle<ZnException>& e)
    {
        if (!ZnThread::sShuttingDown())
        {
            // A new error stream has no debug mode on, so this report goes to the sink: it is
            // in effect dropped, and that is intended.
            ZnErrorStream errors;
            ZnOutputStream& out = errors.getDebugStream(ZnException::sDebugToken, 0);
            out << "catch exception in ZnThreadPool::mDoItYourSelf(): " << e->getMessage() << "\n";
        }
    }
}
