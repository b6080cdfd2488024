// An ordered set of one-shot timers, driven by a monitor thread.
#ifndef ZNUTIL_ZNSCHEDULER_H
#define ZNUTIL_ZNSCHEDULER_H

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObserver.h"

#include <cstdint>
#include <map>

class ZnMonitorThread;
class ZnMutex;

/// One-shot timers by due time, in microseconds on the clock of ZnTime::sGetCurrentTime. The key
/// of a timer is its due time itself: two timers set in the same microsecond share it, and 0 is
/// no key. A due timer is not called here: it is posted as a ZnTimerEvent to the timer
/// dispatcher, whose pool notifies the observer with a nil source.
///
/// Ownership: each entry holds its observer and argument by handles until it fires or is
/// cancelled.
/// Thread safety: schedule() and cancel() may be called from any thread; processTimerEvents()
/// runs on the monitor thread. The mutex covers the map only; nothing is posted under it.
class ZnScheduler
{
public:
    /// A scheduler that wakes \p aMonitor when a new timer becomes the earliest.
    explicit ZnScheduler(ZnMonitorThread& aMonitor);
    ~ZnScheduler();

    /// Sets a timer due in \p aMilliSeconds for \p aObserver with \p aArgument (which may be
    /// null: the observer then gets a ZnTimer with the due time). Timers with the same key fire
    /// in the order they were set. After shutdown() nothing is stored, and no failure reported.
    /// \return the timer's key.
    int64_t schedule(unsigned int aMilliSeconds, ZnObserver* aObserver, ZnObject* aArgument);

    /// With \p aObserver: removes the first timer of key \p aKey whose observer compares equal.
    /// With a null observer: removes every timer of that key.
    /// \return false for the key 0 or when no timer of \p aObserver matched; true otherwise,
    /// including a null observer and an unknown key.
    bool cancel(ZnObserver* aObserver, int64_t aKey);

    /// Removes every timer of key \p aKey.
    /// \return true when there was one; false for the key 0 or an unknown key.
    bool cancel(int64_t aKey);

    /// Posts every timer that is due (up to 1000 microseconds early). A timer stored with a nil
    /// observer is dropped and ends the pass.
    /// \return microseconds until the next timer, or 0 when none is left (or the pass ended on a
    /// nil observer).
    int64_t processTimerEvents();

    /// Empties the map for good: later timers are not stored.
    void shutdown();

    /// The timers held.
    unsigned int getSize() const;

    bool isShutDown() const;

private:
    /// One timer.
    struct Entry
    {
        ZnHandle<ZnObserver> observer;
        ZnHandle<ZnObject> argument;
    };

    ZnScheduler(const ZnScheduler&) = delete;
    ZnScheduler& operator=(const ZnScheduler&) = delete;

    std::multimap<int64_t, Entry> m_entries; // guarded by m_pMutex
    bool m_bShutDown;                        // guarded by m_pMutex
    ZnMonitorThread& m_monitor;
    ZnMutex* m_pMutex;
};

#endif // ZNUTIL_ZNSCHEDULER_H
