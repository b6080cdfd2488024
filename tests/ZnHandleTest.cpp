#include "ZnUtil/ZnHandle.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnObject.h"

#include "tavoris/LogLevel.h"

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <utility>
#include <vector>

#include "support/CapturingAppender.h"

namespace
{

const char* const kAssertionLogger = "corvane.core.Assertion";

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

/// Counts its destructions and the calls of AddRef and Release made on it.
class Counted : public ZnObject
{
public:
    explicit Counted(int* destructions = nullptr) : m_destructions(destructions) {}
    ~Counted() override
    {
        if (m_destructions != nullptr)
        {
            ++*m_destructions;
        }
    }

    unsigned long AddRef() override
    {
        ++m_addRefCalls;
        return ZnObject::AddRef();
    }

    unsigned long Release(bool deleteAtZero) override
    {
        ++m_releaseCalls;
        return ZnObject::Release(deleteAtZero);
    }

    int addRefCalls() const { return m_addRefCalls; }
    int releaseCalls() const { return m_releaseCalls; }

private:
    int* m_destructions;
    int m_addRefCalls = 0;
    int m_releaseCalls = 0;
};

class Apple : public ZnObject
{
};

class GreenApple : public Apple
{
};

class Pear : public ZnObject
{
};

/// Holds another object through a handle, so that object may be reachable only through it.
class Holder : public ZnObject
{
public:
    Holder(Counted* held, int* destructions) : m_held(held), m_destructions(destructions) {}
    ~Holder() override { ++*m_destructions; }

    Counted* held() const { return m_held; }
    const ZnHandle<Counted>& heldHandle() const { return m_held; }

private:
    ZnHandle<Counted> m_held;
    int* m_destructions;
};

/// A class that reaches ZnObject through a virtual base, as the socket classes do.
class Shared : public virtual ZnObject
{
public:
    ~Shared() override;
};

class SharedLeaf : public Shared
{
};

class OtherShared : public virtual ZnObject
{
};

/// How ~Shared reads the handle below, and what the read gave.
enum class ReadForm
{
    Arrow,
    Pointer,
    Reference
};

ZnHandle<SharedLeaf>* g_readHandle = nullptr;
ReadForm g_readForm = ReadForm::Arrow;
bool g_readDone = false;
SharedLeaf* g_readResult = nullptr;

Shared::~Shared()
{
    // While this destructor runs the object is no longer a SharedLeaf, so the checked cast of
    // a read fails.
    if (g_readHandle == nullptr)
    {
        return;
    }
    switch (g_readForm)
    {
    case ReadForm::Arrow:
        g_readResult = g_readHandle->operator->();
        break;
    case ReadForm::Pointer:
        g_readResult = g_readHandle->operator SharedLeaf*();
        break;
    case ReadForm::Reference:
        static_cast<void>(g_readHandle->operator SharedLeaf&());
        break;
    }
    g_readDone = true;
}

/// Deletes a SharedLeaf that a handle still names while its count is 0, so that ~Shared reads
/// that handle in the form given. The handle lives in storage that is never destroyed: it must
/// not release the object again.
void readHandleOfDyingObject(ReadForm form)
{
    alignas(ZnHandle<SharedLeaf>) static unsigned char storage[sizeof(ZnHandle<SharedLeaf>)];
    SharedLeaf* leaf = new SharedLeaf;
    g_readHandle = new (storage) ZnHandle<SharedLeaf>(leaf);
    leaf->Release(false);
    g_readForm = form;
    g_readDone = false;
    g_readResult = leaf;
    delete leaf;
    g_readHandle = nullptr;
}

TEST(ZnHandleTest, HandleIsOnePointerWide)
{
    EXPECT_EQ(sizeof(ZnHandleBase), sizeof(void*));
    EXPECT_EQ(sizeof(ZnHandle<ZnObject>), sizeof(void*));
    EXPECT_EQ(sizeof(ZnHandle<SharedLeaf>), sizeof(void*));
}

TEST(ZnHandleTest, DefaultHandleIsNil)
{
    ZnHandle<ZnObject> handle;
    EXPECT_TRUE(handle.isNil());
}

TEST(ZnHandleTest, ConstructionFromNullIsNil)
{
    ZnHandle<Apple> handle(static_cast<Apple*>(nullptr));
    EXPECT_TRUE(handle.isNil());
}

TEST(ZnHandleTest, ConstructionFromPointerAddsReference)
{
    Counted* object = new Counted;
    ZnHandle<Counted> handle(object);
    EXPECT_FALSE(handle.isNil());
    EXPECT_EQ(object->getRefCount(), 1u);
    EXPECT_EQ(object->addRefCalls(), 1);
}

TEST(ZnHandleTest, CopyAddsReference)
{
    Counted* object = new Counted;
    ZnHandle<Counted> first(object);
    ZnHandle<Counted> second(first);
    EXPECT_EQ(object->getRefCount(), 2u);
    EXPECT_EQ(&*second, object);
}

TEST(ZnHandleTest, DestructionReleasesReference)
{
    Counted* object = new Counted;
    ZnHandle<Counted> first(object);
    {
        ZnHandle<Counted> second(first);
        EXPECT_EQ(object->getRefCount(), 2u);
    }
    EXPECT_EQ(object->getRefCount(), 1u);
    EXPECT_EQ(object->releaseCalls(), 1);
}

TEST(ZnHandleTest, DestructionOfLastHandleDeletesObject)
{
    int destructions = 0;
    {
        ZnHandle<Counted> first(new Counted(&destructions));
        ZnHandle<Counted> second(first);
    }
    EXPECT_EQ(destructions, 1);
}

TEST(ZnHandleTest, CopiesInVectorShareObject)
{
    int destructions = 0;
    Counted* object = new Counted(&destructions);
    {
        std::vector<ZnHandle<Counted>> handles(5, ZnHandle<Counted>(object));
        EXPECT_EQ(object->getRefCount(), 5u);
    }
    EXPECT_EQ(destructions, 1);
}

TEST(ZnHandleTest, MoveLeavesSourceNilAndCountUnchanged)
{
    Counted* object = new Counted;
    ZnHandle<Counted> source(object);
    ZnHandle<Counted> target(std::move(source));
    EXPECT_TRUE(source.isNil());
    EXPECT_EQ(&*target, object);
    EXPECT_EQ(object->getRefCount(), 1u);
}

TEST(ZnHandleTest, MoveAssignmentReleasesOldObject)
{
    int destructions = 0;
    Counted* fresh = new Counted;
    ZnHandle<Counted> source(fresh);
    ZnHandle<Counted> target(new Counted(&destructions));
    target = std::move(source);
    EXPECT_EQ(destructions, 1);
    EXPECT_TRUE(source.isNil());
    EXPECT_EQ(&*target, fresh);
    EXPECT_EQ(fresh->getRefCount(), 1u);
}

TEST(ZnHandleTest, ConstructionFromDerivedHandleSharesObject)
{
    GreenApple* object = new GreenApple;
    ZnHandle<GreenApple> derived(object);
    ZnHandle<Apple> base(derived);
    EXPECT_EQ(static_cast<Apple*>(base), object);
    EXPECT_EQ(object->getRefCount(), 2u);
}

TEST(ZnHandleTest, ConstructionFromBaseHandleHoldingDerivedObjectCasts)
{
    GreenApple* object = new GreenApple;
    ZnHandle<ZnObject> root(object);
    ZnHandle<GreenApple> derived(root);
    EXPECT_EQ(static_cast<GreenApple*>(derived), object);
    EXPECT_EQ(object->getRefCount(), 2u);
}

TEST(ZnHandleTest, ConstructionFromUnrelatedHandleThrows)
{
    ZnHandle<Pear> pear(new Pear);
    ZnHandle<ZnException> e = catchThrown([&] { ZnHandle<Apple> apple(pear); });
    EXPECT_TRUE(
        isAssertionFailure(e, "dynamic_cast failed on ZnHandle construction", "ZnHandle", 47));
}

TEST(ZnHandleTest, ConstructionFromBaseHandleOfOtherClassThrows)
{
    ZnHandle<ZnObject> root(new Pear);
    ZnHandle<ZnException> e = catchThrown([&] { ZnHandle<Apple> apple(root); });
    EXPECT_TRUE(
        isAssertionFailure(e, "dynamic_cast failed on ZnHandle construction", "ZnHandle", 47));
}

TEST(ZnHandleTest, FailedConstructionAddsNoReference)
{
    Pear* object = new Pear;
    ZnHandle<ZnObject> root(object);
    EXPECT_THROW(ZnHandle<Apple> apple(root), ZnHandle<ZnException>);
    EXPECT_EQ(object->getRefCount(), 1u);
}

TEST(ZnHandleTest, FailedConstructionReportsToAssertionService)
{
    ZnTest::LogCapture capture(kAssertionLogger, Tavoris::TRACE_LOG_LEVEL);
    ZnHandle<ZnObject> root(new Pear);
    EXPECT_THROW(ZnHandle<Apple> apple(root), ZnHandle<ZnException>);
    const std::vector<ZnTest::CapturedEvent> events =
        capture.find("Assertion failed: dynamic_cast failed on ZnHandle construction");
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].level, Tavoris::ERROR_LOG_LEVEL);
    EXPECT_EQ(events[0].file, "ZnHandle");
    EXPECT_EQ(events[0].line, 47);
}

TEST(ZnHandleTest, ConstructionFromNilHandleIsNil)
{
    ZnHandle<ZnObject> nil;
    ZnHandle<Apple> apple(nil);
    EXPECT_TRUE(apple.isNil());
}

TEST(ZnHandleTest, AssignmentFromPointerTakesNewAndReleasesOld)
{
    int destructions = 0;
    Counted* fresh = new Counted;
    ZnHandle<Counted> handle(new Counted(&destructions));
    handle = fresh;
    EXPECT_EQ(destructions, 1);
    EXPECT_EQ(&*handle, fresh);
    EXPECT_EQ(fresh->getRefCount(), 1u);
}

TEST(ZnHandleTest, AssignmentFromHandleSharesObject)
{
    Counted* object = new Counted;
    ZnHandle<Counted> source(object);
    ZnHandle<Counted> target;
    target = source;
    EXPECT_EQ(&*target, object);
    EXPECT_EQ(object->getRefCount(), 2u);
}

TEST(ZnHandleTest, AssignmentOfNullReleasesOld)
{
    int destructions = 0;
    ZnHandle<Counted> handle(new Counted(&destructions));
    handle = static_cast<Counted*>(nullptr);
    EXPECT_TRUE(handle.isNil());
    EXPECT_EQ(destructions, 1);
}

TEST(ZnHandleTest, AssignmentKeepsObjectReachableOnlyThroughOldOne)
{
    int holderDestructions = 0;
    int heldDestructions = 0;
    Holder* holder = new Holder(new Counted(&heldDestructions), &holderDestructions);
    Counted* held = holder->held();
    ZnHandle<ZnObject> handle(holder);
    handle = held;
    EXPECT_EQ(holderDestructions, 1);
    EXPECT_EQ(heldDestructions, 0);
    EXPECT_EQ(held->getRefCount(), 1u);
    EXPECT_EQ(&*handle, held);
}

TEST(ZnHandleTest, TypedAssignmentKeepsObjectReachableOnlyThroughOldOne)
{
    int holderDestructions = 0;
    int heldDestructions = 0;
    Holder* holder = new Holder(new Counted(&heldDestructions), &holderDestructions);
    Counted* held = holder->held();
    ZnHandle<ZnObject> handle(holder);
    // The source handle lives inside the object being released.
    handle = holder->heldHandle();
    EXPECT_EQ(holderDestructions, 1);
    EXPECT_EQ(heldDestructions, 0);
    EXPECT_EQ(held->getRefCount(), 1u);
    EXPECT_EQ(static_cast<ZnObject*>(handle), static_cast<ZnObject*>(held));
}

TEST(ZnHandleTest, SelfAssignmentCostsNoCountChange)
{
    Counted* object = new Counted;
    ZnHandle<Counted> handle(object);
    ZnHandle<Counted>& alias = handle;
    handle = alias;
    EXPECT_EQ(object->getRefCount(), 1u);
    EXPECT_EQ(object->addRefCalls(), 1);
    EXPECT_EQ(object->releaseCalls(), 0);
}

TEST(ZnHandleTest, AssigningHeldObjectCostsNoCountChange)
{
    Counted* object = new Counted;
    ZnHandle<Counted> first(object);
    ZnHandle<Counted> second(first);
    first = object;
    first = second;
    EXPECT_EQ(object->getRefCount(), 2u);
    EXPECT_EQ(object->addRefCalls(), 2);
    EXPECT_EQ(object->releaseCalls(), 0);
}

TEST(ZnHandleTest, AssigningHeldObjectThroughOtherTypeCostsNoCountChange)
{
    Counted* object = new Counted;
    ZnHandle<Counted> typed(object);
    ZnHandle<ZnObject> root(typed);
    typed = root;
    root = typed;
    EXPECT_EQ(object->getRefCount(), 2u);
    EXPECT_EQ(object->addRefCalls(), 2);
    EXPECT_EQ(object->releaseCalls(), 0);
}

TEST(ZnHandleTest, AssignmentFromDerivedHandleSharesObject)
{
    GreenApple* object = new GreenApple;
    ZnHandle<GreenApple> derived(object);
    ZnHandle<Apple> base(new Apple);
    base = derived;
    EXPECT_EQ(static_cast<Apple*>(base), object);
    EXPECT_EQ(object->getRefCount(), 2u);
}

TEST(ZnHandleTest, AssignmentFromBaseHandleHoldingDerivedObjectCasts)
{
    GreenApple* object = new GreenApple;
    ZnHandle<ZnObject> root(object);
    ZnHandle<GreenApple> derived;
    derived = root;
    EXPECT_EQ(static_cast<GreenApple*>(derived), object);
    EXPECT_EQ(object->getRefCount(), 2u);
}

TEST(ZnHandleTest, AssigningNilHandleOfOtherTypeReleasesOld)
{
    int destructions = 0;
    ZnHandle<Counted> handle(new Counted(&destructions));
    ZnHandle<ZnObject> nil;
    handle = nil;
    EXPECT_TRUE(handle.isNil());
    EXPECT_EQ(destructions, 1);
}

TEST(ZnHandleTest, AssigningFailedCastToNilHandleDoesNothing)
{
    ZnTest::LogCapture capture;
    Pear* object = new Pear;
    ZnHandle<ZnObject> root(object);
    ZnHandle<Apple> apple;
    EXPECT_NO_THROW(apple = root);
    EXPECT_TRUE(apple.isNil());
    EXPECT_EQ(object->getRefCount(), 1u);
    EXPECT_TRUE(capture.events().empty());
}

TEST(ZnHandleTest, AssigningFailedCastToHeldHandleThrows)
{
    Apple* old = new Apple;
    ZnHandle<Apple> apple(old);
    ZnHandle<ZnObject> root(new Pear);
    ZnHandle<ZnException> e = catchThrown([&] { apple = root; });
    EXPECT_TRUE(
        isAssertionFailure(e, "dynamic_cast failed on ZnHandle assignment", "ZnHandle", 82));
    // The reference of the old object is lost on purpose; give it back to free the object.
    old->Release(true);
}

TEST(ZnHandleTest, FailedAssignmentLeavesHandleNilAndOldCountUnchanged)
{
    int destructions = 0;
    Counted* old = new Counted(&destructions);
    ZnHandle<ZnObject> held(old);
    ZnHandle<Counted> typed(held);
    ASSERT_EQ(old->getRefCount(), 2u);
    held = ZnHandle<ZnObject>();
    ASSERT_EQ(old->getRefCount(), 1u);
    Pear* pear = new Pear;
    ZnHandle<ZnObject> root(pear);
    EXPECT_THROW(typed = root, ZnHandle<ZnException>);
    EXPECT_TRUE(typed.isNil());
    EXPECT_EQ(old->getRefCount(), 1u);
    EXPECT_EQ(old->releaseCalls(), 1);
    EXPECT_EQ(destructions, 0);
    EXPECT_EQ(pear->getRefCount(), 1u);
    old->Release(true);
    EXPECT_EQ(destructions, 1);
}

TEST(ZnHandleTest, FailedAssignmentReportsToAssertionService)
{
    ZnTest::LogCapture capture(kAssertionLogger, Tavoris::TRACE_LOG_LEVEL);
    Apple* old = new Apple;
    ZnHandle<Apple> apple(old);
    ZnHandle<ZnObject> root(new Pear);
    EXPECT_THROW(apple = root, ZnHandle<ZnException>);
    old->Release(true);
    const std::vector<ZnTest::CapturedEvent> events =
        capture.find("Assertion failed: dynamic_cast failed on ZnHandle assignment");
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].level, Tavoris::ERROR_LOG_LEVEL);
    EXPECT_EQ(events[0].file, "ZnHandle");
    EXPECT_EQ(events[0].line, 82);
}

TEST(ZnHandleTest, ReadingNilHandleGivesNullAndReportsNothing)
{
    ZnTest::LogCapture capture;
    ZnHandle<Apple> apple;
    EXPECT_EQ(apple.operator->(), nullptr);
    EXPECT_EQ(static_cast<Apple*>(apple), nullptr);
    EXPECT_TRUE(capture.events().empty());
}

TEST(ZnHandleTest, ReadingNilHandleOfVirtualBaseClassGivesNullAndReportsNothing)
{
    ZnTest::LogCapture capture;
    ZnHandle<SharedLeaf> leaf;
    EXPECT_EQ(leaf.operator->(), nullptr);
    EXPECT_EQ(static_cast<SharedLeaf*>(leaf), nullptr);
    EXPECT_TRUE(capture.events().empty());
}

TEST(ZnHandleTest, ReadingGivesHeldObjectInEveryForm)
{
    GreenApple* object = new GreenApple;
    ZnHandle<Apple> apple(object);
    Apple& reference = apple;
    EXPECT_EQ(apple.operator->(), object);
    EXPECT_EQ(static_cast<Apple*>(apple), object);
    EXPECT_EQ(&reference, object);
}

TEST(ZnHandleTest, ReadingVirtualBaseClassGivesHeldObjectInEveryForm)
{
    SharedLeaf* object = new SharedLeaf;
    ZnHandle<SharedLeaf> leaf(object);
    SharedLeaf& reference = leaf;
    EXPECT_EQ(leaf.operator->(), object);
    EXPECT_EQ(static_cast<SharedLeaf*>(leaf), object);
    EXPECT_EQ(&reference, object);
}

TEST(ZnHandleTest, VirtualBaseClassConvertsThroughRootHandle)
{
    SharedLeaf* object = new SharedLeaf;
    ZnHandle<SharedLeaf> leaf(object);
    ZnHandle<ZnObject> root(leaf);
    ZnHandle<Shared> shared(root);
    EXPECT_EQ(static_cast<ZnObject*>(root), static_cast<ZnObject*>(object));
    EXPECT_EQ(static_cast<Shared*>(shared), static_cast<Shared*>(object));
    EXPECT_EQ(object->getRefCount(), 3u);
}

TEST(ZnHandleTest, VirtualBaseClassOfOtherBranchFailsConstruction)
{
    ZnHandle<ZnObject> root(new SharedLeaf);
    ZnHandle<ZnException> e = catchThrown([&] { ZnHandle<OtherShared> other(root); });
    EXPECT_TRUE(
        isAssertionFailure(e, "dynamic_cast failed on ZnHandle construction", "ZnHandle", 47));
}

TEST(ZnHandleTest, ArrowOnObjectOfWrongRunTimeClassReportsLine285)
{
    ZnTest::LogCapture capture(kAssertionLogger, Tavoris::TRACE_LOG_LEVEL);
    readHandleOfDyingObject(ReadForm::Arrow);
    ASSERT_TRUE(g_readDone);
    EXPECT_EQ(g_readResult, nullptr);
    const std::vector<ZnTest::CapturedEvent> events = capture.find("Assertion failed: pObj!=0");
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].level, Tavoris::ERROR_LOG_LEVEL);
    EXPECT_EQ(events[0].file, "ZnHandle");
    EXPECT_EQ(events[0].line, 285);
}

TEST(ZnHandleTest, PointerConversionOnObjectOfWrongRunTimeClassReportsLine323)
{
    ZnTest::LogCapture capture(kAssertionLogger, Tavoris::TRACE_LOG_LEVEL);
    readHandleOfDyingObject(ReadForm::Pointer);
    ASSERT_TRUE(g_readDone);
    EXPECT_EQ(g_readResult, nullptr);
    const std::vector<ZnTest::CapturedEvent> events = capture.find("Assertion failed: pObj!=0");
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].file, "ZnHandle");
    EXPECT_EQ(events[0].line, 323);
}

TEST(ZnHandleTest, ReferenceConversionOnObjectOfWrongRunTimeClassReportsLine357)
{
    ZnTest::LogCapture capture(kAssertionLogger, Tavoris::TRACE_LOG_LEVEL);
    readHandleOfDyingObject(ReadForm::Reference);
    ASSERT_TRUE(g_readDone);
    const std::vector<ZnTest::CapturedEvent> events = capture.find("Assertion failed: pObj!=0");
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].file, "ZnHandle");
    EXPECT_EQ(events[0].line, 357);
}

TEST(ZnHandleTest, ReadOfWrongRunTimeClassDoesNotThrow)
{
    EXPECT_NO_THROW(readHandleOfDyingObject(ReadForm::Arrow));
    EXPECT_TRUE(g_readDone);
}

} // namespace
