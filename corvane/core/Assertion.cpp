#include "tavoris/Assertion.h"

#include "tavoris/LogSite.h"

#include <atomic>
#include <string>

namespace Tavoris
{

namespace
{

std::atomic<Assertion::Handler> s_handler{&Assertion::defaultHandler};

void report(const char* text, const char* file, int line, const Logger& logger)
{
    Assertion::Handler handler = s_handler.load(std::memory_order_acquire);
    handler(text != nullptr ? text : "", file != nullptr ? file : "", line, logger);
}

} // namespace

Assertion::Assertion(bool condition, const char* text, const char* file, int line)
{
    if (!condition)
    {
        report(text, file, line, getDefaultLogger());
    }
}

Assertion::Assertion(bool condition, const char* text, const Logger& logger, const char* file,
                     int line)
{
    if (!condition)
    {
        report(text, file, line, logger);
    }
}

Assertion::Handler Assertion::setHandler(Handler handler)
{
    return s_handler.exchange(handler != nullptr ? handler : &Assertion::defaultHandler,
                              std::memory_order_acq_rel);
}

void Assertion::defaultHandler(const char* text, const char* file, int line, const Logger& logger)
{
    if (logger.isLogEnabled(ERROR_LOG_LEVEL))
    {
        logger.forcedLog(ERROR_LOG_LEVEL, std::string("Assertion failed: ") + text, file, line);
    }
}

TAVORIS_DEFINE_STATIC_LOGGER(assertionLogger, "corvane.core.Assertion")

const Logger& Assertion::getDefaultLogger()
{
    return assertionLogger();
}

} // namespace Tavoris
