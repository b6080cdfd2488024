#include "tavoris/Logger.h"

#include <gtest/gtest.h>
#include <log4cplus/spi/loggingevent.h>

#include <string>

#include "support/CapturingAppender.h"

namespace
{

using Tavoris::Logger;

/// Sets the additivity of a log4cplus logger for the scope and restores it afterwards.
class AdditivityGuard
{
public:
    AdditivityGuard(const std::string& name, bool additive)
        : m_logger(log4cplus::Logger::getInstance(name)), m_old(m_logger.getAdditivity())
    {
        m_logger.setAdditivity(additive);
    }
    ~AdditivityGuard() { m_logger.setAdditivity(m_old); }

private:
    log4cplus::Logger m_logger;
    bool m_old;
};

/// Sets the level of a log4cplus logger for the scope and restores it afterwards.
class LevelGuard
{
public:
    LevelGuard(const std::string& name, Tavoris::LogLevel level)
        : m_logger(log4cplus::Logger::getInstance(name)), m_old(m_logger.getLogLevel())
    {
        m_logger.setLogLevel(level);
    }
    ~LevelGuard() { m_logger.setLogLevel(m_old); }

private:
    log4cplus::Logger m_logger;
    Tavoris::LogLevel m_old;
};

TEST(LoggerTest, DefaultConstructorGivesTheRootLogger)
{
    Logger logger;
    EXPECT_EQ(log4cplus::Logger::getRoot().getName(), logger.getName());
}

TEST(LoggerTest, NamedConstructorGivesThatLogger)
{
    Logger logger("loggertest.named");
    EXPECT_EQ("loggertest.named", logger.getName());
}

TEST(LoggerTest, CopiesReferToTheSameLogger)
{
    Logger original("loggertest.copy");
    Logger copy(original);
    Logger assigned;
    assigned = original;
    LevelGuard level("loggertest.copy", Tavoris::WARN_LOG_LEVEL);
    EXPECT_EQ("loggertest.copy", copy.getName());
    EXPECT_EQ(Tavoris::WARN_LOG_LEVEL, copy.getLogLevel());
    EXPECT_EQ(Tavoris::WARN_LOG_LEVEL, assigned.getLogLevel());
}

TEST(LoggerTest, LogLevelIsMinusOneWhenNoneIsSet)
{
    Logger logger("loggertest.unset");
    EXPECT_EQ(Tavoris::NOT_SET_LOG_LEVEL, logger.getLogLevel());
}

TEST(LoggerTest, LogLevelIsTheLevelSetOnTheLogger)
{
    Logger logger("loggertest.ownlevel");
    LevelGuard level("loggertest.ownlevel", Tavoris::INFO_LOG_LEVEL);
    EXPECT_EQ(Tavoris::INFO_LOG_LEVEL, logger.getLogLevel());
}

TEST(LoggerTest, ChainedLogLevelComesFromTheNearestAncestorWithALevel)
{
    Logger child("loggertest.chain.a.b");
    LevelGuard parent("loggertest.chain", Tavoris::ERROR_LOG_LEVEL);
    EXPECT_EQ(Tavoris::NOT_SET_LOG_LEVEL, child.getLogLevel());
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, child.getChainedLogLevel());
}

TEST(LoggerTest, ChainedLogLevelPrefersTheLoggersOwnLevel)
{
    Logger child("loggertest.chainown.child");
    LevelGuard parent("loggertest.chainown", Tavoris::ERROR_LOG_LEVEL);
    LevelGuard own("loggertest.chainown.child", Tavoris::DEBUG_LOG_LEVEL);
    EXPECT_EQ(Tavoris::DEBUG_LOG_LEVEL, child.getChainedLogLevel());
}

TEST(LoggerTest, ChainedNumAppenderCountsOwnAndAncestorAppenders)
{
    const size_t atRoot = Logger().getChainedNumAppender();
    Logger child("loggertest.count.parent.child");
    EXPECT_EQ(atRoot, child.getChainedNumAppender());
    ZnTest::LogCapture onParent("loggertest.count.parent");
    EXPECT_EQ(atRoot + 1, child.getChainedNumAppender());
    ZnTest::LogCapture onChild("loggertest.count.parent.child");
    EXPECT_EQ(atRoot + 2, child.getChainedNumAppender());
}

TEST(LoggerTest, ChainedNumAppenderStopsWhereAdditivityEnds)
{
    const std::string top = "loggertest.additivity";
    const std::string middle = top + ".middle";
    Logger child(middle + ".child");
    ZnTest::LogCapture onTop(top);
    ZnTest::LogCapture onMiddle(middle);
    ZnTest::LogCapture onChild(middle + ".child");
    const size_t atRoot = Logger().getChainedNumAppender();
    EXPECT_EQ(atRoot + 3, child.getChainedNumAppender());
    {
        AdditivityGuard stop(middle, false);
        // The middle logger's own appender still counts; the ones above it do not.
        EXPECT_EQ(2u, child.getChainedNumAppender());
    }
    {
        AdditivityGuard stop(middle + ".child", false);
        EXPECT_EQ(1u, child.getChainedNumAppender());
    }
}

TEST(LoggerTest, ChainedNumAppenderIsZeroWithoutAppendersUpToANonAdditiveLogger)
{
    ZnTest::LogCapture above("loggertest.zero");
    AdditivityGuard stop("loggertest.zero.cut", false);
    Logger logger("loggertest.zero.cut.leaf");
    EXPECT_EQ(0u, logger.getChainedNumAppender());
}

TEST(LoggerTest, LogEmitsWithFileAndLineWhenTheLevelIsEnabled)
{
    ZnTest::LogCapture cap("loggertest.log", Tavoris::INFO_LOG_LEVEL);
    Logger logger("loggertest.log");
    logger.log(Tavoris::WARN_LOG_LEVEL, "disk nearly full", "Source", 321);
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("loggertest.log", events[0].logger);
    EXPECT_EQ(Tavoris::WARN_LOG_LEVEL, events[0].level);
    EXPECT_EQ("disk nearly full", events[0].message);
    EXPECT_EQ("Source", events[0].file);
    EXPECT_EQ(321, events[0].line);
}

TEST(LoggerTest, LogDropsAMessageBelowTheLevel)
{
    ZnTest::LogCapture cap("loggertest.drop", Tavoris::WARN_LOG_LEVEL);
    Logger logger("loggertest.drop");
    logger.log(Tavoris::INFO_LOG_LEVEL, "not wanted", "Source", 1);
    logger.log(Tavoris::WARN_LOG_LEVEL, "wanted", "Source", 2);
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("wanted", events[0].message);
}

TEST(LoggerTest, LogReachesAppendersOfAncestors)
{
    ZnTest::LogCapture cap("loggertest.up", Tavoris::DEBUG_LOG_LEVEL);
    Logger logger("loggertest.up.down");
    logger.log(Tavoris::DEBUG_LOG_LEVEL, "from below", "Source", 7);
    const auto events = cap.find("from below");
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("loggertest.up.down", events[0].logger);
}

TEST(LoggerTest, ForcedLogIgnoresTheLevel)
{
    ZnTest::LogCapture cap("loggertest.forced", Tavoris::ERROR_LOG_LEVEL);
    Logger logger("loggertest.forced");
    logger.forcedLog(Tavoris::DEBUG_LOG_LEVEL, "forced through", "Forcing", 99);
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ(Tavoris::DEBUG_LOG_LEVEL, events[0].level);
    EXPECT_EQ("forced through", events[0].message);
    EXPECT_EQ("Forcing", events[0].file);
    EXPECT_EQ(99, events[0].line);
}

TEST(LoggerTest, ForcedTraceEmitsAtTraceWhateverTheLevel)
{
    ZnTest::LogCapture cap("loggertest.trace", Tavoris::ERROR_LOG_LEVEL);
    Logger logger("loggertest.trace");
    logger.forcedTrace("tracing");
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ(Tavoris::TRACE_LOG_LEVEL, events[0].level);
    EXPECT_EQ("tracing", events[0].message);
}

TEST(LoggerTest, ForcedTraceOfNullTextEmitsAnEmptyLine)
{
    ZnTest::LogCapture cap("loggertest.tracenull");
    Logger logger("loggertest.tracenull");
    logger.forcedTrace(nullptr);
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("", events[0].message);
}

TEST(LoggerTest, CallAppendersPassesTheEventToTheAppenders)
{
    ZnTest::LogCapture cap("loggertest.call", Tavoris::ERROR_LOG_LEVEL);
    Logger logger("loggertest.call");
    log4cplus::spi::InternalLoggingEvent event("loggertest.call", Tavoris::INFO_LOG_LEVEL,
                                               "handed over", "File", 5, "");
    logger.callAppenders(event);
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("handed over", events[0].message);
    EXPECT_EQ(Tavoris::INFO_LOG_LEVEL, events[0].level);
}

TEST(LoggerTest, IsLogEnabledComparesWithTheLoggersOwnLevelFirst)
{
    ZnTest::LogCapture parent("loggertest.enabled", Tavoris::ERROR_LOG_LEVEL);
    Logger child("loggertest.enabled.child");
    EXPECT_FALSE(child.isLogEnabled(Tavoris::DEBUG_LOG_LEVEL));
    EXPECT_TRUE(child.isLogEnabled(Tavoris::ERROR_LOG_LEVEL));
    LevelGuard own("loggertest.enabled.child", Tavoris::DEBUG_LOG_LEVEL);
    EXPECT_TRUE(child.isLogEnabled(Tavoris::DEBUG_LOG_LEVEL));
    EXPECT_FALSE(child.isLogEnabled(Tavoris::TRACE_LOG_LEVEL));
}

TEST(LoggerTest, IsLogEnabledIsFalseWithoutAppenders)
{
    AdditivityGuard stop("loggertest.noappender", false);
    LevelGuard level("loggertest.noappender", Tavoris::TRACE_LOG_LEVEL);
    Logger logger("loggertest.noappender");
    EXPECT_FALSE(logger.isLogEnabled(Tavoris::ERROR_LOG_LEVEL));
}

TEST(LoggerTest, LogWritesNothingWithoutAppenders)
{
    ZnTest::LogCapture above("loggertest.silent");
    AdditivityGuard stop("loggertest.silent.cut", false);
    Logger logger("loggertest.silent.cut");
    logger.log(Tavoris::ERROR_LOG_LEVEL, "nobody listens", "Source", 1);
    EXPECT_TRUE(above.events().empty());
}

TEST(LoggerTest, ResetOfAPlainLoggerSucceeds)
{
    Logger logger("loggertest.reset");
    EXPECT_TRUE(logger.reset());
}

} // namespace
