#include "ZnUtil/ZnPlatform.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <thread>

#include <sys/syscall.h>
#include <unistd.h>

namespace
{

TEST(ZnPlatformTest, ThreadIdIsTheKernelId)
{
    EXPECT_EQ(ZnPlatform::sGetCurrentThreadId(), static_cast<uint32_t>(syscall(SYS_gettid)));
}

TEST(ZnPlatformTest, ThreadIdsDifferBetweenThreads)
{
    const uint32_t mine = ZnPlatform::sGetCurrentThreadId();
    uint32_t theirs = mine;
    std::thread other([&theirs] { theirs = ZnPlatform::sGetCurrentThreadId(); });
    other.join();
    EXPECT_NE(mine, theirs);
    EXPECT_EQ(mine, ZnPlatform::sGetCurrentThreadId());
}

TEST(ZnPlatformTest, MonotonicClockNeverGoesBack)
{
    const uint64_t first = ZnPlatform::sGetMonotonicNs();
    const uint64_t second = ZnPlatform::sGetMonotonicNs();
    EXPECT_LE(first, second);
    EXPECT_LE(ZnPlatform::sGetTickCount(), ZnPlatform::sGetMonotonicNs() / 1000000ULL);
}

TEST(ZnPlatformTest, FileTimeCountsHundredNanosecondsSince1601)
{
    const uint64_t before = static_cast<uint64_t>(time(nullptr));
    const uint64_t ticks = ZnPlatform::sGetSystemTimeAsFileTime();
    const uint64_t after = static_cast<uint64_t>(time(nullptr));
    const uint64_t seconds = ticks / 10000000ULL - 11644473600ULL;
    EXPECT_GE(seconds, before);
    EXPECT_LE(seconds, after);
}

TEST(ZnPlatformTest, BrokenPipeIsIgnoredWhenTheHostLeftTheDefault)
{
    // This test program sets nothing up for SIGPIPE, so loading the library ignored it.
    EXPECT_TRUE(ZnPlatform::sBrokenPipeIgnoredAtLoad());
    struct sigaction current = {};
    ASSERT_EQ(0, sigaction(SIGPIPE, nullptr, &current));
    EXPECT_EQ(SIG_IGN, current.sa_handler);
}

TEST(ZnPlatformTest, WriteToAPipeWithoutReaderFailsInsteadOfEndingTheProcess)
{
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    close(ends[0]);
    const char byte = 'x';
    EXPECT_EQ(-1, write(ends[1], &byte, 1));
    EXPECT_EQ(EPIPE, errno);
    close(ends[1]);
}

} // namespace
