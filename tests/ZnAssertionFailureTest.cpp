#include "ZnUtil/ZnAssertionFailure.h"

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"

#include "tavoris/Assertion.h"
#include "tavoris/LogLevel.h"
#include "tavoris/Logger.h"

#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <vector>

#include "support/CapturingAppender.h"

namespace
{

const char* const kAssertionLogger = "corvane.core.Assertion";

template <class Action>
ZnHandle<ZnException> catchThrown(Action&& action)
{
    try
    {
        action();
    }
    catch (ZnHandle<ZnException>& e)
    {
        return e;
    }
    return ZnHandle<ZnException>();
}

/// What the recording handler below was given.
struct HandlerCall
{
    std::string text;
    std::string file;
    int line;
};

std::vector<HandlerCall> g_handlerCalls;

void recordingHandler(const char* text, const char* file, int line, const Tavoris::Logger&)
{
    g_handlerCalls.push_back(HandlerCall{text, file, line});
}

/// Installs the recording handler for the life of the object.
class RecordingHandlerScope
{
public:
    RecordingHandlerScope() : m_previous(Tavoris::Assertion::setHandler(&recordingHandler))
    {
        g_handlerCalls.clear();
    }
    ~RecordingHandlerScope() { Tavoris::Assertion::setHandler(m_previous); }

    RecordingHandlerScope(const RecordingHandlerScope&) = delete;
    RecordingHandlerScope& operator=(const RecordingHandlerScope&) = delete;

private:
    Tavoris::Assertion::Handler m_previous;
};

const char* const kFile = "ZnAssertionFailureTest";
const char* const kCompiled = "Jan  2 2024 03:04:05";

TEST(ZnAssertionFailureTest, ConstructorKeepsMessageFileLineAndStamp)
{
    ZnHandle<ZnAssertionFailure> failure(new ZnAssertionFailure("broken", kFile, 42, kCompiled));
    EXPECT_STREQ(failure->getExceptionMessage(), "broken");
    EXPECT_STREQ(failure->getFile(), kFile);
    EXPECT_EQ(failure->getLine(), 42u);
    EXPECT_STREQ(failure->getCompiled(), kCompiled);
}

TEST(ZnAssertionFailureTest, FileAndStampAreKeptNotCopied)
{
    static char file[] = "Source";
    static char compiled[] = "Feb  1 2024 10:00:00";
    ZnHandle<ZnAssertionFailure> failure(new ZnAssertionFailure("broken", file, 1, compiled));
    EXPECT_EQ(failure->getFile(), file);
    EXPECT_EQ(failure->getCompiled(), compiled);
    file[0] = 'X';
    EXPECT_STREQ(failure->getFile(), "Xource");
    file[0] = 'S';
}

TEST(ZnAssertionFailureTest, MessageIsCopied)
{
    char message[] = "moved";
    ZnHandle<ZnAssertionFailure> failure(new ZnAssertionFailure(message, kFile, 1, kCompiled));
    message[0] = 'M';
    EXPECT_NE(failure->getExceptionMessage(), message);
    EXPECT_STREQ(failure->getExceptionMessage(), "moved");
}

TEST(ZnAssertionFailureTest, EmptyMessageIsNil)
{
    ZnHandle<ZnAssertionFailure> failure(new ZnAssertionFailure("", kFile, 1, kCompiled));
    EXPECT_EQ(failure->getExceptionMessage(), nullptr);
    EXPECT_EQ(failure->getFile(), kFile);
}

TEST(ZnAssertionFailureTest, IsAnException)
{
    ZnHandle<ZnException> e(new ZnAssertionFailure("broken", kFile, 1, kCompiled));
    EXPECT_STREQ(e->getClassName(), "ZnAssertionFailure");
    ZnHandle<ZnAssertionFailure> failure(e);
    EXPECT_FALSE(failure.isNil());
}

TEST(ZnAssertionFailureTest, ThrowThrowsFailureWithAllFields)
{
    ZnHandle<ZnException> e =
        catchThrown([] { ZnAssertionFailure::sThrow("index < size", kFile, 77, kCompiled); });
    ASSERT_FALSE(e.isNil());
    ZnHandle<ZnAssertionFailure> failure(e);
    EXPECT_STREQ(failure->getExceptionMessage(), "index < size");
    EXPECT_EQ(failure->getFile(), kFile);
    EXPECT_EQ(failure->getLine(), 77u);
    EXPECT_EQ(failure->getCompiled(), kCompiled);
}

TEST(ZnAssertionFailureTest, ThrowReportsToAssertionService)
{
    ZnTest::LogCapture capture(kAssertionLogger, Tavoris::TRACE_LOG_LEVEL);
    EXPECT_THROW(ZnAssertionFailure::sThrow("index < size", kFile, 77, kCompiled),
                 ZnHandle<ZnException>);
    const std::vector<ZnTest::CapturedEvent> events = capture.events();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].logger, kAssertionLogger);
    EXPECT_EQ(events[0].level, Tavoris::ERROR_LOG_LEVEL);
    EXPECT_EQ(events[0].message, "Assertion failed: index < size");
    EXPECT_EQ(events[0].file, kFile);
    EXPECT_EQ(events[0].line, 77);
}

TEST(ZnAssertionFailureTest, ThrowPassesTextFileAndLineToInstalledHandler)
{
    RecordingHandlerScope scope;
    EXPECT_THROW(ZnAssertionFailure::sThrow("ready", kFile, 9, kCompiled), ZnHandle<ZnException>);
    ASSERT_EQ(g_handlerCalls.size(), 1u);
    EXPECT_EQ(g_handlerCalls[0].text, "ready");
    EXPECT_EQ(g_handlerCalls[0].file, kFile);
    EXPECT_EQ(g_handlerCalls[0].line, 9);
}

TEST(ZnAssertionFailureTest, ThrowsAlsoWhenServiceReturns)
{
    RecordingHandlerScope scope;
    ZnHandle<ZnException> e =
        catchThrown([] { ZnAssertionFailure::sThrow("after report", kFile, 3, kCompiled); });
    EXPECT_EQ(g_handlerCalls.size(), 1u);
    ASSERT_FALSE(e.isNil());
    EXPECT_STREQ(e->getExceptionMessage(), "after report");
}

TEST(ZnAssertionFailureTest, ThrownFailureHasCountOne)
{
    unsigned long countInCatch = 0;
    try
    {
        ZnAssertionFailure::sThrow("counted", kFile, 5, kCompiled);
    }
    catch (ZnHandle<ZnException>& e)
    {
        countInCatch = e->getRefCount();
    }
    EXPECT_EQ(countInCatch, 1u);
}

TEST(ZnAssertionFailureTest, LibraryFailuresCarryBuildStamp)
{
    ZnObject object;
    ZnHandle<ZnException> e = catchThrown([&] { object.clone(); });
    ZnHandle<ZnAssertionFailure> failure(e);
    ASSERT_FALSE(failure.isNil());
    ASSERT_NE(failure->getCompiled(), nullptr);
    // "Mmm dd yyyy hh:mm:ss", as the compiler writes its date and time.
    const std::string stamp = failure->getCompiled();
    ASSERT_EQ(stamp.size(), 20u) << stamp;
    EXPECT_TRUE(std::isupper(static_cast<unsigned char>(stamp[0]))) << stamp;
    EXPECT_EQ(stamp[11], ' ') << stamp;
    EXPECT_EQ(stamp[14], ':') << stamp;
    EXPECT_EQ(stamp[17], ':') << stamp;
}

TEST(ZnAssertionFailureTest, CompiledMacroIsDateAndTime)
{
    EXPECT_EQ(std::string(ZN_COMPILED), std::string(__DATE__) + " " + __TIME__);
}

} // namespace
