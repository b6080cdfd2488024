// The process object: made once, on the thread that asks first, outside the thread table.
#include "ZnUtil/ZnProcess.h"

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnPlatform.h"
#include "ZnUtil/ZnThread.h"

#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace
{

using Tavoris::MemAccount;

/// A thread object that is never forked.
class IdleThread : public ZnThread
{
public:
    void run() override {}
};

// First in this file: it needs a program in which no thread object was made yet.
TEST(ZnProcessTest, CurrentThreadBeforeAnyTableIsTheProcess)
{
    ASSERT_EQ(0, MemAccount::sRead("ZnProcess").liveBlocks) << "a process object exists already";
    ZnThread* current = ZnThread::sGetCurrent();
    ASSERT_NE(nullptr, current);
    EXPECT_EQ(static_cast<ZnThread*>(ZnProcess::sGetCurrent()), current);
    EXPECT_EQ(1, MemAccount::sRead("ZnProcess").liveBlocks);
    // The table exists now, and the process is not in it.
    EXPECT_EQ(nullptr, ZnThread::sGetCurrent());
}

TEST(ZnProcessTest, CurrentIsMadeOnceAndKept)
{
    ZnProcess* first = ZnProcess::sGetCurrent();
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(first, ZnProcess::sGetCurrent());
    EXPECT_EQ(first, ZnProcess::sGetCurrent());
    // sGetCurrent() takes no reference.
    EXPECT_EQ(0u, first->getRefCount());
}

TEST(ZnProcessTest, CurrentIsTheSameObjectOnEveryThread)
{
    ZnProcess* mine = ZnProcess::sGetCurrent();
    std::vector<ZnProcess*> seen(4, nullptr);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < seen.size(); ++i)
    {
        threads.emplace_back([&seen, i] { seen[i] = ZnProcess::sGetCurrent(); });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    for (ZnProcess* process : seen)
    {
        EXPECT_EQ(mine, process);
    }
}

TEST(ZnProcessTest, SecondProcessObjectRaises)
{
    ZnProcess* process = ZnProcess::sGetCurrent();
    const int threadsBefore = ZnThread::getThreadNum();
    const MemAccount::Reading before = MemAccount::sRead("ZnProcess");
    std::string text = "(nothing thrown)";
    std::string type;
    try
    {
        ZnHandle<ZnProcess> second(new ZnProcess());
    }
    catch (ZnHandle<ZnException>& e)
    {
        text = e->getExceptionMessage();
        type = e->getClassName();
    }
    EXPECT_EQ("There can only be one ZnProcess object", text);
    EXPECT_EQ("ZnAssertionFailure", type);
    // The one process stays, and the refused one is given back whole.
    EXPECT_EQ(process, ZnProcess::sGetCurrent());
    EXPECT_EQ(threadsBefore, ZnThread::getThreadNum());
    const MemAccount::Reading after = MemAccount::sRead("ZnProcess");
    EXPECT_EQ(before.liveBlocks, after.liveBlocks);
    EXPECT_EQ(before.liveBytes, after.liveBytes);
    EXPECT_EQ(before.totalBlocks + 1, after.totalBlocks);
}

TEST(ZnProcessTest, TokenIsTheIdOfTheCreatingThread)
{
    // The gtest body runs on the main thread, which asks first in this program.
    ZnProcess* process = ZnProcess::sGetCurrent();
    EXPECT_EQ(ZnPlatform::sGetCurrentThreadId(), process->getToken());
    EXPECT_NE(0u, process->getToken());
}

TEST(ZnProcessTest, ProcessBelongsToTheThreadThatAsksFirst)
{
    // Run in a program started afresh, where no process object exists yet.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            uint32_t creator = 0;
            ZnProcess* made = nullptr;
            std::thread first(
                [&]
                {
                    creator = ZnPlatform::sGetCurrentThreadId();
                    made = ZnProcess::sGetCurrent();
                });
            first.join();
            const bool ok = made != nullptr && made->getToken() == creator &&
                            creator != ZnPlatform::sGetCurrentThreadId() &&
                            ZnProcess::sGetCurrent() == made;
            std::exit(ok ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(ZnProcessTest, StateIsInitializing)
{
    EXPECT_EQ(ZnThread::STATE_INITIALIZING, ZnProcess::sGetCurrent()->getState());
}

TEST(ZnProcessTest, ProcessIsNotInTheThreadTable)
{
    ZnProcess* process = ZnProcess::sGetCurrent();
    EXPECT_EQ(0u, ZnThread::sGetThreadTableSize());
    EXPECT_TRUE(ZnThread::sIsShutdownCompleted());
    // So the thread that made it finds no thread object of its own.
    EXPECT_EQ(nullptr, ZnThread::sGetCurrent());
    EXPECT_EQ(ZnPlatform::sGetCurrentThreadId(), process->getToken());
}

TEST(ZnProcessTest, ProcessIsOnItsMemoryAccount)
{
    EXPECT_STREQ("ZnProcess", ZnProcess::getMemAccountName());
    ZnProcess* process = ZnProcess::sGetCurrent();
    const MemAccount::Reading reading = MemAccount::sRead("ZnProcess");
    EXPECT_EQ("ZnProcess", reading.name);
    EXPECT_EQ(1, reading.liveBlocks);
    EXPECT_GE(reading.liveBytes, static_cast<int64_t>(sizeof(ZnProcess)));
    EXPECT_EQ(process, ZnProcess::sGetCurrent());
    EXPECT_EQ(1, MemAccount::sRead("ZnProcess").liveBlocks);
}

TEST(ZnProcessTest, ThreadNumIncludesTheProcess)
{
    ZnProcess::sGetCurrent();
    // No other thread object is alive here.
    EXPECT_EQ(1, ZnThread::getThreadNum());
    {
        ZnHandle<IdleThread> thread(new IdleThread);
        EXPECT_EQ(2, ZnThread::getThreadNum());
    }
    EXPECT_EQ(1, ZnThread::getThreadNum());
}

TEST(ZnProcessTest, FirstThreadObjectMakesTheProcess)
{
    ZnHandle<IdleThread> thread(new IdleThread);
    // However the program began, the process is there once a thread object is.
    EXPECT_EQ(1, MemAccount::sRead("ZnProcess").liveBlocks);
    ZnProcess* process = ZnProcess::sGetCurrent();
    ASSERT_NE(nullptr, process);
    EXPECT_NE(static_cast<ZnThread*>(process), static_cast<ZnThread*>(thread));
    EXPECT_EQ(ZnThread::STATE_DETACHED, thread->getState());
}

} // namespace
