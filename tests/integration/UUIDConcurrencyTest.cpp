// Identifiers made from several threads, each call serialised by the caller's mutex as UUID
// requires.
#include "ZnUtil/UUID.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace
{

const int kThreads = 4;
const int kPerThread = 2500;

bool isWellFormed(const std::string& id)
{
    if (id.size() != 36)
    {
        return false;
    }
    for (size_t i = 0; i < id.size(); ++i)
    {
        const char c = id[i];
        const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash != (c == '-'))
        {
            return false;
        }
        if (!dash && !((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')))
        {
            return false;
        }
    }
    return id[14] == '1' && (id[19] == '8' || id[19] == '9' || id[19] == 'a' || id[19] == 'b');
}

uint64_t stampOf(const std::string& id)
{
    const uint64_t low = std::stoull(id.substr(0, 8), nullptr, 16);
    const uint64_t mid = std::stoull(id.substr(9, 4), nullptr, 16);
    const uint64_t high = std::stoull(id.substr(15, 3), nullptr, 16);
    return (high << 48) | (mid << 32) | low;
}

TEST(UUIDConcurrencyTest, SerialisedCallsFromFourThreadsGiveDistinctIdentifiers)
{
    std::mutex uuidMutex;
    std::vector<std::string> inCallOrder; // guarded by uuidMutex
    inCallOrder.reserve(kThreads * kPerThread);
    std::vector<std::vector<std::string>> perThread(kThreads);

    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
    {
        threads.emplace_back(
            [&, t]
            {
                char buffer[37];
                for (int i = 0; i < kPerThread; ++i)
                {
                    std::lock_guard<std::mutex> lock(uuidMutex);
                    UUID::uuid_create_string(buffer);
                    inCallOrder.emplace_back(buffer);
                    perThread[t].emplace_back(buffer);
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }

    ASSERT_EQ(inCallOrder.size(), static_cast<size_t>(kThreads * kPerThread));
    for (const std::vector<std::string>& ids : perThread)
    {
        EXPECT_EQ(ids.size(), static_cast<size_t>(kPerThread));
    }
    const std::set<std::string> distinct(inCallOrder.begin(), inCallOrder.end());
    EXPECT_EQ(distinct.size(), inCallOrder.size());
    for (const std::string& id : inCallOrder)
    {
        ASSERT_TRUE(isWellFormed(id)) << id;
    }
    // One stamp state shared by all threads: in the order of the calls the stamps ascend.
    for (size_t i = 1; i < inCallOrder.size(); ++i)
    {
        ASSERT_LT(stampOf(inCallOrder[i - 1]), stampOf(inCallOrder[i]))
            << inCallOrder[i - 1] << " then " << inCallOrder[i];
    }
}

} // namespace
