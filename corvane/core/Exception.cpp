#include "tavoris/Exception.h"

#include <ostream>

namespace Tavoris
{

Exception::Exception(const std::string& message) : m_message(message) {}

Exception::~Exception() = default;

const char* Exception::what() const noexcept
{
    return m_message.c_str();
}

std::ostream& operator<<(std::ostream& out, const Exception& e)
{
    return out << "Tavoris::Exception: " << e.getMessage();
}

} // namespace Tavoris
