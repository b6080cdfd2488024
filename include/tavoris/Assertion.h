// The assertion service: reports a failed condition with its source position.
#ifndef TAVORIS_ASSERTION_H
#define TAVORIS_ASSERTION_H

#include "tavoris/Logger.h"

namespace Tavoris
{

/// Reports a failed assertion; constructing one with a false condition is the report.
///
/// By default the report is an ERROR line "Assertion failed: <text>" on the given logger (or on
/// "corvane.core.Assertion"), with the file and line of the failing check, and the call returns.
/// A host can install a handler of its own, for example one that aborts.
/// Thread safety: any thread may assert; installing a handler is atomic.
class Assertion
{
public:
    /// What a failed assertion does. The text and file are static texts or live for the call.
    typedef void (*Handler)(const char* text, const char* file, int line, const Logger& logger);

    /// With \p condition false, reports \p text, \p file and \p line on the default logger.
    Assertion(bool condition, const char* text, const char* file, int line);
    /// With \p condition false, reports \p text, \p file and \p line on \p logger.
    Assertion(bool condition, const char* text, const Logger& logger, const char* file, int line);

    /// Installs \p handler; a null one restores the default.
    /// \return the handler in place before.
    static Handler setHandler(Handler handler);

    /// The handler that logs at ERROR and returns.
    static void defaultHandler(const char* text, const char* file, int line, const Logger& logger);

    /// The logger of assertions made without one: "corvane.core.Assertion".
    static const Logger& getDefaultLogger();
};

} // namespace Tavoris

#endif // TAVORIS_ASSERTION_H
