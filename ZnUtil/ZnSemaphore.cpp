#include "ZnUtil/ZnSemaphore.h"

#include "ZnUtil/ZnSystemError.h"

#include <cerrno>
#include <ctime>

ZnSemaphore::ZnSemaphore(unsigned int aInitialCount, unsigned int aMaximumCount)
    : m_maximumCount(aMaximumCount), m_releases(0)
{
    if (sem_init(&m_semaphore, 0, aInitialCount) != 0)
    {
        ZnSystemError::sThrow("CreateSemaphore", errno);
    }
}

ZnSemaphore::~ZnSemaphore()
{
    sem_destroy(&m_semaphore);
}

bool ZnSemaphore::tryAcquire()
{
    while (sem_trywait(&m_semaphore) != 0)
    {
        if (errno != EINTR)
        {
            return false;
        }
    }
    m_releases.load(std::memory_order_acquire);
    return true;
}

bool ZnSemaphore::acquire(unsigned int aMilliSeconds)
{
    timespec deadline = {};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += aMilliSeconds / 1000;
    deadline.tv_nsec += static_cast<long>(aMilliSeconds % 1000) * 1000000L;
    if (deadline.tv_nsec >= 1000000000L)
    {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= 1000000000L;
    }
    // A signal handler that interrupts the wait does not shorten it.
    while (sem_clockwait(&m_semaphore, CLOCK_MONOTONIC, &deadline) != 0)
    {
        if (errno != EINTR)
        {
            return false;
        }
    }
    m_releases.load(std::memory_order_acquire);
    return true;
}

bool ZnSemaphore::release()
{
    // The ceiling test and the post are not one step: two releasers racing at the maximum
    // could both pass. The queue's releases never come near it but for WakeUpAll.
    if (getCount() >= m_maximumCount)
    {
        return false;
    }
    m_releases.fetch_add(1, std::memory_order_release);
    return sem_post(&m_semaphore) == 0;
}

unsigned int ZnSemaphore::getCount() const
{
    int value = 0;
    sem_getvalue(&m_semaphore, &value);
    return value < 0 ? 0U : static_cast<unsigned int>(value);
}
