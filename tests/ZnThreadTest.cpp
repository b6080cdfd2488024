// The thread object: its states and their transitions, its event, its place in the thread table,
// its log lines and its printed form. Process-wide shutdown is tested in programs of its own.
#include "ZnUtil/ZnThread.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnErrorStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnPlatform.h"
#include "ZnUtil/ZnProcess.h"
#include "ZnUtil/ZnSystemError.h"

#include "tavoris/LogLevel.h"
#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>
#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/loglevel.h>
#include <log4cplus/spi/loggingevent.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/CapturingAppender.h"
#include "support/DefaultErrorStream.h"
#include "support/GuardedRecord.h"
#include "support/RecordingOutputStream.h"
#include "support/RunTogether.h"
#include "support/StringOutputStream.h"
#include "support/ThreadEnd.h"
#include "support/WaitUntil.h"
#include <pthread.h>

namespace
{

using Clock = std::chrono::steady_clock;
using ZnTest::DefaultErrorStreamScope;
using ZnTest::kLimit;
using ZnTest::StringOutputStream;
using ZnTest::waitUntil;
using ZnTest::waitUntilEnded;

const char* const kThreadLogger = "corvane.zn.ZnThread";
const char* const kEarlyExitWarning =
    "thread state changed to STATE_EXITING before shutdown was called.";

long long millisecondsSince(Clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

/// What a test thread reports, kept apart from the thread object so that it outlives it; the test
/// also opens the numbered gates that the thread's body passes.
class Record : public ZnTest::GuardedRecord<Record>
{
public:
    /// Test side: lets the thread pass gates up to \p gate.
    void open(int gate)
    {
        update([gate](Record& r) { r.openedGates = gate; });
    }

    /// Thread side: waits until gate \p gate is open, noting that it waits there.
    void pass(int gate)
    {
        update([gate](Record& r) { r.waitingAtGate = gate; });
        if (!await([gate](Record& r) { return r.openedGates >= gate; }))
        {
            update([](Record& r) { r.gateTimedOut = true; });
        }
    }

    int openedGates = 0;
    int waitingAtGate = 0;
    bool gateTimedOut = false;
    int runEntries = 0;
    int runExits = 0;
    ZnThread::State stateAtRunEntry = ZnThread::STATE_DETACHED;
    ZnThread* currentInRun = nullptr;
    unsigned int tokenInRun = 0;
    unsigned int platformIdInRun = 0;
    std::vector<ZnThread::State> statesAfterWait;
    std::vector<long long> waitMilliseconds;
    bool destroyed = false;
    ZnThread::State stateAtDestruction = ZnThread::STATE_RUNNING;
    std::atomic<int> signals{0};
};

/// A thread object whose run() is given by the test. It counts the calls of signal(), reports
/// its destruction, and exposes the protected members.
class ScriptedThread : public ZnThread
{
public:
    using Body = std::function<void(ScriptedThread&)>;

    ScriptedThread(std::shared_ptr<Record> record, Body body)
        : m_record(std::move(record)), m_body(std::move(body))
    {
    }

    ~ScriptedThread() override
    {
        const State state = getState();
        m_record->update(
            [state](Record& r)
            {
                r.destroyed = true;
                r.stateAtDestruction = state;
            });
    }

    using ZnThread::block;
    using ZnThread::setState;
    using ZnThread::sGetByToken;

    void run() override
    {
        const State state = getState();
        ZnThread* current = sGetCurrent();
        const unsigned int token = getToken();
        const unsigned int platformId = ZnPlatform::sGetCurrentThreadId();
        m_record->update(
            [&](Record& r)
            {
                ++r.runEntries;
                r.stateAtRunEntry = state;
                r.currentInRun = current;
                r.tokenInRun = token;
                r.platformIdInRun = platformId;
            });
        if (m_body)
        {
            m_body(*this);
        }
        m_record->update([](Record& r) { ++r.runExits; });
    }

    void signal() override
    {
        ++m_record->signals;
        ZnThread::signal();
    }

    /// Waits on the thread's own event and notes how long it took and the state afterwards.
    void timedWait(unsigned int aMilliSeconds)
    {
        const Clock::time_point start = Clock::now();
        wait(aMilliSeconds);
        const long long took = millisecondsSince(start);
        const State after = getState();
        m_record->update(
            [&](Record& r)
            {
                r.waitMilliseconds.push_back(took);
                r.statesAfterWait.push_back(after);
            });
    }

    Record& record() { return *m_record; }

private:
    std::shared_ptr<Record> m_record;
    Body m_body;
};

using ThreadHandle = ZnHandle<ScriptedThread>;

ThreadHandle makeThread(const std::shared_ptr<Record>& record, ScriptedThread::Body body = {})
{
    return ThreadHandle(new ScriptedThread(record, std::move(body)));
}

/// The text of a ZnHandle<ZnException> thrown by \p action, or "(nothing thrown)"; \p type gets
/// the exception's class name.
template <class Action>
std::string thrownText(Action action, std::string* type = nullptr)
{
    try
    {
        action();
    }
    catch (ZnHandle<ZnException>& e)
    {
        if (type != nullptr)
        {
            *type = e->getClassName();
        }
        const char* text = e->getExceptionMessage();
        return text == nullptr ? std::string() : std::string(text);
    }
    return "(nothing thrown)";
}

std::string hex8(unsigned int value)
{
    char text[16];
    snprintf(text, sizeof text, "%08X", value);
    return text;
}

/// The messages of \p events, in order.
std::vector<std::string> messages(const std::vector<ZnTest::CapturedEvent>& events)
{
    std::vector<std::string> texts;
    for (const ZnTest::CapturedEvent& event : events)
    {
        texts.push_back(event.message);
    }
    return texts;
}

/// A log4cplus appender that holds the first thread logging a given line until the test opens it:
/// a real stop at a fixed step of main(), "ENTER: ZnThread::main" being the one between fork()
/// and the first step.
class LineGate : public log4cplus::Appender
{
public:
    explicit LineGate(std::string line) : m_line(std::move(line)) { setName("line-gate"); }
    ~LineGate() override { destructorImpl(); }

    void close() override {}

    bool awaitHeld()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, kLimit, [this] { return m_held; });
    }

    void open()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }

    bool timedOut() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_timedOut;
    }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        if (event.getMessage() != m_line)
        {
            return;
        }
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_held)
        {
            return;
        }
        m_held = true;
        m_changed.notify_all();
        if (!m_changed.wait_for(lock, kLimit, [this] { return m_open; }))
        {
            m_timedOut = true;
        }
    }

private:
    const std::string m_line;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_held = false;
    bool m_open = false;
    bool m_timedOut = false;
};

/// Attaches a LineGate to the thread logger at trace level for the life of the object.
class LineGateScope
{
public:
    explicit LineGateScope(const std::string& line)
        : m_logger(log4cplus::Logger::getInstance(kThreadLogger)), m_gate(new LineGate(line)),
          m_oldLevel(m_logger.getLogLevel())
    {
        m_logger.addAppender(log4cplus::SharedAppenderPtr(m_gate.get()));
        m_logger.setLogLevel(Tavoris::TRACE_LOG_LEVEL);
    }
    ~LineGateScope()
    {
        m_gate->open();
        m_logger.removeAppender(log4cplus::SharedAppenderPtr(m_gate.get()));
        m_logger.setLogLevel(m_oldLevel);
    }

    LineGate& gate() { return *m_gate; }

    /// While the gate holds a thread, that thread holds the logger's appender list: the test
    /// thread must not log on it, so the logger is switched off first.
    void silenceLogger() { m_logger.setLogLevel(log4cplus::OFF_LOG_LEVEL); }

private:
    log4cplus::Logger m_logger;
    log4cplus::helpers::SharedObjectPtr<LineGate> m_gate;
    log4cplus::LogLevel m_oldLevel;
};

/// Sets the default stack size of new threads for the life of the object.
class DefaultStackSizeScope
{
public:
    explicit DefaultStackSizeScope(size_t size)
    {
        pthread_attr_t attributes;
        m_ok = pthread_getattr_default_np(&attributes) == 0;
        if (m_ok)
        {
            pthread_attr_getstacksize(&attributes, &m_oldSize);
            m_ok = pthread_attr_setstacksize(&attributes, size) == 0 &&
                   pthread_setattr_default_np(&attributes) == 0;
            pthread_attr_destroy(&attributes);
        }
    }
    ~DefaultStackSizeScope()
    {
        pthread_attr_t attributes;
        if (pthread_getattr_default_np(&attributes) == 0)
        {
            pthread_attr_setstacksize(&attributes, m_oldSize);
            pthread_setattr_default_np(&attributes);
            pthread_attr_destroy(&attributes);
        }
    }

    bool ok() const { return m_ok; }

private:
    bool m_ok = false;
    size_t m_oldSize = 0;
};

bool isDestroyed(Record& record)
{
    return record.destroyed;
}

/// Waits on \p thread's event, without a limit, on a thread of the test's own; should that wait
/// not return within the bound, a signal releases it.
/// \return true when the wait returned by itself within the bound.
bool waitFromAnotherThreadReturns(const ThreadHandle& thread)
{
    std::atomic<bool> returned{false};
    std::thread waiter(
        [&]
        {
            thread->wait(ZnThread::kInfinite);
            returned = true;
        });
    const bool ok = waitUntil([&] { return returned.load(); });
    if (!ok)
    {
        thread->signal();
    }
    waiter.join();
    return ok;
}

// ---- Constants and texts

TEST(ZnThreadTest, StateTextsNameEveryStateAndUnknownValues)
{
    EXPECT_STREQ("DETACHED", ZnThread::sGetStateText(ZnThread::STATE_DETACHED));
    EXPECT_STREQ("INITIALIZING", ZnThread::sGetStateText(ZnThread::STATE_INITIALIZING));
    EXPECT_STREQ("RUNNING", ZnThread::sGetStateText(ZnThread::STATE_RUNNING));
    EXPECT_STREQ("BLOCKED", ZnThread::sGetStateText(ZnThread::STATE_BLOCKED));
    EXPECT_STREQ("EXITING", ZnThread::sGetStateText(ZnThread::STATE_EXITING));
    EXPECT_STREQ("UNKNOWN STATE", ZnThread::sGetStateText(5));
    EXPECT_STREQ("UNKNOWN STATE", ZnThread::sGetStateText(-1));
    EXPECT_STREQ("UNKNOWN STATE", ZnThread::sGetStateText(1000));
}

TEST(ZnThreadTest, StateValuesAreFixed)
{
    EXPECT_EQ(0, ZnThread::STATE_DETACHED);
    EXPECT_EQ(1, ZnThread::STATE_INITIALIZING);
    EXPECT_EQ(2, ZnThread::STATE_RUNNING);
    EXPECT_EQ(3, ZnThread::STATE_BLOCKED);
    EXPECT_EQ(4, ZnThread::STATE_EXITING);
    EXPECT_EQ(0xFFFFFFFFu, ZnThread::kInfinite);
}

TEST(ZnThreadTest, DebugTokenIsZnThread)
{
    EXPECT_EQ(std::string("ZnThread"), ZnThread::sDebugToken);
}

// ---- Construction and counting

TEST(ZnThreadTest, NewThreadIsDetachedWithTokenZero)
{
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record);
    EXPECT_EQ(ZnThread::STATE_DETACHED, thread->getState());
    EXPECT_EQ(0u, thread->getToken());
}

TEST(ZnThreadTest, FirstThreadObjectComesAfterTheProcess)
{
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record);
    // The constructor made the process object, once, on its account.
    EXPECT_EQ(1, Tavoris::MemAccount::sRead("ZnProcess").liveBlocks);
    ASSERT_NE(nullptr, ZnProcess::sGetCurrent());
    EXPECT_NE(static_cast<ZnThread*>(ZnProcess::sGetCurrent()), static_cast<ZnThread*>(thread));
}

TEST(ZnThreadTest, ConstructorIsTracedAndAssertsNothingBeforeShutdown)
{
    ZnProcess::sGetCurrent();
    ZnTest::LogCapture all("", Tavoris::TRACE_LOG_LEVEL);
    ZnTest::LogCapture cap(kThreadLogger, Tavoris::TRACE_LOG_LEVEL);
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record);
    EXPECT_FALSE(ZnThread::sShuttingDown());
    EXPECT_EQ(
        (std::vector<std::string>{"ENTER: ZnThread::ZnThread()", "EXIT: ZnThread::ZnThread()"}),
        messages(cap.events()));
    for (const ZnTest::CapturedEvent& event : cap.events())
    {
        EXPECT_EQ(kThreadLogger, event.logger);
        EXPECT_EQ(Tavoris::TRACE_LOG_LEVEL, event.level);
    }
    // "!fs_bShutDown" holds: no report anywhere.
    EXPECT_TRUE(all.find("Assertion failed").empty());
    EXPECT_TRUE(all.find("!fs_bShutDown").empty());
}

TEST(ZnThreadTest, ThreadNumCountsObjectsThatWereNeverForked)
{
    ZnProcess::sGetCurrent();
    const int before = ZnThread::getThreadNum();
    EXPECT_GE(before, 1); // the process counts
    auto record = std::make_shared<Record>();
    ThreadHandle first = makeThread(record);
    EXPECT_EQ(before + 1, ZnThread::getThreadNum());
    ThreadHandle second = makeThread(record);
    ThreadHandle third = makeThread(record);
    EXPECT_EQ(before + 3, ZnThread::getThreadNum());
    second = nullptr;
    EXPECT_EQ(before + 2, ZnThread::getThreadNum());
    first = nullptr;
    third = nullptr;
    EXPECT_EQ(before, ZnThread::getThreadNum());
    EXPECT_EQ(0, record->read([](Record& r) { return r.runEntries; }));
}

// ---- The current thread and the table

TEST(ZnThreadTest, CurrentThreadIsNullOnTheMainThreadOnceTheTableExists)
{
    ZnProcess::sGetCurrent(); // makes the table
    EXPECT_EQ(nullptr, ZnThread::sGetCurrent());
    ZnThread* onForeignThread = reinterpret_cast<ZnThread*>(1);
    std::thread foreign([&] { onForeignThread = ZnThread::sGetCurrent(); });
    foreign.join();
    EXPECT_EQ(nullptr, onForeignThread);
}

TEST(ZnThreadTest, ForkedThreadRunsAndFindsItselfAsCurrent)
{
    const unsigned int tableBefore = ZnThread::sGetThreadTableSize();
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record, [](ScriptedThread& self) { self.record().pass(1); });
    thread->fork();
    // fork() returns with the new thread's id in place.
    const unsigned int token = thread->getToken();
    EXPECT_NE(0u, token);
    EXPECT_NE(ZnPlatform::sGetCurrentThreadId(), token);
    ASSERT_TRUE(record->await([](Record& r) { return r.waitingAtGate == 1; }));
    EXPECT_EQ(ZnThread::STATE_RUNNING, thread->getState());
    record->read(
        [&](Record& r)
        {
            EXPECT_EQ(ZnThread::STATE_RUNNING, r.stateAtRunEntry);
            EXPECT_EQ(static_cast<ZnThread*>(thread), r.currentInRun);
            EXPECT_EQ(token, r.tokenInRun);
            EXPECT_EQ(token, r.platformIdInRun);
            return 0;
        });
    // In the table under its token while main() runs; the main thread is not.
    EXPECT_EQ(tableBefore + 1, ZnThread::sGetThreadTableSize());
    EXPECT_EQ(static_cast<ZnThread*>(thread), ScriptedThread::sGetByToken(token));
    EXPECT_EQ(nullptr, ScriptedThread::sGetByToken(ZnPlatform::sGetCurrentThreadId()));
    EXPECT_EQ(nullptr, ScriptedThread::sGetByToken(0));
    EXPECT_FALSE(ZnThread::sIsShutdownCompleted());
    record->open(1);
    ASSERT_TRUE(waitUntilEnded(thread));
    ASSERT_TRUE(waitUntil([&] { return ZnThread::sGetThreadTableSize() == tableBefore; }));
    EXPECT_EQ(nullptr, ScriptedThread::sGetByToken(token));
    EXPECT_EQ(1, record->read([](Record& r) { return r.runExits; }));
    EXPECT_FALSE(record->read([](Record& r) { return r.gateTimedOut; }));
}

TEST(ZnThreadTest, TableKeepsAForkedThreadAliveAfterItsCreatorLetGo)
{
    ZnProcess::sGetCurrent();
    const int countBefore = ZnThread::getThreadNum();
    const unsigned int tableBefore = ZnThread::sGetThreadTableSize();
    ZnTest::LogCapture cap(kThreadLogger, Tavoris::DEBUG_LOG_LEVEL);
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record, [](ScriptedThread& self) { self.record().pass(1); });
    thread->fork();
    ASSERT_TRUE(record->await([](Record& r) { return r.waitingAtGate == 1; }));
    ZnThread* const raw = thread;
    thread = nullptr;
    // Only the running thread holds it now.
    EXPECT_FALSE(record->read(isDestroyed));
    EXPECT_EQ(countBefore + 1, ZnThread::getThreadNum());
    EXPECT_EQ(tableBefore + 1, ZnThread::sGetThreadTableSize());
    EXPECT_GE(raw->getRefCount(), 1u);
    EXPECT_EQ(ZnThread::STATE_RUNNING, raw->getState());
    record->open(1);
    ASSERT_TRUE(record->await(isDestroyed));
    record->read(
        [](Record& r)
        {
            // It went only once main() was done with it: run() over, state detached.
            EXPECT_EQ(1, r.runExits);
            EXPECT_EQ(ZnThread::STATE_DETACHED, r.stateAtDestruction);
            return 0;
        });
    EXPECT_EQ(1u, cap.findExactly("3").size());
    // The base destructor counts down after the derived one has reported.
    EXPECT_TRUE(waitUntil([&] { return ZnThread::getThreadNum() == countBefore; }));
    EXPECT_TRUE(waitUntil([&] { return ZnThread::sGetThreadTableSize() == tableBefore; }));
}

TEST(ZnThreadTest, DisplayThreadsPrintsTheTable)
{
    ZnProcess::sGetCurrent(); // makes the table
    StringOutputStream out;
    ZnThread::sDisplayThreads(out);
    EXPECT_EQ("ZnTokenTable\n", out.text);
    EXPECT_GE(out.flushes, 1);
    EXPECT_FALSE(out.writtenSinceFlush);
}

TEST(ZnThreadTest, StaticQueriesBeforeShutdownAreTraced)
{
    ZnProcess::sGetCurrent();
    ZnTest::LogCapture cap(kThreadLogger, Tavoris::TRACE_LOG_LEVEL);
    EXPECT_FALSE(ZnThread::sShuttingDown());
    EXPECT_FALSE(ZnThread::sIsShuttingdown());
    ASSERT_EQ(0u, ZnThread::sGetThreadTableSize());
    EXPECT_TRUE(ZnThread::sIsShutdownCompleted());
    EXPECT_EQ((std::vector<std::string>{
                  "ENTER: ZnThread:::sIsShuttingdown", "EXIT: ZnThread:::sIsShuttingdown",
                  "ENTER: ZnThread::sIsShutdownCompleted", "EXIT: ZnThread::sIsShutdownCompleted"}),
              messages(cap.events()));
}

// ---- fork

TEST(ZnThreadTest, ForkOfARunningThreadRaises)
{
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record, [](ScriptedThread& self) { self.record().pass(1); });
    thread->fork();
    ASSERT_TRUE(record->await([](Record& r) { return r.waitingAtGate == 1; }));
    std::string type;
    EXPECT_EQ("ZnThread::fork() on already running thread",
              thrownText([&] { thread->fork(); }, &type));
    EXPECT_EQ("ZnAssertionFailure", type);
    EXPECT_EQ(ZnThread::STATE_RUNNING, thread->getState());
    record->open(1);
    ASSERT_TRUE(waitUntilEnded(thread));
    EXPECT_EQ(1, record->read([](Record& r) { return r.runEntries; }));
}

TEST(ZnThreadTest, TerminateBeforeForkMakesForkRaise)
{
    ZnTest::LogCapture cap(kThreadLogger, Tavoris::DEBUG_LOG_LEVEL);
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record);
    thread->terminate();
    EXPECT_EQ(ZnThread::STATE_EXITING, thread->getState());
    // Nothing runs the object yet: no signal.
    EXPECT_EQ(0, record->signals.load());
    std::string type;
    EXPECT_EQ("ZnThread::fork() on already running thread",
              thrownText([&] { thread->fork(); }, &type));
    EXPECT_EQ("ZnAssertionFailure", type);
    EXPECT_EQ(ZnThread::STATE_EXITING, thread->getState());
    EXPECT_EQ(0u, thread->getToken());
    EXPECT_EQ(0, record->read([](Record& r) { return r.runEntries; }));
}

TEST(ZnThreadTest, TerminateBetweenForkAndMainSkipsRun)
{
    ZnProcess::sGetCurrent();
    const unsigned int tableBefore = ZnThread::sGetThreadTableSize();
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record);
    {
        LineGateScope gateScope("ENTER: ZnThread::main");
        thread->fork();
        ASSERT_TRUE(gateScope.gate().awaitHeld());
        // The new thread stands at the start of main().
        EXPECT_EQ(ZnThread::STATE_INITIALIZING, thread->getState());
        EXPECT_EQ(tableBefore, ZnThread::sGetThreadTableSize());
        gateScope.silenceLogger();
        thread->terminate();
        EXPECT_EQ(ZnThread::STATE_EXITING, thread->getState());
        // Still initializing when told: no signal.
        EXPECT_EQ(0, record->signals.load());
        gateScope.gate().open();
        ASSERT_TRUE(waitUntilEnded(thread));
        ASSERT_TRUE(waitUntil([&] { return ZnThread::sGetThreadTableSize() == tableBefore; }));
        // The start reference goes after main(); then the test's handle is the only one.
        ASSERT_TRUE(waitUntil([&] { return thread->getRefCount() == 1; }));
        EXPECT_FALSE(gateScope.gate().timedOut());
    }
    EXPECT_EQ(0, record->read([](Record& r) { return r.runEntries; }));
    thread = nullptr;
    EXPECT_TRUE(record->read(isDestroyed));
}

TEST(ZnThreadTest, ForkFailureRaisesCreateThreadAndStaysInitializing)
{
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record);
    std::string type;
    std::string text;
    {
        // No stack of that size can be mapped: the system refuses the thread.
        DefaultStackSizeScope hugeStacks(size_t(1) << 50);
        ASSERT_TRUE(hugeStacks.ok());
        text = thrownText([&] { thread->fork(); }, &type);
    }
    EXPECT_EQ("CreateThread", text);
    EXPECT_EQ("ZnSystemError", type);
    EXPECT_EQ(ZnThread::STATE_INITIALIZING, thread->getState());
    EXPECT_EQ(1u, thread->getRefCount());
    EXPECT_EQ(0, record->read([](Record& r) { return r.runEntries; }));
    // Not detached: it cannot be forked again.
    EXPECT_EQ("ZnThread::fork() on already running thread", thrownText([&] { thread->fork(); }));
    // The error number is the system's.
    try
    {
        DefaultStackSizeScope hugeStacks(size_t(1) << 50);
        ThreadHandle second = makeThread(record);
        second->fork();
        ADD_FAILURE() << "the thread was created";
    }
    catch (ZnHandle<ZnException>& e)
    {
        ZnSystemError* error = dynamic_cast<ZnSystemError*>(static_cast<ZnException*>(e));
        ASSERT_NE(nullptr, error);
        EXPECT_NE(0, error->getErrNo());
    }
}

TEST(ZnThreadTest, ForkAfterMainEndedIsAllowed)
{
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record);
    thread->fork();
    ASSERT_TRUE(record->await([](Record& r) { return r.runExits == 1; }));
    ASSERT_TRUE(waitUntilEnded(thread));
    // main() has let go of the object: only the test's handle is left.
    ASSERT_TRUE(waitUntil([&] { return thread->getRefCount() == 1; }));
    EXPECT_NO_THROW(thread->fork());
    ASSERT_TRUE(record->await([](Record& r) { return r.runExits == 2; }));
    ASSERT_TRUE(waitUntilEnded(thread));
    EXPECT_EQ(2, record->read([](Record& r) { return r.runEntries; }));
    EXPECT_EQ(ZnThread::STATE_RUNNING, record->read([](Record& r) { return r.stateAtRunEntry; }));
    // A new platform thread ran it the second time.
    EXPECT_NE(0u, thread->getToken());
    EXPECT_EQ(thread->getToken(), record->read([](Record& r) { return r.tokenInRun; }));
}

TEST(ZnThreadTest, ForkAsSoonAsDetachedKeepsTheTableRight)
{
    ZnProcess::sGetCurrent();
    const unsigned int tableBefore = ZnThread::sGetThreadTableSize();
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record);
    {
        // The first run is held just after main() stored STATE_DETACHED.
        LineGateScope gateScope("3");
        thread->fork();
        const unsigned int firstToken = thread->getToken();
        ASSERT_TRUE(gateScope.gate().awaitHeld());
        ASSERT_EQ(ZnThread::STATE_DETACHED, thread->getState());
        gateScope.silenceLogger();
        // Detached: a client may fork it again at once.
        thread->fork();
        const unsigned int secondToken = thread->getToken();
        EXPECT_NE(firstToken, secondToken);
        ASSERT_TRUE(record->await([](Record& r) { return r.runExits == 2; }));
        gateScope.gate().open();
        // Both runs leave the table, each under the token it entered with.
        EXPECT_TRUE(waitUntil([&] { return ZnThread::sGetThreadTableSize() == tableBefore; }));
        EXPECT_TRUE(waitUntil([&] { return thread->getRefCount() == 1; }));
        EXPECT_EQ(nullptr, ScriptedThread::sGetByToken(firstToken));
        EXPECT_EQ(nullptr, ScriptedThread::sGetByToken(secondToken));
        EXPECT_FALSE(gateScope.gate().timedOut());
    }
    EXPECT_EQ(ZnThread::STATE_DETACHED, thread->getState());
}

// ---- main

TEST(ZnThreadTest, MainLogsItsStepsAndScopesInOrder)
{
    ZnTest::LogCapture cap(kThreadLogger, Tavoris::TRACE_LOG_LEVEL);
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record);
    cap.clear();
    thread->fork();
    thread = nullptr;
    ASSERT_TRUE(record->await(isDestroyed));
    ASSERT_TRUE(waitUntil([&] { return !cap.findExactly("EXIT: ZnThread::main").empty(); }));
    EXPECT_EQ((std::vector<std::string>{"ENTER: ZnThread::main", "ENTER: ZnThread::initialize",
                                        "EXIT: ZnThread::initialize", "ENTER: Invoking run",
                                        "EXIT: Invoking run", "1", "3",
                                        "ENTER: this != ZnProcess::sm_pTheOneAndOnly",
                                        "EXIT: this != ZnProcess::sm_pTheOneAndOnly",
                                        "ZnThread Exiting main", "EXIT: ZnThread::main"}),
              messages(cap.events()));
    for (const ZnTest::CapturedEvent& event : cap.events())
    {
        EXPECT_EQ(kThreadLogger, event.logger);
    }
    ASSERT_EQ(1u, cap.findExactly("1").size());
    EXPECT_EQ(Tavoris::DEBUG_LOG_LEVEL, cap.findExactly("1")[0].level);
    EXPECT_EQ(Tavoris::DEBUG_LOG_LEVEL, cap.findExactly("3")[0].level);
    EXPECT_EQ(Tavoris::DEBUG_LOG_LEVEL, cap.findExactly("ZnThread Exiting main")[0].level);
    EXPECT_EQ(Tavoris::TRACE_LOG_LEVEL, cap.findExactly("ENTER: Invoking run")[0].level);
}

TEST(ZnThreadTest, MainReturnsZeroWhenRunReturns)
{
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record);
    const unsigned int tableBefore = ZnThread::sGetThreadTableSize();
    // The main thread may enter main() itself, as it does on the process.
    EXPECT_EQ(0, thread->main());
    EXPECT_EQ(ZnThread::STATE_DETACHED, thread->getState());
    EXPECT_EQ(tableBefore, ZnThread::sGetThreadTableSize());
    record->read(
        [](Record& r)
        {
            EXPECT_EQ(1, r.runEntries);
            EXPECT_EQ(1, r.runExits);
            EXPECT_EQ(ZnThread::STATE_RUNNING, r.stateAtRunEntry);
            return 0;
        });
}

TEST(ZnThreadTest, MainOfAnExitingThreadSkipsRunAndReturnsZero)
{
    ZnTest::LogCapture cap(kThreadLogger, Tavoris::TRACE_LOG_LEVEL);
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record);
    thread->terminate();
    ASSERT_EQ(ZnThread::STATE_EXITING, thread->getState());
    cap.clear();
    EXPECT_EQ(0, thread->main());
    EXPECT_EQ(ZnThread::STATE_DETACHED, thread->getState());
    EXPECT_EQ(0, record->read([](Record& r) { return r.runEntries; }));
    EXPECT_TRUE(cap.find("Invoking run").empty());
    EXPECT_EQ(1u, cap.findExactly("ZnThread Exiting main").size());
    // Detached again: it can be forked now, and runs.
    thread->fork();
    ASSERT_TRUE(record->await([](Record& r) { return r.runExits == 1; }));
    ASSERT_TRUE(waitUntilEnded(thread));
}

TEST(ZnThreadTest, RunRaisingGivesMinusOneAndReportsOnTheDebugStream)
{
    ZnHandle<ZnTest::RecordingOutputStream> destination(new ZnTest::RecordingOutputStream);
    ZnErrorStream* errors = new ZnErrorStream(destination);
    errors->setDebugMode(ZnException::sDebugToken);
    DefaultErrorStreamScope scope(errors);

    auto record = std::make_shared<Record>();
    ThreadHandle thread =
        makeThread(record, [](ScriptedThread&) { ZnException::sThrow("run gave up"); });
    const unsigned int tableBefore = ZnThread::sGetThreadTableSize();
    EXPECT_EQ(-1, thread->main());
    EXPECT_EQ(ZnThread::STATE_DETACHED, thread->getState());
    EXPECT_EQ(tableBefore, ZnThread::sGetThreadTableSize());
    EXPECT_EQ("catch exception in ZnThread::block(): run gave up\n", destination->text());
    EXPECT_GE(destination->flushes(), 1);
}

TEST(ZnThreadTest, ForkedRunRaisingLeavesTheTableNormally)
{
    ZnHandle<ZnTest::RecordingOutputStream> destination(new ZnTest::RecordingOutputStream);
    ZnErrorStream* errors = new ZnErrorStream(destination);
    errors->setDebugMode(ZnException::sDebugToken);
    DefaultErrorStreamScope scope(errors);

    ZnProcess::sGetCurrent();
    const unsigned int tableBefore = ZnThread::sGetThreadTableSize();
    const int countBefore = ZnThread::getThreadNum();
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record,
                                     [](ScriptedThread& self)
                                     {
                                         self.record().pass(1);
                                         ZnException::sThrow("lost the line");
                                     });
    thread->fork();
    ASSERT_TRUE(record->await([](Record& r) { return r.waitingAtGate == 1; }));
    EXPECT_EQ(tableBefore + 1, ZnThread::sGetThreadTableSize());
    thread = nullptr;
    record->open(1);
    ASSERT_TRUE(record->await(isDestroyed));
    EXPECT_EQ(ZnThread::STATE_DETACHED,
              record->read([](Record& r) { return r.stateAtDestruction; }));
    EXPECT_EQ(0, record->read([](Record& r) { return r.runExits; }));
    EXPECT_TRUE(waitUntil([&] { return ZnThread::sGetThreadTableSize() == tableBefore; }));
    // The base destructor counts down after the derived one has reported.
    EXPECT_TRUE(waitUntil([&] { return ZnThread::getThreadNum() == countBefore; }));
    EXPECT_EQ("catch exception in ZnThread::block(): lost the line\n", destination->text());
    EXPECT_GE(destination->flushes(), 1);
}

TEST(ZnThreadTest, RunRaisingWithTheDebugModeOffWritesNothing)
{
    ZnHandle<ZnTest::RecordingOutputStream> destination(new ZnTest::RecordingOutputStream);
    DefaultErrorStreamScope scope(new ZnErrorStream(destination));
    auto record = std::make_shared<Record>();
    ThreadHandle thread =
        makeThread(record, [](ScriptedThread&) { ZnException::sThrow("not heard"); });
    EXPECT_EQ(-1, thread->main());
    EXPECT_EQ("", destination->text());
}

// ---- wait and signal

TEST(ZnThreadTest, WaitBlocksUntilSignalledAndRunsOn)
{
    auto record = std::make_shared<Record>();
    ThreadHandle thread =
        makeThread(record, [](ScriptedThread& self) { self.timedWait(ZnThread::kInfinite); });
    thread->fork();
    ASSERT_TRUE(waitUntil([&] { return thread->getState() == ZnThread::STATE_BLOCKED; }));
    EXPECT_EQ(0u, record->read([](Record& r) { return r.statesAfterWait.size(); }));
    thread->signal();
    ASSERT_TRUE(record->await([](Record& r) { return r.statesAfterWait.size() == 1; }));
    EXPECT_EQ(ZnThread::STATE_RUNNING,
              record->read([](Record& r) { return r.statesAfterWait[0]; }));
    ASSERT_TRUE(waitUntilEnded(thread));
}

TEST(ZnThreadTest, WaitTimesOutAndRunsOn)
{
    ZnTest::LogCapture cap(kThreadLogger, Tavoris::TRACE_LOG_LEVEL);
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record, [](ScriptedThread& self) { self.timedWait(120); });
    thread->fork();
    ASSERT_TRUE(record->await([](Record& r) { return r.runExits == 1; }));
    record->read(
        [](Record& r)
        {
            EXPECT_GE(r.waitMilliseconds.at(0), 110);
            EXPECT_EQ(ZnThread::STATE_RUNNING, r.statesAfterWait.at(0));
            return 0;
        });
    ASSERT_TRUE(waitUntilEnded(thread));
    const auto figures = cap.findExactly("aMilliSeconds=120");
    ASSERT_EQ(1u, figures.size());
    EXPECT_EQ(Tavoris::DEBUG_LOG_LEVEL, figures[0].level);
    EXPECT_EQ(kThreadLogger, figures[0].logger);
    EXPECT_EQ(1u, cap.findExactly("ENTER: ZnThread::wait").size());
    EXPECT_EQ(1u, cap.findExactly("EXIT: ZnThread::wait").size());
}

TEST(ZnThreadTest, SignalBeforeWaitMakesAnInfiniteWaitReturnAtOnce)
{
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record,
                                     [](ScriptedThread& self)
                                     {
                                         self.record().pass(1);
                                         self.timedWait(ZnThread::kInfinite);
                                     });
    thread->fork();
    ASSERT_TRUE(record->await([](Record& r) { return r.waitingAtGate == 1; }));
    thread->signal();
    record->open(1);
    const bool returned = record->await([](Record& r) { return r.waitMilliseconds.size() == 1; });
    if (!returned)
    {
        thread->terminate(); // lets the thread go before the test fails
    }
    ASSERT_TRUE(returned);
    EXPECT_EQ(ZnThread::STATE_RUNNING,
              record->read([](Record& r) { return r.statesAfterWait[0]; }));
    ASSERT_TRUE(waitUntilEnded(thread));
}

TEST(ZnThreadTest, SeveralSignalsCountAsOne)
{
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record,
                                     [](ScriptedThread& self)
                                     {
                                         self.record().pass(1);
                                         self.timedWait(ZnThread::kInfinite);
                                         self.timedWait(300);
                                     });
    thread->fork();
    ASSERT_TRUE(record->await([](Record& r) { return r.waitingAtGate == 1; }));
    thread->signal();
    thread->signal();
    thread->signal();
    record->open(1);
    const bool returned = record->await([](Record& r) { return r.waitMilliseconds.size() == 2; });
    if (!returned)
    {
        thread->terminate();
    }
    ASSERT_TRUE(returned);
    // The second wait found no signal left and ran out of time.
    EXPECT_GE(record->read([](Record& r) { return r.waitMilliseconds[1]; }), 290);
    EXPECT_EQ(3, record->signals.load());
    ASSERT_TRUE(waitUntilEnded(thread));
}

TEST(ZnThreadTest, SignalMakesTheEventWhenNoneExists)
{
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record);
    // Never forked, so no event yet: signal() makes it, and the signal stays in it.
    thread->signal();
    EXPECT_TRUE(waitFromAnotherThreadReturns(thread));
}

TEST(ZnThreadTest, SignalsFromManyThreadsAtOnceMakeOneEventAndCountAsOne)
{
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record);
    // No event yet: every signaller may try to make it.
    ZnTest::runTogether(8, [&](int) { thread->signal(); });
    EXPECT_EQ(8, record->signals.load());
    std::atomic<int> returned{0};
    std::thread waiter(
        [&]
        {
            thread->wait(ZnThread::kInfinite);
            ++returned;
            const Clock::time_point start = Clock::now();
            thread->wait(100);
            if (millisecondsSince(start) >= 95)
            {
                ++returned; // the second wait found nothing left
            }
        });
    const bool ok = waitUntil([&] { return returned.load() >= 1; });
    if (!ok)
    {
        thread->signal();
    }
    waiter.join();
    EXPECT_TRUE(ok);
    EXPECT_EQ(2, returned.load());
}

// ---- terminate

TEST(ZnThreadTest, TerminateBeforeShutdownWarnsAndStillWorks)
{
    ZnTest::LogCapture cap(kThreadLogger, Tavoris::DEBUG_LOG_LEVEL);
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record);
    cap.clear();
    thread->terminate();
    EXPECT_EQ(ZnThread::STATE_EXITING, thread->getState());
    const auto events = cap.events();
    ASSERT_EQ(2u, events.size());
    EXPECT_EQ("m_State=0", events[0].message);
    EXPECT_EQ(Tavoris::DEBUG_LOG_LEVEL, events[0].level);
    EXPECT_EQ(kEarlyExitWarning, events[1].message);
    EXPECT_EQ(Tavoris::WARN_LOG_LEVEL, events[1].level);
    EXPECT_EQ(kThreadLogger, events[1].logger);
}

TEST(ZnThreadTest, SetStateToExitingWarnsBeforeShutdownOtherStatesDoNot)
{
    ZnTest::LogCapture cap(kThreadLogger, Tavoris::DEBUG_LOG_LEVEL);
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record);
    cap.clear();
    thread->setState(ZnThread::STATE_BLOCKED);
    EXPECT_EQ(ZnThread::STATE_BLOCKED, thread->getState());
    thread->setState(ZnThread::STATE_RUNNING);
    EXPECT_TRUE(cap.events().empty());
    thread->setState(ZnThread::STATE_EXITING);
    EXPECT_EQ(ZnThread::STATE_EXITING, thread->getState());
    ASSERT_EQ(1u, cap.events().size());
    EXPECT_EQ(kEarlyExitWarning, cap.events()[0].message);
    EXPECT_EQ(Tavoris::WARN_LOG_LEVEL, cap.events()[0].level);
    thread->setState(ZnThread::STATE_DETACHED);
    EXPECT_EQ(ZnThread::STATE_DETACHED, thread->getState());
}

TEST(ZnThreadTest, TerminateWhileRunningStoresTheExitAndSignals)
{
    ZnTest::LogCapture cap(kThreadLogger, Tavoris::DEBUG_LOG_LEVEL);
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record,
                                     [](ScriptedThread& self)
                                     {
                                         self.record().pass(1);
                                         while (self.getState() != ZnThread::STATE_EXITING)
                                         {
                                             self.timedWait(ZnThread::kInfinite);
                                         }
                                     });
    thread->fork();
    ASSERT_TRUE(record->await([](Record& r) { return r.waitingAtGate == 1; }));
    ASSERT_EQ(ZnThread::STATE_RUNNING, thread->getState());
    cap.clear();
    thread->terminate();
    EXPECT_EQ(ZnThread::STATE_EXITING, thread->getState());
    EXPECT_EQ(1, record->signals.load());
    EXPECT_EQ(1u, cap.findExactly("m_State=2").size());
    EXPECT_EQ(1u, cap.findExactly(kEarlyExitWarning).size());
    record->open(1);
    ASSERT_TRUE(waitUntilEnded(thread));
    EXPECT_EQ(1, record->read([](Record& r) { return r.runExits; }));
}

TEST(ZnThreadTest, TerminateWhileBlockedWakesTheWaiterWhichStaysExiting)
{
    ZnTest::LogCapture cap(kThreadLogger, Tavoris::DEBUG_LOG_LEVEL);
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record,
                                     [](ScriptedThread& self)
                                     {
                                         self.timedWait(ZnThread::kInfinite);
                                         self.record().pass(1);
                                     });
    thread->fork();
    ASSERT_TRUE(waitUntil([&] { return thread->getState() == ZnThread::STATE_BLOCKED; }));
    thread->terminate();
    EXPECT_EQ(1, record->signals.load());
    EXPECT_EQ(1u, cap.findExactly("m_State=3").size());
    ASSERT_TRUE(record->await([](Record& r) { return r.waitingAtGate == 1; }));
    // The woken wait did not overwrite the exit.
    EXPECT_EQ(ZnThread::STATE_EXITING,
              record->read([](Record& r) { return r.statesAfterWait[0]; }));
    EXPECT_EQ(ZnThread::STATE_EXITING, thread->getState());
    record->open(1);
    ASSERT_TRUE(waitUntilEnded(thread));
}

TEST(ZnThreadTest, WaitOnAnExitingThreadReturnsAtOnce)
{
    ZnTest::LogCapture cap(kThreadLogger, Tavoris::DEBUG_LOG_LEVEL);
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record);
    thread->terminate();
    cap.clear();
    EXPECT_TRUE(waitFromAnotherThreadReturns(thread));
    EXPECT_EQ(ZnThread::STATE_EXITING, thread->getState());
    EXPECT_EQ(1u, cap.findExactly("aMilliSeconds=4294967295").size());
}

TEST(ZnThreadTest, WaitOnAnExitingThreadLeavesTheSignalForLater)
{
    auto record = std::make_shared<Record>();
    ThreadHandle thread =
        makeThread(record,
                   [](ScriptedThread& self)
                   {
                       if (self.record().read([](Record& r) { return r.runEntries; }) == 1)
                       {
                           // First run: told to exit at the gate, then waits
                           // twice on an exiting thread.
                           self.record().pass(1);
                           self.timedWait(ZnThread::kInfinite);
                           self.timedWait(ZnThread::kInfinite);
                       }
                       else
                       {
                           // Second run: the signal of terminate() is still
                           // there, and only once.
                           self.timedWait(3000);
                           self.timedWait(150);
                       }
                   });
    thread->fork();
    ASSERT_TRUE(record->await([](Record& r) { return r.waitingAtGate == 1; }));
    thread->terminate(); // stores the exit and signals
    ASSERT_EQ(1, record->signals.load());
    record->open(1);
    ASSERT_TRUE(record->await([](Record& r) { return r.runExits == 1; }));
    ASSERT_TRUE(waitUntilEnded(thread));
    ASSERT_TRUE(waitUntil([&] { return thread->getRefCount() == 1; }));
    record->read(
        [](Record& r)
        {
            EXPECT_EQ(ZnThread::STATE_EXITING, r.statesAfterWait.at(0));
            EXPECT_EQ(ZnThread::STATE_EXITING, r.statesAfterWait.at(1));
            return 0;
        });

    thread->fork();
    ASSERT_TRUE(record->await([](Record& r) { return r.runExits == 2; }));
    record->read(
        [](Record& r)
        {
            EXPECT_EQ(ZnThread::STATE_RUNNING, r.stateAtRunEntry);
            // The kept signal ends the first wait of the second run long before its time.
            EXPECT_LT(r.waitMilliseconds.at(2), 1500);
            EXPECT_GE(r.waitMilliseconds.at(3), 140);
            EXPECT_EQ(ZnThread::STATE_RUNNING, r.statesAfterWait.at(2));
            return 0;
        });
    ASSERT_TRUE(waitUntilEnded(thread));
}

// ---- block and display

TEST(ZnThreadTest, BlockIsNotImplemented)
{
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record);
    std::string type;
    EXPECT_EQ("Not yet implemented", thrownText([&] { thread->block(); }, &type));
    EXPECT_EQ("ZnException", type);
    EXPECT_EQ(ZnThread::STATE_DETACHED, thread->getState());
}

TEST(ZnThreadTest, DisplayShowsObjectTokenAndStateOfADetachedThread)
{
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record);
    StringOutputStream object;
    static_cast<const ZnObject&>(*thread).display(object, true);
    EXPECT_EQ(0u, object.text.find("1 \t("));
    StringOutputStream out;
    thread->display(out);
    EXPECT_EQ(object.text + "\t00000000\tDETACHED\n", out.text);
    EXPECT_EQ(1, out.flushes);
    EXPECT_FALSE(out.writtenSinceFlush);
}

TEST(ZnThreadTest, DisplayShowsTheTokenOfARunningThread)
{
    auto record = std::make_shared<Record>();
    ThreadHandle thread = makeThread(record, [](ScriptedThread& self) { self.record().pass(1); });
    thread->fork();
    ASSERT_TRUE(record->await([](Record& r) { return r.waitingAtGate == 1; }));
    StringOutputStream object;
    static_cast<const ZnObject&>(*thread).display(object, true);
    StringOutputStream out;
    thread->display(out);
    EXPECT_EQ(object.text + "\t" + hex8(thread->getToken()) + "\tRUNNING\n", out.text);
    EXPECT_EQ(1, out.flushes);
    record->open(1);
    ASSERT_TRUE(waitUntilEnded(thread));
    StringOutputStream after;
    thread->display(after);
    EXPECT_NE(std::string::npos, after.text.find("\t" + hex8(thread->getToken()) + "\tDETACHED\n"));
}

TEST(ZnThreadTest, DisplayShowsBlockedAndExitingStates)
{
    auto record = std::make_shared<Record>();
    ThreadHandle thread =
        makeThread(record, [](ScriptedThread& self) { self.timedWait(ZnThread::kInfinite); });
    thread->fork();
    ASSERT_TRUE(waitUntil([&] { return thread->getState() == ZnThread::STATE_BLOCKED; }));
    StringOutputStream blocked;
    thread->display(blocked);
    const std::string tail = "\t" + hex8(thread->getToken()) + "\tBLOCKED\n";
    ASSERT_GE(blocked.text.size(), tail.size());
    EXPECT_EQ(tail, blocked.text.substr(blocked.text.size() - tail.size()));
    thread->terminate();
    ASSERT_TRUE(waitUntilEnded(thread));

    ThreadHandle exiting = makeThread(record);
    exiting->terminate();
    StringOutputStream out;
    exiting->display(out);
    const std::string exitingTail = "\t00000000\tEXITING\n";
    ASSERT_GE(out.text.size(), exitingTail.size());
    EXPECT_EQ(exitingTail, out.text.substr(out.text.size() - exitingTail.size()));
}

} // namespace
