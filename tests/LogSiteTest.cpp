#include "tavoris/LogSite.h"

#include <gtest/gtest.h>
#include <log4cplus/logger.h>

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "support/CapturingAppender.h"

namespace
{

TAVORIS_DEFINE_STATIC_LOGGER(siteLogger, "logsitetest.site")
TAVORIS_DEFINE_STATIC_LOGGER(levelsLogger, "logsitetest.levels")
TAVORIS_DEFINE_STATIC_LOGGER(cutLogger, "logsitetest.cut")

/// A stream operand that counts how often it is written, to see whether a text was built.
struct CountedOperand
{
    int* calls;
    const char* text;
};

CountedOperand counted(int* calls, const char* text)
{
    return CountedOperand{calls, text};
}

std::ostream& operator<<(std::ostream& out, const CountedOperand& operand)
{
    ++*operand.calls;
    return out << operand.text;
}

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

TEST(LogSiteTest, DefineStaticLoggerGivesTheNamedLogger)
{
    EXPECT_EQ("logsitetest.site", siteLogger().getName());
}

TEST(LogSiteTest, DefineStaticLoggerMakesTheLoggerOnce)
{
    const Tavoris::Logger* first = &siteLogger();
    const Tavoris::Logger* second = &siteLogger();
    EXPECT_EQ(first, second);
    EXPECT_NE(nullptr, dynamic_cast<const Tavoris::AceCleanupLogger*>(first));
}

TEST(LogSiteTest, StaticLoggerRacedForOnFirstUseIsOneForAllThreads)
{
    std::atomic<Tavoris::AceCleanupLogger*> cell{nullptr};
    const int kThreads = 8;
    std::vector<const Tavoris::Logger*> seen(kThreads, nullptr);
    std::mutex mutex;
    std::condition_variable ready;
    int waiting = 0;
    bool go = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
    {
        threads.emplace_back(
            [&, i]
            {
                {
                    std::unique_lock<std::mutex> lock(mutex);
                    ++waiting;
                    ready.notify_all();
                    ready.wait(lock, [&] { return go; });
                }
                seen[i] = &Tavoris::getStaticLogger(cell, "logsitetest.race");
            });
    }
    {
        std::unique_lock<std::mutex> lock(mutex);
        ready.wait(lock, [&] { return waiting == kThreads; });
        go = true;
        ready.notify_all();
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    ASSERT_NE(nullptr, cell.load());
    for (const Tavoris::Logger* logger : seen)
    {
        EXPECT_EQ(cell.load(), logger);
    }
    EXPECT_EQ("logsitetest.race", cell.load()->getName());
}

TEST(LogSiteTest, TextIsBuiltAndLoggedWhenLevelAndAppenderPass)
{
    ZnTest::LogCapture cap("logsitetest.site", Tavoris::INFO_LOG_LEVEL);
    int calls = 0;
    const int line = __LINE__ + 1;
    TAVORIS_LOG(siteLogger(), Tavoris::INFO_LOG_LEVEL, "value " << counted(&calls, "v"));
    EXPECT_EQ(1, calls);
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("logsitetest.site", events[0].logger);
    EXPECT_EQ(Tavoris::INFO_LOG_LEVEL, events[0].level);
    EXPECT_EQ("value v", events[0].message);
    EXPECT_EQ("LogSiteTest", events[0].file);
    EXPECT_EQ(line, events[0].line);
}

TEST(LogSiteTest, NoTextIsBuiltBelowTheLevel)
{
    ZnTest::LogCapture cap("logsitetest.site", Tavoris::WARN_LOG_LEVEL);
    int calls = 0;
    TAVORIS_LOG(siteLogger(), Tavoris::INFO_LOG_LEVEL, counted(&calls, "hidden"));
    EXPECT_EQ(0, calls);
    EXPECT_TRUE(cap.events().empty());
}

TEST(LogSiteTest, NoTextIsBuiltWithoutAnAppender)
{
    ZnTest::LogCapture above("logsitetest");
    NonAdditive cut("logsitetest.cut");
    log4cplus::Logger::getInstance("logsitetest.cut").setLogLevel(Tavoris::TRACE_LOG_LEVEL);
    int calls = 0;
    TAVORIS_LOG(cutLogger(), Tavoris::ERROR_LOG_LEVEL, counted(&calls, "unheard"));
    log4cplus::Logger::getInstance("logsitetest.cut").setLogLevel(Tavoris::NOT_SET_LOG_LEVEL);
    EXPECT_EQ(0, calls);
    EXPECT_TRUE(above.events().empty());
}

TEST(LogSiteTest, SeveralOperandsMakeOneMessage)
{
    ZnTest::LogCapture cap("logsitetest.site");
    TAVORIS_LOG(siteLogger(), Tavoris::DEBUG_LOG_LEVEL, "port " << 5061 << ", " << 'x' << "y");
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("port 5061, xy", events[0].message);
}

TEST(LogSiteTest, LogAtRecordsTheGivenSourceAndLine)
{
    ZnTest::LogCapture cap("logsitetest.site");
    int calls = 0;
    TAVORIS_LOG_AT(siteLogger(), Tavoris::WARN_LOG_LEVEL, "Elsewhere", 4242,
                   "explicit " << counted(&calls, "site"));
    EXPECT_EQ(1, calls);
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("explicit site", events[0].message);
    EXPECT_EQ("Elsewhere", events[0].file);
    EXPECT_EQ(4242, events[0].line);
    EXPECT_EQ(Tavoris::WARN_LOG_LEVEL, events[0].level);
}

TEST(LogSiteTest, LevelMacrosLogAtTheirLevels)
{
    ZnTest::LogCapture cap("logsitetest.levels");
    TAVORIS_LOG_TRACE(levelsLogger(), "t");
    TAVORIS_LOG_DEBUG(levelsLogger(), "d");
    TAVORIS_LOG_INFO(levelsLogger(), "i");
    TAVORIS_LOG_WARN(levelsLogger(), "w");
    TAVORIS_LOG_ERROR(levelsLogger(), "e");
    const auto events = cap.events();
    ASSERT_EQ(5u, events.size());
    const Tavoris::LogLevel levels[] = {Tavoris::TRACE_LOG_LEVEL, Tavoris::DEBUG_LOG_LEVEL,
                                        Tavoris::INFO_LOG_LEVEL, Tavoris::WARN_LOG_LEVEL,
                                        Tavoris::ERROR_LOG_LEVEL};
    const char* texts[] = {"t", "d", "i", "w", "e"};
    for (size_t i = 0; i < events.size(); ++i)
    {
        EXPECT_EQ(levels[i], events[i].level);
        EXPECT_EQ(texts[i], events[i].message);
        EXPECT_EQ("LogSiteTest", events[i].file);
    }
}

TEST(LogSiteTest, LevelMacroBelowTheLevelBuildsNoText)
{
    ZnTest::LogCapture cap("logsitetest.levels", Tavoris::ERROR_LOG_LEVEL);
    int calls = 0;
    TAVORIS_LOG_WARN(levelsLogger(), counted(&calls, "w"));
    TAVORIS_LOG_ERROR(levelsLogger(), counted(&calls, "e"));
    EXPECT_EQ(1, calls);
    ASSERT_EQ(1u, cap.events().size());
    EXPECT_EQ("e", cap.events()[0].message);
}

TEST(LogSiteTest, ObjectLogUsesTheLoggersOwnLevel)
{
    ZnTest::LogCapture parent("logsitetest.object", Tavoris::ERROR_LOG_LEVEL);
    log4cplus::Logger child = log4cplus::Logger::getInstance("logsitetest.object.child");
    child.setLogLevel(Tavoris::DEBUG_LOG_LEVEL);
    const Tavoris::Logger logger("logsitetest.object.child");
    int calls = 0;
    const int line = __LINE__ + 1;
    TAVORIS_OBJECT_LOG(logger, Tavoris::DEBUG_LOG_LEVEL, counted(&calls, "own"));
    TAVORIS_OBJECT_LOG(logger, Tavoris::TRACE_LOG_LEVEL, counted(&calls, "below"));
    child.setLogLevel(Tavoris::NOT_SET_LOG_LEVEL);
    EXPECT_EQ(1, calls);
    const auto events = parent.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("own", events[0].message);
    EXPECT_EQ("LogSiteTest", events[0].file);
    EXPECT_EQ(line, events[0].line);
}

TEST(LogSiteTest, ObjectLogBuildsNoTextWithoutAnAppender)
{
    ZnTest::LogCapture above("logsitetest");
    NonAdditive cut("logsitetest.objcut");
    const Tavoris::Logger logger("logsitetest.objcut");
    int calls = 0;
    TAVORIS_OBJECT_LOG(logger, Tavoris::ERROR_LOG_LEVEL, counted(&calls, "x"));
    EXPECT_EQ(0, calls);
    EXPECT_TRUE(above.events().empty());
}

TEST(LogSiteTest, SourceNameDropsFoldersAndExtension)
{
    constexpr Tavoris::SourceName<sizeof("/a/b.c/ZnThread.cpp")> posixPath("/a/b.c/ZnThread.cpp");
    constexpr Tavoris::SourceName<sizeof("c:\\src\\ZnMutex.cpp")> windows("c:\\src\\ZnMutex.cpp");
    constexpr Tavoris::SourceName<sizeof("Plain")> plain("Plain");
    EXPECT_STREQ("ZnThread", posixPath.text);
    EXPECT_STREQ("ZnMutex", windows.text);
    EXPECT_STREQ("Plain", plain.text);
    EXPECT_STREQ("LogSiteTest", TAVORIS_SOURCE_NAME);
}

} // namespace
