#include "ZnUtil/ZnGhbnError.h"

#include "ZnUtil/ZnOutputStream.h"

ZnGhbnError::ZnGhbnError(const char* message, Tavoris::Hostent::GetHostByNameStatus status)
    : ZnSocketError(message, 0), m_status(status)
{
}

ZnGhbnError::~ZnGhbnError() = default;

void ZnGhbnError::sThrow(const char* message, Tavoris::Hostent::GetHostByNameStatus status)
{
    ZnException::sThrow(new ZnGhbnError(message, status));
}

void ZnGhbnError::display(ZnOutputStream& out) const
{
    // A leading ": " and no number: this class's own form, unlike its parents'.
    out << ": " << getMessage() << " (" << Tavoris::Hostent::getGetHostByNameStatusString(m_status)
        << ")";
}
