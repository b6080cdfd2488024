// The library's general lock: recursive, spinning on a try-lock before it sleeps.
#ifndef ZNUTIL_ZNMUTEX_H
#define ZNUTIL_ZNMUTEX_H

#include <atomic>
#include <cstddef>

#include <pthread.h>

/// A recursive lock that tries 4000 times before it blocks.
///
/// Contended sections in the library are short, so a lock first spins on a try-lock and only then
/// waits in the kernel; m_lockCount counts those waits. Mutexes come from sAllocate (and go back
/// through sRecycle), or from a pool of 256 shared by thread id for code that needs a lock and
/// can live with sharing it. Thread safety: every operation may be called from any thread; the
/// owner may lock again and must unlock as often.
class ZnMutex
{
public:
    /// Number of try-locks of lock() before it blocks.
    static constexpr int kSpinCount = 4000;
    /// Size of the shared pool.
    static constexpr int kPoolSize = 256;

    /// 0 until the pool exists, then 1.
    static int fs_MutexInitializationCounter;
    /// The shared pool, filled by sInitialize.
    static ZnMutex* sm_pMutex[kPoolSize];
    /// Calls of lock(). A statistic: updated without a locked instruction, so counts can be lost
    /// when threads race, and never more.
    static std::atomic<long> m_tryLockCount;
    /// Calls of lock() whose spin failed and which blocked. A statistic, as m_tryLockCount.
    static std::atomic<long> m_lockCount;

    ZnMutex();
    ~ZnMutex();

    /// Takes the lock: up to 4000 try-locks, then a blocking lock.
    void lock();
    void unlock();
    /// Exactly lock(): there is no shared reading mode.
    void readLock() { lock(); }
    void writeLock() { lock(); }
    void readUnlock() { unlock(); }
    void writeUnlock() { unlock(); }

    /// A new mutex on the memory account "ZnMutex".
    /// \return the mutex, or null when no memory could be had.
    static ZnMutex* sAllocate();
    /// Destroys a mutex of sAllocate and gives its memory back; null is ignored.
    static void sRecycle(ZnMutex* mutex);
    /// Fills the pool on the first call; later calls do nothing.
    static void sInitialize();
    /// The pool's mutex for the calling thread: threads whose ids agree in their low eight bits
    /// share one.
    static ZnMutex* sAllocateFromPool();
    /// Does nothing: pool members live to the end of the process.
    static void sReleaseToPool(ZnMutex* mutex);

    /// "ZnMutex".
    static const char* getMemAccountName() { return "ZnMutex"; }

    static void* operator new(size_t size);
    static void operator delete(void* p);
    static void* operator new[](size_t size);
    static void operator delete[](void* p);
    /// Placement forms: nothing special.
    static void* operator new(size_t, void* place) { return place; }
    static void operator delete(void*, void*) {}

private:
    ZnMutex(const ZnMutex&) = delete;
    ZnMutex& operator=(const ZnMutex&) = delete;

    pthread_mutex_t m_mutex;
};

/// Holds a ZnMutex for the life of a scope.
class ZnMutexGuard
{
public:
    explicit ZnMutexGuard(ZnMutex* mutex) : m_pMutex(mutex) { m_pMutex->lock(); }
    ~ZnMutexGuard() { m_pMutex->unlock(); }

private:
    ZnMutexGuard(const ZnMutexGuard&) = delete;
    ZnMutexGuard& operator=(const ZnMutexGuard&) = delete;

    ZnMutex* m_pMutex;
};

#endif // ZNUTIL_ZNMUTEX_H
