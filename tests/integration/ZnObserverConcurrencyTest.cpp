#include "ZnUtil/ZnAggregatedObserver.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnMultiSourceObserver.h"
#include "ZnUtil/ZnMutex.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnObserver.h"

#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "support/RunTogether.h"

namespace
{

const int kSources = 4;
const int kNotifications = 20000;

/// Runs \p body(index) on kSources threads released together, and waits for all of them.
void runTogether(const std::function<void(int)>& body)
{
    ZnTest::runTogether(kSources, body);
}

/// An argument that names the source it was sent from.
class Tagged : public ZnObject
{
public:
    explicit Tagged(int index) : m_index(index) {}
    int getIndex() const { return m_index; }

private:
    int m_index;
};

/// Counts notifications per source under a lock of its own, since several sources notify at once.
/// An argument that is a Tagged must come from the source expected for its index.
class CountingObserver : public ZnObserver
{
public:
    CountingObserver() : m_pMutex(ZnMutex::sAllocate()) {}
    ~CountingObserver() override { ZnMutex::sRecycle(m_pMutex); }

    /// Names the source that arguments tagged \p index must come from. Set before notifying.
    void expect(int index, const ZnObservable* source) { m_expected[index] = source; }

    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override
    {
        const Tagged* tagged = dynamic_cast<const Tagged*>(static_cast<ZnObject*>(aArgument));
        const bool mismatch = tagged != nullptr && m_expected.at(tagged->getIndex()) !=
                                                       static_cast<ZnObservable*>(aSource);
        ZnMutexGuard guard(m_pMutex);
        ++m_counts[aSource];
        if (aArgument.isNil())
        {
            ++m_nilCounts[aSource];
        }
        if (mismatch)
        {
            ++m_mismatches;
        }
    }

    std::map<const ZnObservable*, long> counts() const
    {
        ZnMutexGuard guard(m_pMutex);
        return m_counts;
    }

    std::map<const ZnObservable*, long> nilCounts() const
    {
        ZnMutexGuard guard(m_pMutex);
        return m_nilCounts;
    }

    long mismatches() const
    {
        ZnMutexGuard guard(m_pMutex);
        return m_mismatches;
    }

    void detachFromSource() { detach(); }
    ZnObservable* sourceField() const { return m_source; }

private:
    ZnMutex* m_pMutex;
    std::map<int, const ZnObservable*> m_expected;   // written before notifications start
    std::map<const ZnObservable*, long> m_counts;    // guarded by m_pMutex
    std::map<const ZnObservable*, long> m_nilCounts; // guarded by m_pMutex
    long m_mismatches = 0;                           // guarded by m_pMutex
};

/// kSources observables, each attached to one observer, which thus has a fan-in as its source.
struct FanInWiring
{
    FanInWiring() : observer(new CountingObserver)
    {
        for (int index = 0; index < kSources; ++index)
        {
            sources.push_back(ZnHandle<ZnObservable>(new ZnObservable));
            sources.back()->attachObserver(observer);
            observer->expect(index, sources.back());
        }
    }

    ~FanInWiring() { observer->detachFromSource(); }

    std::vector<ZnHandle<ZnObservable>> sources;
    ZnHandle<CountingObserver> observer;
};

TEST(ZnObserverConcurrencyTest, FourSourcesThroughOneFanInMakeOneFanIn)
{
    FanInWiring wiring;
    ZnMultiSourceObserver* fanIn =
        dynamic_cast<ZnMultiSourceObserver*>(wiring.observer->sourceField());
    ASSERT_NE(fanIn, nullptr);
    EXPECT_EQ(fanIn->countSources(), static_cast<unsigned int>(kSources));
}

TEST(ZnObserverConcurrencyTest, SourcesNotifyingAtOnceAreCountedExactly)
{
    FanInWiring wiring;
    runTogether(
        [&](int index)
        {
            ZnObservable* source = wiring.sources[index];
            for (int i = 0; i < kNotifications; ++i)
            {
                source->notifyObservers(ZnHandle<ZnObject>());
            }
        });
    const std::map<const ZnObservable*, long> counts = wiring.observer->counts();
    ASSERT_EQ(counts.size(), static_cast<size_t>(kSources));
    for (const ZnHandle<ZnObservable>& source : wiring.sources)
    {
        const auto found = counts.find(source);
        ASSERT_NE(found, counts.end());
        EXPECT_EQ(found->second, kNotifications);
    }
}

TEST(ZnObserverConcurrencyTest, EachArgumentArrivesWithItsOwnSource)
{
    FanInWiring wiring;
    std::vector<ZnHandle<ZnObject>> arguments;
    for (int index = 0; index < kSources; ++index)
    {
        arguments.push_back(ZnHandle<ZnObject>(new Tagged(index)));
    }
    runTogether(
        [&](int index)
        {
            ZnObservable* source = wiring.sources[index];
            const ZnHandle<ZnObject> argument = arguments[index];
            for (int i = 0; i < kNotifications; ++i)
            {
                source->notifyObservers(argument);
            }
        });
    EXPECT_EQ(wiring.observer->mismatches(), 0);
    long total = 0;
    for (const auto& entry : wiring.observer->counts())
    {
        total += entry.second;
    }
    EXPECT_EQ(total, static_cast<long>(kSources) * kNotifications);
    for (const ZnHandle<ZnObject>& argument : arguments)
    {
        EXPECT_EQ(argument->getRefCount(), 1u);
    }
}

TEST(ZnObserverConcurrencyTest, CountsOfTheLinksSettleAfterNotifyingAtOnce)
{
    FanInWiring wiring;
    ZnObservable* fanIn = wiring.observer->sourceField();
    const unsigned long fanInCount = fanIn->getRefCount();
    const unsigned long observerCount = wiring.observer->getRefCount();
    runTogether(
        [&](int index)
        {
            ZnObservable* source = wiring.sources[index];
            for (int i = 0; i < kNotifications; ++i)
            {
                source->notifyObservers(ZnHandle<ZnObject>());
            }
        });
    EXPECT_EQ(fanInCount, 1u + kSources);
    EXPECT_EQ(fanIn->getRefCount(), fanInCount);
    EXPECT_EQ(wiring.observer->getRefCount(), observerCount);
    for (const ZnHandle<ZnObservable>& source : wiring.sources)
    {
        EXPECT_EQ(source->getRefCount(), 2u);
    }
}

TEST(ZnObserverConcurrencyTest, DetachAfterNotifyingAtOnceFreesFanIn)
{
    const int64_t mutexes = Tavoris::MemAccount::sRead("ZnMutex").liveBlocks;
    {
        FanInWiring wiring;
        runTogether(
            [&](int index)
            {
                ZnObservable* source = wiring.sources[index];
                for (int i = 0; i < kNotifications; ++i)
                {
                    source->notifyObservers(ZnHandle<ZnObject>());
                }
            });
        wiring.observer->detachFromSource();
        EXPECT_TRUE(wiring.observer->getSource().isNil());
        for (const ZnHandle<ZnObservable>& source : wiring.sources)
        {
            EXPECT_EQ(source->countObservers(), 0u);
            EXPECT_EQ(source->getRefCount(), 1u);
        }
    }
    // The observer's lock and the fan-in's are both given back.
    EXPECT_EQ(Tavoris::MemAccount::sRead("ZnMutex").liveBlocks, mutexes);
}

/// kSources chains head -> link, each link attached to one observer through a fan-in.
struct ChainWiring
{
    ChainWiring() : observer(new CountingObserver)
    {
        for (int index = 0; index < kSources; ++index)
        {
            heads.push_back(ZnHandle<ZnObservable>(new ZnObservable));
            links.push_back(ZnHandle<ZnObservable>(new ZnObservable));
            heads.back()->attachObserver(links.back());
            links.back()->attachObserver(observer);
            observer->expect(index, links.back());
        }
    }

    ~ChainWiring()
    {
        observer->detachFromSource();
        for (int index = 0; index < kSources; ++index)
        {
            heads[index]->detachObserver(links[index]);
        }
    }

    std::vector<ZnHandle<ZnObservable>> heads;
    std::vector<ZnHandle<ZnObservable>> links;
    ZnHandle<CountingObserver> observer;
};

TEST(ZnObserverConcurrencyTest, ChainsNotifiedAtOnceReachObserverWithLastLinkAsSource)
{
    ChainWiring wiring;
    std::vector<ZnHandle<ZnObject>> arguments;
    for (int index = 0; index < kSources; ++index)
    {
        arguments.push_back(ZnHandle<ZnObject>(new Tagged(index)));
    }
    runTogether(
        [&](int index)
        {
            ZnObservable* head = wiring.heads[index];
            const ZnHandle<ZnObject> argument = arguments[index];
            for (int i = 0; i < kNotifications; ++i)
            {
                head->notifyObservers(argument);
            }
        });
    EXPECT_EQ(wiring.observer->mismatches(), 0);
    const std::map<const ZnObservable*, long> counts = wiring.observer->counts();
    ASSERT_EQ(counts.size(), static_cast<size_t>(kSources));
    for (const ZnHandle<ZnObservable>& link : wiring.links)
    {
        const auto found = counts.find(link);
        ASSERT_NE(found, counts.end());
        EXPECT_EQ(found->second, kNotifications);
    }
}

TEST(ZnObserverConcurrencyTest, ChainsBlockedAtOnceBringTwoNilNotificationsPerCall)
{
    ChainWiring wiring;
    runTogether(
        [&](int index)
        {
            ZnObservable* link = wiring.links[index];
            for (int i = 0; i < kNotifications; ++i)
            {
                link->block();
            }
        });
    // Each block notifies once at the head, passed on by the link, and once at the link.
    const std::map<const ZnObservable*, long> nils = wiring.observer->nilCounts();
    ASSERT_EQ(nils.size(), static_cast<size_t>(kSources));
    for (const ZnHandle<ZnObservable>& link : wiring.links)
    {
        const auto found = nils.find(link);
        ASSERT_NE(found, nils.end());
        EXPECT_EQ(found->second, 2L * kNotifications);
    }
}

} // namespace
