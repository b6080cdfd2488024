// A checked downcast that must not fail, with a report on the assertion service when it does.
#ifndef TAVORIS_DYNCASTASSERT_H
#define TAVORIS_DYNCASTASSERT_H

#include "tavoris/Assertion.h"
#include "tavoris/Logger.h"
#include "tavoris/SourceName.h"

#include <string>
#include <typeinfo>

namespace Tavoris
{

/// The reports of TAVORIS_DYNCAST_ASSERT, kept out of the template.
class DynCastAssertNoT
{
public:
    /// The logger of the check: "corvane.core.DynCastAssert".
    static const Logger& getLogger();

    /// Reports at ERROR that \p expression points to an object of type \p actualType.
    static void typeIdError(const char* actualType, const char* expression, const char* file,
                            int line, const Logger& logger);

    /// Reports at ERROR that \p expression is a null pointer.
    static void nullBaseError(const char* expression, const char* file, int line,
                              const Logger& logger);

    /// The demangled name of a run-time type.
    static std::string demangle(const std::type_info& type);
};

/// Casts \p base to T with a run-time check. On failure reports the actual type (or the null
/// pointer), asserts "<call text> != 0" and returns null.
template <class T, class B>
T* dynCastAssert(B* base, const char* expression, const char* callText, const char* file, int line,
                 const Logger& logger)
{
    T* result = dynamic_cast<T*>(base);
    if (result != nullptr)
    {
        return result;
    }
    if (base != nullptr)
    {
        DynCastAssertNoT::typeIdError(DynCastAssertNoT::demangle(typeid(*base)).c_str(), expression,
                                      file, line, logger);
    }
    else
    {
        DynCastAssertNoT::nullBaseError(expression, file, line, logger);
    }
    const std::string text = std::string(callText) + " != 0";
    Assertion(false, text.c_str(), logger, file, line);
    return nullptr;
}

} // namespace Tavoris

/// Downcasts EXPRESSION to TYPE*, which must succeed; see Tavoris::dynCastAssert.
#define TAVORIS_DYNCAST_ASSERT(TYPE, EXPRESSION)                                                   \
    ::Tavoris::dynCastAssert<TYPE>(                                                                \
        (EXPRESSION), #EXPRESSION, "TAVORIS_DYNCAST_ASSERT(" #TYPE ", " #EXPRESSION ")",           \
        TAVORIS_SOURCE_NAME, __LINE__, ::Tavoris::DynCastAssertNoT::getLogger())

/// The same on the caller's own LOGGER.
#define TAVORIS_DYNCAST_ASSERT_LOGGER(TYPE, EXPRESSION, LOGGER)                                    \
    ::Tavoris::dynCastAssert<TYPE>((EXPRESSION), #EXPRESSION,                                      \
                                   "TAVORIS_DYNCAST_ASSERT(" #TYPE ", " #EXPRESSION ")",           \
                                   TAVORIS_SOURCE_NAME, __LINE__, (LOGGER))

#endif // TAVORIS_DYNCASTASSERT_H
