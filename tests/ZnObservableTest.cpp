#include "ZnUtil/ZnObservable.h"

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnMultiSourceObserver.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnObserver.h"

#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace
{

const char* const kSingleObserverText =
    "ZnObservable::attachObserver() ... The current implementation only allows a single observer";

/// One notification as an observer saw it. The pointers are for identity only.
struct Seen
{
    ZnObservable* source;
    ZnObject* argument;
    std::string className;     // of the argument, empty for nil
    std::string exceptionText; // the message when the argument is a ZnException
};

/// An observer that keeps what it is told and lets the test use its protected side.
class RecordingObserver : public ZnObserver
{
public:
    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override
    {
        Seen seen{aSource, aArgument, std::string(), std::string()};
        if (!aArgument.isNil())
        {
            seen.className = aArgument->getClassName();
        }
        const ZnException* exception =
            dynamic_cast<const ZnException*>(static_cast<ZnObject*>(aArgument));
        if (exception != nullptr && exception->getExceptionMessage() != nullptr)
        {
            seen.exceptionText = exception->getExceptionMessage();
        }
        m_seen.push_back(seen);
    }

    void detachFromSource() { detach(); }
    /// Lets go of the source without telling it, as an owner that manages its own links may.
    void dropSource() { m_source = ZnHandle<ZnObservable>(); }
    ZnObservable* sourceField() const { return m_source; }

    const std::vector<Seen>& seen() const { return m_seen; }

private:
    std::vector<Seen> m_seen;
};

/// A link that counts what passes through it and still behaves as the base link.
class CountingObservable : public ZnObservable
{
public:
    explicit CountingObservable(int* destructions = nullptr) : m_destructions(destructions) {}
    ~CountingObservable() override
    {
        if (m_destructions != nullptr)
        {
            ++*m_destructions;
        }
    }

    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override
    {
        ++notifications;
        if (aArgument.isNil())
        {
            ++nilNotifications;
        }
        ZnObservable::onNotification(aSource, aArgument);
    }

    bool block() override
    {
        ++blocks;
        return ZnObservable::block();
    }

    bool unblock() override
    {
        ++unblocks;
        return ZnObservable::unblock();
    }

    void detachFromSource() { detach(); }

    int notifications = 0;
    int nilNotifications = 0;
    int blocks = 0;
    int unblocks = 0;

private:
    int* m_destructions;
};

/// The head of a chain with an answer of its own to block and unblock, as a stream that ended.
class HeadObservable : public CountingObservable
{
public:
    explicit HeadObservable(bool answer) : m_answer(answer) {}

    bool block() override
    {
        ++blocks;
        notifyObservers(ZnHandle<ZnObject>());
        return m_answer;
    }

    bool unblock() override
    {
        ++unblocks;
        notifyObservers(ZnHandle<ZnObject>());
        return m_answer;
    }

private:
    bool m_answer;
};

/// Detaches itself from its source when first notified, and checks what is still alive then.
class SelfDetachingObserver : public ZnObserver
{
public:
    explicit SelfDetachingObserver(const int* sourceDestructions)
        : m_sourceDestructions(sourceDestructions)
    {
    }

    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override
    {
        ++notifications;
        aSource->detachObserver(this);
        sourceDestroyedDuringCall = *m_sourceDestructions;
        argumentCountAfterDetach = aArgument.isNil() ? 0 : aArgument->getRefCount();
        observersAfterDetach = aSource->countObservers();
    }

    int notifications = 0;
    int sourceDestroyedDuringCall = -1;
    unsigned long argumentCountAfterDetach = 0;
    unsigned int observersAfterDetach = 99;

private:
    const int* m_sourceDestructions;
};

/// Notifies its source again from inside the first notification, and logs entry and exit.
class NestingObserver : public ZnObserver
{
public:
    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override
    {
        log.push_back(aArgument.isNil() ? "enter nil" : "enter argument");
        if (!aArgument.isNil())
        {
            aSource->notifyObservers(ZnHandle<ZnObject>());
        }
        log.push_back(aArgument.isNil() ? "leave nil" : "leave argument");
    }

    std::vector<std::string> log;
};

/// The chain head -> first -> second -> observer, each link watching the one before it.
struct Chain
{
    Chain(ZnHandle<CountingObservable> aHead)
        : head(aHead), first(new CountingObservable), second(new CountingObservable),
          observer(new RecordingObserver)
    {
        head->attachObserver(first);
        first->attachObserver(second);
        second->attachObserver(observer);
    }

    ~Chain()
    {
        observer->detachFromSource();
        second->detachFromSource();
        first->detachFromSource();
    }

    ZnHandle<CountingObservable> head;
    ZnHandle<CountingObservable> first;
    ZnHandle<CountingObservable> second;
    ZnHandle<RecordingObserver> observer;
};

int64_t mutexBlocks()
{
    return Tavoris::MemAccount::sRead("ZnMutex").liveBlocks;
}

TEST(ZnObservableTest, FreshObservableCountsNoObservers)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    EXPECT_EQ(observable->countObservers(), 0u);
    EXPECT_TRUE(observable->getObserver().isNil());
}

TEST(ZnObservableTest, AttachObserverCountsOne)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    observable->attachObserver(observer);
    EXPECT_EQ(observable->countObservers(), 1u);
    EXPECT_EQ(static_cast<ZnObserver*>(observable->getObserver()),
              static_cast<ZnObserver*>(observer));
    observer->detachFromSource();
}

TEST(ZnObservableTest, AttachObserverMakesThisItsSource)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    observable->attachObserver(observer);
    EXPECT_EQ(observer->sourceField(), static_cast<ZnObservable*>(observable));
    observer->detachFromSource();
}

TEST(ZnObservableTest, DetachObserverOfAnotherObserverKeepsCountOne)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    ZnHandle<RecordingObserver> stranger(new RecordingObserver);
    observable->attachObserver(observer);
    observable->detachObserver(stranger);
    EXPECT_EQ(observable->countObservers(), 1u);
    EXPECT_EQ(observer->sourceField(), static_cast<ZnObservable*>(observable));
    EXPECT_EQ(stranger->getRefCount(), 1u);
    observer->detachFromSource();
}

TEST(ZnObservableTest, DetachObserverOfNilKeepsObserver)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    observable->attachObserver(observer);
    observable->detachObserver(ZnHandle<ZnObserver>());
    EXPECT_EQ(observable->countObservers(), 1u);
    observer->detachFromSource();
}

TEST(ZnObservableTest, DetachObserverOfCurrentClearsBothEnds)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    observable->attachObserver(observer);
    observable->detachObserver(observer);
    EXPECT_EQ(observable->countObservers(), 0u);
    EXPECT_TRUE(observer->getSource().isNil());
}

TEST(ZnObservableTest, AttachRaisesCountsOfBothEnds)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    ASSERT_EQ(observable->getRefCount(), 1u);
    ASSERT_EQ(observer->getRefCount(), 1u);
    observable->attachObserver(observer);
    EXPECT_EQ(observable->getRefCount(), 2u);
    EXPECT_EQ(observer->getRefCount(), 2u);
    observer->detachFromSource();
}

TEST(ZnObservableTest, DetachObserverLowersCountsOfBothEnds)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    observable->attachObserver(observer);
    observable->detachObserver(observer);
    EXPECT_EQ(observable->getRefCount(), 1u);
    EXPECT_EQ(observer->getRefCount(), 1u);
}

TEST(ZnObservableTest, AttachWhenOccupiedThrowsSingleObserverText)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<RecordingObserver> first(new RecordingObserver);
    ZnHandle<RecordingObserver> second(new RecordingObserver);
    observable->attachObserver(first);
    std::string text;
    try
    {
        observable->attachObserver(second);
    }
    catch (ZnHandle<ZnException>& e)
    {
        text = e->getExceptionMessage();
    }
    EXPECT_EQ(text, kSingleObserverText);
    first->detachFromSource();
}

TEST(ZnObservableTest, SameObserverAttachingTwiceThrows)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    observable->attachObserver(observer);
    std::string text;
    try
    {
        observable->attachObserver(observer);
    }
    catch (ZnHandle<ZnException>& e)
    {
        text = e->getExceptionMessage();
    }
    EXPECT_EQ(text, kSingleObserverText);
    EXPECT_EQ(observer->sourceField(), static_cast<ZnObservable*>(observable));
    observer->detachFromSource();
}

TEST(ZnObservableTest, FailedAttachChangesNothing)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<RecordingObserver> first(new RecordingObserver);
    ZnHandle<RecordingObserver> second(new RecordingObserver);
    observable->attachObserver(first);
    const unsigned long observableCount = observable->getRefCount();
    const unsigned long firstCount = first->getRefCount();
    const unsigned long secondCount = second->getRefCount();
    EXPECT_THROW(observable->attachObserver(second), ZnHandle<ZnException>);
    EXPECT_EQ(static_cast<ZnObserver*>(observable->getObserver()), static_cast<ZnObserver*>(first));
    EXPECT_EQ(first->sourceField(), static_cast<ZnObservable*>(observable));
    EXPECT_TRUE(second->getSource().isNil());
    EXPECT_EQ(observable->getRefCount(), observableCount);
    EXPECT_EQ(first->getRefCount(), firstCount);
    EXPECT_EQ(second->getRefCount(), secondCount);
    first->detachFromSource();
}

TEST(ZnObservableTest, FailedAttachOfObserverWithSourceMakesNoFanIn)
{
    ZnHandle<ZnObservable> occupied(new ZnObservable);
    ZnHandle<ZnObservable> other(new ZnObservable);
    ZnHandle<RecordingObserver> resident(new RecordingObserver);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    occupied->attachObserver(resident);
    other->attachObserver(observer);
    const int64_t mutexes = mutexBlocks();
    EXPECT_THROW(occupied->attachObserver(observer), ZnHandle<ZnException>);
    EXPECT_EQ(observer->sourceField(), static_cast<ZnObservable*>(other));
    EXPECT_EQ(static_cast<ZnObserver*>(other->getObserver()), static_cast<ZnObserver*>(observer));
    EXPECT_EQ(mutexBlocks(), mutexes);
    resident->detachFromSource();
    observer->detachFromSource();
}

TEST(ZnObservableTest, AttachToSecondObservableGivesMultiSourceAsSource)
{
    ZnHandle<ZnObservable> first(new ZnObservable);
    ZnHandle<ZnObservable> second(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    first->attachObserver(observer);
    second->attachObserver(observer);
    EXPECT_NE(dynamic_cast<ZnMultiSourceObserver*>(observer->sourceField()), nullptr);
    observer->detachFromSource();
}

TEST(ZnObservableTest, NotifyObserversPassesThisAndArgument)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    observable->attachObserver(observer);
    ZnHandle<ZnObject> argument(new ZnObject);
    observable->notifyObservers(argument);
    ASSERT_EQ(observer->seen().size(), 1u);
    EXPECT_EQ(observer->seen()[0].source, static_cast<ZnObservable*>(observable));
    EXPECT_EQ(observer->seen()[0].argument, static_cast<ZnObject*>(argument));
    observer->detachFromSource();
}

TEST(ZnObservableTest, NotifyObserversReleasesArgumentAfterCall)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    observable->attachObserver(observer);
    ZnHandle<ZnObject> argument(new ZnObject);
    observable->notifyObservers(argument);
    EXPECT_EQ(argument->getRefCount(), 1u);
    EXPECT_EQ(observable->getRefCount(), 2u);
    observer->detachFromSource();
}

TEST(ZnObservableTest, NotifyWithoutObserverDropsArgument)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<ZnObject> argument(new ZnObject);
    observable->notifyObservers(argument);
    EXPECT_EQ(argument->getRefCount(), 1u);
    EXPECT_EQ(observable->countObservers(), 0u);
}

TEST(ZnObservableTest, NotifyAfterDetachReachesNobody)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    observable->attachObserver(observer);
    observable->detachObserver(observer);
    observable->notifyObservers(ZnHandle<ZnObject>(new ZnObject));
    EXPECT_TRUE(observer->seen().empty());
}

TEST(ZnObservableTest, OnNotificationForwardsWithItselfAsSource)
{
    ZnHandle<ZnObservable> head(new ZnObservable);
    ZnHandle<ZnObservable> link(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    head->attachObserver(link);
    link->attachObserver(observer);
    ZnHandle<ZnObject> argument(new ZnObject);
    head->notifyObservers(argument);
    ASSERT_EQ(observer->seen().size(), 1u);
    EXPECT_EQ(observer->seen()[0].source, static_cast<ZnObservable*>(link));
    EXPECT_EQ(observer->seen()[0].argument, static_cast<ZnObject*>(argument));
    observer->detachFromSource();
    head->detachObserver(link);
}

TEST(ZnObservableTest, NotificationThroughPlainLinksCarriesLastLinkAsSource)
{
    Chain chain(new CountingObservable);
    ZnHandle<ZnObject> argument(new ZnObject);
    chain.head->notifyObservers(argument);
    ASSERT_EQ(chain.observer->seen().size(), 1u);
    EXPECT_EQ(chain.observer->seen()[0].source, static_cast<ZnObservable*>(chain.second));
    EXPECT_EQ(chain.observer->seen()[0].argument, static_cast<ZnObject*>(argument));
    EXPECT_EQ(chain.first->notifications, 1);
    EXPECT_EQ(chain.second->notifications, 1);
}

TEST(ZnObservableTest, BlockWithoutSourceReturnsTrueAndNotifiesNil)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    observable->attachObserver(observer);
    EXPECT_TRUE(observable->block());
    ASSERT_EQ(observer->seen().size(), 1u);
    EXPECT_EQ(observer->seen()[0].source, static_cast<ZnObservable*>(observable));
    EXPECT_EQ(observer->seen()[0].argument, nullptr);
    observer->detachFromSource();
}

TEST(ZnObservableTest, BlockWithoutSourceOrObserverReturnsTrue)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    EXPECT_TRUE(observable->block());
}

TEST(ZnObservableTest, UnblockWithoutSourceReturnsTrueAndNotifiesNil)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    observable->attachObserver(observer);
    EXPECT_TRUE(observable->unblock());
    ASSERT_EQ(observer->seen().size(), 1u);
    EXPECT_EQ(observer->seen()[0].source, static_cast<ZnObservable*>(observable));
    EXPECT_EQ(observer->seen()[0].argument, nullptr);
    observer->detachFromSource();
}

TEST(ZnObservableTest, BlockTravelsUpChainOfThreeLinks)
{
    Chain chain(new CountingObservable);
    EXPECT_TRUE(chain.second->block());
    EXPECT_EQ(chain.second->blocks, 1);
    EXPECT_EQ(chain.first->blocks, 1);
    EXPECT_EQ(chain.head->blocks, 1);
}

TEST(ZnObservableTest, BlockNilNotificationsComeBackDownChain)
{
    Chain chain(new CountingObservable);
    chain.second->block();
    // Each link notifies once and passes on what came from above it.
    EXPECT_EQ(chain.head->notifications, 0);
    EXPECT_EQ(chain.first->nilNotifications, 1);
    EXPECT_EQ(chain.first->notifications, 1);
    EXPECT_EQ(chain.second->nilNotifications, 2);
    EXPECT_EQ(chain.second->notifications, 2);
    ASSERT_EQ(chain.observer->seen().size(), 3u);
    for (const Seen& seen : chain.observer->seen())
    {
        EXPECT_EQ(seen.argument, nullptr);
        EXPECT_EQ(seen.source, static_cast<ZnObservable*>(chain.second));
    }
}

TEST(ZnObservableTest, UnblockTravelsUpChainOfThreeLinks)
{
    Chain chain(new CountingObservable);
    EXPECT_TRUE(chain.second->unblock());
    EXPECT_EQ(chain.second->unblocks, 1);
    EXPECT_EQ(chain.first->unblocks, 1);
    EXPECT_EQ(chain.head->unblocks, 1);
    EXPECT_EQ(chain.head->blocks, 0);
}

TEST(ZnObservableTest, UnblockNilNotificationsComeBackDownChain)
{
    Chain chain(new CountingObservable);
    chain.second->unblock();
    EXPECT_EQ(chain.head->notifications, 0);
    EXPECT_EQ(chain.first->nilNotifications, 1);
    EXPECT_EQ(chain.second->nilNotifications, 2);
    EXPECT_EQ(chain.observer->seen().size(), 3u);
}

TEST(ZnObservableTest, BlockFalseFromHeadPropagatesDownChain)
{
    Chain chain(new HeadObservable(false));
    EXPECT_FALSE(chain.second->block());
    EXPECT_EQ(chain.head->blocks, 1);
    // The nil notifications still come down, the head's own included.
    EXPECT_EQ(chain.first->nilNotifications, 1);
    EXPECT_EQ(chain.second->nilNotifications, 2);
    EXPECT_EQ(chain.observer->seen().size(), 3u);
}

TEST(ZnObservableTest, BlockTrueFromHeadPropagatesDownChain)
{
    Chain chain(new HeadObservable(true));
    EXPECT_TRUE(chain.second->block());
    EXPECT_TRUE(chain.first->block());
}

TEST(ZnObservableTest, UnblockFalseFromHeadPropagatesDownChain)
{
    Chain chain(new HeadObservable(false));
    EXPECT_FALSE(chain.second->unblock());
    EXPECT_EQ(chain.head->unblocks, 1);
    EXPECT_EQ(chain.observer->seen().size(), 3u);
}

TEST(ZnObservableTest, DroppingObservableWithObserverDeliversDisconnecting)
{
    int destructions = 0;
    CountingObservable* observable = new CountingObservable(&destructions);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    observable->attachObserver(observer);
    ASSERT_EQ(observable->getRefCount(), 1u);
    // The observer's handle was the last one: letting go of it ends the observable.
    observer->dropSource();
    EXPECT_EQ(destructions, 1);
    ASSERT_EQ(observer->seen().size(), 1u);
    EXPECT_EQ(observer->seen()[0].source, static_cast<ZnObservable*>(observable));
    EXPECT_EQ(observer->seen()[0].exceptionText, "Disconnecting");
}

TEST(ZnObservableTest, DisconnectingArgumentIsZnException)
{
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    ZnObservable* observable = new ZnObservable;
    observable->attachObserver(observer);
    observer->dropSource();
    ASSERT_EQ(observer->seen().size(), 1u);
    EXPECT_EQ(observer->seen()[0].className, "ZnException");
}

TEST(ZnObservableTest, DroppedObservableLeavesObserverFreeToAttachAgain)
{
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    ZnObservable* dropped = new ZnObservable;
    dropped->attachObserver(observer);
    observer->dropSource();
    ZnHandle<ZnObservable> next(new ZnObservable);
    next->attachObserver(observer);
    EXPECT_EQ(observer->sourceField(), static_cast<ZnObservable*>(next));
    EXPECT_EQ(observer->getRefCount(), 2u);
    observer->detachFromSource();
}

TEST(ZnObservableTest, DroppingObservableWithoutObserverNotifiesNobody)
{
    int destructions = 0;
    {
        ZnHandle<CountingObservable> observable(new CountingObservable(&destructions));
        EXPECT_EQ(observable->countObservers(), 0u);
    }
    EXPECT_EQ(destructions, 1);
}

TEST(ZnObservableTest, OnNotificationMayDetachObserverFromItsSource)
{
    int sourceDestructions = 0;
    ZnHandle<CountingObservable> observable(new CountingObservable(&sourceDestructions));
    ZnHandle<SelfDetachingObserver> observer(new SelfDetachingObserver(&sourceDestructions));
    observable->attachObserver(observer);
    observable->notifyObservers(ZnHandle<ZnObject>(new ZnObject));
    EXPECT_EQ(observer->notifications, 1);
    EXPECT_EQ(observer->observersAfterDetach, 0u);
    EXPECT_EQ(observable->countObservers(), 0u);
    EXPECT_TRUE(observer->getSource().isNil());
    observable->notifyObservers(ZnHandle<ZnObject>(new ZnObject));
    EXPECT_EQ(observer->notifications, 1);
}

TEST(ZnObservableTest, SourceAndArgumentOutliveReentrantDetach)
{
    int sourceDestructions = 0;
    CountingObservable* observable = new CountingObservable(&sourceDestructions);
    ZnHandle<SelfDetachingObserver> observer(new SelfDetachingObserver(&sourceDestructions));
    observable->attachObserver(observer);
    // Now only the observer holds the observable; its detach inside the notification drops that.
    ASSERT_EQ(observable->getRefCount(), 1u);
    observable->notifyObservers(ZnHandle<ZnObject>(new ZnObject));
    EXPECT_EQ(observer->sourceDestroyedDuringCall, 0);
    EXPECT_GE(observer->argumentCountAfterDetach, 1u);
    EXPECT_EQ(sourceDestructions, 1);
}

TEST(ZnObservableTest, NotifyingDuringNotificationNests)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<NestingObserver> observer(new NestingObserver);
    observable->attachObserver(observer);
    observable->notifyObservers(ZnHandle<ZnObject>(new ZnObject));
    const std::vector<std::string> expected{"enter argument", "enter nil", "leave nil",
                                            "leave argument"};
    EXPECT_EQ(observer->log, expected);
    observable->detachObserver(observer);
}

} // namespace
