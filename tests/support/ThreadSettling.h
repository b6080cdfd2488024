// A test environment that lets the library's threads settle before the program ends.
#ifndef ZNUTIL_TESTS_THREADSETTLING_H
#define ZNUTIL_TESTS_THREADSETTLING_H

#include "ZnUtil/ZnDispatcherThread.h"
#include "ZnUtil/ZnThread.h"

#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <set>

#include "support/WaitUntil.h"

namespace ZnTest
{

/// The library's threads that ran notifications of this program. Before the program ends each of
/// them is to be back in its wait: a worker on its way there still uses the loggers, which go
/// away at exit. A program registers one instance with ::testing::AddGlobalTestEnvironment and
/// notes each thread with sNote(). Thread safe.
class SettlingEnvironment : public ::testing::Environment
{
public:
    /// \param limit how long TearDown() waits for each thread.
    explicit SettlingEnvironment(std::chrono::steady_clock::duration limit = kLimit)
        : m_limit(limit)
    {
    }

    /// Notes \p aThread, which may be null (a notification on a thread the library did not
    /// start). Does not take a reference: these threads are never ended, there is no shutdown
    /// in these programs.
    static void sNote(ZnThread* aThread)
    {
        if (aThread == nullptr)
        {
            return;
        }
        std::lock_guard<std::mutex> lock(sm_mutex);
        sm_threads.insert(aThread);
    }

    void TearDown() override
    {
        std::set<ZnThread*> threads;
        {
            std::lock_guard<std::mutex> lock(sm_mutex);
            threads = sm_threads;
        }
        for (ZnThread* thread : threads)
        {
            // A dispatcher that ran a notification itself, its pool being busy, went back to its
            // queue, not to wait().
            if (dynamic_cast<ZnDispatcherThread*>(thread) != nullptr)
            {
                continue;
            }
            EXPECT_TRUE(waitUntil(
                [thread] { return thread->getState() == ZnThread::STATE_BLOCKED; }, m_limit));
        }
    }

private:
    const std::chrono::steady_clock::duration m_limit;
    static inline std::mutex sm_mutex;
    static inline std::set<ZnThread*> sm_threads; // guarded by sm_mutex
};

} // namespace ZnTest

#endif // ZNUTIL_TESTS_THREADSETTLING_H
