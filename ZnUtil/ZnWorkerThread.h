// A thread that carries out one notification at a time for a thread pool.
#ifndef ZNUTIL_ZNWORKERTHREAD_H
#define ZNUTIL_ZNWORKERTHREAD_H

#include "ZnUtil/ZnThread.h"

#include <atomic>

class ZnThreadPool;

/// A pool worker. A job is handed over by writing it into the worker and signalling it; after the
/// job the worker goes back on its pool's stack of idle workers and waits for the next. An
/// exception in a job is logged and leaves the worker usable.
///
/// Ownership: holds handles on the job's source, observer and argument until the job is done.
/// Thread safety: only the thread that popped the worker off the pool (or made it) hands it a
/// job; the signal orders the job's fields before the worker reads them.
class ZnWorkerThread : public ZnThread
{
public:
    /// What a job is.
    enum JobKind
    {
        JOB_NONE = 0,
        JOB_SOURCE_NOTIFICATION = 1,
        JOB_OBSERVER_NOTIFICATION = 2
    };

    /// A worker of \p aPool; a worker of no pool simply waits for its next job after each one.
    /// The pool is not owned.
    explicit ZnWorkerThread(ZnThreadPool* aPool = nullptr);
    ~ZnWorkerThread() override;

    /// Hands over the job notifyObservers(\p aArgument) on \p aSource, and wakes the worker.
    void doSourceNotifications(ZnObservable* aSource, ZnObject* aArgument);

    /// Hands over the job onNotification(nil, \p aArgument) on \p aObserver, and wakes the
    /// worker.
    void doObserverNotifications(ZnObserver* aObserver, ZnObject* aArgument);

    /// The job loop.
    void run() override;

    /// The kind of the job held now.
    unsigned int getJobKind() const { return m_jobKind; }

private:
    friend class ZnThreadPool;

    /// Runs the job held; the caller catches what it raises.
    void mRunJob();

    unsigned int m_jobKind;
    ZnHandle<ZnObservable> m_hJobSource;
    ZnHandle<ZnObserver> m_hJobObserver;
    ZnHandle<ZnObject> m_hJobArgument;
    std::atomic<ZnThreadPool*> m_pPool; // null once the pool has let go of an idle worker
};

#endif // ZNUTIL_ZNWORKERTHREAD_H
