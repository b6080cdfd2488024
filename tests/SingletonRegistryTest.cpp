#include "tavoris/SingletonRegistry.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace
{

using Tavoris::SingletonRegistry;

/// A registry of the test's own, apart from the process's.
class LocalRegistry : public SingletonRegistry
{
public:
    LocalRegistry() = default;
};

/// Something registered, which writes its name into a list when destroyed.
struct Tracked
{
    Tracked(std::vector<std::string>* log, const char* name) : log(log), name(name) {}
    ~Tracked() { log->push_back(name); }
    std::vector<std::string>* log;
    std::string name;
};

void destroyTracked(void* object)
{
    delete static_cast<Tracked*>(object);
}

int s_plainObject = 0;
int s_otherObject = 0;

TEST(SingletonRegistryTest, GetInstanceIsOneRegistry)
{
    EXPECT_EQ(&SingletonRegistry::getInstance(), &SingletonRegistry::getInstance());
}

TEST(SingletonRegistryTest, LookupOfAnUnknownKeyIsNull)
{
    LocalRegistry registry;
    EXPECT_EQ(nullptr, registry.lookup("registrytest.unknown"));
    EXPECT_EQ(nullptr, registry.lookup(nullptr));
}

TEST(SingletonRegistryTest, RegisteredObjectIsFoundByItsKey)
{
    LocalRegistry registry;
    EXPECT_EQ(&s_plainObject,
              registry.registerSingleton("registrytest.found", &s_plainObject, nullptr, false));
    EXPECT_EQ(&s_plainObject, registry.lookup("registrytest.found"));
    EXPECT_EQ(nullptr, registry.lookup("registrytest.found.not"));
}

TEST(SingletonRegistryTest, KeyIsCopiedAtRegistration)
{
    LocalRegistry registry;
    std::string key = "registrytest.copied";
    registry.registerSingleton(key.c_str(), &s_plainObject, nullptr, false);
    key.assign("registrytest.changed");
    EXPECT_EQ(&s_plainObject, registry.lookup("registrytest.copied"));
    EXPECT_EQ(nullptr, registry.lookup("registrytest.changed"));
}

TEST(SingletonRegistryTest, FirstRegistrationWins)
{
    LocalRegistry registry;
    registry.registerSingleton("registrytest.first", &s_plainObject, nullptr, false);
    EXPECT_EQ(&s_plainObject,
              registry.registerSingleton("registrytest.first", &s_otherObject, nullptr, false));
    EXPECT_EQ(&s_plainObject, registry.lookup("registrytest.first"));
}

TEST(SingletonRegistryTest, LosingRegistrationKeepsItsObjectAlive)
{
    std::vector<std::string> destroyed;
    Tracked* winner = new Tracked(&destroyed, "winner");
    Tracked* loser = new Tracked(&destroyed, "loser");
    {
        LocalRegistry registry;
        registry.registerSingleton("registrytest.keep", winner, &destroyTracked);
        EXPECT_EQ(winner, registry.registerSingleton("registrytest.keep", loser, &destroyTracked));
        registry.destroyAll();
    }
    ASSERT_EQ(1u, destroyed.size());
    EXPECT_EQ("winner", destroyed[0]);
    delete loser;
}

TEST(SingletonRegistryTest, KeyTakenWithNullObjectAnswersNull)
{
    LocalRegistry registry;
    EXPECT_EQ(nullptr, registry.registerSingleton("registrytest.null", nullptr, nullptr));
    EXPECT_EQ(nullptr,
              registry.registerSingleton("registrytest.null", &s_plainObject, nullptr, false));
    EXPECT_EQ(nullptr, registry.lookup("registrytest.null"));
}

TEST(SingletonRegistryTest, NullKeyIsRefused)
{
    LocalRegistry registry;
    EXPECT_EQ(nullptr, registry.registerSingleton(nullptr, &s_plainObject, nullptr, false));
}

TEST(SingletonRegistryTest, DestroyAllDestroysNewestFirst)
{
    std::vector<std::string> destroyed;
    LocalRegistry registry;
    registry.registerSingleton("registrytest.order.a", new Tracked(&destroyed, "a"),
                               &destroyTracked);
    registry.registerSingleton("registrytest.order.b", new Tracked(&destroyed, "b"),
                               &destroyTracked);
    registry.registerSingleton("registrytest.order.c", new Tracked(&destroyed, "c"),
                               &destroyTracked);
    registry.destroyAll();
    const std::vector<std::string> expected = {"c", "b", "a"};
    EXPECT_EQ(expected, destroyed);
}

TEST(SingletonRegistryTest, DestroyAllSkipsObjectsLeftAliveAtExit)
{
    std::vector<std::string> destroyed;
    Tracked kept(&destroyed, "kept");
    {
        LocalRegistry registry;
        registry.registerSingleton("registrytest.alive", &kept, &destroyTracked, false);
        registry.registerSingleton("registrytest.gone", new Tracked(&destroyed, "gone"),
                                   &destroyTracked, true);
        registry.destroyAll();
    }
    ASSERT_EQ(1u, destroyed.size());
    EXPECT_EQ("gone", destroyed[0]);
}

TEST(SingletonRegistryTest, DestroyAllEmptiesTheRegistry)
{
    std::vector<std::string> destroyed;
    LocalRegistry registry;
    registry.registerSingleton("registrytest.empty", new Tracked(&destroyed, "x"), &destroyTracked);
    registry.destroyAll();
    EXPECT_EQ(nullptr, registry.lookup("registrytest.empty"));
    registry.registerSingleton("registrytest.empty", &s_plainObject, nullptr, false);
    EXPECT_EQ(&s_plainObject, registry.lookup("registrytest.empty"));
    registry.destroyAll();
    EXPECT_EQ(1u, destroyed.size());
}

/// Looks another singleton up while being destroyed.
struct LooksUpWhenDestroyed
{
    SingletonRegistry* registry;
    void** seen;
    ~LooksUpWhenDestroyed() { *seen = registry->lookup("registrytest.reentry.other"); }
};

void destroyLooker(void* object)
{
    delete static_cast<LooksUpWhenDestroyed*>(object);
}

TEST(SingletonRegistryTest, CleanUpMayUseTheRegistry)
{
    LocalRegistry registry;
    void* seen = &s_otherObject;
    registry.registerSingleton("registrytest.reentry", new LooksUpWhenDestroyed{&registry, &seen},
                               &destroyLooker);
    registry.destroyAll();
    // The registry is emptied before the clean-up runs, and its lock is not held.
    EXPECT_EQ(nullptr, seen);
}

TEST(SingletonRegistryTest, ConcurrentRegistrationsAgreeOnOneObject)
{
    LocalRegistry registry;
    const int kThreads = 8;
    std::vector<int> objects(kThreads);
    std::vector<void*> answers(kThreads, nullptr);
    std::mutex mutex;
    std::condition_variable ready;
    int waiting = 0;
    bool go = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
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
                answers[i] =
                    registry.registerSingleton("registrytest.race", &objects[i], nullptr, false);
            });
    }
    {
        std::unique_lock<std::mutex> lock(mutex);
        ready.wait(lock, [&] { return waiting == kThreads; });
        go = true;
        ready.notify_all();
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    void* winner = registry.lookup("registrytest.race");
    ASSERT_NE(nullptr, winner);
    bool winnerIsOneOfThem = false;
    for (int i = 0; i < kThreads; ++i)
    {
        EXPECT_EQ(winner, answers[i]);
        winnerIsOneOfThem = winnerIsOneOfThem || winner == &objects[i];
    }
    EXPECT_TRUE(winnerIsOneOfThem);
}

TEST(SingletonRegistryTest, ProcessRegistryFindsWhatIsRegisteredInIt)
{
    static int s_processObject = 0;
    SingletonRegistry& registry = SingletonRegistry::getInstance();
    EXPECT_EQ(&s_processObject,
              registry.registerSingleton("registrytest.process", &s_processObject, nullptr, false));
    EXPECT_EQ(&s_processObject, registry.lookup("registrytest.process"));
}

} // namespace
