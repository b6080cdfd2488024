// Hands notifications to idle worker threads, or runs them on the caller when none can be had.
#ifndef ZNUTIL_ZNTHREADPOOL_H
#define ZNUTIL_ZNTHREADPOOL_H

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnThread.h"

#include <atomic>
#include <vector>

class ZnMutex;
class ZnObject;
class ZnObservable;
class ZnObserver;
class ZnWorkerThread;

/// A pool of ZnWorkerThread objects made on demand, up to a maximum. A notification goes to the
/// worker that went idle last; when none is idle and no new one may be made (the maximum is
/// reached, or shutdown has begun), it runs on the caller's thread. That is the pool's
/// back-pressure: a full pool slows its caller down instead of queueing without limit.
///
/// Ownership: workers own themselves through the thread table; the pool keeps plain pointers to
/// the idle ones, and when it goes it tells them to end. A worker busy with a job still comes
/// back to its pool afterwards: the pool must outlive the jobs it handed out. The signal thread
/// is held by a handle for the pool's owner.
/// Thread safety: the stack of idle workers is under the pool's mutex; the counts are read and
/// written outside it, so getBusyCount() is approximate. Two callers may together make one worker
/// more than the maximum each.
class ZnThreadPool
{
public:
    /// No workers are started here. \p aSignalThread is kept for the owner; \p aMaximum bounds
    /// the workers made.
    explicit ZnThreadPool(ZnHandle<ZnThread> aSignalThread = ZnHandle<ZnThread>(),
                          unsigned int aMaximum = 10);
    virtual ~ZnThreadPool();

    /// Runs notifyObservers(\p aArgument) on \p aSource on an idle worker, or on this thread.
    /// \throws ZnHandle<ZnException> (a ZnSystemError) when a new worker cannot be started.
    void doSourceNotifications(ZnObservable* aSource, ZnObject* aArgument);

    /// Runs onNotification(nil, \p aArgument) on \p aObserver on an idle worker, or on this
    /// thread.
    /// \throws ZnHandle<ZnException> (a ZnSystemError) when a new worker cannot be started.
    void doObserverNotifications(ZnObserver* aObserver, ZnObject* aArgument);

    /// Workers made and not removed.
    unsigned int getThreadCount() const { return m_threadCount.load(); }
    /// Workers idle on the stack.
    unsigned int getAvailableCount() const;
    /// Workers made and not idle; approximate.
    unsigned int getBusyCount() const { return getThreadCount() - getAvailableCount(); }

    /// Sets the maximum, unless more workers than \p aMaximum exist already: then nothing
    /// changes. The pool never shrinks by itself.
    void setMaxThreadCount(unsigned int aMaximum);
    unsigned int getMaxThreadCount() const { return m_maxThreadCount.load(); }

    /// Replaces the thread kept for the owner (nil ends a dispatcher's hold on itself).
    void setSignalThread(ZnHandle<ZnThread> aSignalThread);
    ZnHandle<ZnThread> getSignalThread() const;

protected:
    /// A new, forked worker of this pool; subclasses may make other workers. May return null.
    virtual ZnWorkerThread* createThread();

    /// The idle worker that went idle last, else a new one while the maximum allows and no
    /// shutdown is in progress, else null.
    ZnWorkerThread* getAvailable();

private:
    friend class ZnWorkerThread;

    ZnThreadPool(const ZnThreadPool&) = delete;
    ZnThreadPool& operator=(const ZnThreadPool&) = delete;

    /// Puts \p aWorker back on the stack, unless shutdown is in progress.
    void makeAvailable(ZnWorkerThread* aWorker);
    /// Takes \p aWorker off the stack, if it is there, and counts it gone.
    void remove(ZnWorkerThread* aWorker);
    /// Takes \p aWorker off the stack, if it is there, leaving the count as it is.
    void forget(ZnWorkerThread* aWorker);

    /// Runs a job of kind \p aKind on the calling thread, reporting nothing of what it raises.
    void mDoItYourSelf(unsigned int aKind, ZnObservable* aSource, ZnObserver* aObserver,
                       ZnObject* aArgument);

    void lock();
    void unlock();

    std::atomic<unsigned int> m_maxThreadCount;
    std::atomic<unsigned int> m_threadCount;
    std::vector<ZnWorkerThread*> m_available; // guarded by m_pMutex
    ZnHandle<ZnThread> m_hSignalThread;       // guarded by m_pMutex
    ZnMutex* m_pMutex;
};

#endif // ZNUTIL_ZNTHREADPOOL_H
