#include "ZnUtil/ZnObserverThread.h"

#include "ZnUtil/ZnErrorStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnOutputStream.h"

#include "tavoris/Assertion.h"
#include "tavoris/LogSite.h"
#include "tavoris/NoSizeMemAllocator.h"
#include "tavoris/TraceScope.h"

namespace
{

TAVORIS_DEFINE_STATIC_LOGGER(observerThreadLogger, "corvane.zn.ZnObserverThread")

} // namespace

ZnObserverThread::ZnObserverThread() = default;

ZnObserverThread::~ZnObserverThread() = default;

void ZnObserverThread::monitorObservable(ZnObservable* aSource)
{
    {
        std::lock_guard<std::mutex> guard(m_sourceMutex);
        m_hS = aSource;
    }
    signal();
}

ZnHandle<ZnObservable> ZnObserverThread::getObservable() const
{
    std::lock_guard<std::mutex> guard(m_sourceMutex);
    return m_hS;
}

void ZnObserverThread::terminate()
{
    ZnHandle<ZnObservable> source = getObservable();
    if (source)
    {
        // This is how a thread sitting in a socket's block() gets out.
        bool released = source->unblock();
        Tavoris::Assertion(released, "m_hS->unblock()", observerThreadLogger(), TAVORIS_SOURCE_NAME,
                           __LINE__);
    }
    ZnThread::terminate();
}

void ZnObserverThread::run()
{
    TAVORIS_TRACE_SCOPE(observerThreadLogger(), "ZnObserverThread::run");
    for (;;)
    {
        wait(kInfinite);
        if (getState() == STATE_EXITING)
        {
            return;
        }
        // A signal() before monitorObservable() finds nothing to drive: wait for the source
        // instead of calling through a nil handle.
        if (!getObservable())
        {
            continue;
        }
        try
        {
            for (;;)
            {
                if (getState() == STATE_EXITING)
                {
                    break;
                }
                ZnHandle<ZnObservable> source = getObservable();
                if (!source->block())
                {
                    break;
                }
            }
        }
        catch (ZnHandle<ZnException>& e)
        {
            if (!sShuttingDown())
            {
                ZnOutputStream& out =
                    ZnErrorStream::sGetDefault().getDebugStream(ZnException::sDebugToken, 0);
                out << "catch exception in ZnObserverThread::block(): " << e->getMessage() << "\n";
                out.flush();
            }
        }
        // Deliberately round again: only terminate() ends this thread, so a source that has
        // ended has to be taken away by terminating the thread.
        signal();
    }
}

void* ZnObserverThread::operator new(size_t size)
{
    return Tavoris::NoSizeMemAllocator::allocate(size, getMemAccountName());
}

void ZnObserverThread::operator delete(void* p)
{
    Tavoris::NoSizeMemAllocator::deallocate(p, getMemAccountName());
}
