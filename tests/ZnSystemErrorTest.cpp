#include "ZnUtil/ZnSystemError.h"

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnSocketError.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>

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

/// The errno number recorded by a ZnSystemError thrown by \p action, or -1.
template <class Action>
int thrownErrNo(Action&& action)
{
    ZnHandle<ZnException> e = catchThrown(action);
    ZnHandle<ZnSystemError> systemError(e);
    return systemError.isNil() ? -1 : systemError->getErrNo();
}

TEST(ZnSystemErrorTest, DefaultHasNilMessageAndNumberZero)
{
    ZnHandle<ZnSystemError> e(new ZnSystemError);
    EXPECT_EQ(e->getExceptionMessage(), nullptr);
    EXPECT_EQ(e->getErrNo(), 0);
}

TEST(ZnSystemErrorTest, ConstructorKeepsMessageAndNumber)
{
    ZnHandle<ZnSystemError> e(new ZnSystemError("open", ENOENT));
    EXPECT_STREQ(e->getExceptionMessage(), "open");
    EXPECT_EQ(e->getErrNo(), ENOENT);
}

TEST(ZnSystemErrorTest, EmptyMessageIsNil)
{
    ZnHandle<ZnSystemError> e(new ZnSystemError("", EIO));
    EXPECT_EQ(e->getExceptionMessage(), nullptr);
    EXPECT_EQ(e->getErrNo(), EIO);
}

TEST(ZnSystemErrorTest, ThrowThrowsSystemErrorWithMessageAndNumber)
{
    ZnHandle<ZnException> e = catchThrown([] { ZnSystemError::sThrow("write", EPIPE); });
    ASSERT_FALSE(e.isNil());
    EXPECT_STREQ(e->getClassName(), "ZnSystemError");
    EXPECT_STREQ(e->getExceptionMessage(), "write");
    ZnHandle<ZnSystemError> systemError(e);
    EXPECT_EQ(systemError->getErrNo(), EPIPE);
}

TEST(ZnSystemErrorTest, ThrowWithNumberZeroRecordsLastError)
{
    const int recorded = thrownErrNo(
        []
        {
            errno = EACCES;
            ZnSystemError::sThrow("x", 0);
        });
    EXPECT_EQ(recorded, EACCES);
}

TEST(ZnSystemErrorTest, ThrowWithNumberKeepsItOverLastError)
{
    const int recorded = thrownErrNo(
        []
        {
            errno = EACCES;
            ZnSystemError::sThrow("x", ENOSPC);
        });
    EXPECT_EQ(recorded, ENOSPC);
}

TEST(ZnSystemErrorTest, ThrowRecordsLastErrorOfCallingThread)
{
    errno = EINTR;
    int recordedInThread = -1;
    std::thread other(
        [&]
        {
            recordedInThread = thrownErrNo(
                []
                {
                    errno = ENOTDIR;
                    ZnSystemError::sThrow("x", 0);
                });
        });
    other.join();
    EXPECT_EQ(recordedInThread, ENOTDIR);
    const int recordedHere = thrownErrNo(
        []
        {
            errno = EROFS;
            ZnSystemError::sThrow("x", 0);
        });
    EXPECT_EQ(recordedHere, EROFS);
}

TEST(ZnSystemErrorTest, ThrowWithNumberZeroKeepsErrnoUntranslated)
{
    // A system error keeps errno as it is; only socket errors translate it.
    const int recorded = thrownErrNo(
        []
        {
            errno = EADDRINUSE;
            ZnSystemError::sThrow("x", 0);
        });
    EXPECT_EQ(recorded, EADDRINUSE);
}

TEST(ZnSystemErrorTest, SystemTextIsStrerrorText)
{
    EXPECT_EQ(ZnSystemError::sGetSystemText(EACCES), std::string(std::strerror(EACCES)));
    EXPECT_EQ(ZnSystemError::sGetSystemText(ENOENT), std::string(std::strerror(ENOENT)));
}

TEST(ZnSystemErrorTest, SystemTextHasNoLineEnd)
{
    const std::string text = ZnSystemError::sGetSystemText(EIO);
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(text.find('\n'), std::string::npos);
    EXPECT_EQ(text.find('\r'), std::string::npos);
}

TEST(ZnSystemErrorTest, SystemTextOfSocketNumberIsTextOfItsErrno)
{
    EXPECT_EQ(ZnSystemError::sGetSystemText(10048), std::string(std::strerror(EADDRINUSE)));
    EXPECT_EQ(ZnSystemError::sGetSystemText(10061), std::string(std::strerror(ECONNREFUSED)));
}

TEST(ZnSystemErrorTest, SystemTextOfSocketNumberWithoutTableTextIsTextOfItsErrno)
{
    // 10071 has no text of the library's own; the system names it.
    ASSERT_EQ(ZnSocketError::sGetErrorText(10071), nullptr);
    EXPECT_EQ(ZnSystemError::sGetSystemText(10071), std::string(std::strerror(EREMOTE)));
}

TEST(ZnSystemErrorTest, SystemTextOfUnknownNumberIsSystemUnknownText)
{
    EXPECT_EQ(ZnSystemError::sGetSystemText(98765), std::string(std::strerror(98765)));
}

TEST(ZnSystemErrorTest, IsAnException)
{
    ZnHandle<ZnException> e(new ZnSystemError("open", ENOENT));
    ZnHandle<ZnSystemError> systemError(e);
    EXPECT_FALSE(systemError.isNil());
    EXPECT_STREQ(e->getClassName(), "ZnSystemError");
}

} // namespace
