#include "ZnUtil/ZnSocketError.h"

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnSystemError.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <netdb.h>

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

/// Every socket error number with a text of the library's own, and that text.
const std::map<int, std::string>& expectedTexts()
{
    static const std::map<int, std::string> texts = {
        {10004, "Interrupted function call."},
        {10009, "Bad socket number."},
        {10013, "Permission denied."},
        {10014, "Bad address."},
        {10022, "Invalid argument."},
        {10024, "Too many open sockets."},
        {10035, "Resource temporarily unavailable."},
        {10036, "Operation now in progress."},
        {10037, "Operation already in progress."},
        {10038, "Socket operation on non-socket."},
        {10039, "Destination address required."},
        {10040, "Message too long."},
        {10041, "Protocol wrong type for socket."},
        {10042, "Bad protocol option."},
        {10043, "Protocol not supported."},
        {10044, "Socket type not supported."},
        {10045, "Operation not supported."},
        {10046, "Protocol family not supported."},
        {10047, "Address family not supported by protocol family."},
        {10048, "Address already in use."},
        {10049, "Cannot assign requested address."},
        {10050, "Network is down."},
        {10051, "Network is unreachable."},
        {10052, "Network dropped connection on reset."},
        {10053, "Software caused connection abort."},
        {10054, "Connection reset by peer."},
        {10055, "No buffer space available."},
        {10056, "Socket is already connected."},
        {10057, "Socket is not connected."},
        {10058, "Cannot send after socket shutdown."},
        {10059, "WSAETOOMANYREFS"},
        {10060, "Connection timed out."},
        {10061, "Connection refused."},
        {10062, "WSAELOOP"},
        {10063, "Name too long."},
        {10064, "Host is down."},
        {10065, "No route to host."},
        {10066, "Not Empty"},
        {10067, "Too many processes."},
        {10068, "WSAEUSERS"},
        {10069, "WSAEDQUOT"},
        {10070, "WSAESTALE"},
        {10091, "Network subsystem is unavailable."},
        {10092, "WINSOCK.DLL version out of range"},
        {10093, "Windows sockets not initialised."},
        {10101, "Graceful shutdown in progress."},
        {10102, "WSAENOMORE"},
        {10103, "WSAECANCELLED"},
        {10104, "Invalid procedure table from service provider."},
        {10105, "Invalid service provider version number."},
        {10106, "Unable to initialize a service provider."},
        {10107, "System call failure."},
        {10108, "WSASERVICE_NOT_FOUND"},
        {10109, "Class type not found."},
        {10110, "WSA_E_NO_MORE"},
        {10111, "WSA_E_CANCELLED"},
        {10112, "WSAEREFUSED"},
        {11001, "Host not found."},
        {11002, "Non-authoritative host not found."},
        {11003, "Non-recoverable error."},
        {11004, "Valid name, no data record of requested type."},
    };
    return texts;
}

/// errno values and the socket error numbers named after them.
const std::vector<std::pair<int, int>>& errnoCounterparts()
{
    static const std::vector<std::pair<int, int>> pairs = {
        {EINTR, 10004},           {EBADF, 10009},        {EACCES, 10013},
        {EFAULT, 10014},          {EINVAL, 10022},       {EMFILE, 10024},
        {EWOULDBLOCK, 10035},     {EINPROGRESS, 10036},  {EALREADY, 10037},
        {ENOTSOCK, 10038},        {EDESTADDRREQ, 10039}, {EMSGSIZE, 10040},
        {EPROTOTYPE, 10041},      {ENOPROTOOPT, 10042},  {EPROTONOSUPPORT, 10043},
        {ESOCKTNOSUPPORT, 10044}, {EOPNOTSUPP, 10045},   {EPFNOSUPPORT, 10046},
        {EAFNOSUPPORT, 10047},    {EADDRINUSE, 10048},   {EADDRNOTAVAIL, 10049},
        {ENETDOWN, 10050},        {ENETUNREACH, 10051},  {ENETRESET, 10052},
        {ECONNABORTED, 10053},    {ECONNRESET, 10054},   {ENOBUFS, 10055},
        {EISCONN, 10056},         {ENOTCONN, 10057},     {ESHUTDOWN, 10058},
        {ETOOMANYREFS, 10059},    {ETIMEDOUT, 10060},    {ECONNREFUSED, 10061},
        {ELOOP, 10062},           {ENAMETOOLONG, 10063}, {EHOSTDOWN, 10064},
        {EHOSTUNREACH, 10065},    {ENOTEMPTY, 10066},    {EUSERS, 10068},
        {EDQUOT, 10069},          {ESTALE, 10070},       {EREMOTE, 10071},
        {ECANCELED, 10103},
    };
    return pairs;
}

TEST(ZnSocketErrorTest, DefaultHasNilMessageAndNumberZero)
{
    ZnHandle<ZnSocketError> e(new ZnSocketError);
    EXPECT_EQ(e->getExceptionMessage(), nullptr);
    EXPECT_EQ(e->getErrNo(), 0);
}

TEST(ZnSocketErrorTest, ConstructorKeepsMessageAndNumber)
{
    ZnHandle<ZnSocketError> e(new ZnSocketError("connect", 10061));
    EXPECT_STREQ(e->getExceptionMessage(), "connect");
    EXPECT_EQ(e->getErrNo(), 10061);
}

TEST(ZnSocketErrorTest, ThrowThrowsSocketErrorWithMessageAndNumber)
{
    ZnHandle<ZnException> e = catchThrown([] { ZnSocketError::sThrow("bind", 10048); });
    ASSERT_FALSE(e.isNil());
    EXPECT_STREQ(e->getClassName(), "ZnSocketError");
    EXPECT_STREQ(e->getExceptionMessage(), "bind");
    ZnHandle<ZnSocketError> socketError(e);
    EXPECT_EQ(socketError->getErrNo(), 10048);
    EXPECT_STREQ(ZnSocketError::sGetErrorText(socketError->getErrNo()), "Address already in use.");
}

TEST(ZnSocketErrorTest, ThrowWithNumberZeroRecordsTranslatedErrno)
{
    ZnHandle<ZnException> e = catchThrown(
        []
        {
            errno = EADDRINUSE;
            ZnSocketError::sThrow("bind", 0);
        });
    ZnHandle<ZnSocketError> socketError(e);
    ASSERT_FALSE(socketError.isNil());
    EXPECT_EQ(socketError->getErrNo(), 10048);
}

TEST(ZnSocketErrorTest, ThrowWithNumberZeroKeepsErrnoWithoutCounterpart)
{
    ZnHandle<ZnException> e = catchThrown(
        []
        {
            errno = ENOENT;
            ZnSocketError::sThrow("open", 0);
        });
    ZnHandle<ZnSocketError> socketError(e);
    ASSERT_FALSE(socketError.isNil());
    EXPECT_EQ(socketError->getErrNo(), ENOENT);
}

TEST(ZnSocketErrorTest, ThrowWithNumberKeepsItOverErrno)
{
    ZnHandle<ZnException> e = catchThrown(
        []
        {
            errno = ECONNRESET;
            ZnSocketError::sThrow("recv", 10060);
        });
    ZnHandle<ZnSocketError> socketError(e);
    EXPECT_EQ(socketError->getErrNo(), 10060);
}

TEST(ZnSocketErrorTest, LastErrorIsTranslatedErrno)
{
    errno = ECONNREFUSED;
    EXPECT_EQ(ZnSocketError::sGetLastError(), 10061);
    errno = EMSGSIZE;
    EXPECT_EQ(ZnSocketError::sGetLastError(), 10040);
}

TEST(ZnSocketErrorTest, ErrnoTranslatesToSocketNumber)
{
    EXPECT_EQ(ZnSocketError::sFromErrno(EADDRINUSE), 10048);
    EXPECT_EQ(ZnSocketError::sFromErrno(ECONNREFUSED), 10061);
    EXPECT_EQ(ZnSocketError::sFromErrno(EMSGSIZE), 10040);
}

TEST(ZnSocketErrorTest, EveryErrnoWithCounterpartTranslates)
{
    for (const auto& pair : errnoCounterparts())
    {
        EXPECT_EQ(ZnSocketError::sFromErrno(pair.first), pair.second) << "errno " << pair.first;
    }
}

TEST(ZnSocketErrorTest, ErrnoWithoutCounterpartIsKept)
{
    EXPECT_EQ(ZnSocketError::sFromErrno(ENOENT), ENOENT);
    EXPECT_EQ(ZnSocketError::sFromErrno(EIO), EIO);
    EXPECT_EQ(ZnSocketError::sFromErrno(0), 0);
}

TEST(ZnSocketErrorTest, ResolverStatusTranslatesToSocketNumber)
{
    EXPECT_EQ(ZnSocketError::sFromHErrno(HOST_NOT_FOUND), 11001);
    EXPECT_EQ(ZnSocketError::sFromHErrno(TRY_AGAIN), 11002);
    EXPECT_EQ(ZnSocketError::sFromHErrno(NO_RECOVERY), 11003);
    EXPECT_EQ(ZnSocketError::sFromHErrno(NO_DATA), 11004);
}

TEST(ZnSocketErrorTest, ResolverStatusWithoutCounterpartIsKept)
{
    EXPECT_EQ(ZnSocketError::sFromHErrno(0), 0);
    EXPECT_EQ(ZnSocketError::sFromHErrno(-1), -1);
    EXPECT_EQ(ZnSocketError::sFromHErrno(99), 99);
}

TEST(ZnSocketErrorTest, SocketNumberTranslatesBackToErrno)
{
    EXPECT_EQ(ZnSocketError::sToErrno(10048), EADDRINUSE);
    EXPECT_EQ(ZnSocketError::sToErrno(10061), ECONNREFUSED);
    EXPECT_EQ(ZnSocketError::sToErrno(10040), EMSGSIZE);
    EXPECT_EQ(ZnSocketError::sToErrno(10071), EREMOTE);
}

TEST(ZnSocketErrorTest, EverySocketNumberWithCounterpartRoundTrips)
{
    for (const auto& pair : errnoCounterparts())
    {
        EXPECT_EQ(ZnSocketError::sFromErrno(ZnSocketError::sToErrno(pair.second)), pair.second)
            << "socket error " << pair.second;
    }
}

TEST(ZnSocketErrorTest, SocketNumberWithoutCounterpartHasNoErrno)
{
    EXPECT_EQ(ZnSocketError::sToErrno(10067), 0);
    EXPECT_EQ(ZnSocketError::sToErrno(10091), 0);
    EXPECT_EQ(ZnSocketError::sToErrno(11001), 0);
    EXPECT_EQ(ZnSocketError::sToErrno(0), 0);
    EXPECT_EQ(ZnSocketError::sToErrno(ENOENT), 0);
}

TEST(ZnSocketErrorTest, EveryTableRowHasItsText)
{
    for (const auto& row : expectedTexts())
    {
        const char* text = ZnSocketError::sGetErrorText(row.first);
        ASSERT_NE(text, nullptr) << row.first;
        EXPECT_EQ(std::string(text), row.second) << row.first;
    }
}

TEST(ZnSocketErrorTest, NumbersBetweenRowsHaveNoText)
{
    int gaps = 0;
    for (int code = 10004; code <= 10112; ++code)
    {
        if (expectedTexts().count(code) == 0)
        {
            EXPECT_EQ(ZnSocketError::sGetErrorText(code), nullptr) << code;
            ++gaps;
        }
    }
    // 10005-10008, 10010-10012, 10015-10021, 10023, 10025-10034, 10071-10090, 10094-10100.
    EXPECT_EQ(gaps, 4 + 3 + 7 + 1 + 10 + 20 + 7);
}

TEST(ZnSocketErrorTest, NumbersOutsideTheTablesHaveNoText)
{
    for (int code : {-1, 0, 1, 98, 10000, 10003, 10113, 10500, 11000, 11005, 11999, 65535})
    {
        EXPECT_EQ(ZnSocketError::sGetErrorText(code), nullptr) << code;
    }
}

TEST(ZnSocketErrorTest, NoDataRecordText)
{
    EXPECT_STREQ(ZnSocketError::sGetErrorText(11004),
                 "Valid name, no data record of requested type.");
}

TEST(ZnSocketErrorTest, TranslatedResolverStatusHasTableText)
{
    EXPECT_STREQ(ZnSocketError::sGetErrorText(ZnSocketError::sFromHErrno(HOST_NOT_FOUND)),
                 "Host not found.");
}

TEST(ZnSocketErrorTest, GapNumberIsNamedBySystemText)
{
    EXPECT_EQ(ZnSocketError::sGetErrorText(10071), nullptr);
    EXPECT_EQ(ZnSystemError::sGetSystemText(10071), std::string(std::strerror(EREMOTE)));
}

TEST(ZnSocketErrorTest, IsASystemError)
{
    ZnHandle<ZnException> e(new ZnSocketError("listen", 10048));
    ZnHandle<ZnSystemError> systemError(e);
    EXPECT_FALSE(systemError.isNil());
    EXPECT_EQ(systemError->getErrNo(), 10048);
}

} // namespace
