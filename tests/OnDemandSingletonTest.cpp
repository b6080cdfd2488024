#include "tavoris/OnDemandSingleton.h"

#include "tavoris/SingletonRegistry.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#include "support/CapturingAppender.h"
#include "support/RunTogether.h"

namespace
{

/// The singletons of the tests count how often they are made and destroyed.
template <int N>
struct Service
{
    Service() { constructed.fetch_add(1); }
    ~Service() { destroyed.fetch_add(1); }
    static std::atomic<int> constructed;
    static std::atomic<int> destroyed;
};

template <int N>
std::atomic<int> Service<N>::constructed{0};
template <int N>
std::atomic<int> Service<N>::destroyed{0};

typedef Service<1> SharedService;
typedef Service<2> KeyedService;
typedef Service<3> PresetService;
typedef Service<4> BrokenService;
typedef Service<5> CachedService;
typedef Service<6> PerThreadService;

} // namespace

namespace Tavoris
{

/// A singleton with a fixed key of its own.
template <>
struct OnDemandSingletonTraits<KeyedService>
{
    static const char* key() { return "ondemandtest.KeyedService"; }
    static KeyedService* create() { return new KeyedService; }
    static void destroy(void* object) { delete static_cast<KeyedService*>(object); }
};

} // namespace Tavoris

namespace
{

using Tavoris::OnDemandSingleton;
using Tavoris::SingletonRegistry;

using ZnTest::runTogether;

TEST(OnDemandSingletonTest, AllThreadsGetTheOneObjectMadeOnce)
{
    const int kThreads = 8;
    std::vector<SharedService*> seen(kThreads, nullptr);
    runTogether(kThreads,
                [&](int i)
                {
                    seen[i] = OnDemandSingleton<SharedService>::getInstance();
                    // A second access answers from the thread's own slot.
                    EXPECT_EQ(seen[i], OnDemandSingleton<SharedService>::getInstance());
                });
    ASSERT_NE(nullptr, seen[0]);
    for (SharedService* service : seen)
    {
        EXPECT_EQ(seen[0], service);
    }
    EXPECT_EQ(seen[0], OnDemandSingleton<SharedService>::getInstance());
    EXPECT_EQ(1, SharedService::constructed.load());
    EXPECT_EQ(0, SharedService::destroyed.load());
}

TEST(OnDemandSingletonTest, ObjectIsRegisteredUnderItsKey)
{
    SharedService* service = OnDemandSingleton<SharedService>::getInstance();
    EXPECT_EQ(service,
              SingletonRegistry::getInstance().lookup(OnDemandSingleton<SharedService>::sGetKey()));
}

TEST(OnDemandSingletonTest, KeyIsTheTypeNameByDefault)
{
    EXPECT_STREQ(typeid(SharedService).name(), OnDemandSingleton<SharedService>::sGetKey());
}

TEST(OnDemandSingletonTest, TraitsCanFixTheKey)
{
    EXPECT_STREQ("ondemandtest.KeyedService", OnDemandSingleton<KeyedService>::sGetKey());
    KeyedService* service = OnDemandSingleton<KeyedService>::getInstance();
    ASSERT_NE(nullptr, service);
    EXPECT_EQ(service, SingletonRegistry::getInstance().lookup("ondemandtest.KeyedService"));
    EXPECT_EQ(1, KeyedService::constructed.load());
}

TEST(OnDemandSingletonTest, ObjectRegisteredBeforeFirstUseIsTaken)
{
    PresetService* preset = new PresetService;
    ASSERT_EQ(preset, SingletonRegistry::getInstance().registerSingleton(
                          OnDemandSingleton<PresetService>::sGetKey(), preset,
                          &Tavoris::OnDemandSingletonTraits<PresetService>::destroy));
    EXPECT_EQ(preset, OnDemandSingleton<PresetService>::getInstance());
    EXPECT_EQ(1, PresetService::constructed.load());
}

TEST(OnDemandSingletonTest, NullRegistrationRaisesTheThreeAssertions)
{
    ZnTest::LogCapture cap("corvane.infra.OnDemandSingleton", Tavoris::TRACE_LOG_LEVEL);
    SingletonRegistry::getInstance().registerSingleton(OnDemandSingleton<BrokenService>::sGetKey(),
                                                       nullptr, nullptr);

    const int constructedBefore = BrokenService::constructed.load();
    const int destroyedBefore = BrokenService::destroyed.load();
    BrokenService* first = nullptr;
    BrokenService* second = nullptr;
    std::vector<ZnTest::CapturedEvent> afterFirst;
    std::thread thread(
        [&]
        {
            first = OnDemandSingleton<BrokenService>::getInstance();
            afterFirst = cap.events();
            second = OnDemandSingleton<BrokenService>::getInstance();
        });
    thread.join();

    EXPECT_EQ(nullptr, first);
    EXPECT_EQ(nullptr, second);
    // The object made for the refused registration was destroyed again.
    EXPECT_EQ(constructedBefore + 1, BrokenService::constructed.load());
    EXPECT_EQ(destroyedBefore + 1, BrokenService::destroyed.load());

    ASSERT_EQ(2u, afterFirst.size());
    EXPECT_EQ("Assertion failed: pFound == pNewObj", afterFirst[0].message);
    EXPECT_EQ("OnDemandSingleton", afterFirst[0].file);
    EXPECT_EQ(90, afterFirst[0].line);
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, afterFirst[0].level);
    EXPECT_EQ("Assertion failed: pFound != 0", afterFirst[1].message);
    EXPECT_EQ("OnDemandSingleton", afterFirst[1].file);
    EXPECT_EQ(97, afterFirst[1].line);

    const auto events = cap.events();
    ASSERT_EQ(3u, events.size());
    EXPECT_EQ("corvane.infra.OnDemandSingleton", events[2].logger);
    EXPECT_EQ("Assertion failed: *ppSingleton != 0", events[2].message);
    EXPECT_EQ("OnDemandSingleton", events[2].file);
    EXPECT_EQ(69, events[2].line);
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, events[2].level);
}

TEST(OnDemandSingletonTest, LaterAccessOfAThreadTakesNoLock)
{
    std::mutex mutex;
    std::condition_variable changed;
    bool firstAccessDone = false;
    bool lockHeld = false;
    bool secondAccessDone = false;
    bool releaseLock = false;
    CachedService* first = nullptr;
    CachedService* second = nullptr;

    std::thread user(
        [&]
        {
            first = OnDemandSingleton<CachedService>::getInstance();
            std::unique_lock<std::mutex> lock(mutex);
            firstAccessDone = true;
            changed.notify_all();
            changed.wait(lock, [&] { return lockHeld; });
            lock.unlock();
            second = OnDemandSingleton<CachedService>::getInstance();
            lock.lock();
            secondAccessDone = true;
            changed.notify_all();
        });
    std::thread holder(
        [&]
        {
            {
                std::unique_lock<std::mutex> wait(mutex);
                changed.wait(wait, [&] { return firstAccessDone; });
            }
            // The singleton lock first, then the test's: one order of the two locks throughout.
            Tavoris::OnDemandSingletonNoT::sGetMutex().acquire();
            std::unique_lock<std::mutex> lock(mutex);
            lockHeld = true;
            changed.notify_all();
            changed.wait(lock, [&] { return releaseLock; });
            lock.unlock();
            Tavoris::OnDemandSingletonNoT::sGetMutex().release();
        });

    bool finishedWhileLocked = false;
    {
        std::unique_lock<std::mutex> lock(mutex);
        finishedWhileLocked =
            changed.wait_for(lock, std::chrono::seconds(10), [&] { return secondAccessDone; });
        releaseLock = true;
        changed.notify_all();
    }
    holder.join();
    user.join();
    EXPECT_TRUE(finishedWhileLocked);
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(first, second);
}

TEST(OnDemandSingletonTest, FirstAccessOfEachThreadFindsTheRegisteredObject)
{
    PerThreadService* mine = OnDemandSingleton<PerThreadService>::getInstance();
    PerThreadService* theirs = nullptr;
    std::thread other([&] { theirs = OnDemandSingleton<PerThreadService>::getInstance(); });
    other.join();
    EXPECT_EQ(mine, theirs);
    EXPECT_EQ(1, PerThreadService::constructed.load());
}

} // namespace
