// The exception of the platform services.
#ifndef TAVORIS_EXCEPTION_H
#define TAVORIS_EXCEPTION_H

#include <exception>
#include <iosfwd>
#include <string>

namespace Tavoris
{

/// What the platform services throw (the parameter catalogue, the configuration loader).
/// Prints as "Tavoris::Exception: <message>".
class Exception : public std::exception
{
public:
    explicit Exception(const std::string& message);
    ~Exception() override;

    const char* what() const noexcept override;
    const std::string& getMessage() const { return m_message; }

private:
    std::string m_message;
};

std::ostream& operator<<(std::ostream& out, const Exception& e);

} // namespace Tavoris

#endif // TAVORIS_EXCEPTION_H
