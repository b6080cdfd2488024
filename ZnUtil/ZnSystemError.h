// The exception of a failed operating system call.
#ifndef ZNUTIL_ZNSYSTEMERROR_H
#define ZNUTIL_ZNSYSTEMERROR_H

#include "ZnUtil/ZnException.h"

#include <string>

/// A failed system call: the operation's text and the system's error number.
class ZnSystemError : public ZnException
{
public:
    /// Nil message, number 0.
    ZnSystemError();
    ZnSystemError(const char* message, int errNo);
    ~ZnSystemError() override;

    /// The error number.
    int getErrNo() const { return m_errNo; }

    /// Throws a ZnSystemError; an \p errNo of 0 is replaced by the calling thread's errno.
    [[noreturn]] static void sThrow(const char* message, int errNo);

    /// The system's text for \p errNo, without a line end; socket error numbers get the text of
    /// the errno they stand for. An unknown number gives the system's "Unknown error" text.
    static std::string sGetSystemText(int errNo);

    /// Prints "message: <system text> (errNo)".
    void display(ZnOutputStream& out) const override;

private:
    int m_errNo;
};

#endif // ZNUTIL_ZNSYSTEMERROR_H
