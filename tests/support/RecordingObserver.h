// Observers that record the notifications they get, for tests of timers and notifying threads.
#ifndef ZNUTIL_TESTS_RECORDINGOBSERVER_H
#define ZNUTIL_TESTS_RECORDINGOBSERVER_H

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnObserver.h"
#include "ZnUtil/ZnThread.h"
#include "ZnUtil/ZnTime.h"

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "support/ThreadSettling.h"
#include "support/WaitUntil.h"

namespace ZnTest
{

/// The clock the scheduler keys its timers on, in microseconds.
inline int64_t nowMicros()
{
    return ZnTime::sGetCurrentTime().getAsLong();
}

/// An argument that can be told apart from others by its name.
class Tag : public ZnObject
{
public:
    explicit Tag(std::string name) : m_name(std::move(name)) {}
    const std::string& getName() const { return m_name; }

private:
    std::string m_name;
};

/// The names of the observers notified, in the order their notifications began; shared by
/// several observers. Thread safe.
class Journal
{
public:
    void add(const std::string& name)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_names.push_back(name);
        m_changed.notify_all();
    }

    /// Waits until \p size names have come, at most kLimit.
    bool waitForSize(size_t size)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, kLimit, [&] { return m_names.size() >= size; });
    }

    std::vector<std::string> names() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_names;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_names; // guarded by m_mutex
};

/// What one notification brought.
struct Notification
{
    ZnObservable* source; // compared, never used
    ZnHandle<ZnObject> argument;
    ZnThread* thread; // compared, never used
    int64_t time;     // nowMicros() when it began
};

/// Records every notification it gets, and writes its name into a journal if it has one. Notes
/// the library thread that ran each with SettlingEnvironment::sNote(). Thread safe.
class RecordingObserver : public ZnObserver
{
public:
    explicit RecordingObserver(std::string name = std::string(),
                               std::shared_ptr<Journal> journal = std::shared_ptr<Journal>())
        : m_name(std::move(name)), m_journal(std::move(journal))
    {
    }

    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override
    {
        Notification notification{aSource, aArgument, ZnThread::sGetCurrent(), nowMicros()};
        SettlingEnvironment::sNote(notification.thread);
        if (m_journal)
        {
            m_journal->add(m_name);
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        m_notifications.push_back(notification);
        m_changed.notify_all();
    }

    /// Waits until \p count notifications have come, at most kLimit.
    bool waitForCount(size_t count)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, kLimit, [&] { return m_notifications.size() >= count; });
    }

    size_t count() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_notifications.size();
    }

    std::vector<Notification> notifications() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_notifications;
    }

    const std::string& getName() const { return m_name; }

private:
    const std::string m_name;
    const std::shared_ptr<Journal> m_journal;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Notification> m_notifications; // guarded by m_mutex
};

} // namespace ZnTest

#endif // ZNUTIL_TESTS_RECORDINGOBSERVER_H
