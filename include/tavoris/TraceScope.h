// Entry and exit lines of a scope at TRACE level.
#ifndef TAVORIS_TRACESCOPE_H
#define TAVORIS_TRACESCOPE_H

#include "tavoris/Logger.h"
#include "tavoris/SourceName.h"

namespace Tavoris
{

/// Writes "ENTER: name" when a scope begins and "EXIT: name" when it ends, at TRACE level.
///
/// The level and appender tests run once, at entry; when they pass, the flag is set and the exit
/// line is written however the scope ends. When an exception passes through the scope, the exit
/// line says so: "EXIT: name (exception)". The name must be a static text; it is not copied.
class TraceScope
{
public:
    TraceScope(const Logger& logger, const char* name, const char* file, int line);
    ~TraceScope();

    /// Writes the entry line; sets the flag.
    void ctorLog();
    /// Writes the exit line.
    void dtorLog();

    /// 1 when the entry line was written, so the exit line will be.
    int getFlag() const { return m_flag; }

private:
    TraceScope(const TraceScope&) = delete;
    TraceScope& operator=(const TraceScope&) = delete;

    const Logger* m_pLogger;
    const char* m_pName;
    const char* m_pFile;
    int m_line;
    int m_flag;
    int m_uncaughtAtEntry;
};

} // namespace Tavoris

#define TAVORIS_TRACE_CONCAT2(a, b) a##b
#define TAVORIS_TRACE_CONCAT(a, b) TAVORIS_TRACE_CONCAT2(a, b)

/// Traces the rest of the enclosing scope on LOGGER under the static text NAME.
#define TAVORIS_TRACE_SCOPE(LOGGER, NAME)                                                          \
    ::Tavoris::TraceScope TAVORIS_TRACE_CONCAT(tavorisTraceScope_, __LINE__)(                      \
        (LOGGER), (NAME), TAVORIS_SOURCE_NAME, __LINE__)

#endif // TAVORIS_TRACESCOPE_H
