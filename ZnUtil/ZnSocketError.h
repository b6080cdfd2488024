// The exception of a failed socket call, numbered as socket errors are.
#ifndef ZNUTIL_ZNSOCKETERROR_H
#define ZNUTIL_ZNSOCKETERROR_H

#include "ZnUtil/ZnSystemError.h"

/// A failed socket call. Its number is a socket error number (10004 to 10112, 11001 to 11004):
/// errno values are translated (EADDRINUSE is 10048, ECONNREFUSED 10061, ...), and an errno with
/// no counterpart is kept as it is.
class ZnSocketError : public ZnSystemError
{
public:
    ZnSocketError();
    ZnSocketError(const char* message, int errNo);
    ~ZnSocketError() override;

    /// Throws a ZnSocketError; an \p errNo of 0 is replaced by sGetLastError().
    [[noreturn]] static void sThrow(const char* message, int errNo);

    /// The calling thread's last socket error: errno translated by sFromErrno.
    static int sGetLastError();

    /// The socket error number of an errno value; a value with no counterpart is kept.
    static int sFromErrno(int errnoValue);

    /// The socket error number of a resolver status (h_errno): HOST_NOT_FOUND is 11001,
    /// TRY_AGAIN 11002, NO_RECOVERY 11003, NO_DATA 11004; others are kept.
    static int sFromHErrno(int hErrnoValue);

    /// The errno value a socket error number stands for, or 0 when there is none.
    static int sToErrno(int socketError);

    /// The library's text of a socket error number, or null when the table has none.
    static const char* sGetErrorText(int socketError);

    /// Prints "message: <text> (errNo)" from the table, or as ZnSystemError when the number has
    /// no text there.
    void display(ZnOutputStream& out) const override;
};

#endif // ZNUTIL_ZNSOCKETERROR_H
