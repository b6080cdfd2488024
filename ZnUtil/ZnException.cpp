#include "ZnUtil/ZnException.h"

#include "ZnUtil/ZnOutputStream.h"

const char* const ZnException::sDebugToken = "ZnException";
const char* const ZnException::sUnhandledMessage =
    "\n\n!!! Unhandled Exception Intercepted !!!\n\n";

ZnException::ZnException() = default;

ZnException::ZnException(const char* message) : m_message(message) {}

ZnException::~ZnException() = default;

const char* ZnException::getExceptionMessage() const
{
    // A nil message answers null here, without a call on a null string buffer: a sanitizer
    // build's dynamic type check of that call would read through the null pointer.
    return m_message.isNil() ? nullptr : m_message.buffer()->c_str();
}

void ZnException::sThrow(ZnException* e)
{
    throw ZnHandle<ZnException>(e);
}

void ZnException::sThrow(const char* message)
{
    sThrow(new ZnException(message != nullptr ? message : "Unknown Exception"));
}

void ZnException::display(ZnOutputStream& out) const
{
    out << m_message;
}
