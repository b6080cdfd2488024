#include "ZnUtil/ZnScheduler.h"

#include "ZnUtil/ZnMonitorThread.h"
#include "ZnUtil/ZnMutex.h"
#include "ZnUtil/ZnTime.h"
#include "ZnUtil/ZnTimer.h"
#include "ZnUtil/ZnTimerDispatcher.h"
#include "ZnUtil/ZnTimerEvent.h"

namespace
{

/// A timer this close to its due time fires now: the resolution of the monitor's wait.
const int64_t kEarlyFiringMicroSeconds = 1000;

int64_t currentMicroSeconds()
{
    return ZnTime::sGetCurrentTime().getAsLong();
}

} // namespace

ZnScheduler::ZnScheduler(ZnMonitorThread& aMonitor)
    : m_bShutDown(false), m_monitor(aMonitor), m_pMutex(ZnMutex::sAllocate())
{
}

ZnScheduler::~ZnScheduler()
{
    ZnMutex::sRecycle(m_pMutex);
}

int64_t ZnScheduler::schedule(unsigned int aMilliSeconds, ZnObserver* aObserver,
                              ZnObject* aArgument)
{
    const int64_t key = currentMicroSeconds() + static_cast<int64_t>(aMilliSeconds) * 1000;
    Entry entry{ZnHandle<ZnObserver>(aObserver), ZnHandle<ZnObject>(aArgument)};
    int64_t earliest;
    {
        ZnMutexGuard guard(m_pMutex);
        if (m_bShutDown)
        {
            // Nothing is stored, and nothing reported.
            return key;
        }
        earliest = m_entries.empty() ? key + 1 : m_entries.begin()->first;
        // Equal keys go behind the ones there: first come, first served.
        m_entries.emplace_hint(m_entries.upper_bound(key), key, std::move(entry));
    }
    if (key < earliest)
    {
        // Only a new earliest timer costs the monitor a wake-up, outside the lock.
        m_monitor.signal();
    }
    return key;
}

bool ZnScheduler::cancel(ZnObserver* aObserver, int64_t aKey)
{
    if (aKey == 0)
    {
        return false;
    }
    Entry removed;
    bool result = false;
    {
        ZnMutexGuard guard(m_pMutex);
        std::pair<std::multimap<int64_t, Entry>::iterator, std::multimap<int64_t, Entry>::iterator>
            range = m_entries.equal_range(aKey);
        if (aObserver == nullptr)
        {
            // Deliberately true even when nothing had that key, unlike cancel(aKey).
            m_entries.erase(range.first, range.second);
            result = true;
        }
        else
        {
            for (std::multimap<int64_t, Entry>::iterator it = range.first; it != range.second; ++it)
            {
                ZnObserver* stored = it->second.observer;
                if (stored != nullptr && stored->compareWith(aObserver) == 0)
                {
                    removed = std::move(it->second);
                    m_entries.erase(it);
                    result = true;
                    break;
                }
            }
        }
    }
    return result;
}

bool ZnScheduler::cancel(int64_t aKey)
{
    if (aKey == 0)
    {
        return false;
    }
    std::multimap<int64_t, Entry> removed;
    {
        ZnMutexGuard guard(m_pMutex);
        std::pair<std::multimap<int64_t, Entry>::iterator, std::multimap<int64_t, Entry>::iterator>
            range = m_entries.equal_range(aKey);
        if (range.first == range.second)
        {
            return false;
        }
        // Moved out and released after the lock: an observer's last reference may go with it.
        for (std::multimap<int64_t, Entry>::iterator it = range.first; it != range.second; ++it)
        {
            removed.emplace(it->first, std::move(it->second));
        }
        m_entries.erase(range.first, range.second);
    }
    return true;
}

int64_t ZnScheduler::processTimerEvents()
{
    int64_t result = 0;
    for (;;)
    {
        int64_t dueTime = 0;
        Entry due;
        {
            ZnMutexGuard guard(m_pMutex);
            if (!m_entries.empty())
            {
                std::multimap<int64_t, Entry>::iterator first = m_entries.begin();
                const int64_t difference = first->first - currentMicroSeconds();
                if (difference <= kEarlyFiringMicroSeconds)
                {
                    dueTime = first->first;
                    due = std::move(first->second);
                    m_entries.erase(first);
                }
                else
                {
                    result = difference;
                }
            }
        }
        // An entry stored with no observer is dropped, and ends the pass.
        if (!due.observer)
        {
            return result;
        }
        if (!due.argument)
        {
            due.argument = new ZnTimer(dueTime);
        }
        // Posted outside the lock; the timer queue may block while it is full.
        ZnTimerDispatcher::getInstance()->addEvent(new ZnTimerEvent(due.observer, due.argument));
    }
}

void ZnScheduler::shutdown()
{
    std::multimap<int64_t, Entry> removed;
    ZnMutexGuard guard(m_pMutex);
    removed.swap(m_entries);
    m_bShutDown = true;
}

unsigned int ZnScheduler::getSize() const
{
    ZnMutexGuard guard(m_pMutex);
    return static_cast<unsigned int>(m_entries.size());
}

bool ZnScheduler::isShutDown() const
{
    ZnMutexGuard guard(m_pMutex);
    return m_bShutDown;
}
