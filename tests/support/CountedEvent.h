// Numbered events that tell their destruction, for tests of the event queue and dispatchers.
#ifndef ZNUTIL_TESTS_COUNTEDEVENT_H
#define ZNUTIL_TESTS_COUNTEDEVENT_H

#include "ZnUtil/ZnBaseEvent.h"

#include <algorithm>
#include <mutex>
#include <vector>

namespace ZnTest
{

/// Which events were destroyed, in order. Thread safe.
class DestructionLog
{
public:
    void note(int id)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_ids.push_back(id);
    }

    std::vector<int> ids() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_ids;
    }

    size_t count() const { return ids().size(); }

    bool has(int id) const
    {
        const std::vector<int> all = ids();
        return std::find(all.begin(), all.end(), id) != all.end();
    }

private:
    mutable std::mutex m_mutex;
    std::vector<int> m_ids; // guarded by m_mutex
};

/// An event with a number that tells its destruction to a log, if it has one. Does not own the
/// log, which is to outlive it.
class CountedEvent : public ZnBaseEvent
{
public:
    explicit CountedEvent(int id, DestructionLog* log = nullptr) : m_id(id), m_log(log) {}
    ~CountedEvent() override
    {
        if (m_log != nullptr)
        {
            m_log->note(m_id);
        }
    }

    int getId() const { return m_id; }

private:
    int m_id;
    DestructionLog* m_log;
};

} // namespace ZnTest

#endif // ZNUTIL_TESTS_COUNTEDEVENT_H
