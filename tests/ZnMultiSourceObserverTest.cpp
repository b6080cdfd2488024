#include "ZnUtil/ZnMultiSourceObserver.h"

#include "ZnUtil/ZnAggregatedObserver.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnObserver.h"

#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/CapturingAppender.h"

namespace
{

/// An observer that keeps what it is told and lets the test use its protected side.
class RecordingObserver : public ZnObserver
{
public:
    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override
    {
        sources.push_back(aSource);
        arguments.push_back(aArgument);
    }

    void detachFromSource() { detach(); }
    ZnObservable* sourceField() const { return m_source; }
    ZnMultiSourceObserver* fanIn() const
    {
        return dynamic_cast<ZnMultiSourceObserver*>(sourceField());
    }

    std::vector<ZnObservable*> sources;
    std::vector<ZnObject*> arguments;
};

/// An observer that, when first notified, cuts itself off from the source the notification came
/// from: by removing that source from its fan-in, or by detaching from the fan-in altogether.
class ReentrantObserver : public ZnObserver
{
public:
    enum Mode
    {
        REMOVE_SOURCE,
        DETACH_FROM_FAN_IN
    };

    explicit ReentrantObserver(Mode mode) : m_mode(mode) {}

    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject>) override
    {
        ++notifications;
        ZnMultiSourceObserver* fanIn = dynamic_cast<ZnMultiSourceObserver*>(sourceField());
        if (fanIn == nullptr)
        {
            return;
        }
        if (m_mode == REMOVE_SOURCE)
        {
            fanIn->removeSource(aSource);
        }
        else
        {
            detach();
        }
        sourceObserversAfterCut = aSource->countObservers();
    }

    void detachFromSource() { detach(); }
    ZnObservable* sourceField() const { return m_source; }

    int notifications = 0;
    unsigned int sourceObserversAfterCut = 99;

private:
    Mode m_mode;
};

/// An observable that writes its name to a shared log whenever an observer is detached from it.
class NamedObservable : public ZnObservable
{
public:
    NamedObservable(const char* name, std::vector<std::string>* log) : m_name(name), m_log(log) {}

    void detachObserver(ZnHandle<ZnObserver> aObserver) override
    {
        if (!getObserver().isNil())
        {
            m_log->push_back(m_name);
        }
        ZnObservable::detachObserver(aObserver);
    }

private:
    std::string m_name;
    std::vector<std::string>* m_log;
};

/// A fan-in that counts its destructions.
class TrackedFanIn : public ZnMultiSourceObserver
{
public:
    TrackedFanIn(ZnObserver* aObserver, ZnObservable* aSecondSource, int* destructions)
        : ZnMultiSourceObserver(aObserver, aSecondSource), m_destructions(destructions)
    {
    }
    ~TrackedFanIn() override { ++*m_destructions; }

private:
    int* m_destructions;
};

int64_t mutexBlocks()
{
    return Tavoris::MemAccount::sRead("ZnMutex").liveBlocks;
}

ZnAggregatedObserver* linkOf(const ZnHandle<ZnObservable>& source)
{
    return dynamic_cast<ZnAggregatedObserver*>(static_cast<ZnObserver*>(source->getObserver()));
}

/// An observer attached to two observables, and so to a fan-in.
struct FanIn
{
    FanIn() : first(new ZnObservable), second(new ZnObservable), observer(new RecordingObserver)
    {
        first->attachObserver(observer);
        second->attachObserver(observer);
    }

    ~FanIn() { observer->detachFromSource(); }

    ZnHandle<ZnObservable> first;
    ZnHandle<ZnObservable> second;
    ZnHandle<RecordingObserver> observer;
};

TEST(ZnMultiSourceObserverTest, SecondObservableMakesOneFanIn)
{
    FanIn wiring;
    ZnMultiSourceObserver* fanIn = wiring.observer->fanIn();
    ASSERT_NE(fanIn, nullptr);
    EXPECT_EQ(fanIn->countSources(), 2u);
    EXPECT_EQ(static_cast<ZnObserver*>(fanIn->getObserver()),
              static_cast<ZnObserver*>(wiring.observer));
}

TEST(ZnMultiSourceObserverTest, SecondObservableCostsOneMutex)
{
    ZnHandle<ZnObservable> first(new ZnObservable);
    ZnHandle<ZnObservable> second(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    first->attachObserver(observer);
    const int64_t mutexes = mutexBlocks();
    second->attachObserver(observer);
    EXPECT_EQ(mutexBlocks() - mutexes, 1);
    observer->detachFromSource();
}

TEST(ZnMultiSourceObserverTest, EachSourceReportsToItsOwnAggregatedObserver)
{
    FanIn wiring;
    ZnAggregatedObserver* firstLink = linkOf(wiring.first);
    ZnAggregatedObserver* secondLink = linkOf(wiring.second);
    ASSERT_NE(firstLink, nullptr);
    ASSERT_NE(secondLink, nullptr);
    EXPECT_NE(firstLink, secondLink);
    EXPECT_EQ(firstLink->getOwner(), static_cast<ZnObserver*>(wiring.observer->fanIn()));
    EXPECT_EQ(secondLink->getOwner(), static_cast<ZnObserver*>(wiring.observer->fanIn()));
    EXPECT_EQ(static_cast<ZnObservable*>(firstLink->getSource()),
              static_cast<ZnObservable*>(wiring.first));
}

TEST(ZnMultiSourceObserverTest, BothObservablesReportWithTheirOwnIdentity)
{
    FanIn wiring;
    ZnHandle<ZnObject> firstArgument(new ZnObject);
    ZnHandle<ZnObject> secondArgument(new ZnObject);
    wiring.second->notifyObservers(secondArgument);
    wiring.first->notifyObservers(firstArgument);
    ASSERT_EQ(wiring.observer->sources.size(), 2u);
    EXPECT_EQ(wiring.observer->sources[0], static_cast<ZnObservable*>(wiring.second));
    EXPECT_EQ(wiring.observer->arguments[0], static_cast<ZnObject*>(secondArgument));
    EXPECT_EQ(wiring.observer->sources[1], static_cast<ZnObservable*>(wiring.first));
    EXPECT_EQ(wiring.observer->arguments[1], static_cast<ZnObject*>(firstArgument));
}

TEST(ZnMultiSourceObserverTest, BlockOfASourceReachesObserverWithThatSource)
{
    FanIn wiring;
    EXPECT_TRUE(wiring.second->block());
    ASSERT_EQ(wiring.observer->sources.size(), 1u);
    EXPECT_EQ(wiring.observer->sources[0], static_cast<ZnObservable*>(wiring.second));
    EXPECT_EQ(wiring.observer->arguments[0], nullptr);
}

TEST(ZnMultiSourceObserverTest, ThirdAttachGoesToAddSourceAndMakesNoSecondFanIn)
{
    FanIn wiring;
    ZnMultiSourceObserver* fanIn = wiring.observer->fanIn();
    const int64_t mutexes = mutexBlocks();
    ZnHandle<ZnObservable> third(new ZnObservable);
    third->attachObserver(wiring.observer);
    EXPECT_EQ(wiring.observer->fanIn(), fanIn);
    EXPECT_EQ(fanIn->countSources(), 3u);
    EXPECT_EQ(mutexBlocks(), mutexes);
    third->notifyObservers(ZnHandle<ZnObject>());
    ASSERT_EQ(wiring.observer->sources.size(), 1u);
    EXPECT_EQ(wiring.observer->sources[0], static_cast<ZnObservable*>(third));
}

TEST(ZnMultiSourceObserverTest, FanInIsHeldByObserverAndEverySource)
{
    FanIn wiring;
    ZnMultiSourceObserver* fanIn = wiring.observer->fanIn();
    EXPECT_EQ(fanIn->getRefCount(), 3u);
    // The observer: once by the test, once by the fan-in.
    EXPECT_EQ(wiring.observer->getRefCount(), 2u);
    // Each source: once by the test, once by its aggregated observer.
    EXPECT_EQ(wiring.first->getRefCount(), 2u);
    EXPECT_EQ(wiring.second->getRefCount(), 2u);
}

TEST(ZnMultiSourceObserverTest, ConstructionTakesOverPresentSource)
{
    int destructions = 0;
    ZnHandle<ZnObservable> present(new ZnObservable);
    ZnHandle<ZnObservable> second(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    present->attachObserver(observer);
    TrackedFanIn* fanIn = new TrackedFanIn(observer, second, &destructions);
    EXPECT_EQ(observer->sourceField(), static_cast<ZnObservable*>(fanIn));
    EXPECT_EQ(fanIn->countSources(), 2u);
    ASSERT_NE(linkOf(present), nullptr);
    EXPECT_EQ(linkOf(present)->getOwner(), static_cast<ZnObserver*>(fanIn));
    present->notifyObservers(ZnHandle<ZnObject>());
    ASSERT_EQ(observer->sources.size(), 1u);
    EXPECT_EQ(observer->sources[0], static_cast<ZnObservable*>(present));
    observer->detachFromSource();
    EXPECT_EQ(destructions, 1);
}

TEST(ZnMultiSourceObserverTest, ConstructionWithoutPresentSourceAddsOnlySecond)
{
    int destructions = 0;
    ZnHandle<ZnObservable> second(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    TrackedFanIn* fanIn = new TrackedFanIn(observer, second, &destructions);
    EXPECT_EQ(observer->sourceField(), static_cast<ZnObservable*>(fanIn));
    EXPECT_EQ(fanIn->countSources(), 1u);
    EXPECT_EQ(static_cast<ZnObserver*>(fanIn->getObserver()), static_cast<ZnObserver*>(observer));
    observer->detachFromSource();
    EXPECT_EQ(destructions, 1);
}

TEST(ZnMultiSourceObserverTest, LaterAttachToDirectlyMadeFanInUsesIt)
{
    int destructions = 0;
    ZnHandle<ZnObservable> second(new ZnObservable);
    ZnHandle<ZnObservable> third(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    TrackedFanIn* fanIn = new TrackedFanIn(observer, second, &destructions);
    third->attachObserver(observer);
    EXPECT_EQ(observer->sourceField(), static_cast<ZnObservable*>(fanIn));
    EXPECT_EQ(fanIn->countSources(), 2u);
    observer->detachFromSource();
}

TEST(ZnMultiSourceObserverTest, AddSourceAttachesThroughNewAggregatedObserver)
{
    FanIn wiring;
    ZnHandle<ZnObservable> extra(new ZnObservable);
    wiring.observer->fanIn()->addSource(extra);
    EXPECT_EQ(wiring.observer->fanIn()->countSources(), 3u);
    ASSERT_NE(linkOf(extra), nullptr);
    EXPECT_EQ(linkOf(extra)->getOwner(), static_cast<ZnObserver*>(wiring.observer->fanIn()));
}

TEST(ZnMultiSourceObserverTest, AddSourceOfOccupiedObservableThrowsAndChangesNothing)
{
    FanIn wiring;
    ZnHandle<ZnObservable> occupied(new ZnObservable);
    ZnHandle<RecordingObserver> resident(new RecordingObserver);
    occupied->attachObserver(resident);
    ZnMultiSourceObserver* fanIn = wiring.observer->fanIn();
    const unsigned long fanInCount = fanIn->getRefCount();
    std::string text;
    try
    {
        fanIn->addSource(occupied);
    }
    catch (ZnHandle<ZnException>& e)
    {
        text = e->getExceptionMessage();
    }
    EXPECT_EQ(text, "ZnObservable::attachObserver() ... The current implementation only allows a "
                    "single observer");
    EXPECT_EQ(fanIn->countSources(), 2u);
    EXPECT_EQ(fanIn->getRefCount(), fanInCount);
    EXPECT_EQ(static_cast<ZnObserver*>(occupied->getObserver()),
              static_cast<ZnObserver*>(resident));
    resident->detachFromSource();
}

TEST(ZnMultiSourceObserverTest, RemoveSourceDetachesIt)
{
    FanIn wiring;
    ZnMultiSourceObserver* fanIn = wiring.observer->fanIn();
    fanIn->removeSource(wiring.first);
    EXPECT_EQ(fanIn->countSources(), 1u);
    EXPECT_EQ(wiring.first->countObservers(), 0u);
    EXPECT_EQ(wiring.first->getRefCount(), 1u);
    EXPECT_EQ(fanIn->getRefCount(), 2u);
    wiring.first->notifyObservers(ZnHandle<ZnObject>());
    wiring.second->notifyObservers(ZnHandle<ZnObject>());
    ASSERT_EQ(wiring.observer->sources.size(), 1u);
    EXPECT_EQ(wiring.observer->sources[0], static_cast<ZnObservable*>(wiring.second));
}

TEST(ZnMultiSourceObserverTest, RemoveSourceKeepsOrderOfOthers)
{
    std::vector<std::string> log;
    ZnHandle<ZnObservable> sources[4] = {
        new NamedObservable("a", &log), new NamedObservable("b", &log),
        new NamedObservable("c", &log), new NamedObservable("d", &log)};
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    for (ZnHandle<ZnObservable>& source : sources)
    {
        source->attachObserver(observer);
    }
    ZnMultiSourceObserver* fanIn = observer->fanIn();
    fanIn->removeSource(sources[1]);
    EXPECT_EQ(fanIn->countSources(), 3u);
    // Sources are let go in the order they are kept.
    fanIn->detachAll();
    const std::vector<std::string> expected{"b", "a", "c", "d"};
    EXPECT_EQ(log, expected);
    observer->detachFromSource();
}

TEST(ZnMultiSourceObserverTest, RemoveUnknownSourceIsIgnored)
{
    FanIn wiring;
    ZnHandle<ZnObservable> stranger(new ZnObservable);
    wiring.observer->fanIn()->removeSource(stranger);
    EXPECT_EQ(wiring.observer->fanIn()->countSources(), 2u);
    EXPECT_EQ(wiring.first->countObservers(), 1u);
    EXPECT_EQ(wiring.second->countObservers(), 1u);
}

TEST(ZnMultiSourceObserverTest, RemoveSourceOfLastSourceLeavesFanInAttachedAndSilent)
{
    FanIn wiring;
    ZnMultiSourceObserver* fanIn = wiring.observer->fanIn();
    fanIn->removeSource(wiring.first);
    fanIn->removeSource(wiring.second);
    EXPECT_EQ(fanIn->countSources(), 0u);
    EXPECT_EQ(wiring.observer->sourceField(), static_cast<ZnObservable*>(fanIn));
    EXPECT_EQ(fanIn->countObservers(), 1u);
    EXPECT_EQ(fanIn->getRefCount(), 1u);
    wiring.first->notifyObservers(ZnHandle<ZnObject>(new ZnObject));
    wiring.second->notifyObservers(ZnHandle<ZnObject>(new ZnObject));
    EXPECT_TRUE(wiring.observer->sources.empty());
}

TEST(ZnMultiSourceObserverTest, DetachAllDetachesEverySourceAndKeepsObserver)
{
    FanIn wiring;
    ZnMultiSourceObserver* fanIn = wiring.observer->fanIn();
    fanIn->detachAll();
    EXPECT_EQ(fanIn->countSources(), 0u);
    EXPECT_EQ(wiring.first->countObservers(), 0u);
    EXPECT_EQ(wiring.second->countObservers(), 0u);
    EXPECT_EQ(wiring.observer->sourceField(), static_cast<ZnObservable*>(fanIn));
}

TEST(ZnMultiSourceObserverTest, DetachObserverDetachesAllSourcesAndFreesFanIn)
{
    int destructions = 0;
    ZnHandle<ZnObservable> first(new ZnObservable);
    ZnHandle<ZnObservable> second(new ZnObservable);
    ZnHandle<ZnObservable> third(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    first->attachObserver(observer);
    new TrackedFanIn(observer, second, &destructions);
    third->attachObserver(observer);
    observer->detachFromSource();
    EXPECT_EQ(destructions, 1);
    EXPECT_TRUE(observer->getSource().isNil());
    EXPECT_EQ(first->countObservers(), 0u);
    EXPECT_EQ(second->countObservers(), 0u);
    EXPECT_EQ(third->countObservers(), 0u);
    EXPECT_EQ(observer->getRefCount(), 1u);
    EXPECT_EQ(first->getRefCount(), 1u);
}

TEST(ZnMultiSourceObserverTest, DetachObserverGivesFanInMutexBack)
{
    ZnHandle<ZnObservable> first(new ZnObservable);
    ZnHandle<ZnObservable> second(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    const int64_t mutexes = mutexBlocks();
    first->attachObserver(observer);
    second->attachObserver(observer);
    ASSERT_EQ(mutexBlocks() - mutexes, 1);
    observer->detachFromSource();
    EXPECT_EQ(mutexBlocks(), mutexes);
}

TEST(ZnMultiSourceObserverTest, DetachObserverFromFanInSideFreesIt)
{
    int destructions = 0;
    ZnHandle<ZnObservable> first(new ZnObservable);
    ZnHandle<ZnObservable> second(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    first->attachObserver(observer);
    ZnMultiSourceObserver* fanIn = new TrackedFanIn(observer, second, &destructions);
    fanIn->detachObserver(observer);
    EXPECT_EQ(destructions, 1);
    EXPECT_TRUE(observer->getSource().isNil());
    EXPECT_EQ(first->countObservers(), 0u);
    EXPECT_EQ(second->countObservers(), 0u);
}

TEST(ZnMultiSourceObserverTest, DetachObserverOfAnotherObserverChangesNothing)
{
    FanIn wiring;
    ZnMultiSourceObserver* fanIn = wiring.observer->fanIn();
    ZnHandle<RecordingObserver> stranger(new RecordingObserver);
    fanIn->detachObserver(stranger);
    EXPECT_EQ(fanIn->countSources(), 2u);
    EXPECT_EQ(fanIn->countObservers(), 1u);
    EXPECT_EQ(wiring.first->countObservers(), 1u);
    EXPECT_EQ(wiring.observer->sourceField(), static_cast<ZnObservable*>(fanIn));
}

TEST(ZnMultiSourceObserverTest, DestructorRecyclesMutex)
{
    int destructions = 0;
    ZnHandle<ZnObservable> second(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    const int64_t mutexes = mutexBlocks();
    {
        ZnHandle<ZnMultiSourceObserver> fanIn(new TrackedFanIn(observer, second, &destructions));
        ASSERT_EQ(mutexBlocks() - mutexes, 1);
        observer->detachFromSource();
        EXPECT_EQ(destructions, 0);
    }
    EXPECT_EQ(destructions, 1);
    EXPECT_EQ(mutexBlocks(), mutexes);
    EXPECT_EQ(second->countObservers(), 0u);
}

TEST(ZnMultiSourceObserverTest, NotificationPassesArgumentUnchanged)
{
    FanIn wiring;
    ZnHandle<ZnObject> argument(new ZnObject);
    wiring.observer->fanIn()->onNotification(wiring.first, argument);
    ASSERT_EQ(wiring.observer->arguments.size(), 1u);
    EXPECT_EQ(wiring.observer->arguments[0], static_cast<ZnObject*>(argument));
    EXPECT_EQ(wiring.observer->sources[0], static_cast<ZnObservable*>(wiring.first));
    EXPECT_EQ(argument->getRefCount(), 1u);
}

TEST(ZnMultiSourceObserverTest, NotificationWithoutObserverIsReportedAndDropped)
{
    ZnHandle<ZnObservable> second(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    ZnHandle<ZnMultiSourceObserver> fanIn(new ZnMultiSourceObserver(observer, second));
    observer->detachFromSource();
    ASSERT_TRUE(fanIn->getObserver().isNil());
    ZnTest::LogCapture capture("corvane.core.Assertion");
    fanIn->onNotification(second, ZnHandle<ZnObject>());
    EXPECT_EQ(capture.find("ZnMultiSourceObserver::onNotification without observer").size(), 1u);
    EXPECT_TRUE(observer->sources.empty());
}

TEST(ZnMultiSourceObserverTest, OnNotificationMayRemoveItsSourceFromFanIn)
{
    ZnHandle<ZnObservable> first(new ZnObservable);
    ZnHandle<ZnObservable> second(new ZnObservable);
    ZnHandle<ReentrantObserver> observer(new ReentrantObserver(ReentrantObserver::REMOVE_SOURCE));
    first->attachObserver(observer);
    second->attachObserver(observer);
    ZnMultiSourceObserver* fanIn = dynamic_cast<ZnMultiSourceObserver*>(observer->sourceField());
    ASSERT_NE(fanIn, nullptr);
    first->notifyObservers(ZnHandle<ZnObject>(new ZnObject));
    EXPECT_EQ(observer->notifications, 1);
    EXPECT_EQ(observer->sourceObserversAfterCut, 0u);
    EXPECT_EQ(first->countObservers(), 0u);
    EXPECT_EQ(fanIn->countSources(), 1u);
    EXPECT_EQ(fanIn->getRefCount(), 2u);
    first->notifyObservers(ZnHandle<ZnObject>(new ZnObject));
    EXPECT_EQ(observer->notifications, 1);
    observer->detachFromSource();
}

TEST(ZnMultiSourceObserverTest, OnNotificationMayDetachObserverFromFanIn)
{
    const int64_t mutexes = mutexBlocks();
    ZnHandle<ZnObservable> first(new ZnObservable);
    ZnHandle<ZnObservable> second(new ZnObservable);
    ZnHandle<ReentrantObserver> observer(
        new ReentrantObserver(ReentrantObserver::DETACH_FROM_FAN_IN));
    first->attachObserver(observer);
    second->attachObserver(observer);
    second->notifyObservers(ZnHandle<ZnObject>());
    EXPECT_EQ(observer->notifications, 1);
    EXPECT_EQ(observer->sourceObserversAfterCut, 0u);
    EXPECT_TRUE(observer->getSource().isNil());
    EXPECT_EQ(first->countObservers(), 0u);
    EXPECT_EQ(second->countObservers(), 0u);
    // The fan-in went with the notification's end.
    EXPECT_EQ(mutexBlocks(), mutexes);
    EXPECT_EQ(observer->getRefCount(), 1u);
}

TEST(ZnMultiSourceObserverTest, RemovedAggregatedObserverLivesWhileAHandleHoldsIt)
{
    FanIn wiring;
    ZnMultiSourceObserver* fanIn = wiring.observer->fanIn();
    ZnHandle<ZnObserver> held = wiring.first->getObserver();
    ASSERT_EQ(fanIn->getRefCount(), 4u);
    fanIn->removeSource(wiring.first);
    ZnAggregatedObserver* link =
        dynamic_cast<ZnAggregatedObserver*>(static_cast<ZnObserver*>(held));
    ASSERT_NE(link, nullptr);
    EXPECT_EQ(link->getOwner(), static_cast<ZnObserver*>(fanIn));
    EXPECT_TRUE(link->getSource().isNil());
    // The handle still counts on the fan-in, until it is let go.
    EXPECT_EQ(fanIn->getRefCount(), 3u);
    held = ZnHandle<ZnObserver>();
    EXPECT_EQ(fanIn->getRefCount(), 2u);
    EXPECT_EQ(fanIn->countSources(), 1u);
}

} // namespace
