// A real log4cplus appender that keeps what it is given, for tests to read back.
#ifndef ZNUTIL_TESTS_CAPTURINGAPPENDER_H
#define ZNUTIL_TESTS_CAPTURINGAPPENDER_H

#include "tavoris/LogLevel.h"

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <mutex>
#include <string>
#include <vector>

namespace ZnTest
{

/// One logged event as the appender saw it.
struct CapturedEvent
{
    std::string logger;
    Tavoris::LogLevel level;
    std::string message;
    std::string file;
    int line;
};

/// Appends every event it receives to a list. Thread safe.
class CapturingAppender : public log4cplus::Appender
{
public:
    CapturingAppender() { setName("capture"); }
    ~CapturingAppender() override { destructorImpl(); }

    void close() override {}

    std::vector<CapturedEvent> events() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }

    void clear()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_events.clear();
    }

    /// Events whose message contains \p text.
    std::vector<CapturedEvent> find(const std::string& text) const
    {
        std::vector<CapturedEvent> found;
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const CapturedEvent& event : m_events)
        {
            if (event.message.find(text) != std::string::npos)
            {
                found.push_back(event);
            }
        }
        return found;
    }

    /// Events whose message is exactly \p text.
    std::vector<CapturedEvent> findExactly(const std::string& text) const
    {
        std::vector<CapturedEvent> found;
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const CapturedEvent& event : m_events)
        {
            if (event.message == text)
            {
                found.push_back(event);
            }
        }
        return found;
    }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back(CapturedEvent{event.getLoggerName(), event.getLogLevel(),
                                         event.getMessage(), event.getFile(), event.getLine()});
    }

private:
    mutable std::mutex m_mutex;
    std::vector<CapturedEvent> m_events;
};

/// Attaches a CapturingAppender to a logger (the root by default) for the life of the object,
/// setting the logger's level, and restores both afterwards.
class LogCapture
{
public:
    explicit LogCapture(const std::string& loggerName = std::string(),
                        Tavoris::LogLevel level = Tavoris::TRACE_LOG_LEVEL)
        : m_logger(loggerName.empty() ? log4cplus::Logger::getRoot()
                                      : log4cplus::Logger::getInstance(loggerName)),
          m_appender(new CapturingAppender), m_oldLevel(m_logger.getLogLevel())
    {
        m_logger.addAppender(log4cplus::SharedAppenderPtr(m_appender.get()));
        m_logger.setLogLevel(level);
    }

    ~LogCapture()
    {
        m_logger.removeAppender(log4cplus::SharedAppenderPtr(m_appender.get()));
        m_logger.setLogLevel(m_oldLevel);
    }

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    CapturingAppender& appender() { return *m_appender; }
    std::vector<CapturedEvent> events() const { return m_appender->events(); }
    std::vector<CapturedEvent> find(const std::string& text) const
    {
        return m_appender->find(text);
    }
    std::vector<CapturedEvent> findExactly(const std::string& text) const
    {
        return m_appender->findExactly(text);
    }
    void clear() { m_appender->clear(); }

private:
    log4cplus::Logger m_logger;
    log4cplus::helpers::SharedObjectPtr<CapturingAppender> m_appender;
    Tavoris::LogLevel m_oldLevel;
};

} // namespace ZnTest

#endif // ZNUTIL_TESTS_CAPTURINGAPPENDER_H
