#include "tavoris/ObjectWithLogger.h"

#include "tavoris/CachedLLLogger.h"
#include "tavoris/LoggingIdLogger.h"

#include <gtest/gtest.h>
#include <log4cplus/logger.h>

#include <string>

#include "support/CapturingAppender.h"

namespace
{

using Tavoris::CachedLLLogger;
using Tavoris::Logger;
using Tavoris::LoggingIdLogger;
using Tavoris::ObjectWithLogger;

/// An object that names its logger and identifies itself on it.
class Connection : public ObjectWithLogger<LoggingIdLogger>
{
public:
    Connection() = default;
    Connection(const char* loggerName, const char* id)
    {
        LoggingIdLogger logger{Logger(loggerName)};
        logger.addLoggingId(id);
        setLogger(logger);
    }
};

/// An object whose logger caches its level.
class Worker : public ObjectWithLogger<CachedLLLogger>
{
public:
    Worker() = default;
    explicit Worker(const char* loggerName) { setLogger(CachedLLLogger(Logger(loggerName))); }
};

TEST(ObjectWithLoggerTest, DefaultLoggerIsTheRootLogger)
{
    Connection connection;
    Worker worker;
    const std::string root = log4cplus::Logger::getRoot().getName();
    EXPECT_EQ(root, connection.getLogger().getName());
    EXPECT_EQ("", connection.getLogger().getLoggingPrefix());
    EXPECT_EQ(root, worker.getLogger().getName());
    EXPECT_EQ(Tavoris::NOT_SET_LOG_LEVEL, worker.getLogger().getCachedLogLevel());
}

TEST(ObjectWithLoggerTest, SetLoggerReplacesTheLogger)
{
    Connection connection("owltest.set", "c1");
    EXPECT_EQ("owltest.set", connection.getLogger().getName());
    EXPECT_EQ("[c1] ", connection.getLogger().getLoggingPrefix());
}

TEST(ObjectWithLoggerTest, TheObjectLogsThroughItsLogger)
{
    ZnTest::LogCapture cap("owltest.log");
    Connection connection("owltest.log", "c9");
    connection.getLogger().forcedLog(Tavoris::INFO_LOG_LEVEL, "up", "Connection", 12);
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("[c9] up", events[0].message);
}

TEST(ObjectWithLoggerTest, CopyConstructorCopiesTheLogger)
{
    Connection original("owltest.copy", "orig");
    Connection copy(original);
    EXPECT_EQ("owltest.copy", copy.getLogger().getName());
    EXPECT_EQ("[orig] ", copy.getLogger().getLoggingPrefix());
}

TEST(ObjectWithLoggerTest, AssignmentCopiesTheLogger)
{
    Connection source("owltest.assign", "src");
    Connection target("owltest.target", "dst");
    target = source;
    EXPECT_EQ("owltest.assign", target.getLogger().getName());
    EXPECT_EQ("[src] ", target.getLogger().getLoggingPrefix());
}

TEST(ObjectWithLoggerTest, SelfAssignmentKeepsTheLogger)
{
    Connection connection("owltest.self", "me");
    Connection& alias = connection;
    connection = alias;
    EXPECT_EQ("owltest.self", connection.getLogger().getName());
    EXPECT_EQ("[me] ", connection.getLogger().getLoggingPrefix());
}

TEST(ObjectWithLoggerTest, ResetForwardsToTheLogger)
{
    log4cplus::Logger named = log4cplus::Logger::getInstance("owltest.reset");
    named.setLogLevel(Tavoris::WARN_LOG_LEVEL);
    Worker worker("owltest.reset");
    ASSERT_EQ(Tavoris::NOT_SET_LOG_LEVEL, worker.getLogger().getCachedLogLevel());
    const bool result = worker.reset();
    const Tavoris::LogLevel cached = worker.getLogger().getCachedLogLevel();
    named.setLogLevel(Tavoris::NOT_SET_LOG_LEVEL);
    EXPECT_TRUE(result);
    EXPECT_EQ(Tavoris::WARN_LOG_LEVEL, cached);
}

TEST(ObjectWithLoggerTest, CopiesKeepSeparateLoggers)
{
    log4cplus::Logger named = log4cplus::Logger::getInstance("owltest.separate");
    named.setLogLevel(Tavoris::ERROR_LOG_LEVEL);
    Worker original("owltest.separate");
    Worker copy(original);
    copy.reset();
    const Tavoris::LogLevel originalCache = original.getLogger().getCachedLogLevel();
    const Tavoris::LogLevel copyCache = copy.getLogger().getCachedLogLevel();
    named.setLogLevel(Tavoris::NOT_SET_LOG_LEVEL);
    EXPECT_EQ(Tavoris::NOT_SET_LOG_LEVEL, originalCache);
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, copyCache);
}

} // namespace
