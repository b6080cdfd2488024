#include "ZnUtil/ZnSystemError.h"

#include "ZnUtil/ZnOutputStream.h"
#include "ZnUtil/ZnSocketError.h"

#include <cerrno>
#include <cstring>

namespace
{

/// strerror_r comes in two forms; both are handled so the code builds with either.
[[maybe_unused]] const char* errorText(int result, const char*, const char* buffer)
{
    return result == 0 ? buffer : nullptr;
}

[[maybe_unused]] const char* errorText(const char* result, const char*, const char*)
{
    return result;
}

} // namespace

ZnSystemError::ZnSystemError() : m_errNo(0) {}

ZnSystemError::ZnSystemError(const char* message, int errNo) : ZnException(message), m_errNo(errNo)
{
}

ZnSystemError::~ZnSystemError() = default;

void ZnSystemError::sThrow(const char* message, int errNo)
{
    // errno is read before anything else runs, allocation included, so nothing can disturb it.
    if (errNo == 0)
    {
        errNo = errno;
    }
    ZnException::sThrow(new ZnSystemError(message, errNo));
}

std::string ZnSystemError::sGetSystemText(int errNo)
{
    const int systemNumber = ZnSocketError::sToErrno(errNo);
    char buffer[256] = {};
    const char* text = errorText(
        strerror_r(systemNumber != 0 ? systemNumber : errNo, buffer, sizeof buffer), "", buffer);
    return text != nullptr ? std::string(text) : std::string();
}

void ZnSystemError::display(ZnOutputStream& out) const
{
    out << getMessage() << ": " << sGetSystemText(m_errNo).c_str() << " (" << m_errNo << ")";
}
