#include "ZnUtil/ZnObject.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"

#include "tavoris/LogLevel.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <string>

#include "support/CapturingAppender.h"

namespace
{

const char* const kAssertionLogger = "corvane.core.Assertion";

/// Runs \p action and hands back the handle it threw, or a nil handle when it threw nothing.
template <class Action>
ZnHandle<ZnException> catchThrown(Action&& action)
{
    try
    {
        action();
    }
    catch (ZnHandle<ZnException>& e)
    {
        return e;
    }
    return ZnHandle<ZnException>();
}

/// Checks that \p e holds a ZnAssertionFailure with the given message and source position.
::testing::AssertionResult isAssertionFailure(const ZnHandle<ZnException>& e, const char* message,
                                              const char* file, unsigned int line)
{
    if (e.isNil())
    {
        return ::testing::AssertionFailure() << "nothing was thrown";
    }
    const ZnAssertionFailure* failure = dynamic_cast<const ZnAssertionFailure*>(&*e);
    if (failure == nullptr)
    {
        return ::testing::AssertionFailure() << "thrown " << e->getClassName();
    }
    const std::string actualMessage =
        failure->getExceptionMessage() != nullptr ? failure->getExceptionMessage() : "(nil)";
    const std::string actualFile = failure->getFile() != nullptr ? failure->getFile() : "(null)";
    if (actualMessage != message || actualFile != file || failure->getLine() != line)
    {
        return ::testing::AssertionFailure() << "thrown \"" << actualMessage << "\" at "
                                             << actualFile << " " << failure->getLine();
    }
    return ::testing::AssertionSuccess();
}

uint32_t low32(const void* p)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(p));
}

/// A null ZnObject*, hidden from the optimiser.
const ZnObject* nullObject()
{
    const ZnObject* volatile nothing = nullptr;
    return nothing;
}

// The calls below are made on a null receiver on purpose. A sanitizer build's dynamic type
// check of a member call reads the object's table before the call, so it is off for them.
__attribute__((no_sanitize("vptr"))) int compareOnNull(const ZnObject* other)
{
    return nullObject()->compare(other);
}

__attribute__((no_sanitize("vptr"))) bool equalsOnNull(const ZnObject* other)
{
    return nullObject()->equals(other);
}

/// Counts its destructions in a variable of the test.
class Tracked : public ZnObject
{
public:
    explicit Tracked(int* destructions) : m_destructions(destructions) {}
    ~Tracked() override { ++*m_destructions; }

private:
    int* m_destructions;
};

/// Answers a fixed value from compareWith, to show that compare and equals dispatch to it.
class FixedOrder : public ZnObject
{
public:
    explicit FixedOrder(int order) : m_order(order) {}
    int compareWith(const ZnObject*) const override { return m_order; }

private:
    int m_order;
};

/// A class that keeps the clone of ZnObject.
class NotCloneable : public ZnObject
{
};

/// A class that clones itself.
class Cloneable : public ZnObject
{
public:
    ZnObject* clone() const override { return new Cloneable; }
};

namespace Shapes
{

class Circle : public ZnObject
{
public:
    class Centre : public ZnObject
    {
    };
};

template <class T>
class Box : public ZnObject
{
};

} // namespace Shapes

TEST(ZnObjectTest, NewObjectHasCountZero)
{
    ZnObject* object = new ZnObject;
    EXPECT_EQ(object->getRefCount(), 0u);
    delete object;
}

TEST(ZnObjectTest, WrappingInHandleMakesCountOne)
{
    ZnObject* object = new ZnObject;
    ZnHandle<ZnObject> handle(object);
    EXPECT_EQ(object->getRefCount(), 1u);
}

TEST(ZnObjectTest, DroppingLastHandleDeletesObject)
{
    int destructions = 0;
    {
        ZnHandle<Tracked> handle(new Tracked(&destructions));
        EXPECT_EQ(destructions, 0);
    }
    EXPECT_EQ(destructions, 1);
}

TEST(ZnObjectTest, AddRefReturnsNewCount)
{
    ZnObject* object = new ZnObject;
    EXPECT_EQ(object->AddRef(), 1u);
    EXPECT_EQ(object->AddRef(), 2u);
    EXPECT_EQ(object->getRefCount(), 2u);
    object->Release(false);
    object->Release(true);
}

TEST(ZnObjectTest, ReleaseReturnsNewCount)
{
    int destructions = 0;
    Tracked* object = new Tracked(&destructions);
    object->AddRef();
    object->AddRef();
    object->AddRef();
    EXPECT_EQ(object->Release(true), 2u);
    EXPECT_EQ(object->Release(true), 1u);
    EXPECT_EQ(destructions, 0);
    EXPECT_EQ(object->Release(true), 0u);
    EXPECT_EQ(destructions, 1);
}

TEST(ZnObjectTest, ReleaseWithoutDeleteAtOneKeepsObjectAlive)
{
    int destructions = 0;
    Tracked* object = new Tracked(&destructions);
    object->AddRef();
    EXPECT_EQ(object->Release(false), 0u);
    EXPECT_EQ(destructions, 0);
    EXPECT_EQ(object->getRefCount(), 0u);
    delete object;
    EXPECT_EQ(destructions, 1);
}

TEST(ZnObjectTest, ObjectReleasedWithoutDeleteCanBeTakenUpAgain)
{
    int destructions = 0;
    Tracked* object = new Tracked(&destructions);
    object->AddRef();
    object->Release(false);
    {
        ZnHandle<Tracked> handle(object);
        EXPECT_EQ(object->getRefCount(), 1u);
    }
    EXPECT_EQ(destructions, 1);
}

TEST(ZnObjectTest, ReleaseWithDeleteAtOneDeletesObject)
{
    int destructions = 0;
    Tracked* object = new Tracked(&destructions);
    object->AddRef();
    EXPECT_EQ(object->Release(true), 0u);
    EXPECT_EQ(destructions, 1);
}

TEST(ZnObjectTest, LentStackObjectSurvivesItsHandles)
{
    int destructions = 0;
    {
        Tracked owned(&destructions);
        owned.AddRef();
        {
            ZnHandle<Tracked> borrowed(&owned);
            EXPECT_EQ(owned.getRefCount(), 2u);
        }
        EXPECT_EQ(owned.getRefCount(), 1u);
        EXPECT_EQ(owned.Release(false), 0u);
        EXPECT_EQ(destructions, 0);
    }
    EXPECT_EQ(destructions, 1);
}

TEST(ZnObjectTest, CopyStartsWithCountZero)
{
    ZnObject original;
    original.AddRef();
    ZnObject copy(original);
    EXPECT_EQ(copy.getRefCount(), 0u);
    EXPECT_EQ(original.getRefCount(), 1u);
    original.Release(false);
}

TEST(ZnObjectTest, AssignmentKeepsOwnCount)
{
    ZnObject source;
    ZnObject target;
    source.AddRef();
    source.AddRef();
    target.AddRef();
    target = source;
    EXPECT_EQ(target.getRefCount(), 1u);
    EXPECT_EQ(source.getRefCount(), 2u);
    source.Release(false);
    source.Release(false);
    target.Release(false);
}

TEST(ZnObjectTest, DestroyingReferencedObjectThrows)
{
    ZnObject* object = new ZnObject;
    object->AddRef();
    ZnHandle<ZnException> e = catchThrown([&] { delete object; });
    EXPECT_TRUE(isAssertionFailure(e, "Destructing ZnObject with live references", "ZnObject", 52));
}

TEST(ZnObjectTest, DestroyingObjectHeldByHandleThrows)
{
    ZnObject* object = new ZnObject;
    // The handle is never destroyed: it would release an object that is gone.
    alignas(ZnHandle<ZnObject>) static unsigned char storage[sizeof(ZnHandle<ZnObject>)];
    new (storage) ZnHandle<ZnObject>(object);
    ASSERT_EQ(object->getRefCount(), 1u);
    EXPECT_THROW(delete object, ZnHandle<ZnException>);
}

TEST(ZnObjectTest, DestroyingReferencedStackObjectThrows)
{
    auto destroyReferencedObject = []
    {
        ZnObject owned;
        owned.AddRef();
    };
    ZnHandle<ZnException> e = catchThrown(destroyReferencedObject);
    EXPECT_TRUE(isAssertionFailure(e, "Destructing ZnObject with live references", "ZnObject", 52));
}

TEST(ZnObjectTest, DestroyingReferencedObjectReportsToAssertionService)
{
    ZnTest::LogCapture capture(kAssertionLogger, Tavoris::TRACE_LOG_LEVEL);
    ZnObject* object = new ZnObject;
    object->AddRef();
    EXPECT_THROW(delete object, ZnHandle<ZnException>);
    const std::vector<ZnTest::CapturedEvent> events =
        capture.find("Assertion failed: Destructing ZnObject with live references");
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].level, Tavoris::ERROR_LOG_LEVEL);
    EXPECT_EQ(events[0].file, "ZnObject");
    EXPECT_EQ(events[0].line, 52);
}

TEST(ZnObjectTest, DestroyingUnreferencedObjectIsSilent)
{
    ZnTest::LogCapture capture;
    ZnObject* object = new ZnObject;
    EXPECT_NO_THROW(delete object);
    EXPECT_TRUE(capture.events().empty());
}

TEST(ZnObjectTest, CloneThrowsWhenNotSupported)
{
    ZnObject object;
    ZnHandle<ZnException> e = catchThrown([&] { object.clone(); });
    EXPECT_TRUE(isAssertionFailure(e, "cloning is not supported", "ZnObject", 87));
}

TEST(ZnObjectTest, CloneThrowsForClassThatDoesNotOverrideIt)
{
    NotCloneable object;
    const ZnObject& asObject = object;
    ZnHandle<ZnException> e = catchThrown([&] { asObject.clone(); });
    EXPECT_TRUE(isAssertionFailure(e, "cloning is not supported", "ZnObject", 87));
}

TEST(ZnObjectTest, CloneReportsToAssertionService)
{
    ZnTest::LogCapture capture(kAssertionLogger, Tavoris::TRACE_LOG_LEVEL);
    ZnObject object;
    EXPECT_THROW(object.clone(), ZnHandle<ZnException>);
    const std::vector<ZnTest::CapturedEvent> events =
        capture.find("Assertion failed: cloning is not supported");
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].file, "ZnObject");
    EXPECT_EQ(events[0].line, 87);
}

TEST(ZnObjectTest, CloneOverrideIsCalledThroughRoot)
{
    Cloneable original;
    const ZnObject& asObject = original;
    ZnHandle<ZnObject> copy(asObject.clone());
    ASSERT_FALSE(copy.isNil());
    EXPECT_NE(&*copy, &original);
    EXPECT_TRUE(copy->isSameClass(&original));
    EXPECT_EQ(copy->getRefCount(), 1u);
}

TEST(ZnObjectTest, CompareWithSameObjectIsZero)
{
    ZnObject object;
    EXPECT_EQ(object.compareWith(&object), 0);
    EXPECT_EQ(object.compare(&object), 0);
}

TEST(ZnObjectTest, CompareWithIsDifferenceOfLow32BitsOfAddresses)
{
    ZnObject* first = new ZnObject;
    ZnObject* second = new ZnObject;
    const int32_t expected = static_cast<int32_t>(low32(first) - low32(second));
    EXPECT_EQ(first->compareWith(second), expected);
    EXPECT_EQ(second->compareWith(first), static_cast<int32_t>(low32(second) - low32(first)));
    EXPECT_NE(first->compareWith(second), 0);
    delete first;
    delete second;
}

TEST(ZnObjectTest, CompareOrdersByAddress)
{
    ZnObject objects[2];
    const int distance = static_cast<int>(sizeof(ZnObject));
    EXPECT_EQ(objects[0].compare(&objects[1]), -distance);
    EXPECT_EQ(objects[1].compare(&objects[0]), distance);
}

TEST(ZnObjectTest, CompareCallsCompareWith)
{
    FixedOrder object(7);
    ZnObject other;
    EXPECT_EQ(object.compare(&other), 7);
}

TEST(ZnObjectTest, DistinctPlainObjectsAreNotEqual)
{
    ZnObject first;
    ZnObject second;
    EXPECT_FALSE(first.equals(&second));
    EXPECT_FALSE(second.equals(&first));
}

TEST(ZnObjectTest, ObjectEqualsItself)
{
    ZnObject object;
    EXPECT_TRUE(object.equals(&object));
}

TEST(ZnObjectTest, EqualsIsTrueWhenCompareWithGivesZero)
{
    FixedOrder same(0);
    FixedOrder different(-3);
    ZnObject other;
    EXPECT_TRUE(same.equals(&other));
    EXPECT_FALSE(different.equals(&other));
}

TEST(ZnObjectTest, CompareThroughNullReceiverThrows)
{
    ZnObject other;
    ZnHandle<ZnException> e = catchThrown([&] { compareOnNull(&other); });
    EXPECT_TRUE(isAssertionFailure(e, "this != 0", "ZnObject", 87));
}

TEST(ZnObjectTest, EqualsThroughNullReceiverThrows)
{
    ZnObject other;
    ZnHandle<ZnException> e = catchThrown([&] { equalsOnNull(&other); });
    EXPECT_TRUE(isAssertionFailure(e, "this != 0", "ZnObject", 87));
}

TEST(ZnObjectTest, NullReceiverReportsToAssertionService)
{
    ZnTest::LogCapture capture(kAssertionLogger, Tavoris::TRACE_LOG_LEVEL);
    ZnObject other;
    EXPECT_THROW(equalsOnNull(&other), ZnHandle<ZnException>);
    const std::vector<ZnTest::CapturedEvent> events = capture.find("Assertion failed: this != 0");
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].file, "ZnObject");
    EXPECT_EQ(events[0].line, 87);
}

TEST(ZnObjectTest, HashCodeIsLow32BitsOfAddress)
{
    ZnObject* object = new ZnObject;
    EXPECT_EQ(object->hashCode(), low32(object));
    delete object;
}

TEST(ZnObjectTest, ClassNameOfPlainObjectIsZnObject)
{
    ZnObject object;
    EXPECT_STREQ(object.getClassName(), "ZnObject");
}

TEST(ZnObjectTest, ClassNameIsRunTimeClass)
{
    int destructions = 0;
    Tracked tracked(&destructions);
    const ZnObject& asObject = tracked;
    EXPECT_STREQ(asObject.getClassName(), "Tracked");
}

TEST(ZnObjectTest, ClassNameDropsNamespaces)
{
    Shapes::Circle circle;
    EXPECT_STREQ(circle.getClassName(), "Circle");
}

TEST(ZnObjectTest, ClassNameDropsEnclosingClass)
{
    Shapes::Circle::Centre centre;
    EXPECT_STREQ(centre.getClassName(), "Centre");
}

TEST(ZnObjectTest, ClassNameOfTemplateKeepsItsArguments)
{
    Shapes::Box<Shapes::Circle> box;
    const std::string name = box.getClassName();
    EXPECT_EQ(name.rfind("Box<", 0), 0u) << name;
    EXPECT_EQ(name.substr(name.size() - 7), "Circle>") << name;
}

TEST(ZnObjectTest, ClassNameTextStaysTheSame)
{
    ZnObject first;
    ZnObject second;
    EXPECT_EQ(first.getClassName(), second.getClassName());
}

TEST(ZnObjectTest, ObjectsOfOneClassAreSameClass)
{
    ZnObject first;
    ZnObject second;
    EXPECT_TRUE(first.isSameClass(&second));
}

TEST(ZnObjectTest, BaseAndDerivedAreNotSameClass)
{
    ZnObject base;
    NotCloneable derived;
    EXPECT_FALSE(base.isSameClass(&derived));
    EXPECT_FALSE(derived.isSameClass(&base));
}

TEST(ZnObjectTest, SameClassComparesRunTimeClasses)
{
    Shapes::Circle circle;
    Shapes::Circle otherCircle;
    const ZnObject& first = circle;
    const ZnObject& second = otherCircle;
    NotCloneable other;
    EXPECT_TRUE(first.isSameClass(&second));
    EXPECT_FALSE(first.isSameClass(&other));
}

} // namespace
