#include "tavoris/DynCastAssert.h"
#include "tavoris/LogSite.h"

#include <cstdlib>
#include <memory>

#include <cxxabi.h>

namespace Tavoris
{

TAVORIS_DEFINE_STATIC_LOGGER(dynCastLogger, "corvane.core.DynCastAssert")

const Logger& DynCastAssertNoT::getLogger()
{
    return dynCastLogger();
}

void DynCastAssertNoT::typeIdError(const char* actualType, const char* expression, const char* file,
                                   int line, const Logger& logger)
{
    if (logger.isLogEnabled(ERROR_LOG_LEVEL))
    {
        std::string text("dynamic cast failed: ");
        text += expression != nullptr ? expression : "";
        text += " points to an object of type ";
        text += actualType != nullptr ? actualType : "?";
        logger.forcedLog(ERROR_LOG_LEVEL, text, file, line);
    }
}

void DynCastAssertNoT::nullBaseError(const char* expression, const char* file, int line,
                                     const Logger& logger)
{
    if (logger.isLogEnabled(ERROR_LOG_LEVEL))
    {
        std::string text("dynamic cast failed: ");
        text += expression != nullptr ? expression : "";
        text += " is a null pointer";
        logger.forcedLog(ERROR_LOG_LEVEL, text, file, line);
    }
}

std::string DynCastAssertNoT::demangle(const std::type_info& type)
{
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> name(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
    if (status != 0 || !name)
    {
        return type.name();
    }
    return name.get();
}

} // namespace Tavoris
