#include "ZnUtil/ZnInterface.h"

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace
{

/// An interface mixed into a class that has no count of its own.
class Listener : public ZnInterface
{
public:
    virtual int onEvent(int value) = 0;
};

class DoublingListener : public Listener
{
public:
    int onEvent(int value) override { return 2 * value; }
};

/// A counted object that also offers an interface.
class CountedListener : public ZnObject, public Listener
{
public:
    using ZnObject::AddRef;
    using ZnObject::Release;
    int onEvent(int value) override { return value + 1; }
};

/// An interface whose implementation counts the calls made through ZnInterface.
class CallCountingInterface : public ZnInterface
{
public:
    unsigned long AddRef() override { return ++m_calls; }
    unsigned long Release() override { return ++m_calls; }

    unsigned long m_calls = 0;
};

TEST(ZnInterfaceTest, AddRefReturnsZeroEveryTime)
{
    ZnInterface object;
    EXPECT_EQ(object.AddRef(), 0u);
    EXPECT_EQ(object.AddRef(), 0u);
    EXPECT_EQ(object.AddRef(), 0u);
}

TEST(ZnInterfaceTest, ReleaseReturnsZeroEveryTime)
{
    ZnInterface object;
    EXPECT_EQ(object.Release(), 0u);
    EXPECT_EQ(object.Release(), 0u);
    EXPECT_EQ(object.Release(), 0u);
}

TEST(ZnInterfaceTest, AddRefAndReleaseInTurnReturnZero)
{
    ZnInterface object;
    for (int i = 0; i < 4; ++i)
    {
        EXPECT_EQ(object.AddRef(), 0u);
        EXPECT_EQ(object.Release(), 0u);
    }
}

TEST(ZnInterfaceTest, MixedInInterfaceCountsNothing)
{
    DoublingListener listener;
    ZnInterface& asInterface = listener;
    EXPECT_EQ(asInterface.AddRef(), 0u);
    EXPECT_EQ(asInterface.AddRef(), 0u);
    EXPECT_EQ(asInterface.Release(), 0u);
    EXPECT_EQ(listener.onEvent(21), 42);
}

TEST(ZnInterfaceTest, AddRefAndReleaseAreVirtual)
{
    CallCountingInterface counting;
    ZnInterface& asInterface = counting;
    EXPECT_EQ(asInterface.AddRef(), 1u);
    EXPECT_EQ(asInterface.Release(), 2u);
}

TEST(ZnInterfaceTest, InterfaceBesideObjectLeavesObjectCountAlone)
{
    CountedListener* object = new CountedListener;
    ZnHandle<CountedListener> handle(object);
    Listener& asListener = *object;
    EXPECT_EQ(asListener.ZnInterface::AddRef(), 0u);
    EXPECT_EQ(asListener.ZnInterface::Release(), 0u);
    EXPECT_EQ(object->getRefCount(), 1u);
    EXPECT_EQ(asListener.onEvent(1), 2);
}

TEST(ZnInterfaceTest, HasNoFieldButItsTable)
{
    EXPECT_TRUE(std::is_polymorphic_v<ZnInterface>);
    EXPECT_EQ(sizeof(ZnInterface), sizeof(void*));
}

TEST(ZnInterfaceTest, CopyAndAssignmentKeepTheInterfaceWorking)
{
    DoublingListener original;
    DoublingListener copy(original);
    DoublingListener assigned;
    assigned = original;
    ZnInterface& copied = copy;
    ZnInterface& target = assigned;
    EXPECT_EQ(copied.AddRef(), 0u);
    EXPECT_EQ(target.Release(), 0u);
    EXPECT_EQ(copy.onEvent(3), 6);
    EXPECT_EQ(assigned.onEvent(4), 8);
}

TEST(ZnInterfaceTest, CopyOfCountingImplementationKeepsItsOwnFields)
{
    CallCountingInterface original;
    original.AddRef();
    original.AddRef();
    CallCountingInterface copy(original);
    EXPECT_EQ(copy.m_calls, 2u);
    EXPECT_EQ(copy.AddRef(), 3u);
    EXPECT_EQ(original.m_calls, 2u);
}

} // namespace
