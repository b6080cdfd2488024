#include "ZnUtil/ZnAggregatedObserver.h"

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnObserver.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{

/// An owner that keeps what it is told, counts its destructions and holds an aggregated
/// observer as a part of itself.
class RecordingOwner : public ZnObserver
{
public:
    explicit RecordingOwner(int* destructions = nullptr) : link(this), m_destructions(destructions)
    {
    }
    ~RecordingOwner() override
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

    ZnAggregatedObserver link;
    std::vector<ZnObservable*> sources;
    std::vector<ZnObject*> arguments;

private:
    int* m_destructions;
};

TEST(ZnAggregatedObserverTest, OwnerIsTheOneGiven)
{
    ZnHandle<RecordingOwner> owner(new RecordingOwner);
    EXPECT_EQ(owner->link.getOwner(), static_cast<ZnObserver*>(owner));
}

TEST(ZnAggregatedObserverTest, FreshAggregatedObserverHasNoSource)
{
    ZnHandle<RecordingOwner> owner(new RecordingOwner);
    EXPECT_TRUE(owner->link.getSource().isNil());
}

TEST(ZnAggregatedObserverTest, AddRefGoesToOwner)
{
    ZnHandle<RecordingOwner> owner(new RecordingOwner);
    EXPECT_EQ(owner->link.AddRef(), 2u);
    EXPECT_EQ(owner->getRefCount(), 2u);
    EXPECT_EQ(owner->link.getRefCount(), 0u);
    owner->link.Release();
}

TEST(ZnAggregatedObserverTest, ReleaseGoesToOwner)
{
    ZnHandle<RecordingOwner> owner(new RecordingOwner);
    owner->link.AddRef();
    ASSERT_EQ(owner->getRefCount(), 2u);
    EXPECT_EQ(owner->link.Release(), 1u);
    EXPECT_EQ(owner->getRefCount(), 1u);
    EXPECT_EQ(owner->link.getRefCount(), 0u);
}

TEST(ZnAggregatedObserverTest, ReleaseWithoutDeleteLeavesOwnerAtZero)
{
    int destructions = 0;
    RecordingOwner* owner = new RecordingOwner(&destructions);
    owner->link.AddRef();
    EXPECT_EQ(owner->link.Release(false), 0u);
    EXPECT_EQ(destructions, 0);
    EXPECT_EQ(owner->getRefCount(), 0u);
    delete owner;
    EXPECT_EQ(destructions, 1);
}

TEST(ZnAggregatedObserverTest, HandleOnAggregatedObserverKeepsOwnerAlive)
{
    int destructions = 0;
    ZnHandle<ZnObserver> linkHandle;
    {
        ZnHandle<RecordingOwner> owner(new RecordingOwner(&destructions));
        linkHandle = &owner->link;
        EXPECT_EQ(owner->getRefCount(), 2u);
    }
    EXPECT_EQ(destructions, 0);
    linkHandle = ZnHandle<ZnObserver>();
    EXPECT_EQ(destructions, 1);
}

TEST(ZnAggregatedObserverTest, OnNotificationPassesBothArgumentsUnchanged)
{
    ZnHandle<RecordingOwner> owner(new RecordingOwner);
    ZnHandle<ZnObservable> source(new ZnObservable);
    ZnHandle<ZnObject> argument(new ZnObject);
    owner->link.onNotification(source, argument);
    ASSERT_EQ(owner->sources.size(), 1u);
    EXPECT_EQ(owner->sources[0], static_cast<ZnObservable*>(source));
    EXPECT_EQ(owner->arguments[0], static_cast<ZnObject*>(argument));
}

TEST(ZnAggregatedObserverTest, OnNotificationPassesNilArgumentUnchanged)
{
    ZnHandle<RecordingOwner> owner(new RecordingOwner);
    ZnHandle<ZnObservable> source(new ZnObservable);
    owner->link.onNotification(source, ZnHandle<ZnObject>());
    ASSERT_EQ(owner->arguments.size(), 1u);
    EXPECT_EQ(owner->arguments[0], nullptr);
    EXPECT_EQ(owner->sources[0], static_cast<ZnObservable*>(source));
}

TEST(ZnAggregatedObserverTest, AttachedAggregatedObserverCountsOnOwner)
{
    ZnHandle<RecordingOwner> owner(new RecordingOwner);
    ZnHandle<ZnObservable> source(new ZnObservable);
    source->attachObserver(&owner->link);
    EXPECT_EQ(owner->getRefCount(), 2u);
    EXPECT_EQ(owner->link.getRefCount(), 0u);
    EXPECT_EQ(static_cast<ZnObservable*>(owner->link.getSource()),
              static_cast<ZnObservable*>(source));
    source->detachObserver(&owner->link);
    EXPECT_EQ(owner->getRefCount(), 1u);
}

TEST(ZnAggregatedObserverTest, NotificationFromSourceReachesOwnerWithSourceIdentity)
{
    ZnHandle<RecordingOwner> owner(new RecordingOwner);
    ZnHandle<ZnObservable> source(new ZnObservable);
    source->attachObserver(&owner->link);
    ZnHandle<ZnObject> argument(new ZnObject);
    source->notifyObservers(argument);
    ASSERT_EQ(owner->sources.size(), 1u);
    EXPECT_EQ(owner->sources[0], static_cast<ZnObservable*>(source));
    EXPECT_EQ(owner->arguments[0], static_cast<ZnObject*>(argument));
    source->detachObserver(&owner->link);
}

TEST(ZnAggregatedObserverTest, DestructorDetachesFromSource)
{
    ZnHandle<RecordingOwner> owner(new RecordingOwner);
    ZnHandle<ZnObservable> source(new ZnObservable);
    ZnAggregatedObserver* link = new ZnAggregatedObserver(owner);
    source->attachObserver(link);
    ASSERT_EQ(source->countObservers(), 1u);
    ASSERT_EQ(owner->getRefCount(), 2u);
    delete link;
    EXPECT_EQ(source->countObservers(), 0u);
    EXPECT_EQ(owner->getRefCount(), 1u);
    EXPECT_EQ(source->getRefCount(), 1u);
}

TEST(ZnAggregatedObserverTest, DestructorWithoutSourceLeavesOwnerAlone)
{
    ZnHandle<RecordingOwner> owner(new RecordingOwner);
    ZnAggregatedObserver* link = new ZnAggregatedObserver(owner);
    delete link;
    EXPECT_EQ(owner->getRefCount(), 1u);
}

TEST(ZnAggregatedObserverTest, DetachingOwnersLastReferenceEndsOwnerAndPart)
{
    int destructions = 0;
    ZnHandle<ZnObservable> source(new ZnObservable);
    RecordingOwner* owner = new RecordingOwner(&destructions);
    source->attachObserver(&owner->link);
    // The source's handle on the part is the owner's only reference: detaching it ends both.
    source->detachObserver(source->getObserver());
    EXPECT_EQ(destructions, 1);
    EXPECT_EQ(source->countObservers(), 0u);
    EXPECT_EQ(source->getRefCount(), 1u);
}

} // namespace
