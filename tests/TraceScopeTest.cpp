#include "tavoris/TraceScope.h"

#include <gtest/gtest.h>
#include <log4cplus/logger.h>

#include <stdexcept>
#include <string>

#include "support/CapturingAppender.h"

namespace
{

using Tavoris::Logger;
using Tavoris::TraceScope;

/// Cuts a logger off from its ancestors' appenders for the scope.
class NonAdditive
{
public:
    explicit NonAdditive(const std::string& name) : m_logger(log4cplus::Logger::getInstance(name))
    {
        m_logger.setAdditivity(false);
    }
    ~NonAdditive() { m_logger.setAdditivity(true); }

private:
    log4cplus::Logger m_logger;
};

TEST(TraceScopeTest, WritesEnterAndExitAtTrace)
{
    ZnTest::LogCapture cap("tracetest.plain", Tavoris::TRACE_LOG_LEVEL);
    const Logger logger("tracetest.plain");
    {
        TraceScope scope(logger, "Widget::run", "Widget", 33);
        EXPECT_EQ(1, scope.getFlag());
        ASSERT_EQ(1u, cap.events().size());
    }
    const auto events = cap.events();
    ASSERT_EQ(2u, events.size());
    EXPECT_EQ("ENTER: Widget::run", events[0].message);
    EXPECT_EQ("EXIT: Widget::run", events[1].message);
    for (const ZnTest::CapturedEvent& event : events)
    {
        EXPECT_EQ(Tavoris::TRACE_LOG_LEVEL, event.level);
        EXPECT_EQ("tracetest.plain", event.logger);
        EXPECT_EQ("Widget", event.file);
        EXPECT_EQ(33, event.line);
    }
}

TEST(TraceScopeTest, ExitIsMarkedWhenAnExceptionPasses)
{
    ZnTest::LogCapture cap("tracetest.throw", Tavoris::TRACE_LOG_LEVEL);
    const Logger logger("tracetest.throw");
    EXPECT_THROW(
        {
            TraceScope scope(logger, "Widget::fail", "Widget", 40);
            throw std::runtime_error("boom");
        },
        std::runtime_error);
    const auto events = cap.events();
    ASSERT_EQ(2u, events.size());
    EXPECT_EQ("ENTER: Widget::fail", events[0].message);
    EXPECT_EQ("EXIT: Widget::fail (exception)", events[1].message);
    EXPECT_EQ(Tavoris::TRACE_LOG_LEVEL, events[1].level);
}

/// Opens and closes a trace scope in its destructor, which may run while an exception passes.
class TracesInDestructor
{
public:
    explicit TracesInDestructor(const Logger& logger) : m_logger(logger) {}
    ~TracesInDestructor() { TraceScope scope(m_logger, "Cleanup", "Cleanup", 1); }

private:
    const Logger& m_logger;
};

TEST(TraceScopeTest, ScopeOpenedDuringUnwindingEndsNormally)
{
    ZnTest::LogCapture cap("tracetest.unwind", Tavoris::TRACE_LOG_LEVEL);
    const Logger logger("tracetest.unwind");
    try
    {
        TracesInDestructor cleanup(logger);
        throw std::runtime_error("boom");
    }
    catch (const std::runtime_error&)
    {
    }
    EXPECT_EQ(1u, cap.find("ENTER: Cleanup").size());
    const auto exits = cap.find("EXIT: Cleanup");
    ASSERT_EQ(1u, exits.size());
    EXPECT_EQ("EXIT: Cleanup", exits[0].message);
}

TEST(TraceScopeTest, NothingAndFlagZeroWhenTraceIsDisabled)
{
    ZnTest::LogCapture cap("tracetest.off", Tavoris::DEBUG_LOG_LEVEL);
    const Logger logger("tracetest.off");
    {
        TraceScope scope(logger, "Widget::quiet", "Widget", 50);
        EXPECT_EQ(0, scope.getFlag());
    }
    EXPECT_TRUE(cap.events().empty());
}

TEST(TraceScopeTest, NothingAndFlagZeroWithoutAnAppender)
{
    ZnTest::LogCapture above("tracetest");
    NonAdditive cut("tracetest.cut");
    const Logger logger("tracetest.cut");
    {
        TraceScope scope(logger, "Widget::alone", "Widget", 60);
        EXPECT_EQ(0, scope.getFlag());
    }
    EXPECT_TRUE(above.events().empty());
}

TEST(TraceScopeTest, ExitIsWrittenWhenTheFlagWasSetAtEntry)
{
    ZnTest::LogCapture cap("tracetest.raised", Tavoris::TRACE_LOG_LEVEL);
    const Logger logger("tracetest.raised");
    {
        TraceScope scope(logger, "Widget::long", "Widget", 70);
        // The tests run at entry only: raising the level meanwhile does not lose the exit.
        log4cplus::Logger::getInstance("tracetest.raised").setLogLevel(Tavoris::ERROR_LOG_LEVEL);
    }
    const auto events = cap.events();
    ASSERT_EQ(2u, events.size());
    EXPECT_EQ("EXIT: Widget::long", events[1].message);
}

TEST(TraceScopeTest, NoExitWhenTheFlagWasNotSetAtEntry)
{
    ZnTest::LogCapture cap("tracetest.lowered", Tavoris::DEBUG_LOG_LEVEL);
    const Logger logger("tracetest.lowered");
    {
        TraceScope scope(logger, "Widget::later", "Widget", 80);
        log4cplus::Logger::getInstance("tracetest.lowered").setLogLevel(Tavoris::TRACE_LOG_LEVEL);
    }
    EXPECT_TRUE(cap.events().empty());
}

TEST(TraceScopeTest, CtorLogSetsTheFlag)
{
    ZnTest::LogCapture cap("tracetest.manual", Tavoris::ERROR_LOG_LEVEL);
    const Logger logger("tracetest.manual");
    {
        TraceScope scope(logger, "Widget::manual", "Widget", 90);
        ASSERT_EQ(0, scope.getFlag());
        scope.ctorLog();
        EXPECT_EQ(1, scope.getFlag());
    }
    const auto events = cap.events();
    ASSERT_EQ(2u, events.size());
    EXPECT_EQ("ENTER: Widget::manual", events[0].message);
    EXPECT_EQ("EXIT: Widget::manual", events[1].message);
}

TEST(TraceScopeTest, MacroRecordsTheSourceNameAndLine)
{
    ZnTest::LogCapture cap("tracetest.macro", Tavoris::TRACE_LOG_LEVEL);
    const Logger logger("tracetest.macro");
    int line = 0;
    {
        line = __LINE__ + 1;
        TAVORIS_TRACE_SCOPE(logger, "TraceScopeTest::macro");
    }
    const auto events = cap.events();
    ASSERT_EQ(2u, events.size());
    EXPECT_EQ("ENTER: TraceScopeTest::macro", events[0].message);
    EXPECT_EQ("EXIT: TraceScopeTest::macro", events[1].message);
    EXPECT_EQ("TraceScopeTest", events[0].file);
    EXPECT_EQ(line, events[0].line);
}

TEST(TraceScopeTest, NestedScopesCloseInReverseOrder)
{
    ZnTest::LogCapture cap("tracetest.nested", Tavoris::TRACE_LOG_LEVEL);
    const Logger logger("tracetest.nested");
    {
        TraceScope outer(logger, "outer", "Nested", 1);
        TraceScope inner(logger, "inner", "Nested", 2);
    }
    const auto events = cap.events();
    ASSERT_EQ(4u, events.size());
    EXPECT_EQ("ENTER: outer", events[0].message);
    EXPECT_EQ("ENTER: inner", events[1].message);
    EXPECT_EQ("EXIT: inner", events[2].message);
    EXPECT_EQ("EXIT: outer", events[3].message);
}

} // namespace
