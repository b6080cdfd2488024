// A thread that keeps one observable in its block(), so that its input is delivered as it comes.
#ifndef ZNUTIL_ZNOBSERVERTHREAD_H
#define ZNUTIL_ZNOBSERVERTHREAD_H

#include "ZnUtil/ZnThread.h"

#include <cstddef>
#include <mutex>

/// Drives one ZnObservable: after monitorObservable() the thread calls the observable's block()
/// again and again; a false result or an exception only starts the next round. Only terminate()
/// ends the thread, and it first calls the observable's unblock(), which is how a thread sitting
/// in a socket's block() gets out.
///
/// Ownership: holds a handle on the observable.
/// Thread safety: monitorObservable() and terminate() may be called from any thread.
class ZnObserverThread : public ZnThread
{
public:
    ZnObserverThread();
    ~ZnObserverThread() override;

    /// Makes \p aSource the observable to drive and wakes the thread. A second call replaces it.
    void monitorObservable(ZnObservable* aSource);

    /// Calls unblock() on the observable, if there is one, then ends the thread. A false
    /// unblock() trips the assertion "m_hS->unblock()".
    void terminate() override;

    /// The loop of block() calls.
    void run() override;

    /// The observable driven, nil before monitorObservable().
    ZnHandle<ZnObservable> getObservable() const;

    static const char* getMemAccountName() { return "ZnObserverThread"; }
    static void* operator new(size_t size);
    static void operator delete(void* p);

private:
    mutable std::mutex m_sourceMutex;
    ZnHandle<ZnObservable> m_hS; // guarded by m_sourceMutex
};

#endif // ZNUTIL_ZNOBSERVERTHREAD_H
