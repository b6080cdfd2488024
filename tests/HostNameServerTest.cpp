#include "tavoris/HostNameServer.h"

#include "tavoris/Hostent.h"

#include <ace/Time_Value.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>

namespace
{

using Tavoris::Hostent;
using Tavoris::HostNameServer;
using Status = Tavoris::Hostent::GetHostByNameStatus;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// A resolver object of its own for each test, with the real look-up behind it.
class TestServer : public HostNameServer
{
public:
    TestServer() = default;
};

std::uint32_t addr(const char* dotted)
{
    in_addr value;
    EXPECT_EQ(inet_pton(AF_INET, dotted, &value), 1) << dotted;
    return value.s_addr;
}

/// Polls \p pred until it holds or \p limit has passed.
template <class Pred>
bool waitUntil(Pred pred, milliseconds limit = milliseconds(10000))
{
    const Clock::time_point end = Clock::now() + limit;
    while (!pred())
    {
        if (Clock::now() > end)
        {
            return pred();
        }
        std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
}

/// Waits until no cancelled look-up of the process is left running.
bool allCancelledLookupsReleased()
{
    return waitUntil([] { return HostNameServer::reapCancelled() == 0; });
}

long elapsedMs(Clock::time_point from)
{
    return static_cast<long>(std::chrono::duration_cast<milliseconds>(Clock::now() - from).count());
}

// A look-up that waits for the test to open its gate before it asks the real resolver.
struct Gate
{
    std::mutex mutex;
    std::condition_variable changed;
    bool open = false;
    int entered = 0;
    int finished = 0;

    void reset()
    {
        std::lock_guard<std::mutex> lock(mutex);
        open = false;
        entered = 0;
        finished = 0;
    }
    void release()
    {
        std::lock_guard<std::mutex> lock(mutex);
        open = true;
        changed.notify_all();
    }
    int enteredCount()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return entered;
    }
    int finishedCount()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return finished;
    }
};

Gate& gate()
{
    static Gate s_gate;
    return s_gate;
}

int gatedLookup(const char* name, const char* service, const addrinfo* hints, addrinfo** result)
{
    Gate& g = gate();
    {
        std::unique_lock<std::mutex> lock(g.mutex);
        ++g.entered;
        g.changed.notify_all();
        // Bounded, so that a failing test cannot leave the thread behind for ever.
        g.changed.wait_for(lock, std::chrono::seconds(10), [&g] { return g.open; });
    }
    const int error = getaddrinfo(name, service, hints, result);
    {
        std::lock_guard<std::mutex> lock(g.mutex);
        ++g.finished;
    }
    return error;
}

template <int Code>
int failingLookup(const char*, const char*, const addrinfo*, addrinfo** result)
{
    *result = nullptr;
    return Code;
}

/// Answers the IPv6 loopback address only, whatever was asked.
int ipv6OnlyLookup(const char*, const char*, const addrinfo*, addrinfo** result)
{
    addrinfo hints;
    std::memset(&hints, 0, sizeof(hints));
    hints.ai_family = AF_INET6;
    hints.ai_flags = AI_NUMERICHOST;
    return getaddrinfo("::1", nullptr, &hints, result);
}

/// Answers 127.0.0.1 once per socket type, so the same address three times.
int repeatedAddressLookup(const char*, const char*, const addrinfo*, addrinfo** result)
{
    addrinfo hints;
    std::memset(&hints, 0, sizeof(hints));
    hints.ai_family = AF_INET;
    hints.ai_flags = AI_NUMERICHOST;
    return getaddrinfo("127.0.0.1", nullptr, &hints, result);
}

std::atomic<int> s_countingCalls{0};

int countingLookup(const char* name, const char* service, const addrinfo* hints, addrinfo** result)
{
    s_countingCalls.fetch_add(1);
    return getaddrinfo(name, service, hints, result);
}

const ACE_Time_Value kFiveSeconds(5, 0);

TEST(HostNameServerTest, GetInstanceIsOneObject)
{
    HostNameServer& first = HostNameServer::getInstance();
    HostNameServer& second = HostNameServer::getInstance();
    EXPECT_EQ(&first, &second);
}

TEST(HostNameServerTest, SetInstanceReplacesAndRestoresTheDefault)
{
    HostNameServer& original = HostNameServer::getInstance();
    TestServer replacement;
    EXPECT_EQ(HostNameServer::setInstance(&replacement), nullptr);
    EXPECT_EQ(&HostNameServer::getInstance(), &replacement);
    EXPECT_EQ(HostNameServer::setInstance(nullptr), &replacement);
    EXPECT_EQ(&HostNameServer::getInstance(), &original);
}

TEST(HostNameServerTest, DefaultCachePolicyKeepsSuccessesForSixtySeconds)
{
    TestServer server;
    EXPECT_TRUE(server.getCacheSuccess());
    EXPECT_FALSE(server.getCacheFailures());
    EXPECT_EQ(server.getCacheFlushTimeoutMs(), 60000u);

    HostNameServer& process = HostNameServer::getInstance();
    EXPECT_TRUE(process.getCacheSuccess());
    EXPECT_FALSE(process.getCacheFailures());
    EXPECT_EQ(process.getCacheFlushTimeoutMs(), 60000u);
}

TEST(HostNameServerTest, SetCachePolicyIsReadBack)
{
    TestServer server;
    server.setCachePolicy(false, true, 1234);
    EXPECT_FALSE(server.getCacheSuccess());
    EXPECT_TRUE(server.getCacheFailures());
    EXPECT_EQ(server.getCacheFlushTimeoutMs(), 1234u);
}

TEST(HostNameServerTest, LocalhostResolvesToLoopbackFromHostsFile)
{
    TestServer server;
    Hostent h;
    Status status = Hostent::GHBN_TIMEOUT;
    ASSERT_TRUE(server.resolve("localhost", h, status, kFiveSeconds, true));
    EXPECT_EQ(status, Hostent::GHBN_SUCCESS);
    EXPECT_STREQ(h.h_name, "localhost");
    EXPECT_EQ(h.h_addrtype, AF_INET);
    EXPECT_EQ(h.h_length, 4);
    ASSERT_GE(h.getAddressCount(), 1u);
    std::uint32_t first = 0;
    std::memcpy(&first, h.h_addr_list[0], 4);
    EXPECT_EQ(first, addr("127.0.0.1"));
    EXPECT_EQ(h.h_addr_list[h.getAddressCount()], nullptr);
    EXPECT_EQ(server.getResolveCount(), 1u);
    EXPECT_EQ(server.getLookupCount(), 1u);
    EXPECT_TRUE(allCancelledLookupsReleased());
}

TEST(HostNameServerTest, DottedTextIsConvertedByTheResolver)
{
    TestServer server;
    Hostent h;
    Status status = Hostent::GHBN_TIMEOUT;
    ASSERT_TRUE(server.resolve("255.255.255.255", h, status, kFiveSeconds, true));
    EXPECT_EQ(status, Hostent::GHBN_SUCCESS);
    ASSERT_EQ(h.getAddressCount(), 1u);
    EXPECT_EQ(h.getAddress(0), 0xFFFFFFFFu);
}

TEST(HostNameServerTest, NullOrEmptyNameIsInvalidAndLeavesResult)
{
    TestServer server;
    Hostent h;
    h.assign("before", {addr("10.0.0.1")});
    Status status = Hostent::GHBN_SUCCESS;
    EXPECT_FALSE(server.resolve(nullptr, h, status, kFiveSeconds, true));
    EXPECT_EQ(status, Hostent::GHBN_INVALID_NAME);
    status = Hostent::GHBN_SUCCESS;
    EXPECT_FALSE(server.resolve("", h, status, kFiveSeconds, true));
    EXPECT_EQ(status, Hostent::GHBN_INVALID_NAME);
    EXPECT_STREQ(h.h_name, "before");
    EXPECT_EQ(h.getAddressCount(), 1u);
    EXPECT_EQ(server.getResolveCount(), 2u);
    EXPECT_EQ(server.getLookupCount(), 0u);
}

TEST(HostNameServerTest, NameThatCannotExistFails)
{
    TestServer server;
    Hostent h;
    h.assign("before", {addr("10.0.0.1")});
    Status status = Hostent::GHBN_SUCCESS;
    EXPECT_FALSE(server.resolve("nonexistent.invalid", h, status, kFiveSeconds, true));
    // Which failure depends on the machine's DNS: HOST_NOT_FOUND where it answers, TRY_AGAIN or
    // a time-out where there is none.
    const std::set<Status> failures = {Hostent::GHBN_HOST_NOT_FOUND, Hostent::GHBN_NO_DATA,
                                       Hostent::GHBN_TRY_AGAIN, Hostent::GHBN_NO_RECOVERY,
                                       Hostent::GHBN_TIMEOUT};
    EXPECT_EQ(failures.count(status), 1u) << status;
    std::cout << "nonexistent.invalid: " << Hostent::getGetHostByNameStatusString(status)
              << std::endl;
    EXPECT_STREQ(h.h_name, "before");
    EXPECT_EQ(h.getAddressCount(), 1u);
    EXPECT_TRUE(allCancelledLookupsReleased());
}

TEST(HostNameServerTest, SecondResolveIsServedFromTheCache)
{
    TestServer server;
    server.setLookupFunction(&countingLookup);
    s_countingCalls.store(0);
    Hostent first;
    Hostent second;
    Status status = Hostent::GHBN_TIMEOUT;
    ASSERT_TRUE(server.resolve("localhost", first, status, kFiveSeconds, true));
    ASSERT_TRUE(server.resolve("localhost", second, status, kFiveSeconds, true));
    EXPECT_EQ(status, Hostent::GHBN_SUCCESS);
    EXPECT_EQ(s_countingCalls.load(), 1);
    EXPECT_EQ(server.getLookupCount(), 1u);
    EXPECT_EQ(server.getCacheHitCount(), 1u);
    EXPECT_EQ(server.getResolveCount(), 2u);
    EXPECT_EQ(server.getCacheSize(), 1u);
    EXPECT_STREQ(second.h_name, first.h_name);
    EXPECT_EQ(second.getAddresses(), first.getAddresses());
}

TEST(HostNameServerTest, SystemResolverAnswerIsCachedToo)
{
    TestServer server;
    Hostent h;
    Status status = Hostent::GHBN_TIMEOUT;
    ASSERT_TRUE(server.resolve("localhost", h, status, kFiveSeconds, true));
    ASSERT_TRUE(server.resolve("localhost", h, status, kFiveSeconds, true));
    EXPECT_EQ(server.getLookupCount(), 1u);
    EXPECT_EQ(server.getCacheHitCount(), 1u);
}

TEST(HostNameServerTest, CacheIgnoresAsciiCase)
{
    TestServer server;
    Hostent h;
    Status status = Hostent::GHBN_TIMEOUT;
    ASSERT_TRUE(server.resolve("localhost", h, status, kFiveSeconds, true));
    ASSERT_TRUE(server.resolve("LocalHost", h, status, kFiveSeconds, true));
    EXPECT_EQ(server.getLookupCount(), 1u);
    EXPECT_EQ(server.getCacheHitCount(), 1u);
}

TEST(HostNameServerTest, WithoutCacheFlagEveryResolveLooksUp)
{
    TestServer server;
    Hostent h;
    Status status = Hostent::GHBN_TIMEOUT;
    ASSERT_TRUE(server.resolve("localhost", h, status, kFiveSeconds, false));
    ASSERT_TRUE(server.resolve("localhost", h, status, kFiveSeconds, false));
    EXPECT_EQ(server.getLookupCount(), 2u);
    EXPECT_EQ(server.getCacheHitCount(), 0u);
    EXPECT_EQ(server.getCacheSize(), 0u);
}

TEST(HostNameServerTest, SuccessesNotCachedWhenTurnedOff)
{
    TestServer server;
    server.setCachePolicy(false, false, 60000);
    Hostent h;
    Status status = Hostent::GHBN_TIMEOUT;
    ASSERT_TRUE(server.resolve("localhost", h, status, kFiveSeconds, true));
    ASSERT_TRUE(server.resolve("localhost", h, status, kFiveSeconds, true));
    EXPECT_EQ(server.getLookupCount(), 2u);
    EXPECT_EQ(server.getCacheSize(), 0u);
}

TEST(HostNameServerTest, ZeroFlushTimeoutCachesNothing)
{
    TestServer server;
    server.setCachePolicy(true, true, 0);
    Hostent h;
    Status status = Hostent::GHBN_TIMEOUT;
    ASSERT_TRUE(server.resolve("localhost", h, status, kFiveSeconds, true));
    ASSERT_TRUE(server.resolve("localhost", h, status, kFiveSeconds, true));
    EXPECT_EQ(server.getLookupCount(), 2u);
    EXPECT_EQ(server.getCacheSize(), 0u);
}

TEST(HostNameServerTest, FailuresAreNotCachedByDefault)
{
    TestServer server;
    server.setLookupFunction(&failingLookup<EAI_NONAME>);
    Hostent h;
    Status status = Hostent::GHBN_SUCCESS;
    EXPECT_FALSE(server.resolve("sip.example.com", h, status, kFiveSeconds, true));
    EXPECT_FALSE(server.resolve("sip.example.com", h, status, kFiveSeconds, true));
    EXPECT_EQ(status, Hostent::GHBN_HOST_NOT_FOUND);
    EXPECT_EQ(server.getLookupCount(), 2u);
    EXPECT_EQ(server.getCacheSize(), 0u);
}

TEST(HostNameServerTest, FailuresAreCachedWhenAsked)
{
    TestServer server;
    server.setCachePolicy(true, true, 60000);
    server.setLookupFunction(&failingLookup<EAI_NONAME>);
    Hostent h;
    Status status = Hostent::GHBN_SUCCESS;
    EXPECT_FALSE(server.resolve("sip.example.com", h, status, kFiveSeconds, true));
    status = Hostent::GHBN_SUCCESS;
    EXPECT_FALSE(server.resolve("sip.example.com", h, status, kFiveSeconds, true));
    EXPECT_EQ(status, Hostent::GHBN_HOST_NOT_FOUND);
    EXPECT_EQ(server.getLookupCount(), 1u);
    EXPECT_EQ(server.getCacheHitCount(), 1u);
}

TEST(HostNameServerTest, TemporaryFailuresAreNeverCached)
{
    TestServer server;
    server.setCachePolicy(true, true, 60000);
    server.setLookupFunction(&failingLookup<EAI_AGAIN>);
    Hostent h;
    Status status = Hostent::GHBN_SUCCESS;
    EXPECT_FALSE(server.resolve("sip.example.com", h, status, kFiveSeconds, true));
    EXPECT_FALSE(server.resolve("sip.example.com", h, status, kFiveSeconds, true));
    EXPECT_EQ(status, Hostent::GHBN_TRY_AGAIN);
    EXPECT_EQ(server.getLookupCount(), 2u);
    EXPECT_EQ(server.getCacheSize(), 0u);
}

TEST(HostNameServerTest, FlushCacheEmptiesIt)
{
    TestServer server;
    Hostent h;
    Status status = Hostent::GHBN_TIMEOUT;
    ASSERT_TRUE(server.resolve("localhost", h, status, kFiveSeconds, true));
    EXPECT_EQ(server.getCacheSize(), 1u);
    server.flushCache();
    EXPECT_EQ(server.getCacheSize(), 0u);
    ASSERT_TRUE(server.resolve("localhost", h, status, kFiveSeconds, true));
    EXPECT_EQ(server.getLookupCount(), 2u);
}

TEST(HostNameServerTest, CacheEntryExpiresAfterFlushTimeout)
{
    TestServer server;
    server.setCachePolicy(true, false, 1000);
    Hostent h;
    Status status = Hostent::GHBN_TIMEOUT;
    const Clock::time_point before = Clock::now();
    ASSERT_TRUE(server.resolve("localhost", h, status, kFiveSeconds, true));
    ASSERT_TRUE(server.resolve("localhost", h, status, kFiveSeconds, true));
    EXPECT_EQ(server.getLookupCount(), 1u);

    // Served from the cache until the flush time has passed, looked up again afterwards.
    ASSERT_TRUE(waitUntil(
        [&]
        {
            Hostent again;
            Status s = Hostent::GHBN_TIMEOUT;
            EXPECT_TRUE(server.resolve("localhost", again, s, kFiveSeconds, true));
            return server.getLookupCount() == 2u;
        }));
    EXPECT_GE(elapsedMs(before), 1000);
}

TEST(HostNameServerTest, ErrorCodesMapToStatuses)
{
    struct Case
    {
        HostNameServer::LookupFunction function;
        Status expected;
    };
    const Case cases[] = {
        {&failingLookup<EAI_NONAME>, Hostent::GHBN_HOST_NOT_FOUND},
        {&failingLookup<EAI_AGAIN>, Hostent::GHBN_TRY_AGAIN},
        {&failingLookup<EAI_FAIL>, Hostent::GHBN_NO_RECOVERY},
        {&failingLookup<EAI_NODATA>, Hostent::GHBN_NO_DATA},
        {&failingLookup<EAI_ADDRFAMILY>, Hostent::GHBN_NO_DATA},
        {&failingLookup<EAI_MEMORY>, Hostent::GHBN_NO_RECOVERY},
        {&failingLookup<EAI_SYSTEM>, Hostent::GHBN_NO_RECOVERY},
        {&ipv6OnlyLookup, Hostent::GHBN_NO_DATA},
    };
    for (const Case& c : cases)
    {
        TestServer server;
        server.setLookupFunction(c.function);
        Hostent h;
        Status status = Hostent::GHBN_SUCCESS;
        EXPECT_FALSE(server.resolve("sip.example.com", h, status, kFiveSeconds, true));
        EXPECT_EQ(status, c.expected);
        EXPECT_EQ(h.getAddressCount(), 0u);
    }
}

TEST(HostNameServerTest, RepeatedAddressesAreListedOnce)
{
    TestServer server;
    server.setLookupFunction(&repeatedAddressLookup);
    Hostent h;
    Status status = Hostent::GHBN_TIMEOUT;
    ASSERT_TRUE(server.resolve("loopback.test", h, status, kFiveSeconds, true));
    ASSERT_EQ(h.getAddressCount(), 1u);
    EXPECT_EQ(h.getAddress(0), addr("127.0.0.1"));
}

TEST(HostNameServerTest, LateLookupTimesOutNearTheLimitAndIsReleasedWhenDone)
{
    ASSERT_TRUE(allCancelledLookupsReleased());
    gate().reset();
    TestServer server;
    server.setLookupFunction(&gatedLookup);
    Hostent h;
    h.assign("before", {addr("10.0.0.1")});
    Status status = Hostent::GHBN_SUCCESS;

    const Clock::time_point start = Clock::now();
    EXPECT_FALSE(server.resolve("localhost", h, status, ACE_Time_Value(0, 200000), true));
    const long elapsed = elapsedMs(start);
    EXPECT_EQ(status, Hostent::GHBN_TIMEOUT);
    EXPECT_GE(elapsed, 200);
    EXPECT_LT(elapsed, 2000);
    EXPECT_STREQ(h.h_name, "before");
    EXPECT_EQ(h.getAddressCount(), 1u);
    // A time-out is not cached.
    EXPECT_EQ(server.getCacheSize(), 0u);

    // The look-up still runs: its request stays until it has ended.
    ASSERT_TRUE(waitUntil([] { return gate().enteredCount() == 1; }));
    EXPECT_EQ(HostNameServer::reapCancelled(), 1u);
    EXPECT_EQ(gate().finishedCount(), 0);

    gate().release();
    EXPECT_TRUE(allCancelledLookupsReleased());
    EXPECT_EQ(gate().finishedCount(), 1);
}

TEST(HostNameServerTest, LookupAnsweringInTimeIsUsed)
{
    gate().reset();
    gate().release();
    TestServer server;
    server.setLookupFunction(&gatedLookup);
    Hostent h;
    Status status = Hostent::GHBN_TIMEOUT;
    ASSERT_TRUE(server.resolve("localhost", h, status, kFiveSeconds, true));
    EXPECT_EQ(status, Hostent::GHBN_SUCCESS);
    ASSERT_GE(h.getAddressCount(), 1u);
    EXPECT_EQ(h.getAddress(0), addr("127.0.0.1"));
    EXPECT_EQ(gate().finishedCount(), 1);
}

TEST(HostNameServerTest, SetLookupFunctionNullGoesBackToSystemResolver)
{
    TestServer server;
    server.setLookupFunction(&failingLookup<EAI_NONAME>);
    server.setLookupFunction(nullptr);
    Hostent h;
    Status status = Hostent::GHBN_TIMEOUT;
    EXPECT_TRUE(server.resolve("localhost", h, status, kFiveSeconds, false));
    EXPECT_EQ(status, Hostent::GHBN_SUCCESS);
}

TEST(HostNameServerTest, ZeroTimeoutReturnsAtOnce)
{
    TestServer server;
    Hostent h;
    Status status = Hostent::GHBN_INVALID_NAME;
    const Clock::time_point start = Clock::now();
    const bool ok = server.resolve("localhost", h, status, ACE_Time_Value::zero, false);
    EXPECT_LT(elapsedMs(start), 1000);
    // Whether the answer was ready at once is up to the system resolver.
    if (ok)
    {
        EXPECT_EQ(status, Hostent::GHBN_SUCCESS);
        EXPECT_EQ(h.getAddress(0), addr("127.0.0.1"));
    }
    else
    {
        EXPECT_EQ(status, Hostent::GHBN_TIMEOUT);
    }
    EXPECT_TRUE(allCancelledLookupsReleased());
}

TEST(HostNameServerTest, ManyShortLimitsOnSystemResolverReleaseEverything)
{
    TestServer server;
    std::atomic<int> successes{0};
    std::atomic<int> timeouts{0};
    std::atomic<int> others{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back(
            [&, t]
            {
                for (int i = 0; i < 25; ++i)
                {
                    Hostent h;
                    Status status = Hostent::GHBN_INVALID_NAME;
                    const ACE_Time_Value limit(0, ((i + t) % 3) * 1000);
                    if (server.resolve("localhost", h, status, limit, false))
                    {
                        successes += h.getAddress(0) == addr("127.0.0.1") ? 1 : 0;
                        others += h.getAddress(0) == addr("127.0.0.1") ? 0 : 1;
                    }
                    else if (status == Hostent::GHBN_TIMEOUT)
                    {
                        ++timeouts;
                    }
                    else
                    {
                        ++others;
                    }
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(others.load(), 0);
    EXPECT_EQ(successes.load() + timeouts.load(), 100);
    EXPECT_EQ(server.getLookupCount(), 100u);
    EXPECT_TRUE(allCancelledLookupsReleased());
}

TEST(HostNameServerTest, ConcurrentResolvesShareTheCache)
{
    TestServer server;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back(
            [&]
            {
                for (int i = 0; i < 20; ++i)
                {
                    Hostent h;
                    Status status = Hostent::GHBN_INVALID_NAME;
                    if (!server.resolve("localhost", h, status, kFiveSeconds, true) ||
                        h.getAddress(0) != addr("127.0.0.1"))
                    {
                        ++failures;
                    }
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(server.getResolveCount(), 80u);
    // Threads that missed the cache together each looked up once at most.
    EXPECT_GE(server.getLookupCount(), 1u);
    EXPECT_LE(server.getLookupCount(), 4u);
    EXPECT_EQ(server.getCacheHitCount() + server.getLookupCount(), 80u);
}

TEST(HostNameServerTest, ProcessResolverResolvesLocalhost)
{
    Hostent h;
    Status status = Hostent::GHBN_TIMEOUT;
    ASSERT_TRUE(HostNameServer::getInstance().resolve("localhost", h, status, kFiveSeconds, true));
    EXPECT_EQ(h.getAddress(0), addr("127.0.0.1"));
}

} // namespace
