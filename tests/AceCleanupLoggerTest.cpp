#include "tavoris/AceCleanupLogger.h"

#include <ace/Object_Manager.h>
#include <gtest/gtest.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>

#include "support/CapturingAppender.h"

namespace
{

using Tavoris::AceCleanupLogger;

void ignoreCleanup(void*, void*) {}

TEST(AceCleanupLoggerTest, RefersToTheNamedLogger)
{
    // Owned by the ACE object manager from here on.
    AceCleanupLogger* logger = new AceCleanupLogger("acetest.named");
    EXPECT_EQ("acetest.named", logger->getName());
}

TEST(AceCleanupLoggerTest, NullNameGivesTheRootLogger)
{
    AceCleanupLogger* logger = new AceCleanupLogger(nullptr);
    EXPECT_EQ(log4cplus::Logger::getRoot().getName(), logger->getName());
}

TEST(AceCleanupLoggerTest, MessagesReachTheAppendersOfTheNamedLogger)
{
    ZnTest::LogCapture cap("acetest.emit", Tavoris::INFO_LOG_LEVEL);
    AceCleanupLogger* logger = new AceCleanupLogger("acetest.emit");
    logger->log(Tavoris::WARN_LOG_LEVEL, "from the heap logger", "AceSource", 12);
    logger->log(Tavoris::DEBUG_LOG_LEVEL, "below the level", "AceSource", 13);
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("acetest.emit", events[0].logger);
    EXPECT_EQ("from the heap logger", events[0].message);
    EXPECT_EQ("AceSource", events[0].file);
    EXPECT_EQ(12, events[0].line);
}

TEST(AceCleanupLoggerTest, InstancesOfOneNameShareTheLogger)
{
    AceCleanupLogger* first = new AceCleanupLogger("acetest.shared");
    AceCleanupLogger* second = new AceCleanupLogger("acetest.shared");
    log4cplus::Logger named = log4cplus::Logger::getInstance("acetest.shared");
    const Tavoris::LogLevel old = named.getLogLevel();
    named.setLogLevel(Tavoris::ERROR_LOG_LEVEL);
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, first->getLogLevel());
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, second->getLogLevel());
    named.setLogLevel(old);
}

TEST(AceCleanupLoggerTest, IsRegisteredWithTheObjectManagerForCleanUp)
{
    AceCleanupLogger* logger = new AceCleanupLogger("acetest.registered");
    // A second registration of the same object is refused: the constructor made the first.
    errno = 0;
    EXPECT_EQ(-1, ACE_Object_Manager::at_exit(logger, &ignoreCleanup, nullptr, "test"));
    EXPECT_EQ(EEXIST, errno);
}

/// Logs from its destructor, which runs among the static destructors at exit.
class LateWriter
{
public:
    explicit LateWriter(const Tavoris::Logger& logger) : m_logger(logger) {}
    ~LateWriter()
    {
        m_logger.forcedLog(Tavoris::ERROR_LOG_LEVEL, "written during exit", "LateWriter", 1);
    }

private:
    const Tavoris::Logger& m_logger;
};

TEST(AceCleanupLoggerTest, UsableFromStaticDestructorsAtExit)
{
    // A forked child lacks log4cplus's worker threads and would wait for them at exit: the
    // child runs as a fresh process instead.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            AceCleanupLogger* logger = new AceCleanupLogger("acetest.late");
            log4cplus::SharedAppenderPtr console(new log4cplus::ConsoleAppender(true, true));
            console->setLayout(
                std::unique_ptr<log4cplus::Layout>(new log4cplus::PatternLayout("late: %m%n")));
            log4cplus::Logger::getInstance("acetest.late").addAppender(console);
            static LateWriter s_writer(*logger);
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "late: written during exit");
}

} // namespace
