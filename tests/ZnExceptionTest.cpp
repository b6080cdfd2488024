#include "ZnUtil/ZnException.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnGhbnError.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnSocketError.h"
#include "ZnUtil/ZnString.h"
#include "ZnUtil/ZnSystemError.h"

#include "tavoris/Hostent.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace
{

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

/// An exception that counts its destructions.
class TrackedException : public ZnException
{
public:
    TrackedException(const char* message, int* destructions)
        : ZnException(message), m_destructions(destructions)
    {
    }
    ~TrackedException() override { ++*m_destructions; }

private:
    int* m_destructions;
};

TEST(ZnExceptionTest, DebugTokenIsClassName)
{
    EXPECT_STREQ(ZnException::sDebugToken, "ZnException");
}

TEST(ZnExceptionTest, UnhandledMessageText)
{
    EXPECT_STREQ(ZnException::sUnhandledMessage, "\n\n!!! Unhandled Exception Intercepted !!!\n\n");
}

TEST(ZnExceptionTest, DefaultMessageIsNil)
{
    ZnHandle<ZnException> e(new ZnException);
    EXPECT_EQ(e->getExceptionMessage(), nullptr);
    EXPECT_TRUE(e->getMessage().isNil());
}

TEST(ZnExceptionTest, MessageIsCopied)
{
    char text[] = "disk full";
    ZnHandle<ZnException> e(new ZnException(text));
    text[0] = 'D';
    ASSERT_NE(e->getExceptionMessage(), nullptr);
    EXPECT_NE(e->getExceptionMessage(), text);
    EXPECT_STREQ(e->getExceptionMessage(), "disk full");
}

TEST(ZnExceptionTest, EmptyMessageIsNil)
{
    ZnHandle<ZnException> e(new ZnException(""));
    EXPECT_EQ(e->getExceptionMessage(), nullptr);
    EXPECT_TRUE(e->getMessage().isNil());
}

TEST(ZnExceptionTest, NullMessageIsNil)
{
    ZnHandle<ZnException> e(new ZnException(static_cast<const char*>(nullptr)));
    EXPECT_EQ(e->getExceptionMessage(), nullptr);
}

TEST(ZnExceptionTest, NewExceptionHasCountZero)
{
    ZnException* e = new ZnException("fresh");
    EXPECT_EQ(e->getRefCount(), 0u);
    delete e;
}

TEST(ZnExceptionTest, ClassNameIsZnException)
{
    ZnHandle<ZnException> e(new ZnException("x"));
    EXPECT_STREQ(e->getClassName(), "ZnException");
}

TEST(ZnExceptionTest, ThrowOfObjectThrowsHandleOnThatObject)
{
    ZnException* thrown = new ZnException("thrown");
    ZnHandle<ZnException> e = catchThrown([&] { ZnException::sThrow(thrown); });
    EXPECT_EQ(static_cast<ZnException*>(e), thrown);
}

TEST(ZnExceptionTest, ThrownObjectHasCountOneInFlight)
{
    unsigned long countInCatch = 0;
    try
    {
        ZnException::sThrow(new ZnException("in flight"));
    }
    catch (ZnHandle<ZnException>& e)
    {
        countInCatch = e->getRefCount();
    }
    EXPECT_EQ(countInCatch, 1u);
}

TEST(ZnExceptionTest, ThrownObjectDiesWithLastHandle)
{
    int destructions = 0;
    try
    {
        ZnException::sThrow(new TrackedException("short", &destructions));
    }
    catch (ZnHandle<ZnException>&)
    {
        EXPECT_EQ(destructions, 0);
    }
    EXPECT_EQ(destructions, 1);
}

TEST(ZnExceptionTest, KeptHandleKeepsThrownObjectAlive)
{
    int destructions = 0;
    ZnHandle<ZnException> kept;
    try
    {
        ZnException::sThrow(new TrackedException("kept", &destructions));
    }
    catch (ZnHandle<ZnException>& e)
    {
        kept = e;
    }
    EXPECT_EQ(destructions, 0);
    EXPECT_EQ(kept->getRefCount(), 1u);
    EXPECT_STREQ(kept->getExceptionMessage(), "kept");
    kept = ZnHandle<ZnException>();
    EXPECT_EQ(destructions, 1);
}

TEST(ZnExceptionTest, ThrowOfTextThrowsPlainException)
{
    ZnHandle<ZnException> e = catchThrown([] { ZnException::sThrow("no route"); });
    ASSERT_FALSE(e.isNil());
    EXPECT_STREQ(e->getExceptionMessage(), "no route");
    EXPECT_STREQ(e->getClassName(), "ZnException");
}

TEST(ZnExceptionTest, ThrowOfNullTextGivesUnknownException)
{
    ZnHandle<ZnException> e =
        catchThrown([] { ZnException::sThrow(static_cast<const char*>(nullptr)); });
    ASSERT_FALSE(e.isNil());
    EXPECT_STREQ(e->getExceptionMessage(), "Unknown Exception");
}

TEST(ZnExceptionTest, ThrowOfEmptyTextGivesNilMessage)
{
    ZnHandle<ZnException> e = catchThrown([] { ZnException::sThrow(""); });
    ASSERT_FALSE(e.isNil());
    EXPECT_EQ(e->getExceptionMessage(), nullptr);
}

TEST(ZnExceptionTest, CatchOfHandleBaseReceivesThrow)
{
    bool caught = false;
    try
    {
        ZnException::sThrow("base");
    }
    catch (ZnHandleBase& e)
    {
        caught = !e.isNil();
    }
    EXPECT_TRUE(caught);
}

TEST(ZnExceptionTest, CatchOfHandleReceivesEveryClassOfTheFamily)
{
    const std::vector<std::pair<const char*, std::function<void()>>> throwers = {
        {"ZnException", [] { ZnException::sThrow("plain"); }},
        {"ZnAssertionFailure",
         [] { ZnAssertionFailure::sThrow("check", "ZnExceptionTest", 1, ZN_COMPILED); }},
        {"ZnSystemError", [] { ZnSystemError::sThrow("open", 2); }},
        {"ZnSocketError", [] { ZnSocketError::sThrow("bind", 10048); }},
        {"ZnGhbnError",
         [] { ZnGhbnError::sThrow("resolve", Tavoris::Hostent::GHBN_HOST_NOT_FOUND); }},
    };
    for (const auto& thrower : throwers)
    {
        ZnHandle<ZnException> e = catchThrown(thrower.second);
        ASSERT_FALSE(e.isNil()) << thrower.first;
        EXPECT_STREQ(e->getClassName(), thrower.first);
    }
}

TEST(ZnExceptionTest, CatchOfDerivedHandleTypeDoesNotMatch)
{
    bool caughtAsDerived = false;
    bool caughtAsException = false;
    try
    {
        ZnSystemError::sThrow("read", 5);
    }
    catch (ZnHandle<ZnSystemError>&)
    {
        caughtAsDerived = true;
    }
    catch (ZnHandle<ZnException>& e)
    {
        caughtAsException = true;
        ZnHandle<ZnSystemError> systemError(e);
        EXPECT_EQ(systemError->getErrNo(), 5);
    }
    EXPECT_FALSE(caughtAsDerived);
    EXPECT_TRUE(caughtAsException);
}

TEST(ZnExceptionTest, DestructionReleasesMessage)
{
    ZnHandle<ZnException> e(new ZnException("shared text"));
    ZnString message = e->getMessage();
    ASSERT_FALSE(message.isNil());
    EXPECT_EQ(message.buffer()->getRefCount(), 2u);
    e = ZnHandle<ZnException>();
    EXPECT_EQ(message.buffer()->getRefCount(), 1u);
    EXPECT_STREQ(message, "shared text");
}

} // namespace
