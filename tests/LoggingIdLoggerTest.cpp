#include "tavoris/LoggingIdLogger.h"

#include <gtest/gtest.h>
#include <log4cplus/logger.h>

#include <string>

#include "support/CapturingAppender.h"

namespace
{

using Tavoris::Logger;
using Tavoris::LoggingIdLogger;

TEST(LoggingIdLoggerTest, WithoutIdentifiersMessagesAreUnchanged)
{
    ZnTest::LogCapture cap("idtest.none");
    LoggingIdLogger logger(Logger("idtest.none"));
    EXPECT_EQ("", logger.getLoggingPrefix());
    logger.forcedLog(Tavoris::INFO_LOG_LEVEL, "plain", "Source", 3);
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("plain", events[0].message);
}

TEST(LoggingIdLoggerTest, OneIdentifierIsBracketedInFront)
{
    ZnTest::LogCapture cap("idtest.one");
    LoggingIdLogger logger(Logger("idtest.one"));
    logger.addLoggingId("call-17");
    EXPECT_EQ("[call-17] ", logger.getLoggingPrefix());
    logger.forcedLog(Tavoris::INFO_LOG_LEVEL, "ringing", "Source", 3);
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("[call-17] ringing", events[0].message);
}

TEST(LoggingIdLoggerTest, IdentifiersFollowEachOtherInOrder)
{
    ZnTest::LogCapture cap("idtest.two");
    LoggingIdLogger logger(Logger("idtest.two"));
    logger.addLoggingId("conn");
    logger.addLoggingId("7");
    logger.addLoggingId("tls");
    EXPECT_EQ("[conn][7][tls] ", logger.getLoggingPrefix());
    logger.forcedLog(Tavoris::WARN_LOG_LEVEL, "closed", "Source", 3);
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("[conn][7][tls] closed", events[0].message);
    EXPECT_EQ(Tavoris::WARN_LOG_LEVEL, events[0].level);
}

TEST(LoggingIdLoggerTest, NullIdentifierIsIgnored)
{
    LoggingIdLogger logger(Logger("idtest.null"));
    logger.addLoggingId("a");
    logger.addLoggingId(nullptr);
    EXPECT_EQ("[a] ", logger.getLoggingPrefix());
}

TEST(LoggingIdLoggerTest, ClearEmptiesThePrefix)
{
    ZnTest::LogCapture cap("idtest.clear");
    LoggingIdLogger logger(Logger("idtest.clear"));
    logger.addLoggingId("x");
    logger.clearLoggingIds();
    EXPECT_EQ("", logger.getLoggingPrefix());
    logger.forcedLog(Tavoris::INFO_LOG_LEVEL, "bare", "Source", 3);
    ASSERT_EQ(1u, cap.events().size());
    EXPECT_EQ("bare", cap.events()[0].message);
    logger.addLoggingId("y");
    EXPECT_EQ("[y] ", logger.getLoggingPrefix());
}

TEST(LoggingIdLoggerTest, ForcedLogKeepsFileLineAndLevel)
{
    ZnTest::LogCapture cap("idtest.where");
    LoggingIdLogger logger(Logger("idtest.where"));
    logger.addLoggingId("id");
    logger.forcedLog(Tavoris::DEBUG_LOG_LEVEL, "text", "IdSource", 812);
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("idtest.where", events[0].logger);
    EXPECT_EQ(Tavoris::DEBUG_LOG_LEVEL, events[0].level);
    EXPECT_EQ("IdSource", events[0].file);
    EXPECT_EQ(812, events[0].line);
}

TEST(LoggingIdLoggerTest, ForcedTraceIsPrefixed)
{
    ZnTest::LogCapture cap("idtest.trace", Tavoris::ERROR_LOG_LEVEL);
    LoggingIdLogger logger(Logger("idtest.trace"));
    logger.addLoggingId("t");
    logger.forcedTrace("entering");
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ(Tavoris::TRACE_LOG_LEVEL, events[0].level);
    EXPECT_EQ("[t] entering", events[0].message);
}

TEST(LoggingIdLoggerTest, LogIsPrefixedAndTestsTheLevel)
{
    ZnTest::LogCapture cap("idtest.log", Tavoris::INFO_LOG_LEVEL);
    LoggingIdLogger logger(Logger("idtest.log"));
    logger.addLoggingId("p");
    logger.log(Tavoris::DEBUG_LOG_LEVEL, "hidden", "Source", 1);
    logger.log(Tavoris::INFO_LOG_LEVEL, "shown", "Source", 2);
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("[p] shown", events[0].message);
}

TEST(LoggingIdLoggerTest, CopyKeepsLoggerAndPrefix)
{
    LoggingIdLogger original(Logger("idtest.copy"));
    original.addLoggingId("orig");
    LoggingIdLogger copy(original);
    EXPECT_EQ("idtest.copy", copy.getName());
    EXPECT_EQ("[orig] ", copy.getLoggingPrefix());
}

TEST(LoggingIdLoggerTest, CopiesHaveTheirOwnPrefix)
{
    LoggingIdLogger original(Logger("idtest.own"));
    original.addLoggingId("a");
    LoggingIdLogger copy(original);
    copy.addLoggingId("b");
    EXPECT_EQ("[a] ", original.getLoggingPrefix());
    EXPECT_EQ("[a][b] ", copy.getLoggingPrefix());
}

TEST(LoggingIdLoggerTest, AssignmentTakesLoggerAndPrefix)
{
    LoggingIdLogger source(Logger("idtest.assign"));
    source.addLoggingId("s");
    LoggingIdLogger target(Logger("idtest.target"));
    target.addLoggingId("t");
    target = source;
    EXPECT_EQ("idtest.assign", target.getName());
    EXPECT_EQ("[s] ", target.getLoggingPrefix());
}

TEST(LoggingIdLoggerTest, SelfAssignmentKeepsThePrefix)
{
    LoggingIdLogger logger(Logger("idtest.self"));
    logger.addLoggingId("me");
    LoggingIdLogger& alias = logger;
    logger = alias;
    EXPECT_EQ("idtest.self", logger.getName());
    EXPECT_EQ("[me] ", logger.getLoggingPrefix());
}

TEST(LoggingIdLoggerTest, DefaultConstructorGivesTheRootLoggerWithoutPrefix)
{
    LoggingIdLogger logger;
    EXPECT_EQ(log4cplus::Logger::getRoot().getName(), logger.getName());
    EXPECT_EQ("", logger.getLoggingPrefix());
}

} // namespace
