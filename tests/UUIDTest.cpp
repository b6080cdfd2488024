#include "ZnUtil/UUID.h"

#include "ZnUtil/ZnPlatform.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <set>
#include <string>
#include <vector>

namespace
{

/// 100-ns ticks from 1582-10-15 to 1601-01-01.
const uint64_t kGregorianToFileTime = 5748192000000000ULL;

uint64_t nowSince1582()
{
    return ZnPlatform::sGetSystemTimeAsFileTime() + kGregorianToFileTime;
}

/// The coarse real-time clock (one reading per kernel tick, a few milliseconds) in 100-ns ticks.
uint64_t readCoarseClock()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return static_cast<uint64_t>(now.tv_sec) * 10000000ULL +
           static_cast<uint64_t>(now.tv_nsec) / 100ULL;
}

std::string makeId()
{
    char buffer[37];
    UUID::uuid_create_string(buffer);
    return std::string(buffer);
}

uint64_t hexValue(const std::string& text, size_t pos, size_t count)
{
    return std::stoull(text.substr(pos, count), nullptr, 16);
}

/// The 60-bit time stamp of an identifier.
uint64_t stampOf(const std::string& id)
{
    const uint64_t low = hexValue(id, 0, 8);
    const uint64_t mid = hexValue(id, 9, 4);
    const uint64_t high = hexValue(id, 15, 3);
    return (high << 48) | (mid << 32) | low;
}

/// The four digits of the clock sequence field with its variant bits.
unsigned int clockFieldOf(const std::string& id)
{
    return static_cast<unsigned int>(hexValue(id, 19, 4));
}

/// The clock sequence field written for a 16-bit clock sequence.
unsigned int clockFieldFor(uint16_t clock)
{
    return ((((clock >> 8) & 0x3Fu) | 0x80u) << 8) | (clock & 0xFFu);
}

bool isLowerHex(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
}

TEST(UUIDTest, WritesThirtySixCharactersAndATerminatorOnly)
{
    char buffer[40];
    memset(buffer, '#', sizeof(buffer));
    UUID::uuid_create_string(buffer);
    EXPECT_EQ(strlen(buffer), 36u);
    EXPECT_EQ(buffer[36], '\0');
    EXPECT_EQ(buffer[37], '#');
}

TEST(UUIDTest, HasDashesAtFourPlacesAndLowerCaseHexElsewhere)
{
    const std::string id = makeId();
    ASSERT_EQ(id.size(), 36u);
    for (size_t i = 0; i < id.size(); ++i)
    {
        if (i == 8 || i == 13 || i == 18 || i == 23)
        {
            EXPECT_EQ(id[i], '-') << id;
        }
        else
        {
            EXPECT_TRUE(isLowerHex(id[i])) << id << " at " << i;
        }
    }
}

TEST(UUIDTest, VersionDigitIsOne)
{
    for (int i = 0; i < 100; ++i)
    {
        const std::string id = makeId();
        ASSERT_EQ(id[14], '1') << id;
    }
}

TEST(UUIDTest, VariantDigitIsEightToB)
{
    for (int i = 0; i < 100; ++i)
    {
        const std::string id = makeId();
        ASSERT_TRUE(id[19] == '8' || id[19] == '9' || id[19] == 'a' || id[19] == 'b') << id;
    }
}

TEST(UUIDTest, NodeHasItsTopBitSet)
{
    for (int i = 0; i < 100; ++i)
    {
        const std::string id = makeId();
        ASSERT_GE(hexValue(id, 24, 2), 0x80u) << id;
    }
}

TEST(UUIDTest, TimeStampCountsTicksSince1582)
{
    const uint64_t before = nowSince1582();
    const std::string id = makeId();
    const uint64_t after = nowSince1582();
    const uint64_t stamp = stampOf(id);
    EXPECT_GE(stamp, before) << id;
    // At most the tick counter above the last reading.
    EXPECT_LE(stamp, after + ZnUUIDClock::UUIDS_PER_TICK) << id;
}

TEST(UUIDTest, IdentifiersInQuickSuccessionDifferAndAscend)
{
    std::vector<std::string> ids;
    for (int i = 0; i < 2000; ++i)
    {
        ids.push_back(makeId());
    }
    const std::set<std::string> distinct(ids.begin(), ids.end());
    EXPECT_EQ(distinct.size(), ids.size());
    for (size_t i = 1; i < ids.size(); ++i)
    {
        ASSERT_LT(stampOf(ids[i - 1]), stampOf(ids[i])) << ids[i - 1] << " then " << ids[i];
    }
}

TEST(UUIDTest, NodeIsDerivedAnewForEveryIdentifier)
{
    std::set<std::string> nodes;
    for (int i = 0; i < 50; ++i)
    {
        nodes.insert(makeId().substr(24));
    }
    EXPECT_GT(nodes.size(), 45u);
}

TEST(UUIDTest, ClockSequenceIsSixteenBitsOfRand)
{
    makeId(); // rand() is seeded by the first identifier of the process
    srand(4711);
    const uint16_t expected = static_cast<uint16_t>(rand());
    srand(4711);
    const std::string id = makeId();
    EXPECT_EQ(clockFieldOf(id), clockFieldFor(expected)) << id;
}

/// In a fresh process: the clock sequence of the first identifier must come from rand() seeded
/// with (t >> 10) XOR (t >> 42) for a time t read during the call. Exits 0 when it does.
void checkFirstIdentifierSeedsRand()
{
    const uint64_t before = nowSince1582();
    const std::string id = makeId();
    const uint64_t after = nowSince1582();
    const unsigned int field = clockFieldOf(id);
    for (uint64_t k = before >> 10; k <= after >> 10; ++k)
    {
        srand(static_cast<unsigned int>(k ^ (k >> 32)));
        const uint16_t clock = static_cast<uint16_t>(rand());
        // One more when the clock went back during the call.
        if (field == clockFieldFor(clock) || field == clockFieldFor(clock + 1))
        {
            std::exit(0);
        }
    }
    std::exit(1);
}

TEST(UUIDDeathTest, FirstIdentifierSeedsRandFromTheTime)
{
    // "threadsafe" runs the check in a new process, whose first identifier is this one.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(checkFirstIdentifierSeedsRand(), ::testing::ExitedWithCode(0), "");
}

TEST(ZnUUIDClockTest, FirstStampIsAReadingOfTheClock)
{
    ZnUUIDClock clock(&readCoarseClock);
    const uint64_t before = readCoarseClock();
    const uint64_t stamp = clock.next();
    const uint64_t after = readCoarseClock();
    EXPECT_GE(stamp, before);
    EXPECT_LE(stamp, after);
}

TEST(ZnUUIDClockTest, StampsWithinOneClockTickDifferByTheTickCounter)
{
    // The coarse clock keeps one reading for milliseconds, so thousands of stamps share a
    // reading: each gets the next count, up to 1024, and then next() waits for a new reading.
    ZnUUIDClock clock(&readCoarseClock);
    std::vector<uint64_t> stamps;
    for (int i = 0; i < 6000; ++i)
    {
        stamps.push_back(clock.next());
    }
    size_t run = 0;
    size_t longestRun = 0;
    size_t runs = 0;
    for (size_t i = 1; i < stamps.size(); ++i)
    {
        ASSERT_LT(stamps[i - 1], stamps[i]) << "at " << i;
        if (stamps[i] == stamps[i - 1] + 1)
        {
            ++run;
        }
        else
        {
            runs += run != 0 ? 1 : 0;
            run = 0;
        }
        longestRun = std::max(longestRun, run);
    }
    EXPECT_GT(runs, 0u);
    EXPECT_EQ(longestRun, ZnUUIDClock::UUIDS_PER_TICK);
}

TEST(ZnUUIDClockTest, NewReadingResetsTheCounter)
{
    ZnUUIDClock clock(&readCoarseClock);
    uint64_t previous = clock.next();
    int newReadings = 0;
    for (int i = 0; i < 5000 && newReadings < 3; ++i)
    {
        const uint64_t reading = readCoarseClock();
        const uint64_t stamp = clock.next();
        if (stamp != previous + 1)
        {
            // A new reading is answered as it is, with no count added.
            const uint64_t after = readCoarseClock();
            EXPECT_GE(stamp, reading);
            EXPECT_LE(stamp, after);
            ++newReadings;
        }
        previous = stamp;
    }
    EXPECT_EQ(newReadings, 3);
}

} // namespace
