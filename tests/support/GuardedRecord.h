// What test threads report to the test, under a lock with a condition to wait on.
#ifndef ZNUTIL_TESTS_GUARDEDRECORD_H
#define ZNUTIL_TESTS_GUARDEDRECORD_H

#include <condition_variable>
#include <mutex>

#include "support/WaitUntil.h"

namespace ZnTest
{

/// The base of a record whose fields, declared by \p Derived, are read and changed only through
/// update(), await() and read(), which hand the functions given to them the whole record under
/// its lock. Thread safe that way.
template <class Derived>
class GuardedRecord
{
public:
    /// Changes the record under its lock and wakes whoever waits on it.
    template <class Change>
    void update(Change change)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        change(self());
        m_changed.notify_all();
    }

    /// Waits until \p predicate holds on the record, at most kLimit.
    /// \return the predicate's last answer.
    template <class Predicate>
    bool await(Predicate predicate)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, kLimit, [&] { return predicate(self()); });
    }

    /// Reads the record under its lock. \return what \p reader returns.
    template <class Reader>
    auto read(Reader reader)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return reader(self());
    }

private:
    Derived& self() { return static_cast<Derived&>(*this); }

    std::mutex m_mutex;
    std::condition_variable m_changed;
};

} // namespace ZnTest

#endif // ZNUTIL_TESTS_GUARDEDRECORD_H
