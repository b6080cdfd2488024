#include "ZnUtil/ZnMonitorThread.h"

#include "ZnUtil/ZnObserverThread.h"
#include "ZnUtil/ZnPlatform.h"
#include "ZnUtil/ZnProcess.h"

#include "tavoris/NoSizeMemAllocator.h"

#include <ace/Object_Manager.h>

#include <atomic>
#include <mutex>

namespace
{

std::atomic<ZnMonitorThread*> s_defaultMonitor{nullptr};
std::mutex s_defaultCreation;

} // namespace

ZnMonitorThread::ZnMonitorThread() : m_scheduler(*this) {}

ZnMonitorThread::ZnMonitorThread(ZnProcess*) : ZnThread(), m_scheduler(*this) {}

ZnMonitorThread::~ZnMonitorThread() = default;

ZnMonitorThread* ZnMonitorThread::sGetCurrent()
{
    ZnThread* self = ZnThread::sGetByToken(ZnPlatform::sGetCurrentThreadId());
    if (ZnMonitorThread* monitor = dynamic_cast<ZnMonitorThread*>(self))
    {
        return monitor;
    }
    ZnMonitorThread* monitor = s_defaultMonitor.load();
    if (monitor != nullptr)
    {
        return monitor;
    }
    std::lock_guard<std::mutex> guard(s_defaultCreation);
    monitor = s_defaultMonitor.load();
    if (monitor == nullptr)
    {
        monitor = new ZnMonitorThread();
        monitor->AddRef(); // the default instance is kept until exit
        monitor->fork();
        s_defaultMonitor.store(monitor);
        ACE_Object_Manager::at_exit(monitor, &ZnMonitorThread::sReleaseDefault, nullptr,
                                    "ZnMonitorThread");
    }
    return monitor;
}

void ZnMonitorThread::sReleaseDefault(void* aMonitor, void*)
{
    ZnMonitorThread* monitor = static_cast<ZnMonitorThread*>(aMonitor);
    // A monitor whose thread still runs at exit is left to it.
    if (monitor->getState() == STATE_DETACHED && sGetThreadTableSize() == 0)
    {
        s_defaultMonitor.store(nullptr);
        monitor->Release();
    }
}

void ZnMonitorThread::monitorObservable(ZnObservable* aSource)
{
    ZnObserverThread* observerThread = new ZnObserverThread();
    ZnHandle<ZnThread> hold(observerThread);
    observerThread->fork();
    observerThread->monitorObservable(aSource);
}

void ZnMonitorThread::sMonitorObservable(ZnObservable* aSource)
{
    sGetCurrent()->monitorObservable(aSource);
}

int64_t ZnMonitorThread::monitorTime(unsigned int aMilliSeconds, ZnObserver* aObserver,
                                     ZnObject* aArgument)
{
    return m_scheduler.schedule(aMilliSeconds, aObserver, aArgument);
}

int64_t ZnMonitorThread::sMonitorTime(unsigned int aMilliSeconds, ZnObserver* aObserver,
                                      ZnObject* aArgument)
{
    return sGetCurrent()->monitorTime(aMilliSeconds, aObserver, aArgument);
}

bool ZnMonitorThread::sCancelTime(ZnObserver* aObserver, int64_t aKey)
{
    return sGetCurrent()->m_scheduler.cancel(aObserver, aKey);
}

bool ZnMonitorThread::sCancelTime(int64_t aKey)
{
    return sGetCurrent()->m_scheduler.cancel(aKey);
}

void ZnMonitorThread::run()
{
    while (getState() != STATE_EXITING)
    {
        const int64_t delay = m_scheduler.processTimerEvents();
        if (delay == 0)
        {
            wait(kInfinite);
        }
        else
        {
            const int64_t milliSeconds = delay / 1000;
            wait(milliSeconds == 0 ? 1U : static_cast<unsigned int>(milliSeconds));
        }
    }
    m_scheduler.shutdown();
}

void* ZnMonitorThread::operator new(size_t size)
{
    return Tavoris::NoSizeMemAllocator::allocate(size, getMemAccountName());
}

void ZnMonitorThread::operator delete(void* p)
{
    Tavoris::NoSizeMemAllocator::deallocate(p, getMemAccountName());
}
