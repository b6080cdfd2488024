#include "tavoris/CachedLLLogger.h"

namespace Tavoris
{

CachedLLLogger::CachedLLLogger() : m_cachedLevel(NOT_SET_LOG_LEVEL) {}

CachedLLLogger::CachedLLLogger(const Logger& logger)
    : Logger(logger), m_cachedLevel(NOT_SET_LOG_LEVEL)
{
}

CachedLLLogger::CachedLLLogger(const CachedLLLogger& other)
    : Logger(other), m_cachedLevel(other.m_cachedLevel.load(std::memory_order_relaxed))
{
}

CachedLLLogger& CachedLLLogger::operator=(const CachedLLLogger& other)
{
    if (this != &other)
    {
        Logger::operator=(other);
        m_cachedLevel.store(other.m_cachedLevel.load(std::memory_order_relaxed),
                            std::memory_order_relaxed);
    }
    return *this;
}

CachedLLLogger::~CachedLLLogger() = default;

void CachedLLLogger::log(LogLevel level, const std::string& text, const char* file, int line) const
{
    LogLevel cached = m_cachedLevel.load(std::memory_order_relaxed);
    if (cached == NOT_SET_LOG_LEVEL)
    {
        cached = getChainedLogLevel();
        m_cachedLevel.store(cached, std::memory_order_relaxed);
    }
    if (cached != NOT_SET_LOG_LEVEL && level < cached)
    {
        return;
    }
    if (getChainedNumAppender() != 0)
    {
        forcedLog(level, text, file, line);
    }
}

bool CachedLLLogger::reset()
{
    m_cachedLevel.store(getChainedLogLevel(), std::memory_order_relaxed);
    return true;
}

LogLevel CachedLLLogger::getCachedLogLevel() const
{
    return m_cachedLevel.load(std::memory_order_relaxed);
}

} // namespace Tavoris
