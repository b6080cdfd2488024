#include "tavoris/Logger.h"

#include <log4cplus/spi/loggingevent.h>
#include <log4cplus/spi/rootlogger.h>

namespace Tavoris
{

namespace
{

/// Gives access to the implementation of a log4cplus logger, to tell the root apart: asking the
/// root for its parent makes log4cplus complain.
class LoggerIdentity : public log4cplus::Logger
{
public:
    explicit LoggerIdentity(const log4cplus::Logger& logger) : log4cplus::Logger(logger) {}
    bool isRoot() const
    {
        return dynamic_cast<const log4cplus::spi::RootLogger*>(value) != nullptr;
    }
};

} // namespace

Logger::Logger() : log4cplus::Logger(log4cplus::Logger::getRoot()) {}

Logger::Logger(const std::string& name) : log4cplus::Logger(log4cplus::Logger::getInstance(name)) {}

Logger::Logger(const log4cplus::Logger& other) : log4cplus::Logger(other) {}

Logger::Logger(const Logger& other) : log4cplus::Logger(other), Resettable(other) {}

Logger& Logger::operator=(const Logger& other)
{
    log4cplus::Logger::operator=(other);
    return *this;
}

Logger::~Logger() = default;

LogLevel Logger::getLogLevel() const
{
    return log4cplus::Logger::getLogLevel();
}

LogLevel Logger::getChainedLogLevel() const
{
    return log4cplus::Logger::getChainedLogLevel();
}

void Logger::callAppenders(const log4cplus::spi::InternalLoggingEvent& event) const
{
    log4cplus::Logger::callAppenders(event);
}

size_t Logger::getChainedNumAppender() const
{
    size_t count = 0;
    LoggerIdentity current(*this);
    for (;;)
    {
        // getAllAppenders is not const in log4cplus, though it only reads.
        count += current.getAllAppenders().size();
        if (!current.getAdditivity() || current.isRoot())
        {
            break;
        }
        current = LoggerIdentity(current.getParent());
    }
    return count;
}

void Logger::log(LogLevel level, const std::string& text, const char* file, int line) const
{
    if (isLogEnabled(level))
    {
        forcedLog(level, text, file, line);
    }
}

void Logger::forcedLog(LogLevel level, const std::string& text, const char* file, int line) const
{
    log4cplus::Logger::forcedLog(level, text, file, line, "");
}

void Logger::forcedTrace(const char* text) const
{
    forcedLog(TRACE_LOG_LEVEL, text != nullptr ? text : "", "", -1);
}

bool Logger::reset()
{
    return true;
}

bool Logger::isLogEnabled(LogLevel level) const
{
    // The chained level is the logger's own when it has one, else the nearest ancestor's: one
    // walk serves both steps of the test.
    const LogLevel own = getChainedLogLevel();
    const bool levelPasses = own != NOT_SET_LOG_LEVEL ? own <= level : isEnabledFor(level);
    return levelPasses && getChainedNumAppender() != 0;
}

} // namespace Tavoris
