// A logger that prefixes every message with the identifiers of what it logs for.
#ifndef TAVORIS_LOGGINGIDLOGGER_H
#define TAVORIS_LOGGINGIDLOGGER_H

#include "tavoris/Logger.h"

#include <string>

namespace Tavoris
{

/// A Logger that writes "[id1][id2] " in front of every message it emits.
///
/// The identifiers name the object a message is about (a connection, a call). The prefix is
/// built when an identifier is added, not at each message.
/// Thread safety: logging may happen from any thread; adding and clearing identifiers is for the
/// owner only, while no other thread logs on this object.
class LoggingIdLogger : public Logger
{
public:
    LoggingIdLogger();
    explicit LoggingIdLogger(const Logger& logger);
    LoggingIdLogger(const LoggingIdLogger& other);
    LoggingIdLogger& operator=(const LoggingIdLogger& other);
    ~LoggingIdLogger() override;

    /// Adds an identifier at the end of the prefix; a null text is ignored.
    void addLoggingId(const char* id);
    /// Empties the prefix.
    void clearLoggingIds();
    /// The prefix as written in front of messages, empty when there is no identifier.
    const std::string& getLoggingPrefix() const;

    void forcedLog(LogLevel level, const std::string& text, const char* file,
                   int line) const override;
    void forcedTrace(const char* text) const override;

private:
    std::string m_prefix;
};

} // namespace Tavoris

#endif // TAVORIS_LOGGINGIDLOGGER_H
