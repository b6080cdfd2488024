#include "ZnUtil/ZnObserver.h"

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnObservable.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{

/// An observer that keeps what it is told and lets the test use its protected side.
class RecordingObserver : public ZnObserver
{
public:
    explicit RecordingObserver(int* destructions = nullptr) : m_destructions(destructions) {}
    ~RecordingObserver() override
    {
        if (m_destructions != nullptr)
        {
            ++*m_destructions;
        }
    }

    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override
    {
        sources.push_back(aSource);
        arguments.push_back(aArgument);
    }

    void detachFromSource() { detach(); }
    ZnObservable* sourceField() const { return m_source; }

    std::vector<ZnObservable*> sources;
    std::vector<ZnObject*> arguments;

private:
    int* m_destructions;
};

TEST(ZnObserverTest, FreshObserverHasNoSource)
{
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    EXPECT_TRUE(observer->getSource().isNil());
    EXPECT_EQ(observer->sourceField(), nullptr);
}

TEST(ZnObserverTest, AttachedObserverSeesItsSource)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    observable->attachObserver(observer);
    EXPECT_EQ(static_cast<ZnObservable*>(observer->getSource()),
              static_cast<ZnObservable*>(observable));
    EXPECT_EQ(observer->sourceField(), static_cast<ZnObservable*>(observable));
    observer->detachFromSource();
}

TEST(ZnObserverTest, SourceHandleKeepsSourceAlive)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    observable->attachObserver(observer);
    EXPECT_EQ(observable->getRefCount(), 2u);
    observer->detachFromSource();
}

TEST(ZnObserverTest, DetachFromObserverSideClearsBothEnds)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    observable->attachObserver(observer);
    observer->detachFromSource();
    EXPECT_TRUE(observer->getSource().isNil());
    EXPECT_EQ(observable->countObservers(), 0u);
    EXPECT_TRUE(observable->getObserver().isNil());
}

TEST(ZnObserverTest, DetachFromObserverSideLowersBothCounts)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    observable->attachObserver(observer);
    ASSERT_EQ(observable->getRefCount(), 2u);
    ASSERT_EQ(observer->getRefCount(), 2u);
    observer->detachFromSource();
    EXPECT_EQ(observable->getRefCount(), 1u);
    EXPECT_EQ(observer->getRefCount(), 1u);
}

TEST(ZnObserverTest, DetachWithoutSourceDoesNothing)
{
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    observer->detachFromSource();
    EXPECT_TRUE(observer->getSource().isNil());
    EXPECT_EQ(observer->getRefCount(), 1u);
}

TEST(ZnObserverTest, DetachOfObserverHeldOnlyBySourceDeletesIt)
{
    int destructions = 0;
    ZnHandle<ZnObservable> observable(new ZnObservable);
    RecordingObserver* observer = new RecordingObserver(&destructions);
    observable->attachObserver(observer);
    ASSERT_EQ(observer->getRefCount(), 1u);
    observer->detachFromSource();
    EXPECT_EQ(destructions, 1);
    EXPECT_EQ(observable->countObservers(), 0u);
    EXPECT_EQ(observable->getRefCount(), 1u);
}

TEST(ZnObserverTest, DetachLeavesSourceAliveWhileOthersHoldIt)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<RecordingObserver> observer(new RecordingObserver);
    observable->attachObserver(observer);
    observer->detachFromSource();
    // The source still works for a new observer.
    ZnHandle<RecordingObserver> next(new RecordingObserver);
    observable->attachObserver(next);
    observable->notifyObservers(ZnHandle<ZnObject>());
    EXPECT_EQ(next->sources.size(), 1u);
    EXPECT_TRUE(observer->sources.empty());
    next->detachFromSource();
}

TEST(ZnObserverTest, BaseOnNotificationLeavesArgumentsAsTheyWere)
{
    ZnHandle<ZnObserver> observer(new ZnObserver);
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<ZnObject> argument(new ZnObject);
    observer->onNotification(observable, argument);
    EXPECT_EQ(argument->getRefCount(), 1u);
    EXPECT_EQ(observable->getRefCount(), 1u);
    EXPECT_TRUE(observer->getSource().isNil());
}

TEST(ZnObserverTest, BaseObserverIgnoresNotificationsFromItsSource)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    ZnHandle<ZnObserver> observer(new ZnObserver);
    observable->attachObserver(observer);
    ZnHandle<ZnObject> argument(new ZnObject);
    observable->notifyObservers(argument);
    EXPECT_EQ(argument->getRefCount(), 1u);
    EXPECT_EQ(observable->countObservers(), 1u);
    observable->detachObserver(observer);
}

TEST(ZnObserverTest, DestructorDetachesFromSource)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    {
        RecordingObserver observer;
        observable->attachObserver(&observer);
        ASSERT_EQ(observable->countObservers(), 1u);
    }
    EXPECT_EQ(observable->countObservers(), 0u);
    EXPECT_TRUE(observable->getObserver().isNil());
}

TEST(ZnObserverTest, DestructorReleasesSource)
{
    ZnHandle<ZnObservable> observable(new ZnObservable);
    {
        RecordingObserver observer;
        observable->attachObserver(&observer);
        ASSERT_EQ(observable->getRefCount(), 2u);
    }
    EXPECT_EQ(observable->getRefCount(), 1u);
}

TEST(ZnObserverTest, DestructorWithoutSourceTouchesNothing)
{
    int destructions = 0;
    {
        ZnHandle<RecordingObserver> observer(new RecordingObserver(&destructions));
        EXPECT_TRUE(observer->getSource().isNil());
    }
    EXPECT_EQ(destructions, 1);
}

} // namespace
