#include "tavoris/DefaultStaticMemAllocator.h"
#include "tavoris/MemAccount.h"
#include "tavoris/NoSizeMemAllocator.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "support/RunTogether.h"

namespace
{

using Tavoris::DefaultStaticMemAllocator;
using Tavoris::MemAccount;
using Tavoris::NoSizeMemAllocator;

using ZnTest::runTogether;

TEST(DefaultStaticMemAllocatorTest, AllocationIsCountedOnItsAccount)
{
    const char* account = "MemTest::DefaultCounted";
    const MemAccount::Reading before = MemAccount::sRead(account);
    void* p = DefaultStaticMemAllocator::allocate(48, account);
    ASSERT_NE(nullptr, p);
    const MemAccount::Reading during = MemAccount::sRead(account);
    EXPECT_EQ(account, during.name);
    EXPECT_EQ(before.liveBytes + 48, during.liveBytes);
    EXPECT_EQ(before.liveBlocks + 1, during.liveBlocks);
    EXPECT_EQ(before.totalBlocks + 1, during.totalBlocks);
    DefaultStaticMemAllocator::deallocate(p, 48, account);
    const MemAccount::Reading after = MemAccount::sRead(account);
    EXPECT_EQ(before.liveBytes, after.liveBytes);
    EXPECT_EQ(before.liveBlocks, after.liveBlocks);
    EXPECT_EQ(before.totalBlocks + 1, after.totalBlocks);
}

TEST(DefaultStaticMemAllocatorTest, BlocksAreUsableForTheirWholeSize)
{
    const char* account = "MemTest::DefaultUsable";
    unsigned char* p =
        static_cast<unsigned char*>(DefaultStaticMemAllocator::allocate(100, account));
    std::memset(p, 0xA5, 100);
    EXPECT_EQ(0xA5, p[0]);
    EXPECT_EQ(0xA5, p[99]);
    DefaultStaticMemAllocator::deallocate(p, 100, account);
}

TEST(DefaultStaticMemAllocatorTest, AccountsAreKeptApart)
{
    const char* first = "MemTest::DefaultFirst";
    const char* second = "MemTest::DefaultSecond";
    const MemAccount::Reading secondBefore = MemAccount::sRead(second);
    void* p = DefaultStaticMemAllocator::allocate(16, first);
    EXPECT_EQ(secondBefore.liveBytes, MemAccount::sRead(second).liveBytes);
    EXPECT_EQ(secondBefore.totalBlocks, MemAccount::sRead(second).totalBlocks);
    EXPECT_EQ(16, MemAccount::sRead(first).liveBytes);
    DefaultStaticMemAllocator::deallocate(p, 16, first);
}

TEST(DefaultStaticMemAllocatorTest, ZeroSizeGivesADistinctBlock)
{
    const char* account = "MemTest::DefaultZero";
    void* a = DefaultStaticMemAllocator::allocate(0, account);
    void* b = DefaultStaticMemAllocator::allocate(0, account);
    ASSERT_NE(nullptr, a);
    ASSERT_NE(nullptr, b);
    EXPECT_NE(a, b);
    EXPECT_EQ(2, MemAccount::sRead(account).liveBlocks);
    DefaultStaticMemAllocator::deallocate(a, 0, account);
    DefaultStaticMemAllocator::deallocate(b, 0, account);
    EXPECT_EQ(0, MemAccount::sRead(account).liveBlocks);
}

TEST(DefaultStaticMemAllocatorTest, NullDeallocateIsANoOp)
{
    const char* account = "MemTest::DefaultNull";
    void* p = DefaultStaticMemAllocator::allocate(8, account);
    const MemAccount::Reading before = MemAccount::sRead(account);
    DefaultStaticMemAllocator::deallocate(nullptr, 8, account);
    const MemAccount::Reading after = MemAccount::sRead(account);
    EXPECT_EQ(before.liveBytes, after.liveBytes);
    EXPECT_EQ(before.liveBlocks, after.liveBlocks);
    DefaultStaticMemAllocator::deallocate(p, 8, account);
}

TEST(DefaultStaticMemAllocatorTest, ThreadsOnOneAccountEndWhereTheyStarted)
{
    const char* account = "MemTest::DefaultThreads";
    const MemAccount::Reading before = MemAccount::sRead(account);
    const int kThreads = 8;
    const int kRounds = 2000;
    runTogether(
        kThreads,
        [&](int id)
        {
            std::vector<std::pair<void*, size_t>> blocks;
            for (int round = 0; round < kRounds; ++round)
            {
                const size_t size = static_cast<size_t>(8 + (round + id) % 64);
                blocks.emplace_back(DefaultStaticMemAllocator::allocate(size, account), size);
                if (blocks.size() == 16)
                {
                    for (const auto& block : blocks)
                    {
                        DefaultStaticMemAllocator::deallocate(block.first, block.second, account);
                    }
                    blocks.clear();
                }
            }
            for (const auto& block : blocks)
            {
                DefaultStaticMemAllocator::deallocate(block.first, block.second, account);
            }
        });
    const MemAccount::Reading after = MemAccount::sRead(account);
    EXPECT_EQ(before.liveBytes, after.liveBytes);
    EXPECT_EQ(before.liveBlocks, after.liveBlocks);
    EXPECT_EQ(before.totalBlocks + static_cast<uint64_t>(kThreads) * kRounds, after.totalBlocks);
}

TEST(NoSizeMemAllocatorTest, AllocationIsCountedOnItsAccount)
{
    const char* account = "MemTest::NoSizeCounted";
    const MemAccount::Reading before = MemAccount::sRead(account);
    void* p = NoSizeMemAllocator::allocate(300, account);
    ASSERT_NE(nullptr, p);
    const MemAccount::Reading during = MemAccount::sRead(account);
    EXPECT_EQ(before.liveBytes + 300, during.liveBytes);
    EXPECT_EQ(before.liveBlocks + 1, during.liveBlocks);
    EXPECT_EQ(before.totalBlocks + 1, during.totalBlocks);
    NoSizeMemAllocator::deallocate(p, account);
    const MemAccount::Reading after = MemAccount::sRead(account);
    EXPECT_EQ(before.liveBytes, after.liveBytes);
    EXPECT_EQ(before.liveBlocks, after.liveBlocks);
}

TEST(NoSizeMemAllocatorTest, DeallocateGivesBackTheSizeOfTheAllocation)
{
    const char* account = "MemTest::NoSizeSizes";
    void* small = NoSizeMemAllocator::allocate(7, account);
    void* large = NoSizeMemAllocator::allocate(4096, account);
    EXPECT_EQ(7 + 4096, MemAccount::sRead(account).liveBytes);
    NoSizeMemAllocator::deallocate(large, account);
    EXPECT_EQ(7, MemAccount::sRead(account).liveBytes);
    EXPECT_EQ(1, MemAccount::sRead(account).liveBlocks);
    NoSizeMemAllocator::deallocate(small, account);
    EXPECT_EQ(0, MemAccount::sRead(account).liveBytes);
    EXPECT_EQ(0, MemAccount::sRead(account).liveBlocks);
}

TEST(NoSizeMemAllocatorTest, BlocksAreAlignedForAnyScalarType)
{
    const char* account = "MemTest::NoSizeAligned";
    std::vector<void*> blocks;
    for (size_t size = 0; size < 70; ++size)
    {
        void* p = NoSizeMemAllocator::allocate(size, account);
        blocks.push_back(p);
        EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(p) % alignof(std::max_align_t))
            << "size " << size;
    }
    for (void* p : blocks)
    {
        NoSizeMemAllocator::deallocate(p, account);
    }
    EXPECT_EQ(0, MemAccount::sRead(account).liveBlocks);
}

TEST(NoSizeMemAllocatorTest, BlocksAreUsableForTheirWholeSize)
{
    const char* account = "MemTest::NoSizeUsable";
    long double* values =
        static_cast<long double*>(NoSizeMemAllocator::allocate(10 * sizeof(long double), account));
    for (int i = 0; i < 10; ++i)
    {
        values[i] = i * 1.5L;
    }
    EXPECT_EQ(13.5L, values[9]);
    NoSizeMemAllocator::deallocate(values, account);
}

TEST(NoSizeMemAllocatorTest, NullDeallocateIsANoOp)
{
    const char* account = "MemTest::NoSizeNull";
    void* p = NoSizeMemAllocator::allocate(24, account);
    const MemAccount::Reading before = MemAccount::sRead(account);
    NoSizeMemAllocator::deallocate(nullptr, account);
    const MemAccount::Reading after = MemAccount::sRead(account);
    EXPECT_EQ(before.liveBytes, after.liveBytes);
    EXPECT_EQ(before.liveBlocks, after.liveBlocks);
    NoSizeMemAllocator::deallocate(p, account);
}

TEST(NoSizeMemAllocatorTest, ImpossibleSizeThrowsBadAlloc)
{
    const char* account = "MemTest::NoSizeHuge";
    EXPECT_THROW(NoSizeMemAllocator::allocate(SIZE_MAX, account), std::bad_alloc);
    EXPECT_EQ(0, MemAccount::sRead(account).liveBlocks);
}

TEST(NoSizeMemAllocatorTest, ThreadsOnOneAccountEndWhereTheyStarted)
{
    const char* account = "MemTest::NoSizeThreads";
    const MemAccount::Reading before = MemAccount::sRead(account);
    const int kThreads = 8;
    const int kRounds = 2000;
    runTogether(kThreads,
                [&](int id)
                {
                    std::vector<void*> blocks;
                    for (int round = 0; round < kRounds; ++round)
                    {
                        blocks.push_back(NoSizeMemAllocator::allocate(
                            static_cast<size_t>(1 + (round * 7 + id) % 200), account));
                        if (blocks.size() == 10)
                        {
                            for (void* p : blocks)
                            {
                                NoSizeMemAllocator::deallocate(p, account);
                            }
                            blocks.clear();
                        }
                    }
                    for (void* p : blocks)
                    {
                        NoSizeMemAllocator::deallocate(p, account);
                    }
                });
    const MemAccount::Reading after = MemAccount::sRead(account);
    EXPECT_EQ(before.liveBytes, after.liveBytes);
    EXPECT_EQ(before.liveBlocks, after.liveBlocks);
    EXPECT_EQ(before.totalBlocks + static_cast<uint64_t>(kThreads) * kRounds, after.totalBlocks);
}

TEST(MemAccountTest, UnusedAccountReadsAsZeros)
{
    const MemAccount::Reading reading = MemAccount::sRead("MemTest::NeverUsed");
    EXPECT_EQ("MemTest::NeverUsed", reading.name);
    EXPECT_EQ(0, reading.liveBytes);
    EXPECT_EQ(0, reading.liveBlocks);
    EXPECT_EQ(0u, reading.totalBlocks);
}

TEST(MemAccountTest, TextsWithTheSameCharactersNameOneAccount)
{
    // Two static texts at different addresses, with the same characters.
    static const char first[] = "MemTest::SameName";
    static const char second[] = "MemTest::SameName";
    ASSERT_NE(static_cast<const void*>(first), static_cast<const void*>(second));
    void* a = DefaultStaticMemAllocator::allocate(10, first);
    void* b = DefaultStaticMemAllocator::allocate(20, second);
    EXPECT_EQ(&MemAccount::sGet(first), &MemAccount::sGet(second));
    EXPECT_EQ(30, MemAccount::sRead("MemTest::SameName").liveBytes);
    EXPECT_EQ(2, MemAccount::sRead("MemTest::SameName").liveBlocks);
    DefaultStaticMemAllocator::deallocate(a, 10, second);
    DefaultStaticMemAllocator::deallocate(b, 20, first);
    EXPECT_EQ(0, MemAccount::sRead("MemTest::SameName").liveBytes);
    EXPECT_EQ(0, MemAccount::sRead("MemTest::SameName").liveBlocks);
}

TEST(MemAccountTest, ReadAllListsTheAccountsInTheOrderTheyWereMade)
{
    void* first = NoSizeMemAllocator::allocate(1, "MemTest::OrderFirst");
    void* second = NoSizeMemAllocator::allocate(2, "MemTest::OrderSecond");
    const std::vector<MemAccount::Reading> all = MemAccount::sReadAll();
    int firstIndex = -1;
    int secondIndex = -1;
    for (size_t i = 0; i < all.size(); ++i)
    {
        if (all[i].name == "MemTest::OrderFirst")
        {
            firstIndex = static_cast<int>(i);
            EXPECT_EQ(1, all[i].liveBytes);
        }
        if (all[i].name == "MemTest::OrderSecond")
        {
            secondIndex = static_cast<int>(i);
            EXPECT_EQ(2, all[i].liveBytes);
        }
    }
    NoSizeMemAllocator::deallocate(second, "MemTest::OrderSecond");
    NoSizeMemAllocator::deallocate(first, "MemTest::OrderFirst");
    ASSERT_GE(firstIndex, 0);
    ASSERT_GE(secondIndex, 0);
    EXPECT_LT(firstIndex, secondIndex);
}

TEST(MemAccountTest, NullNameCountsOnTheUnnamedAccount)
{
    const MemAccount::Reading before = MemAccount::sRead(nullptr);
    void* p = NoSizeMemAllocator::allocate(5, nullptr);
    EXPECT_EQ("(unnamed)", MemAccount::sRead(nullptr).name);
    EXPECT_EQ(before.liveBytes + 5, MemAccount::sRead("(unnamed)").liveBytes);
    NoSizeMemAllocator::deallocate(p, nullptr);
    EXPECT_EQ(before.liveBytes, MemAccount::sRead(nullptr).liveBytes);
}

TEST(MemAccountTest, CountsOfEndedThreadsStayWithTheAccount)
{
    const char* const account = "MemAccountTest.EndedThreads";
    const int kThreads = 64;
    std::vector<void*> blocks(kThreads, nullptr);
    // One thread after the other: each takes over the counters the one before it left.
    for (int i = 0; i < kThreads; ++i)
    {
        std::thread worker(
            [&blocks, i, account]
            { blocks[i] = Tavoris::DefaultStaticMemAllocator::allocate(10 + i, account); });
        worker.join();
    }
    Tavoris::MemAccount::Reading reading = Tavoris::MemAccount::sRead(account);
    EXPECT_EQ(kThreads, reading.liveBlocks);
    EXPECT_EQ(static_cast<uint64_t>(kThreads), reading.totalBlocks);
    EXPECT_EQ(kThreads * 10 + kThreads * (kThreads - 1) / 2, reading.liveBytes);

    for (int i = 0; i < kThreads; ++i)
    {
        Tavoris::DefaultStaticMemAllocator::deallocate(blocks[i], 10 + i, account);
    }
    reading = Tavoris::MemAccount::sRead(account);
    EXPECT_EQ(0, reading.liveBlocks);
    EXPECT_EQ(0, reading.liveBytes);
    EXPECT_EQ(static_cast<uint64_t>(kThreads), reading.totalBlocks);
}

} // namespace
