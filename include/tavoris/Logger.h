// A named logger of the log4cplus hierarchy, with the operations the library's log sites use.
#ifndef TAVORIS_LOGGER_H
#define TAVORIS_LOGGER_H

#include "tavoris/LogLevel.h"
#include "tavoris/Resettable.h"

#include <log4cplus/logger.h>

#include <cstddef>
#include <string>

namespace Tavoris
{

/// A log4cplus logger with the level and appender tests of the library's log sites.
///
/// A Logger is a small handle on a logger of the log4cplus hierarchy: copies refer to the same
/// logger. The library never configures log4cplus; hosts do, usually from a properties file.
/// Thread safety: every operation may be called from any thread, as log4cplus allows.
class Logger : public log4cplus::Logger, public Resettable
{
public:
    /// The root logger of the default hierarchy.
    Logger();
    /// The logger of that name in the default hierarchy, made on first use.
    explicit Logger(const std::string& name);
    /// Wraps a log4cplus logger.
    explicit Logger(const log4cplus::Logger& other);
    Logger(const Logger& other);
    Logger& operator=(const Logger& other);
    ~Logger() override;

    /// The level set on this very logger.
    /// \return the level, or NOT_SET_LOG_LEVEL (-1) when the logger has none of its own.
    LogLevel getLogLevel() const;

    /// The effective level: the first level set on this logger or up its ancestors.
    /// \return the level, or NOT_SET_LOG_LEVEL (-1) when none is set anywhere.
    LogLevel getChainedLogLevel() const;

    /// Passes an event to the appenders of this logger and of its additive ancestors.
    virtual void callAppenders(const log4cplus::spi::InternalLoggingEvent& event) const;

    /// Counts the appenders that an event of this logger reaches: those of the logger and of its
    /// ancestors, climbing while additivity holds.
    /// \return the count; 0 means that nothing would be written.
    virtual size_t getChainedNumAppender() const;

    /// Emits \p text when the level is enabled and some appender listens.
    virtual void log(LogLevel level, const std::string& text, const char* file, int line) const;

    /// Emits \p text without testing the level again: the caller has done so.
    virtual void forcedLog(LogLevel level, const std::string& text, const char* file,
                           int line) const;

    /// Emits \p text at TRACE without testing the level.
    virtual void forcedTrace(const char* text) const;

    /// Nothing is cached by a plain logger.
    /// \return true.
    bool reset() override;

    /// True when a message at \p level would be built and written: the level test of the
    /// logger's own level (falling back to the chained one) and the appender test.
    bool isLogEnabled(LogLevel level) const;
};

} // namespace Tavoris

#endif // TAVORIS_LOGGER_H
