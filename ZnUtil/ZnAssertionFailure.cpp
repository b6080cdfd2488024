#include "ZnUtil/ZnAssertionFailure.h"

#include "ZnUtil/ZnOutputStream.h"

#include "tavoris/Assertion.h"

ZnAssertionFailure::ZnAssertionFailure(const char* message, const char* file, unsigned int line,
                                       const char* compiled)
    : ZnException(message), m_file(file), m_line(line), m_compiled(compiled)
{
}

ZnAssertionFailure::~ZnAssertionFailure() = default;

void ZnAssertionFailure::sThrow(const char* message, const char* file, unsigned int line,
                                const char* compiled)
{
    Tavoris::Assertion(false, message, file, static_cast<int>(line));
    // The service may return; the failure is thrown all the same.
    ZnException::sThrow(new ZnAssertionFailure(message, file, line, compiled));
}

void ZnAssertionFailure::display(ZnOutputStream& out) const
{
    out << getMessage() << "\n"
        << m_file << " line " << m_line << "\nCompilation : " << m_compiled << "\n";
    out.flush();
}
