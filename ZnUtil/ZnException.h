// The root of the library's exceptions, thrown as ZnHandle<ZnException> by value.
#ifndef ZNUTIL_ZNEXCEPTION_H
#define ZNUTIL_ZNEXCEPTION_H

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnString.h"

/// A failure with a text. What travels through a throw is a ZnHandle<ZnException>: catch that
/// (or ZnHandleBase&), and recover a derived class with a checked cast of the object held.
/// Ownership: the exception lives as long as some handle holds it.
class ZnException : public ZnObject
{
public:
    /// "ZnException".
    static const char* const sDebugToken;
    /// "\n\n!!! Unhandled Exception Intercepted !!!\n\n".
    static const char* const sUnhandledMessage;

    /// An exception with a nil message.
    ZnException();
    /// An exception with a copy of \p message; a null or empty text leaves the message nil.
    explicit ZnException(const char* message);
    ~ZnException() override;

    /// The message's characters, or null when the message is nil.
    const char* getExceptionMessage() const;

    /// The message as a string, possibly nil.
    const ZnString& getMessage() const { return m_message; }

    /// Wraps \p e in a ZnHandle<ZnException> and throws that handle. All throwing of the library
    /// passes here.
    [[noreturn]] static void sThrow(ZnException* e);

    /// Throws a plain ZnException; a null \p message becomes "Unknown Exception".
    [[noreturn]] static void sThrow(const char* message);

    using ZnObject::display;
    /// Prints the message.
    virtual void display(ZnOutputStream& out) const;

private:
    ZnString m_message;
};

#endif // ZNUTIL_ZNEXCEPTION_H
