#include "tavoris/CachedLLLogger.h"

#include <gtest/gtest.h>
#include <log4cplus/logger.h>

#include <string>

#include "support/CapturingAppender.h"

namespace
{

using Tavoris::CachedLLLogger;
using Tavoris::Logger;

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

TEST(CachedLLLoggerTest, CacheStartsUnset)
{
    CachedLLLogger logger(Logger("cachedtest.start"));
    EXPECT_EQ(Tavoris::NOT_SET_LOG_LEVEL, logger.getCachedLogLevel());
}

TEST(CachedLLLoggerTest, DefaultConstructorGivesTheRootLogger)
{
    CachedLLLogger logger;
    EXPECT_EQ(log4cplus::Logger::getRoot().getName(), logger.getName());
    EXPECT_EQ(Tavoris::NOT_SET_LOG_LEVEL, logger.getCachedLogLevel());
}

TEST(CachedLLLoggerTest, FirstLogFillsTheCacheWithTheEffectiveLevel)
{
    ZnTest::LogCapture cap("cachedtest.fill", Tavoris::WARN_LOG_LEVEL);
    CachedLLLogger logger(Logger("cachedtest.fill.child"));
    logger.log(Tavoris::ERROR_LOG_LEVEL, "first", "Source", 1);
    EXPECT_EQ(Tavoris::WARN_LOG_LEVEL, logger.getCachedLogLevel());
    EXPECT_EQ(1u, cap.find("first").size());
}

TEST(CachedLLLoggerTest, ResetReadsTheEffectiveLevel)
{
    LevelGuard level("cachedtest.reset", Tavoris::INFO_LOG_LEVEL);
    CachedLLLogger logger(Logger("cachedtest.reset"));
    EXPECT_TRUE(logger.reset());
    EXPECT_EQ(Tavoris::INFO_LOG_LEVEL, logger.getCachedLogLevel());
}

TEST(CachedLLLoggerTest, LogDropsMessagesBelowTheCachedLevel)
{
    ZnTest::LogCapture cap("cachedtest.drop", Tavoris::WARN_LOG_LEVEL);
    CachedLLLogger logger(Logger("cachedtest.drop"));
    logger.log(Tavoris::INFO_LOG_LEVEL, "below", "Source", 1);
    logger.log(Tavoris::WARN_LOG_LEVEL, "at", "Source", 2);
    logger.log(Tavoris::ERROR_LOG_LEVEL, "above", "Source", 3);
    const auto events = cap.events();
    ASSERT_EQ(2u, events.size());
    EXPECT_EQ("at", events[0].message);
    EXPECT_EQ("above", events[1].message);
}

TEST(CachedLLLoggerTest, LogRecordsFileAndLine)
{
    ZnTest::LogCapture cap("cachedtest.where", Tavoris::DEBUG_LOG_LEVEL);
    CachedLLLogger logger(Logger("cachedtest.where"));
    logger.log(Tavoris::DEBUG_LOG_LEVEL, "here", "CachedSource", 4711);
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("CachedSource", events[0].file);
    EXPECT_EQ(4711, events[0].line);
    EXPECT_EQ(Tavoris::DEBUG_LOG_LEVEL, events[0].level);
}

TEST(CachedLLLoggerTest, LevelChangeIsSeenOnlyAfterReset)
{
    ZnTest::LogCapture cap("cachedtest.change", Tavoris::DEBUG_LOG_LEVEL);
    CachedLLLogger logger(Logger("cachedtest.change"));
    logger.log(Tavoris::INFO_LOG_LEVEL, "before", "Source", 1);
    ASSERT_EQ(Tavoris::DEBUG_LOG_LEVEL, logger.getCachedLogLevel());

    LevelGuard raised("cachedtest.change", Tavoris::ERROR_LOG_LEVEL);
    logger.log(Tavoris::INFO_LOG_LEVEL, "still cached", "Source", 2);
    EXPECT_EQ(1u, cap.find("still cached").size());

    EXPECT_TRUE(logger.reset());
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, logger.getCachedLogLevel());
    logger.log(Tavoris::INFO_LOG_LEVEL, "after reset", "Source", 3);
    EXPECT_TRUE(cap.find("after reset").empty());
}

TEST(CachedLLLoggerTest, LogWritesNothingWithoutAppenders)
{
    ZnTest::LogCapture above("cachedtest.silent");
    log4cplus::Logger cut = log4cplus::Logger::getInstance("cachedtest.silent.cut");
    cut.setAdditivity(false);
    CachedLLLogger logger(Logger("cachedtest.silent.cut"));
    logger.log(Tavoris::ERROR_LOG_LEVEL, "nobody listens", "Source", 1);
    cut.setAdditivity(true);
    EXPECT_TRUE(above.events().empty());
    EXPECT_EQ(Tavoris::TRACE_LOG_LEVEL, logger.getCachedLogLevel());
}

TEST(CachedLLLoggerTest, CopyKeepsLoggerAndCache)
{
    LevelGuard level("cachedtest.copy", Tavoris::WARN_LOG_LEVEL);
    CachedLLLogger original(Logger("cachedtest.copy"));
    original.reset();
    CachedLLLogger copy(original);
    EXPECT_EQ("cachedtest.copy", copy.getName());
    EXPECT_EQ(Tavoris::WARN_LOG_LEVEL, copy.getCachedLogLevel());
}

TEST(CachedLLLoggerTest, AssignmentTakesLoggerAndCache)
{
    LevelGuard level("cachedtest.assign", Tavoris::ERROR_LOG_LEVEL);
    CachedLLLogger source(Logger("cachedtest.assign"));
    source.reset();
    CachedLLLogger target(Logger("cachedtest.other"));
    target = source;
    EXPECT_EQ("cachedtest.assign", target.getName());
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, target.getCachedLogLevel());
}

TEST(CachedLLLoggerTest, SelfAssignmentKeepsLoggerAndCache)
{
    LevelGuard level("cachedtest.self", Tavoris::INFO_LOG_LEVEL);
    CachedLLLogger logger(Logger("cachedtest.self"));
    logger.reset();
    CachedLLLogger& alias = logger;
    logger = alias;
    EXPECT_EQ("cachedtest.self", logger.getName());
    EXPECT_EQ(Tavoris::INFO_LOG_LEVEL, logger.getCachedLogLevel());
}

TEST(CachedLLLoggerTest, LogThroughTheBaseUsesTheCache)
{
    ZnTest::LogCapture cap("cachedtest.virtual", Tavoris::INFO_LOG_LEVEL);
    CachedLLLogger logger(Logger("cachedtest.virtual"));
    const Logger& base = logger;
    base.log(Tavoris::ERROR_LOG_LEVEL, "via base", "Source", 1);
    EXPECT_EQ(Tavoris::INFO_LOG_LEVEL, logger.getCachedLogLevel());
    EXPECT_EQ(1u, cap.find("via base").size());
}

} // namespace
