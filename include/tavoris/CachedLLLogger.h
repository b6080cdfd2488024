// A logger that caches its effective level so that disabled log sites cost one compare.
#ifndef TAVORIS_CACHEDLLLOGGER_H
#define TAVORIS_CACHEDLLLOGGER_H

#include "tavoris/Logger.h"

#include <atomic>

namespace Tavoris
{

/// A Logger whose effective level is read once and kept until reset() reads it again.
///
/// The cache starts at NOT_SET_LOG_LEVEL (-1) and is filled by the first log() or by reset().
/// A change of the level in the log4cplus hierarchy is seen after the next reset().
/// Thread safety: the cache is an atomic; any thread may log or reset.
class CachedLLLogger : public Logger
{
public:
    CachedLLLogger();
    explicit CachedLLLogger(const Logger& logger);
    CachedLLLogger(const CachedLLLogger& other);
    CachedLLLogger& operator=(const CachedLLLogger& other);
    ~CachedLLLogger() override;

    /// Emits \p text when \p level reaches the cached level and some appender listens.
    void log(LogLevel level, const std::string& text, const char* file, int line) const override;

    /// Reads the effective level into the cache.
    /// \return true.
    bool reset() override;

    /// The cached level, -1 until the first log() or reset().
    LogLevel getCachedLogLevel() const;

private:
    mutable std::atomic<LogLevel> m_cachedLevel;
};

} // namespace Tavoris

#endif // TAVORIS_CACHEDLLLOGGER_H
