#include "tavoris/LoggingIdLogger.h"

namespace Tavoris
{

LoggingIdLogger::LoggingIdLogger() = default;

LoggingIdLogger::LoggingIdLogger(const Logger& logger) : Logger(logger) {}

LoggingIdLogger::LoggingIdLogger(const LoggingIdLogger& other)
    : Logger(other), m_prefix(other.m_prefix)
{
}

LoggingIdLogger& LoggingIdLogger::operator=(const LoggingIdLogger& other)
{
    if (this != &other)
    {
        Logger::operator=(other);
        m_prefix = other.m_prefix;
    }
    return *this;
}

LoggingIdLogger::~LoggingIdLogger() = default;

void LoggingIdLogger::addLoggingId(const char* id)
{
    if (id == nullptr)
    {
        return;
    }
    // The prefix is kept ready-made with its trailing blank: messages only prepend it.
    if (!m_prefix.empty())
    {
        m_prefix.pop_back();
    }
    m_prefix += '[';
    m_prefix += id;
    m_prefix += "] ";
}

void LoggingIdLogger::clearLoggingIds()
{
    m_prefix.clear();
}

const std::string& LoggingIdLogger::getLoggingPrefix() const
{
    return m_prefix;
}

void LoggingIdLogger::forcedLog(LogLevel level, const std::string& text, const char* file,
                                int line) const
{
    if (m_prefix.empty())
    {
        Logger::forcedLog(level, text, file, line);
        return;
    }
    Logger::forcedLog(level, m_prefix + text, file, line);
}

void LoggingIdLogger::forcedTrace(const char* text) const
{
    forcedLog(TRACE_LOG_LEVEL, text != nullptr ? text : "", "", -1);
}

} // namespace Tavoris
