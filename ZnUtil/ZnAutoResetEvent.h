// The wake-up signal of a thread: a flag that one wait consumes.
#ifndef ZNUTIL_ZNAUTORESETEVENT_H
#define ZNUTIL_ZNAUTORESETEVENT_H

#include <condition_variable>
#include <mutex>

/// An auto-reset event: set() raises a flag, and a wait returns as soon as the flag is up and
/// lowers it again. A set() while nobody waits stays in the flag for the next wait; several
/// set() calls before a wait count as one.
///
/// Thread safety: every operation may be called from any thread.
class ZnAutoResetEvent
{
public:
    /// The result of a wait that ran out of time.
    static constexpr unsigned int kWaitTimeout = 258;
    /// A time that never runs out.
    static constexpr unsigned int kInfinite = 0xFFFFFFFF;

    ZnAutoResetEvent() = default;

    /// Raises the flag and wakes one waiter.
    void set();

    /// Waits until the flag is up or \p aMilliSeconds have passed on the monotonic clock, then
    /// lowers the flag. kInfinite waits for ever.
    /// \return 0 when the flag was taken, kWaitTimeout when the time ran out.
    unsigned int wait(unsigned int aMilliSeconds);

    /// True when the flag is up; a statistic, as another thread may take it at once.
    bool isSet() const;

private:
    ZnAutoResetEvent(const ZnAutoResetEvent&) = delete;
    ZnAutoResetEvent& operator=(const ZnAutoResetEvent&) = delete;

    mutable std::mutex m_mutex;
    std::condition_variable m_condition; // steady_clock waits: CLOCK_MONOTONIC
    bool m_bSet = false;                 // guarded by m_mutex
};

#endif // ZNUTIL_ZNAUTORESETEVENT_H
