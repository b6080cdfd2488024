// The log levels of the library, numbered as log4cplus numbers them.
#ifndef TAVORIS_LOGLEVEL_H
#define TAVORIS_LOGLEVEL_H

namespace Tavoris
{

/// A signed 32-bit level; -1 means that a logger has no level of its own.
typedef int LogLevel;

const LogLevel NOT_SET_LOG_LEVEL = -1;
const LogLevel TRACE_LOG_LEVEL = 0;
const LogLevel DEBUG_LOG_LEVEL = 10000;
const LogLevel INFO_LOG_LEVEL = 20000;
const LogLevel WARN_LOG_LEVEL = 30000;
const LogLevel ERROR_LOG_LEVEL = 40000;

} // namespace Tavoris

#endif // TAVORIS_LOGLEVEL_H
