// A counting semaphore with a ceiling, as the event queue needs it.
#ifndef ZNUTIL_ZNSEMAPHORE_H
#define ZNUTIL_ZNSEMAPHORE_H

#include <atomic>

#include <semaphore.h>

/// A counting semaphore on a POSIX sem_t, with the maximum count of its original form: a
/// release that would pass the maximum is refused and changes nothing.
///
/// Thread safety: every operation may be called from any thread.
class ZnSemaphore
{
public:
    /// \throws ZnHandle<ZnException> (a ZnSystemError "CreateSemaphore") when the system refuses.
    ZnSemaphore(unsigned int aInitialCount, unsigned int aMaximumCount);
    ~ZnSemaphore();

    /// Takes one unit if one is there, without waiting.
    /// \return true when a unit was taken.
    bool tryAcquire();

    /// Waits up to \p aMilliSeconds on the monotonic clock for one unit.
    /// \return true when a unit was taken, false when the time ran out.
    bool acquire(unsigned int aMilliSeconds);

    /// Gives back one unit, waking one waiter.
    /// \return false when the count stood at the maximum already.
    bool release();

    /// The units there now; a statistic.
    unsigned int getCount() const;

    unsigned int getMaximumCount() const { return m_maximumCount; }

private:
    ZnSemaphore(const ZnSemaphore&) = delete;
    ZnSemaphore& operator=(const ZnSemaphore&) = delete;

    mutable sem_t m_semaphore;
    unsigned int m_maximumCount;
    // Bumped with release order before each post and read with acquire order after each take,
    // so that what a releaser wrote is visible to the taker by the language's own rules too.
    std::atomic<unsigned long> m_releases;
};

#endif // ZNUTIL_ZNSEMAPHORE_H
