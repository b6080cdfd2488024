#include "ZnUtil/ZnTime.h"

#include "ZnUtil/ZnPlatform.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <ctime>
#include <type_traits>

namespace
{

/// Microseconds from 1601-01-01 to 1970-01-01.
const long long kUnixEpochMicroseconds = 11644473600LL * 1000000LL;

/// The system's wall clock in microseconds since 1970.
long long realtimeMicroseconds()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<long long>(now.tv_sec) * 1000000LL + now.tv_nsec / 1000;
}

TEST(ZnTimeTest, DefaultIsZero)
{
    EXPECT_EQ(ZnTime().getAsLong(), 0);
}

TEST(ZnTimeTest, HoldsTheGivenCount)
{
    EXPECT_EQ(ZnTime(123456789012345LL).getAsLong(), 123456789012345LL);
    EXPECT_EQ(ZnTime(-5).getAsLong(), -5);
    EXPECT_EQ(ZnTime(LLONG_MIN).getAsLong(), LLONG_MIN);
    EXPECT_EQ(ZnTime(LLONG_MAX).getAsLong(), LLONG_MAX);
}

TEST(ZnTimeTest, IsAPlainValue)
{
    EXPECT_TRUE(std::is_trivially_copyable<ZnTime>::value);
    EXPECT_EQ(sizeof(ZnTime), 8u);
    ZnTime a(10);
    ZnTime b;
    b = a;
    a += 5LL;
    EXPECT_EQ(b.getAsLong(), 10);
    EXPECT_EQ(a.getAsLong(), 15);
}

TEST(ZnTimeTest, DifferenceIsInMicroseconds)
{
    EXPECT_EQ(ZnTime(5) - ZnTime(7), -2);
    EXPECT_EQ(ZnTime(7) - ZnTime(5), 2);
    EXPECT_EQ(ZnTime(1000000) - ZnTime(0), 1000000);
}

TEST(ZnTimeTest, DifferenceWrapsInSixtyFourBits)
{
    EXPECT_EQ(ZnTime(LLONG_MIN) - ZnTime(1), LLONG_MAX);
    EXPECT_EQ(ZnTime(LLONG_MAX) - ZnTime(-1), LLONG_MIN);
}

TEST(ZnTimeTest, ComparisonsAreSigned)
{
    EXPECT_TRUE(ZnTime(-1) < ZnTime(0));
    EXPECT_FALSE(ZnTime(0) < ZnTime(-1));
    EXPECT_TRUE(ZnTime(-1) <= ZnTime(-1));
    EXPECT_TRUE(ZnTime(LLONG_MIN) < ZnTime(LLONG_MAX));
    EXPECT_FALSE(ZnTime(1) <= ZnTime(0));
    EXPECT_FALSE(ZnTime(3) < ZnTime(3));
}

TEST(ZnTimeTest, EqualityOnTheCount)
{
    EXPECT_TRUE(ZnTime(42) == ZnTime(42));
    EXPECT_FALSE(ZnTime(42) == ZnTime(43));
    EXPECT_TRUE(ZnTime(42) != ZnTime(-42));
    EXPECT_FALSE(ZnTime(0) != ZnTime());
}

TEST(ZnTimeTest, AddAndSubtractSignedCounts)
{
    ZnTime t(100);
    t += 50LL;
    EXPECT_EQ(t.getAsLong(), 150);
    t -= 200LL;
    EXPECT_EQ(t.getAsLong(), -50);
    t += -25LL;
    EXPECT_EQ(t.getAsLong(), -75);
    t -= -75LL;
    EXPECT_EQ(t.getAsLong(), 0);
}

TEST(ZnTimeTest, UnsignedCountIsWidenedWithoutSign)
{
    ZnTime t(0);
    t += 0xFFFFFFFFu;
    EXPECT_EQ(t.getAsLong(), 4294967295LL);
    t -= 0xFFFFFFFFu;
    EXPECT_EQ(t.getAsLong(), 0);
    t -= 0x80000000u;
    EXPECT_EQ(t.getAsLong(), -2147483648LL);
}

TEST(ZnTimeTest, IntCountKeepsItsSign)
{
    ZnTime t(10);
    t += -3;
    EXPECT_EQ(t.getAsLong(), 7);
    t -= -3;
    EXPECT_EQ(t.getAsLong(), 10);
    int64_t step = -10;
    t += step;
    EXPECT_EQ(t.getAsLong(), 0);
}

TEST(ZnTimeTest, OperatorsReturnTheTime)
{
    ZnTime t(1);
    (t += 2LL) += 3u;
    EXPECT_EQ(t.getAsLong(), 6);
    (t -= 1LL) -= 2u;
    EXPECT_EQ(t.getAsLong(), 3);
}

TEST(ZnTimeTest, AdditionWrapsInSixtyFourBits)
{
    ZnTime t(LLONG_MAX);
    t += 1LL;
    EXPECT_EQ(t.getAsLong(), LLONG_MIN);
    t -= 1u;
    EXPECT_EQ(t.getAsLong(), LLONG_MAX);
}

TEST(ZnTimeTest, CurrentTimeIsTheFileTimeInMicroseconds)
{
    const long long before = static_cast<long long>(ZnPlatform::sGetSystemTimeAsFileTime() / 10);
    const ZnTime now = ZnTime::sGetCurrentTime();
    const long long after = static_cast<long long>(ZnPlatform::sGetSystemTimeAsFileTime() / 10);
    EXPECT_LE(before, now.getAsLong());
    EXPECT_LE(now.getAsLong(), after);
}

TEST(ZnTimeTest, CurrentTimeCountsFrom1601)
{
    const long long start = realtimeMicroseconds();
    const long long now = ZnTime::sGetCurrentTime().getAsLong();
    const long long end = realtimeMicroseconds();
    EXPECT_GE(now - kUnixEpochMicroseconds, start);
    EXPECT_LE(now - kUnixEpochMicroseconds, end);
}

} // namespace
