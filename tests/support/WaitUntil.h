// Bounded waits on a condition, for tests of what other threads do.
#ifndef ZNUTIL_TESTS_WAITUNTIL_H
#define ZNUTIL_TESTS_WAITUNTIL_H

#include <chrono>
#include <thread>

namespace ZnTest
{

/// How long a test waits for what should happen at once; only a failing test waits that long.
inline constexpr std::chrono::seconds kLimit(10);

/// Polls \p pred until it holds or \p limit has passed: with yields at first, for what follows
/// at once, then with short sleeps.
/// \return the last answer of \p pred.
template <class Pred>
bool waitUntil(Pred pred, std::chrono::steady_clock::duration limit = kLimit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (int round = 0; !pred(); ++round)
    {
        if (std::chrono::steady_clock::now() > deadline)
        {
            return pred();
        }
        if (round < 1000)
        {
            std::this_thread::yield();
        }
        else
        {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    }
    return true;
}

} // namespace ZnTest

#endif // ZNUTIL_TESTS_WAITUNTIL_H
