#include "ZnUtil/ZnAutoResetEvent.h"

#include <chrono>

void ZnAutoResetEvent::set()
{
    std::lock_guard<std::mutex> guard(m_mutex);
    m_bSet = true;
    // Notified under the lock: a waiter that wakes may end its thread and destroy this event
    // as soon as the lock is free.
    m_condition.notify_one();
}

unsigned int ZnAutoResetEvent::wait(unsigned int aMilliSeconds)
{
    std::unique_lock<std::mutex> guard(m_mutex);
    if (aMilliSeconds == kInfinite)
    {
        m_condition.wait(guard, [this] { return m_bSet; });
    }
    else if (!m_condition.wait_for(guard, std::chrono::milliseconds(aMilliSeconds),
                                   [this] { return m_bSet; }))
    {
        return kWaitTimeout;
    }
    m_bSet = false;
    return 0;
}

bool ZnAutoResetEvent::isSet() const
{
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_bSet;
}
