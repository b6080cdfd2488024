// A recursive lock with a short spin, a process-wide instance, a recycling pool and atomic
// counters.
#ifndef ZNUTIL_ZNCRITICALSECTION_H
#define ZNUTIL_ZNCRITICALSECTION_H

#include <atomic>

#include <pthread.h>

/// A recursive lock that tries 100 times before it blocks.
///
/// Instances come only from sAllocate and go back through sRecycle, which keeps up to 1024 of
/// them alive on a free list for reuse. The process-wide section (sEnter, sLeave) guards that free
/// list and the record of open file descriptors. Thread safety: every operation may be called
/// from any thread.
class ZnCriticalSection
{
public:
    /// Number of try-locks of enter() before it blocks.
    static constexpr int kSpinCount = 100;
    /// Above this many instances alive, recycled ones are freed instead of kept.
    static constexpr int kRecycleCeiling = 1024;

    /// Takes the lock: up to 100 try-locks, then a blocking lock.
    void enter();
    void leave();

    /// enter() and leave() on the process-wide section.
    static void sEnter();
    static void sLeave();

    /// A section from the free list, or a new one.
    /// \return the section, or null when no memory could be had.
    static ZnCriticalSection* sAllocate();

    /// Puts \p section on the free list, or frees it when 1024 or more are alive. Null is counted
    /// and otherwise ignored.
    static void sRecycle(ZnCriticalSection* section);

    /// Atomic add of 1. \return the new value.
    static long sIncrement(long* value);
    /// Atomic add of -1. \return the new value.
    static long sDecrement(long* value);
    /// Atomic exchange. \return the old value.
    static long sExchange(long* target, long value);

    /// Instances alive, the free ones included.
    static int sGetAliveCount();
    /// Calls of sAllocate so far.
    static int sGetAllocateCount();
    /// Calls of sRecycle so far.
    static int sGetRecycleCount();
    /// Instances on the free list now.
    static int sGetFreeCount();

private:
    ZnCriticalSection();
    ~ZnCriticalSection();
    ZnCriticalSection(const ZnCriticalSection&) = delete;
    ZnCriticalSection& operator=(const ZnCriticalSection&) = delete;

    friend class ZnCriticalSectionProcessLock;

    pthread_mutex_t m_mutex;
    ZnCriticalSection* m_pNext; // free list link; guarded by the process-wide section
};

#endif // ZNUTIL_ZNCRITICALSECTION_H
