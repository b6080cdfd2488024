#include "ZnUtil/ZnErrorStream.h"

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInputStream.h"
#include "ZnUtil/ZnOutputSink.h"
#include "ZnUtil/ZnOutputStream.h"
#include "ZnUtil/ZnString.h"

#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

#include <atomic>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/DefaultErrorStream.h"
#include "support/RecordingOutputStream.h"

namespace
{

using RecordingStream = ZnTest::RecordingOutputStream;
using ZnTest::DefaultErrorStreamScope;

/// Sends std::cerr into a string for the life of the object, counting flushes.
class CerrCapture
{
public:
    CerrCapture() : m_old(std::cerr.rdbuf(&m_buffer)) {}
    ~CerrCapture() { std::cerr.rdbuf(m_old); }

    std::string text() const { return m_buffer.str(); }
    int syncs() const { return m_buffer.syncs; }

private:
    struct CountingBuffer : std::stringbuf
    {
        int sync() override
        {
            ++syncs;
            return std::stringbuf::sync();
        }
        int syncs = 0;
    };

    CountingBuffer m_buffer;
    std::streambuf* m_old;
};

/// Gives three bytes, then fails.
class FailingAfterThree : public ZnInputStream
{
public:
    using ZnInputStream::read;

    int read() override
    {
        if (m_count < 3)
        {
            return 'a' + m_count++;
        }
        ZnException::sThrow("disk gone");
    }

private:
    int m_count = 0;
};

ZnOutputStream* sink()
{
    return &ZnOutputSink::sGetInstance();
}

TEST(ZnErrorStreamTest, DebugLevelIsThreeAtConstruction)
{
    ZnHandle<ZnErrorStream> es(new ZnErrorStream);
    EXPECT_EQ(es->getDebugLevel(), 3u);
    es->setDebugLevel(7);
    EXPECT_EQ(es->getDebugLevel(), 7u);
}

TEST(ZnErrorStreamTest, LevelBelowTheDebugLevelPasses)
{
    ZnHandle<ZnErrorStream> es(new ZnErrorStream);
    EXPECT_TRUE(es->checkDebugLevel(2));
    EXPECT_FALSE(es->checkDebugLevel(3));
    EXPECT_EQ(&es->getDebugStream(2), static_cast<ZnOutputStream*>(es));
    EXPECT_EQ(&es->getDebugStream(0), static_cast<ZnOutputStream*>(es));
    EXPECT_EQ(&es->getDebugStream(3), sink());
    EXPECT_EQ(&es->getDebugStream(4), sink());
}

TEST(ZnErrorStreamTest, DebugLevelZeroSendsEverythingToTheSink)
{
    ZnHandle<ZnErrorStream> es(new ZnErrorStream);
    es->setDebugMode("ZnThread");
    es->setDebugLevel(0);
    EXPECT_FALSE(es->checkDebugLevel(0));
    EXPECT_FALSE(es->checkDebugMode("ZnThread", 0));
    EXPECT_EQ(&es->getDebugStream(0), sink());
    EXPECT_EQ(&es->getDebugStream("ZnThread", 0), sink());
}

TEST(ZnErrorStreamTest, KeyedStreamIsTheSinkUntilTheModeIsSet)
{
    ZnHandle<ZnErrorStream> es(new ZnErrorStream);
    EXPECT_FALSE(es->checkDebugMode(ZnException::sDebugToken, 0));
    EXPECT_EQ(&es->getDebugStream(ZnException::sDebugToken, 0), sink());
    es->setDebugMode(ZnException::sDebugToken);
    EXPECT_TRUE(es->checkDebugMode(ZnException::sDebugToken, 0));
    EXPECT_EQ(&es->getDebugStream(ZnException::sDebugToken, 0), static_cast<ZnOutputStream*>(es));
    // The key alone is not enough: the level must pass too.
    EXPECT_FALSE(es->checkDebugMode(ZnException::sDebugToken, 3));
    EXPECT_EQ(&es->getDebugStream(ZnException::sDebugToken, 3), sink());
    // Other keys stay off; keys are compared exactly.
    EXPECT_EQ(&es->getDebugStream("ZnSocket", 0), sink());
    EXPECT_EQ(&es->getDebugStream("znexception", 0), sink());
    es->clearDebugMode(ZnException::sDebugToken);
    EXPECT_EQ(&es->getDebugStream(ZnException::sDebugToken, 0), sink());
}

TEST(ZnErrorStreamTest, ClearingAnUnknownModeDoesNothing)
{
    ZnHandle<ZnErrorStream> es(new ZnErrorStream);
    es->setDebugMode("ZnThread");
    es->clearDebugMode("ZnSocket");
    EXPECT_TRUE(es->checkDebugMode("ZnThread", 0));
}

TEST(ZnErrorStreamTest, EmptyModeKeyRaises)
{
    ZnHandle<ZnErrorStream> es(new ZnErrorStream);
    try
    {
        es->setDebugMode("");
        FAIL() << "an empty key was accepted";
    }
    catch (ZnHandle<ZnException>& e)
    {
        EXPECT_STREQ(e->getExceptionMessage(), "NULL key value (ZnStringBuffer*)");
    }
}

TEST(ZnErrorStreamTest, StreamWithADestinationGivesOutTheDestinationItself)
{
    ZnHandle<RecordingStream> destination(new RecordingStream);
    ZnHandle<ZnErrorStream> es(new ZnErrorStream(destination));
    EXPECT_EQ(&es->getDebugStream(0), static_cast<ZnOutputStream*>(destination));
    es->setDebugMode("ZnSocket");
    EXPECT_EQ(&es->getDebugStream("ZnSocket", 2), static_cast<ZnOutputStream*>(destination));
    EXPECT_EQ(&es->getDebugStream(3), sink());
}

TEST(ZnErrorStreamTest, StreamHoldsAReferenceOnItsDestination)
{
    ZnHandle<RecordingStream> destination(new RecordingStream);
    {
        ZnHandle<ZnErrorStream> es(new ZnErrorStream(destination));
        EXPECT_EQ(destination->getRefCount(), 2u);
    }
    EXPECT_EQ(destination->getRefCount(), 1u);
}

TEST(ZnErrorStreamTest, WriteOfATextPassesItsTerminatorOn)
{
    ZnHandle<RecordingStream> destination(new RecordingStream);
    ZnHandle<ZnErrorStream> es(new ZnErrorStream(destination));
    es->write("ab");
    ASSERT_EQ(destination->blocks().size(), 1u);
    EXPECT_EQ(destination->blocks()[0].length, 3u);
    EXPECT_EQ(destination->blocks()[0].offset, 0u);
    EXPECT_EQ(destination->text(), std::string("ab\0", 3));
}

TEST(ZnErrorStreamTest, TextOperatorWritesNoTerminator)
{
    ZnHandle<RecordingStream> destination(new RecordingStream);
    ZnHandle<ZnErrorStream> es(new ZnErrorStream(destination));
    *es << "ab";
    EXPECT_EQ(destination->text(), "ab");
}

TEST(ZnErrorStreamTest, NullTextWritesNothing)
{
    ZnHandle<RecordingStream> destination(new RecordingStream);
    ZnHandle<ZnErrorStream> es(new ZnErrorStream(destination));
    es->write(static_cast<const char*>(nullptr));
    EXPECT_TRUE(destination->blocks().empty());
}

TEST(ZnErrorStreamTest, OutputOperationsForwardToTheDestination)
{
    ZnHandle<RecordingStream> destination(new RecordingStream);
    ZnHandle<ZnErrorStream> es(new ZnErrorStream(destination));
    es->write('x');
    EXPECT_EQ(destination->byteWrites(), 1);
    es->write("--hello--", 5, 2);
    ASSERT_EQ(destination->blocks().size(), 1u);
    EXPECT_EQ(destination->blocks()[0].length, 5u);
    EXPECT_EQ(destination->blocks()[0].offset, 2u);
    es->flush();
    EXPECT_EQ(destination->flushes(), 1);
    EXPECT_EQ(destination->text(), "xhello");
}

TEST(ZnErrorStreamTest, WithoutADestinationWritesGoToStandardError)
{
    CerrCapture capture;
    ZnHandle<ZnErrorStream> es(new ZnErrorStream);
    es->write('x');
    es->write("--hello--", 5, 2);
    es->write("ab");
    *es << "cd";
    EXPECT_EQ(capture.text(), std::string("xhelloab\0cd", 11));
    const int before = capture.syncs();
    es->flush();
    EXPECT_GT(capture.syncs(), before);
}

TEST(ZnErrorStreamTest, DebugStreamWithoutADestinationReachesStandardError)
{
    CerrCapture capture;
    ZnHandle<ZnErrorStream> es(new ZnErrorStream);
    es->setDebugMode(ZnException::sDebugToken);
    es->getDebugStream(ZnException::sDebugToken, 1) << "seen" << endl;
    es->getDebugStream(ZnException::sDebugToken, 3) << "dropped" << endl;
    EXPECT_EQ(capture.text(), "seen\n");
}

TEST(ZnErrorStreamTest, SynchronizeKeepsMessagesTogether)
{
    ZnHandle<RecordingStream> destination(new RecordingStream);
    ZnHandle<ZnErrorStream> es(new ZnErrorStream(destination));
    const int kMessages = 20000;
    std::atomic<int> ready(0);
    auto writer = [&](char id)
    {
        ready.fetch_add(1);
        while (ready.load() < 2)
        {
        }
        for (int i = 0; i < kMessages; ++i)
        {
            es->synchronize();
            es->write('<');
            es->write(id);
            es->write('>');
            es->release();
        }
    };
    std::thread a(writer, 'A');
    std::thread b(writer, 'B');
    a.join();
    b.join();
    const std::string& text = destination->text();
    ASSERT_EQ(text.size(), static_cast<size_t>(2 * kMessages * 3));
    for (size_t i = 0; i < text.size(); i += 3)
    {
        ASSERT_EQ(text[i], '<') << "at " << i;
        ASSERT_TRUE(text[i + 1] == 'A' || text[i + 1] == 'B') << "at " << i;
        ASSERT_EQ(text[i + 2], '>') << "at " << i;
    }
}

TEST(ZnErrorStreamTest, SynchronizeNests)
{
    ZnHandle<ZnErrorStream> es(new ZnErrorStream);
    es->synchronize();
    es->synchronize();
    es->release();
    es->release();
    // Fully released: another thread gets the lock.
    bool taken = false;
    std::thread other(
        [&]
        {
            es->synchronize();
            taken = true;
            es->release();
        });
    other.join();
    EXPECT_TRUE(taken);
}

TEST(ZnErrorStreamTest, AllocatesOnItsMemoryAccount)
{
    EXPECT_STREQ(ZnErrorStream::getMemAccountName(), "ZnErrorStream");
    const Tavoris::MemAccount::Reading before = Tavoris::MemAccount::sRead("ZnErrorStream");
    ZnErrorStream* es = new ZnErrorStream;
    const Tavoris::MemAccount::Reading during = Tavoris::MemAccount::sRead("ZnErrorStream");
    EXPECT_EQ(during.liveBlocks, before.liveBlocks + 1);
    EXPECT_EQ(during.liveBytes, before.liveBytes + static_cast<int64_t>(sizeof(ZnErrorStream)));
    delete es;
    const Tavoris::MemAccount::Reading after = Tavoris::MemAccount::sRead("ZnErrorStream");
    EXPECT_EQ(after.liveBlocks, before.liveBlocks);
    EXPECT_EQ(after.liveBytes, before.liveBytes);

    ZnErrorStream* several = new ZnErrorStream[3];
    EXPECT_EQ(Tavoris::MemAccount::sRead("ZnErrorStream").liveBlocks, before.liveBlocks + 1);
    delete[] several;
    EXPECT_EQ(Tavoris::MemAccount::sRead("ZnErrorStream").liveBlocks, before.liveBlocks);
}

TEST(ZnErrorStreamTest, DefaultIsMadeOnceWithoutADestination)
{
    ZnErrorStream& first = ZnErrorStream::sGetDefault();
    EXPECT_EQ(&ZnErrorStream::sGetDefault(), &first);
    EXPECT_EQ(&first.getDebugStream(0), static_cast<ZnOutputStream*>(&first));
}

TEST(ZnErrorStreamTest, SetDefaultGivesBackThePrevious)
{
    ZnErrorStream& first = ZnErrorStream::sGetDefault();
    ZnErrorStream* mine = new ZnErrorStream;
    EXPECT_EQ(ZnErrorStream::sSetDefault(mine), &first);
    EXPECT_EQ(&ZnErrorStream::sGetDefault(), mine);
    EXPECT_EQ(ZnErrorStream::sSetDefault(&first), mine);
    EXPECT_EQ(&ZnErrorStream::sGetDefault(), &first);
    delete mine;
}

TEST(ZnErrorStreamTest, DroppedReadFailureIsReportedOnTheDefaultStream)
{
    ZnHandle<RecordingStream> destination(new RecordingStream);
    ZnErrorStream* mine = new ZnErrorStream(destination);
    mine->setDebugMode(ZnException::sDebugToken);
    DefaultErrorStreamScope scope(mine);

    ZnHandle<FailingAfterThree> in(new FailingAfterThree);
    unsigned char buffer[10];
    EXPECT_EQ(in->read(buffer, 10, 0), 3u);
    EXPECT_EQ(destination->text(), "catch exception in ZnInputStream::read(): disk gone\n");
    EXPECT_EQ(destination->flushes(), 1);
}

TEST(ZnErrorStreamTest, PropagatedReadFailureIsReportedToo)
{
    ZnHandle<RecordingStream> destination(new RecordingStream);
    ZnErrorStream* mine = new ZnErrorStream(destination);
    mine->setDebugMode(ZnException::sDebugToken);
    DefaultErrorStreamScope scope(mine);

    ZnHandle<FailingAfterThree> in(new FailingAfterThree);
    unsigned char buffer[10];
    EXPECT_EQ(in->read(buffer, 3, 0), 3u);
    EXPECT_THROW(in->read(buffer, 10, 0), ZnHandle<ZnException>);
    EXPECT_EQ(destination->text(), "catch exception in ZnInputStream::read(): disk gone\n");
    EXPECT_EQ(destination->flushes(), 1);
}

TEST(ZnErrorStreamTest, DroppedReadFailureIsSilentWithoutTheMode)
{
    ZnHandle<RecordingStream> destination(new RecordingStream);
    DefaultErrorStreamScope scope(new ZnErrorStream(destination));

    ZnHandle<FailingAfterThree> in(new FailingAfterThree);
    unsigned char buffer[10];
    EXPECT_EQ(in->read(buffer, 10, 0), 3u);
    EXPECT_TRUE(destination->text().empty());
    EXPECT_EQ(destination->flushes(), 0);
}

} // namespace
