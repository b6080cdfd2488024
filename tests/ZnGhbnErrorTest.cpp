#include "ZnUtil/ZnGhbnError.h"

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnSocketError.h"
#include "ZnUtil/ZnSystemError.h"

#include "tavoris/Hostent.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <set>
#include <string>

namespace
{

using Status = Tavoris::Hostent::GetHostByNameStatus;

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

TEST(ZnGhbnErrorTest, ConstructorKeepsMessageAndStatus)
{
    ZnHandle<ZnGhbnError> e(new ZnGhbnError("sip.example.com", Tavoris::Hostent::GHBN_TRY_AGAIN));
    EXPECT_STREQ(e->getExceptionMessage(), "sip.example.com");
    EXPECT_EQ(e->getStatus(), Tavoris::Hostent::GHBN_TRY_AGAIN);
}

TEST(ZnGhbnErrorTest, NumberIsZero)
{
    ZnHandle<ZnGhbnError> e(new ZnGhbnError("host", Tavoris::Hostent::GHBN_HOST_NOT_FOUND));
    EXPECT_EQ(e->getErrNo(), 0);
}

TEST(ZnGhbnErrorTest, EmptyMessageIsNil)
{
    ZnHandle<ZnGhbnError> e(new ZnGhbnError("", Tavoris::Hostent::GHBN_NO_DATA));
    EXPECT_EQ(e->getExceptionMessage(), nullptr);
    EXPECT_EQ(e->getStatus(), Tavoris::Hostent::GHBN_NO_DATA);
}

TEST(ZnGhbnErrorTest, ThrowThrowsGhbnErrorWithMessageAndStatus)
{
    ZnHandle<ZnException> e = catchThrown(
        [] { ZnGhbnError::sThrow("proxy.invalid", Tavoris::Hostent::GHBN_HOST_NOT_FOUND); });
    ASSERT_FALSE(e.isNil());
    EXPECT_STREQ(e->getClassName(), "ZnGhbnError");
    EXPECT_STREQ(e->getExceptionMessage(), "proxy.invalid");
    ZnHandle<ZnGhbnError> ghbnError(e);
    EXPECT_EQ(ghbnError->getStatus(), Tavoris::Hostent::GHBN_HOST_NOT_FOUND);
}

TEST(ZnGhbnErrorTest, ThrowIgnoresErrno)
{
    ZnHandle<ZnException> e = catchThrown(
        []
        {
            errno = ECONNREFUSED;
            ZnGhbnError::sThrow("host", Tavoris::Hostent::GHBN_TIMEOUT);
        });
    ZnHandle<ZnGhbnError> ghbnError(e);
    ASSERT_FALSE(ghbnError.isNil());
    EXPECT_EQ(ghbnError->getErrNo(), 0);
    EXPECT_EQ(ghbnError->getStatus(), Tavoris::Hostent::GHBN_TIMEOUT);
}

TEST(ZnGhbnErrorTest, IsASocketErrorAndSystemError)
{
    ZnHandle<ZnException> e(new ZnGhbnError("host", Tavoris::Hostent::GHBN_NO_RECOVERY));
    ZnHandle<ZnSocketError> socketError(e);
    ZnHandle<ZnSystemError> systemError(e);
    EXPECT_FALSE(socketError.isNil());
    EXPECT_FALSE(systemError.isNil());
}

TEST(ZnGhbnErrorTest, EveryStatusHasItsOwnText)
{
    const Status statuses[] = {
        Tavoris::Hostent::GHBN_SUCCESS,     Tavoris::Hostent::GHBN_HOST_NOT_FOUND,
        Tavoris::Hostent::GHBN_TRY_AGAIN,   Tavoris::Hostent::GHBN_NO_RECOVERY,
        Tavoris::Hostent::GHBN_NO_DATA,     Tavoris::Hostent::GHBN_TIMEOUT,
        Tavoris::Hostent::GHBN_INVALID_NAME};
    std::set<std::string> texts;
    for (Status status : statuses)
    {
        const char* text = Tavoris::Hostent::getGetHostByNameStatusString(status);
        ASSERT_NE(text, nullptr) << status;
        EXPECT_NE(std::string(text), "") << status;
        EXPECT_NE(std::string(text), "Unknown status") << status;
        texts.insert(text);
    }
    EXPECT_EQ(texts.size(), sizeof statuses / sizeof statuses[0]);
}

TEST(ZnGhbnErrorTest, UnknownStatusHasUnknownText)
{
    EXPECT_STREQ(Tavoris::Hostent::getGetHostByNameStatusString(static_cast<Status>(7)),
                 "Unknown status");
}

} // namespace
