// The library's time base: a thread that runs the scheduler and starts observer threads.
#ifndef ZNUTIL_ZNMONITORTHREAD_H
#define ZNUTIL_ZNMONITORTHREAD_H

#include "ZnUtil/ZnScheduler.h"
#include "ZnUtil/ZnThread.h"

#include <cstddef>
#include <cstdint>

class ZnObservable;
class ZnProcess;

/// Runs a ZnScheduler: sleeps until the earliest timer is due (or a new earliest timer arrives),
/// and posts the due ones to the timer dispatcher. One default instance serves the process; a
/// thread that is itself a monitor thread uses its own.
///
/// Ownership: the default instance is kept with one extra reference and released at exit.
/// Thread safety: every operation may be called from any thread.
class ZnMonitorThread : public ZnThread
{
public:
    ZnMonitorThread();
    ~ZnMonitorThread() override;

    /// The calling thread itself when it is a monitor thread; otherwise the default instance,
    /// made and forked on first use. Does not add a reference.
    static ZnMonitorThread* sGetCurrent();

    /// Starts a new ZnObserverThread that drives \p aSource.
    void monitorObservable(ZnObservable* aSource);
    /// monitorObservable() on sGetCurrent().
    static void sMonitorObservable(ZnObservable* aSource);

    /// Sets a timer on this thread's scheduler (see ZnScheduler::schedule).
    /// \return the timer's key.
    int64_t monitorTime(unsigned int aMilliSeconds, ZnObserver* aObserver, ZnObject* aArgument);
    /// monitorTime() on sGetCurrent().
    static int64_t sMonitorTime(unsigned int aMilliSeconds, ZnObserver* aObserver,
                                ZnObject* aArgument);

    /// ZnScheduler::cancel(aObserver, aKey) on the scheduler of sGetCurrent().
    static bool sCancelTime(ZnObserver* aObserver, int64_t aKey);
    /// ZnScheduler::cancel(aKey) on the scheduler of sGetCurrent().
    static bool sCancelTime(int64_t aKey);

    ZnScheduler& getScheduler() { return m_scheduler; }

    /// The timer loop; shuts the scheduler down when it ends.
    void run() override;

    static const char* getMemAccountName() { return "ZnMonitorThread"; }
    static void* operator new(size_t size);
    static void operator delete(void* p);

private:
    explicit ZnMonitorThread(ZnProcess* aProcess);

    static void sReleaseDefault(void* aMonitor, void* aParam);

    ZnScheduler m_scheduler;
};

#endif // ZNUTIL_ZNMONITORTHREAD_H
