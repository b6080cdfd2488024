// Logging as a host in production configures it: warnings and errors only. Without this the
// log4cplus default (DEBUG on the root, no appender) would have every debug site of the library
// count appenders, a cost no configured host pays.
#include <log4cplus/logger.h>

namespace
{

const bool s_configured = [] {
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::WARN_LOG_LEVEL);
    return true;
}();

} // namespace
