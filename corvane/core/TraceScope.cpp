#include "tavoris/TraceScope.h"

#include <exception>
#include <string>

namespace Tavoris
{

TraceScope::TraceScope(const Logger& logger, const char* name, const char* file, int line)
    : m_pLogger(&logger), m_pName(name != nullptr ? name : ""), m_pFile(file), m_line(line),
      m_flag(0), m_uncaughtAtEntry(std::uncaught_exceptions())
{
    if (logger.isLogEnabled(TRACE_LOG_LEVEL))
    {
        ctorLog();
    }
}

TraceScope::~TraceScope()
{
    if (m_flag == 1)
    {
        dtorLog();
    }
}

void TraceScope::ctorLog()
{
    m_flag = 1;
    m_pLogger->forcedLog(TRACE_LOG_LEVEL, std::string("ENTER: ") + m_pName, m_pFile, m_line);
}

void TraceScope::dtorLog()
{
    std::string text("EXIT: ");
    text += m_pName;
    if (std::uncaught_exceptions() > m_uncaughtAtEntry)
    {
        text += " (exception)";
    }
    m_pLogger->forcedLog(TRACE_LOG_LEVEL, text, m_pFile, m_line);
}

} // namespace Tavoris
