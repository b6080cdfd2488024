// A library thread that runs a function given by the test, and a holder that ends it.
#ifndef ZNUTIL_TESTS_TASKTHREAD_H
#define ZNUTIL_TESTS_TASKTHREAD_H

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnThread.h"

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

#include "support/WaitUntil.h"

namespace ZnTest
{

/// A library thread that runs a function, and tells when the object is destroyed.
class TaskThread : public ZnThread
{
public:
    explicit TaskThread(std::function<void(TaskThread&)> body)
        : m_body(std::move(body)), m_destroyed(std::make_shared<std::atomic<bool>>(false))
    {
    }
    ~TaskThread() override { m_destroyed->store(true); }

    void run() override { m_body(*this); }

    /// Set once the object is gone; outlives it.
    std::shared_ptr<std::atomic<bool>> destroyedFlag() const { return m_destroyed; }

private:
    std::function<void(TaskThread&)> m_body;
    std::shared_ptr<std::atomic<bool>> m_destroyed;
};

/// A forked TaskThread held for the test. Should the test stop early, the thread is told to exit
/// and waited for, so that it never outlives what it uses. Used by the test's thread only.
class LibThread
{
public:
    explicit LibThread(std::function<void(TaskThread&)> body)
        : m_thread(new TaskThread(std::move(body))), m_destroyed(m_thread->destroyedFlag())
    {
        m_thread->fork();
    }

    ~LibThread()
    {
        if (!m_thread.isNil() && m_thread->getState() != ZnThread::STATE_DETACHED)
        {
            m_thread->terminate();
        }
        finish();
    }

    LibThread(const LibThread&) = delete;
    LibThread& operator=(const LibThread&) = delete;

    /// The thread, until finish().
    TaskThread* operator->() const { return m_thread; }

    /// Drops the hold and waits until the object is gone, that is until its main() has ended.
    /// \return false when it was still there after kLimit.
    bool finish()
    {
        m_thread = nullptr;
        return waitUntil([this] { return m_destroyed->load(); });
    }

private:
    ZnHandle<TaskThread> m_thread;
    std::shared_ptr<std::atomic<bool>> m_destroyed;
};

} // namespace ZnTest

#endif // ZNUTIL_TESTS_TASKTHREAD_H
