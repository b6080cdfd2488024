#include "ZnUtil/ZnTimerEvent.h"

#include "ZnUtil/ZnBaseEvent.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnObserver.h"
#include "ZnUtil/ZnTimer.h"

#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

namespace
{

/// Both parts of a timer event, held by the test.
struct Parts
{
    ZnHandle<ZnObserver> observer{new ZnObserver()};
    ZnHandle<ZnObject> argument{new ZnTimer(1000)};
};

TEST(ZnTimerEventTest, IsAnEvent)
{
    EXPECT_TRUE((std::is_base_of<ZnBaseEvent, ZnTimerEvent>::value));
    EXPECT_TRUE((std::is_copy_constructible<ZnTimerEvent>::value));
    EXPECT_TRUE((std::is_copy_assignable<ZnTimerEvent>::value));
}

TEST(ZnTimerEventTest, HoldsItsObserverAndArgument)
{
    Parts parts;
    {
        ZnTimerEvent event(parts.observer, parts.argument);
        EXPECT_EQ(static_cast<ZnObserver*>(parts.observer),
                  static_cast<ZnObserver*>(event.getObserver()));
        EXPECT_EQ(static_cast<ZnObject*>(parts.argument),
                  static_cast<ZnObject*>(event.getArgument()));
        EXPECT_EQ(2UL, parts.observer->getRefCount());
        EXPECT_EQ(2UL, parts.argument->getRefCount());
    }
    EXPECT_EQ(1UL, parts.observer->getRefCount());
    EXPECT_EQ(1UL, parts.argument->getRefCount());
}

TEST(ZnTimerEventTest, KeepsObjectsWithNoOtherHolder)
{
    ZnObserver* observer = new ZnObserver();
    ZnObject* argument = new ZnTimer(5);
    ZnTimerEvent event(observer, argument);
    EXPECT_EQ(1UL, observer->getRefCount());
    EXPECT_EQ(1UL, argument->getRefCount());
    EXPECT_EQ(5, static_cast<int64_t>(
                     *dynamic_cast<ZnTimer*>(static_cast<ZnObject*>(event.getArgument()))));
}

TEST(ZnTimerEventTest, NilPartsStayNil)
{
    ZnTimerEvent event{ZnHandle<ZnObserver>(), ZnHandle<ZnObject>()};
    EXPECT_TRUE(event.getObserver().isNil());
    EXPECT_TRUE(event.getArgument().isNil());
    ZnTimerEvent copy(event);
    EXPECT_TRUE(copy.getObserver().isNil());
    EXPECT_TRUE(copy.getArgument().isNil());
}

TEST(ZnTimerEventTest, CopyHoldsTheSameObjects)
{
    Parts parts;
    ZnTimerEvent event(parts.observer, parts.argument);
    {
        ZnTimerEvent copy(event);
        EXPECT_EQ(3UL, parts.observer->getRefCount());
        EXPECT_EQ(3UL, parts.argument->getRefCount());
        EXPECT_EQ(static_cast<ZnObserver*>(parts.observer),
                  static_cast<ZnObserver*>(copy.getObserver()));
        EXPECT_EQ(static_cast<ZnObject*>(parts.argument),
                  static_cast<ZnObject*>(copy.getArgument()));
    }
    EXPECT_EQ(2UL, parts.observer->getRefCount());
    EXPECT_EQ(2UL, parts.argument->getRefCount());
    EXPECT_EQ(static_cast<ZnObserver*>(parts.observer),
              static_cast<ZnObserver*>(event.getObserver()));
}

TEST(ZnTimerEventTest, AssignmentReplacesTheHandles)
{
    Parts first;
    Parts second;
    ZnTimerEvent target(first.observer, first.argument);
    {
        ZnTimerEvent source(second.observer, second.argument);
        target = source;
        EXPECT_EQ(1UL, first.observer->getRefCount());
        EXPECT_EQ(1UL, first.argument->getRefCount());
        EXPECT_EQ(3UL, second.observer->getRefCount());
        EXPECT_EQ(3UL, second.argument->getRefCount());
    }
    EXPECT_EQ(2UL, second.observer->getRefCount());
    EXPECT_EQ(2UL, second.argument->getRefCount());
    EXPECT_EQ(static_cast<ZnObserver*>(second.observer),
              static_cast<ZnObserver*>(target.getObserver()));
    EXPECT_EQ(static_cast<ZnObject*>(second.argument),
              static_cast<ZnObject*>(target.getArgument()));
}

TEST(ZnTimerEventTest, AssignmentToItselfKeepsTheCounts)
{
    Parts parts;
    ZnTimerEvent event(parts.observer, parts.argument);
    ZnTimerEvent& same = event;
    event = same;
    EXPECT_EQ(2UL, parts.observer->getRefCount());
    EXPECT_EQ(2UL, parts.argument->getRefCount());
    EXPECT_EQ(static_cast<ZnObserver*>(parts.observer),
              static_cast<ZnObserver*>(event.getObserver()));
}

TEST(ZnTimerEventTest, DeletingThroughTheBaseReleasesTheHandles)
{
    Parts parts;
    std::unique_ptr<ZnBaseEvent> event(new ZnTimerEvent(parts.observer, parts.argument));
    EXPECT_EQ(2UL, parts.observer->getRefCount());
    std::unique_ptr<ZnBaseEvent> copy(new ZnTimerEvent(*static_cast<ZnTimerEvent*>(event.get())));
    EXPECT_EQ(3UL, parts.argument->getRefCount());
    event.reset();
    copy.reset();
    EXPECT_EQ(1UL, parts.observer->getRefCount());
    EXPECT_EQ(1UL, parts.argument->getRefCount());
}

} // namespace
