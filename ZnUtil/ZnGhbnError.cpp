#include "ZnUtil/ZnGhbnError.h"

ZnGhbnError::ZnGhbnError(const char* message, Tavoris::Hostent::GetHostByNameStatus status)
    : ZnSocketError(message, 0), m_status(status)
{
}

ZnGhbnError::~ZnGhbnError() = default;

void ZnGhbnError::sThrow(const char* message, Tavoris::Hostent::GetHostByNameStatus status)
{
    ZnException::sThrow(new ZnGhbnError(message, status));
}

void ZnGhbnError::display(ZnOutputStream&) const
{
    // TODO(#3): the printed form comes with the output stream.
}
