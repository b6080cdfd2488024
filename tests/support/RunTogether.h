// Starts several threads on the same body at the same moment, for the concurrency tests.
#ifndef ZNUTIL_TESTS_RUNTOGETHER_H
#define ZNUTIL_TESTS_RUNTOGETHER_H

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace ZnTest
{

/// Runs \p body(index) on \p count threads, released together once all of them are waiting,
/// and returns when every one has ended.
template <class Body>
void runTogether(int count, Body body)
{
    std::mutex mutex;
    std::condition_variable ready;
    int waiting = 0;
    bool go = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
    {
        threads.emplace_back(
            [&, i]
            {
                {
                    std::unique_lock<std::mutex> lock(mutex);
                    ++waiting;
                    ready.notify_all();
                    ready.wait(lock, [&] { return go; });
                }
                body(i);
            });
    }
    {
        std::unique_lock<std::mutex> lock(mutex);
        ready.wait(lock, [&] { return waiting == count; });
        go = true;
        ready.notify_all();
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
}

} // namespace ZnTest

#endif // ZNUTIL_TESTS_RUNTOGETHER_H
