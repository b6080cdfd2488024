// The wake-up event of a thread: one flag, taken by one wait.
#include "ZnUtil/ZnAutoResetEvent.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;

long long millisecondsSince(Clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

/// Counts the waits that returned, for the test to wait on.
class Returns
{
public:
    void add(unsigned int result)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_results.push_back(result);
        m_changed.notify_all();
    }

    /// Waits until \p count waits have returned, at most \p limit.
    bool await(size_t count, std::chrono::milliseconds limit = std::chrono::seconds(10))
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, limit, [&] { return m_results.size() >= count; });
    }

    std::vector<unsigned int> results()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_results;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<unsigned int> m_results;
};

TEST(ZnAutoResetEventTest, ResultsAreFixed)
{
    EXPECT_EQ(258u, ZnAutoResetEvent::kWaitTimeout);
    EXPECT_EQ(0xFFFFFFFFu, ZnAutoResetEvent::kInfinite);
}

TEST(ZnAutoResetEventTest, StartsUnset)
{
    ZnAutoResetEvent event;
    EXPECT_FALSE(event.isSet());
    EXPECT_EQ(ZnAutoResetEvent::kWaitTimeout, event.wait(0));
}

TEST(ZnAutoResetEventTest, OneWaitTakesTheFlag)
{
    ZnAutoResetEvent event;
    event.set();
    EXPECT_TRUE(event.isSet());
    EXPECT_EQ(0u, event.wait(0));
    EXPECT_FALSE(event.isSet());
    EXPECT_EQ(ZnAutoResetEvent::kWaitTimeout, event.wait(0));
}

TEST(ZnAutoResetEventTest, SetBeforeAnInfiniteWaitReturnsAtOnce)
{
    ZnAutoResetEvent event;
    event.set();
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(0u, event.wait(ZnAutoResetEvent::kInfinite));
    EXPECT_LT(millisecondsSince(start), 1000);
    EXPECT_FALSE(event.isSet());
}

TEST(ZnAutoResetEventTest, SeveralSetsCountAsOne)
{
    ZnAutoResetEvent event;
    event.set();
    event.set();
    event.set();
    EXPECT_EQ(0u, event.wait(0));
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(ZnAutoResetEvent::kWaitTimeout, event.wait(60));
    EXPECT_GE(millisecondsSince(start), 60);
}

TEST(ZnAutoResetEventTest, TimeoutLastsTheGivenTime)
{
    ZnAutoResetEvent event;
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(ZnAutoResetEvent::kWaitTimeout, event.wait(120));
    const long long took = millisecondsSince(start);
    EXPECT_GE(took, 120);
    EXPECT_LT(took, 5000);
    EXPECT_FALSE(event.isSet());
}

TEST(ZnAutoResetEventTest, SetFromAnotherThreadWakesAWaiter)
{
    ZnAutoResetEvent event;
    Returns returns;
    std::atomic<bool> waiting{false};
    std::thread waiter(
        [&]
        {
            waiting = true;
            returns.add(event.wait(ZnAutoResetEvent::kInfinite));
        });
    while (!waiting.load())
    {
        std::this_thread::yield();
    }
    event.set();
    const bool woke = returns.await(1);
    if (!woke)
    {
        event.set();
    }
    waiter.join();
    ASSERT_TRUE(woke);
    EXPECT_EQ(0u, returns.results()[0]);
    EXPECT_FALSE(event.isSet());
}

TEST(ZnAutoResetEventTest, OneSetWakesOneOfTwoWaiters)
{
    ZnAutoResetEvent event;
    Returns returns;
    std::vector<std::thread> waiters;
    for (int i = 0; i < 2; ++i)
    {
        waiters.emplace_back([&] { returns.add(event.wait(ZnAutoResetEvent::kInfinite)); });
    }
    event.set();
    ASSERT_TRUE(returns.await(1));
    // The flag went to the one that woke; the other sleeps on.
    EXPECT_FALSE(returns.await(2, std::chrono::milliseconds(150)));
    EXPECT_FALSE(event.isSet());
    event.set();
    const bool both = returns.await(2);
    if (!both)
    {
        event.set();
    }
    for (std::thread& waiter : waiters)
    {
        waiter.join();
    }
    EXPECT_TRUE(both);
    for (unsigned int result : returns.results())
    {
        EXPECT_EQ(0u, result);
    }
}

TEST(ZnAutoResetEventTest, SetsFromManyThreadsAreNeverLost)
{
    // Every round a setter raises the flag once and the waiter takes it once.
    ZnAutoResetEvent event;
    ZnAutoResetEvent taken;
    constexpr int kRounds = 300;
    std::thread setter(
        [&]
        {
            for (int i = 0; i < kRounds; ++i)
            {
                event.set();
                if (taken.wait(10000) != 0)
                {
                    return;
                }
            }
        });
    int received = 0;
    for (int i = 0; i < kRounds; ++i)
    {
        if (event.wait(10000) != 0)
        {
            break;
        }
        ++received;
        taken.set();
    }
    setter.join();
    EXPECT_EQ(kRounds, received);
    EXPECT_FALSE(event.isSet());
}

} // namespace
