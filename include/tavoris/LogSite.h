// The one way the library writes a log line: test first, build the text only if it will be seen.
#ifndef TAVORIS_LOGSITE_H
#define TAVORIS_LOGSITE_H

#include "tavoris/AceCleanupLogger.h"
#include "tavoris/Logger.h"
#include "tavoris/SourceName.h"

#include <atomic>
#include <sstream>

namespace Tavoris
{

/// The level test of a static logger (log4cplus's isEnabledFor) and the appender test.
inline bool isStaticLogEnabled(const Logger& logger, LogLevel level)
{
    return logger.isEnabledFor(level) && logger.getChainedNumAppender() != 0;
}

/// Gives the logger kept in \p cell, making it on first use. The first use is not locked: two
/// threads may both make one, and the loser's logger is simply left to the exit clean-up.
inline const Logger& getStaticLogger(std::atomic<AceCleanupLogger*>& cell, const char* name)
{
    AceCleanupLogger* logger = cell.load(std::memory_order_acquire);
    if (logger == nullptr)
    {
        AceCleanupLogger* made = new AceCleanupLogger(name);
        if (cell.compare_exchange_strong(logger, made, std::memory_order_acq_rel))
        {
            logger = made;
        }
    }
    return *logger;
}

} // namespace Tavoris

/// Defines `static const Tavoris::Logger& FUNCTION()` giving the logger named NAME, held in a
/// function-level static AceCleanupLogger made on first use.
#define TAVORIS_DEFINE_STATIC_LOGGER(FUNCTION, NAME)                                               \
    static const ::Tavoris::Logger& FUNCTION()                                                     \
    {                                                                                              \
        static std::atomic<::Tavoris::AceCleanupLogger*> s_logger{nullptr};                        \
        return ::Tavoris::getStaticLogger(s_logger, NAME);                                         \
    }

/// Logs on a static logger at LEVEL with an explicit source name and line. STREAM_EXPR is a
/// chain of `<<` operands; it is evaluated only when the level and an appender let it through.
#define TAVORIS_LOG_AT(LOGGER, LEVEL, SOURCE, LINE, STREAM_EXPR)                                   \
    do                                                                                             \
    {                                                                                              \
        const ::Tavoris::Logger& tavorisLogger_ = (LOGGER);                                        \
        if (::Tavoris::isStaticLogEnabled(tavorisLogger_, (LEVEL)))                                \
        {                                                                                          \
            std::ostringstream tavorisText_;                                                       \
            tavorisText_ << STREAM_EXPR;                                                           \
            tavorisLogger_.forcedLog((LEVEL), tavorisText_.str(), (SOURCE), (LINE));               \
        }                                                                                          \
    } while (false)

/// Logs on a static logger at LEVEL with this file's short name and line.
#define TAVORIS_LOG(LOGGER, LEVEL, STREAM_EXPR)                                                    \
    TAVORIS_LOG_AT(LOGGER, LEVEL, TAVORIS_SOURCE_NAME, __LINE__, STREAM_EXPR)

/// Logs on an object's logger (which may carry a level of its own) at LEVEL.
#define TAVORIS_OBJECT_LOG(LOGGER, LEVEL, STREAM_EXPR)                                             \
    do                                                                                             \
    {                                                                                              \
        const ::Tavoris::Logger& tavorisLogger_ = (LOGGER);                                        \
        if (tavorisLogger_.isLogEnabled(LEVEL))                                                    \
        {                                                                                          \
            std::ostringstream tavorisText_;                                                       \
            tavorisText_ << STREAM_EXPR;                                                           \
            tavorisLogger_.forcedLog((LEVEL), tavorisText_.str(), TAVORIS_SOURCE_NAME, __LINE__);  \
        }                                                                                          \
    } while (false)

#define TAVORIS_LOG_TRACE(LOGGER, STREAM_EXPR)                                                     \
    TAVORIS_LOG(LOGGER, ::Tavoris::TRACE_LOG_LEVEL, STREAM_EXPR)
#define TAVORIS_LOG_DEBUG(LOGGER, STREAM_EXPR)                                                     \
    TAVORIS_LOG(LOGGER, ::Tavoris::DEBUG_LOG_LEVEL, STREAM_EXPR)
#define TAVORIS_LOG_INFO(LOGGER, STREAM_EXPR)                                                      \
    TAVORIS_LOG(LOGGER, ::Tavoris::INFO_LOG_LEVEL, STREAM_EXPR)
#define TAVORIS_LOG_WARN(LOGGER, STREAM_EXPR)                                                      \
    TAVORIS_LOG(LOGGER, ::Tavoris::WARN_LOG_LEVEL, STREAM_EXPR)
#define TAVORIS_LOG_ERROR(LOGGER, STREAM_EXPR)                                                     \
    TAVORIS_LOG(LOGGER, ::Tavoris::ERROR_LOG_LEVEL, STREAM_EXPR)

#endif // TAVORIS_LOGSITE_H
