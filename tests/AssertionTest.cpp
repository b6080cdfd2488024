#include "tavoris/Assertion.h"

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "support/CapturingAppender.h"

namespace
{

using Tavoris::Assertion;
using Tavoris::Logger;

/// What a handler of the tests was called with.
struct HandlerCall
{
    std::string text;
    std::string file;
    int line;
    std::string loggerName;
};

std::mutex s_callsMutex;
std::vector<HandlerCall> s_calls; // guarded by s_callsMutex

void recordingHandler(const char* text, const char* file, int line, const Logger& logger)
{
    std::lock_guard<std::mutex> lock(s_callsMutex);
    s_calls.push_back(HandlerCall{text, file, line, logger.getName()});
}

std::vector<HandlerCall> takeCalls()
{
    std::lock_guard<std::mutex> lock(s_callsMutex);
    std::vector<HandlerCall> calls;
    calls.swap(s_calls);
    return calls;
}

/// Puts the default handler back when a test ends, however it ends.
class DefaultHandlerRestorer
{
public:
    DefaultHandlerRestorer() { takeCalls(); }
    ~DefaultHandlerRestorer()
    {
        Assertion::setHandler(nullptr);
        takeCalls();
    }
};

TEST(AssertionTest, DefaultLoggerIsCorvaneCoreAssertion)
{
    EXPECT_EQ("corvane.core.Assertion", Assertion::getDefaultLogger().getName());
}

TEST(AssertionTest, FailureIsLoggedAtErrorOnTheDefaultLogger)
{
    DefaultHandlerRestorer restore;
    ZnTest::LogCapture cap("corvane.core.Assertion", Tavoris::TRACE_LOG_LEVEL);
    Assertion(false, "pBuffer != 0", "ZnSample", 123);
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("corvane.core.Assertion", events[0].logger);
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, events[0].level);
    EXPECT_EQ("Assertion failed: pBuffer != 0", events[0].message);
    EXPECT_EQ("ZnSample", events[0].file);
    EXPECT_EQ(123, events[0].line);
}

TEST(AssertionTest, FailureIsLoggedOnTheGivenLogger)
{
    DefaultHandlerRestorer restore;
    ZnTest::LogCapture onDefault("corvane.core.Assertion", Tavoris::TRACE_LOG_LEVEL);
    ZnTest::LogCapture onGiven("asserttest.given", Tavoris::TRACE_LOG_LEVEL);
    const Logger logger("asserttest.given");
    Assertion(false, "m_count > 0", logger, "ZnCounter", 77);
    EXPECT_TRUE(onDefault.events().empty());
    const auto events = onGiven.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("asserttest.given", events[0].logger);
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, events[0].level);
    EXPECT_EQ("Assertion failed: m_count > 0", events[0].message);
    EXPECT_EQ("ZnCounter", events[0].file);
    EXPECT_EQ(77, events[0].line);
}

TEST(AssertionTest, TrueConditionReportsNothing)
{
    DefaultHandlerRestorer restore;
    ZnTest::LogCapture cap("corvane.core.Assertion", Tavoris::TRACE_LOG_LEVEL);
    Assertion(true, "fine", "ZnSample", 1);
    Assertion(true, "fine", Assertion::getDefaultLogger(), "ZnSample", 2);
    EXPECT_TRUE(cap.events().empty());
    Assertion::setHandler(&recordingHandler);
    Assertion(true, "fine", "ZnSample", 3);
    EXPECT_TRUE(takeCalls().empty());
}

TEST(AssertionTest, DefaultHandlerWritesNothingAboveErrorLevel)
{
    DefaultHandlerRestorer restore;
    // FATAL: above ERROR, so the ERROR report is filtered out by the level.
    ZnTest::LogCapture cap("asserttest.fatalonly", 50000);
    Assertion(false, "filtered", Logger("asserttest.fatalonly"), "ZnSample", 5);
    EXPECT_TRUE(cap.events().empty());
}

TEST(AssertionTest, CustomHandlerIsCalledInsteadOfTheDefault)
{
    DefaultHandlerRestorer restore;
    ZnTest::LogCapture cap("corvane.core.Assertion", Tavoris::TRACE_LOG_LEVEL);
    Assertion::setHandler(&recordingHandler);
    Assertion(false, "x == y", "ZnCustom", 9);
    const auto calls = takeCalls();
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ("x == y", calls[0].text);
    EXPECT_EQ("ZnCustom", calls[0].file);
    EXPECT_EQ(9, calls[0].line);
    EXPECT_EQ("corvane.core.Assertion", calls[0].loggerName);
    EXPECT_TRUE(cap.events().empty());
}

TEST(AssertionTest, CustomHandlerReceivesTheGivenLogger)
{
    DefaultHandlerRestorer restore;
    Assertion::setHandler(&recordingHandler);
    Assertion(false, "ok", Logger("asserttest.handlerlogger"), "ZnCustom", 10);
    const auto calls = takeCalls();
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ("asserttest.handlerlogger", calls[0].loggerName);
}

TEST(AssertionTest, SetHandlerReturnsThePreviousHandler)
{
    DefaultHandlerRestorer restore;
    EXPECT_EQ(&Assertion::defaultHandler, Assertion::setHandler(&recordingHandler));
    EXPECT_EQ(&recordingHandler, Assertion::setHandler(nullptr));
}

TEST(AssertionTest, RemovingTheCustomHandlerRestoresTheDefault)
{
    DefaultHandlerRestorer restore;
    ZnTest::LogCapture cap("corvane.core.Assertion", Tavoris::TRACE_LOG_LEVEL);
    Assertion::setHandler(&recordingHandler);
    Assertion::setHandler(nullptr);
    Assertion(false, "after removal", "ZnSample", 11);
    EXPECT_TRUE(takeCalls().empty());
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("Assertion failed: after removal", events[0].message);
}

TEST(AssertionTest, NullTextAndFileReachTheHandlerAsEmptyTexts)
{
    DefaultHandlerRestorer restore;
    Assertion::setHandler(&recordingHandler);
    Assertion(false, nullptr, nullptr, 0);
    const auto calls = takeCalls();
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ("", calls[0].text);
    EXPECT_EQ("", calls[0].file);
}

} // namespace
