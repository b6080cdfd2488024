#include "ZnUtil/ZnBufferedOutputStream.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnFileOutputStream.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnOutputStream.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/CapturingAppender.h"
#include "support/RecordingOutputStream.h"
#include <unistd.h>

namespace
{

using RecordingStream = ZnTest::RecordingOutputStream;

struct Fixture
{
    explicit Fixture(unsigned int size)
        : destination(new RecordingStream), out(new ZnBufferedOutputStream(destination, size))
    {
    }

    ZnHandle<RecordingStream> destination;
    ZnHandle<ZnBufferedOutputStream> out;
};

TEST(ZnBufferedOutputStreamTest, SizeZeroRaisesNoBuffer)
{
    ZnTest::LogCapture capture("corvane.core.Assertion", Tavoris::TRACE_LOG_LEVEL);
    ZnHandle<RecordingStream> destination(new RecordingStream);
    try
    {
        ZnHandle<ZnBufferedOutputStream> out(new ZnBufferedOutputStream(destination, 0));
        FAIL() << "a stream without a buffer was made";
    }
    catch (ZnHandle<ZnException>& e)
    {
        ZnAssertionFailure* failure =
            dynamic_cast<ZnAssertionFailure*>(static_cast<ZnException*>(e));
        ASSERT_NE(failure, nullptr);
        EXPECT_STREQ(failure->getExceptionMessage(), "No buffer in ZnBufferedOutputStream");
        EXPECT_STREQ(failure->getFile(), "ZnBufferedOutputStream");
    }
    EXPECT_EQ(capture.find("Assertion failed: No buffer in ZnBufferedOutputStream").size(), 1u);
    // The failed stream gave its reference on the destination back.
    EXPECT_EQ(destination->getRefCount(), 1u);
}

TEST(ZnBufferedOutputStreamTest, StreamHoldsAReferenceOnItsDestination)
{
    Fixture f(8);
    EXPECT_EQ(f.destination->getRefCount(), 2u);
    f.out = ZnHandle<ZnBufferedOutputStream>();
    EXPECT_EQ(f.destination->getRefCount(), 1u);
}

TEST(ZnBufferedOutputStreamTest, WriteOfAByteIsHeldUntilTheBufferIsFull)
{
    Fixture f(3);
    f.out->write('a');
    f.out->write('b');
    f.out->write('c');
    EXPECT_TRUE(f.destination->blocks().empty());
    f.out->write('d');
    ASSERT_EQ(f.destination->blocks().size(), 1u);
    EXPECT_EQ(f.destination->blocks()[0].length, 3u);
    EXPECT_EQ(f.destination->blocks()[0].offset, 0u);
    EXPECT_EQ(f.destination->text(), "abc");
    f.out->flush();
    EXPECT_EQ(f.destination->text(), "abcd");
    EXPECT_EQ(f.destination->byteWrites(), 0);
}

TEST(ZnBufferedOutputStreamTest, WriteOfAByteWorksWithABufferOfOne)
{
    Fixture f(1);
    f.out->write('x');
    EXPECT_TRUE(f.destination->blocks().empty());
    f.out->write('y');
    f.out->write('z');
    EXPECT_EQ(f.destination->text(), "xy");
    EXPECT_EQ(f.destination->blocks().size(), 2u);
    f.out->flush();
    EXPECT_EQ(f.destination->text(), "xyz");
}

TEST(ZnBufferedOutputStreamTest, BlockThatFitsIsHeld)
{
    Fixture f(8);
    f.out->write("12345678", 8, 0);
    EXPECT_TRUE(f.destination->blocks().empty());
    f.out->flush();
    EXPECT_EQ(f.destination->text(), "12345678");
}

TEST(ZnBufferedOutputStreamTest, BlockBeyondTheFreeSpaceFlushesFirst)
{
    Fixture f(8);
    f.out->write("abcde", 5, 0);
    f.out->write("xx1234", 4, 2);
    ASSERT_EQ(f.destination->blocks().size(), 1u);
    EXPECT_EQ(f.destination->text(), "abcde");
    f.out->flush();
    EXPECT_EQ(f.destination->text(), "abcde1234");
}

TEST(ZnBufferedOutputStreamTest, BlockLargerThanTheBufferGoesDirectlyAfterWhatIsHeld)
{
    Fixture f(8);
    f.out->write("abc", 3, 0);
    const char* large = "0123456789ABCDEFGHIJ";
    f.out->write(large, 15, 2);
    ASSERT_EQ(f.destination->blocks().size(), 2u);
    EXPECT_EQ(f.destination->blocks()[0].length, 3u);
    EXPECT_EQ(f.destination->blocks()[0].offset, 0u);
    // Passed on with the caller's own arguments.
    EXPECT_EQ(f.destination->blocks()[1].length, 15u);
    EXPECT_EQ(f.destination->blocks()[1].offset, 2u);
    EXPECT_EQ(f.destination->text(), "abc23456789ABCDEFG");
    // Nothing of it was kept.
    f.out->flush();
    EXPECT_EQ(f.destination->text(), "abc23456789ABCDEFG");
    EXPECT_EQ(f.destination->blocks().back().length, 0u);
}

TEST(ZnBufferedOutputStreamTest, FlushWritesOneBlockAtOffsetZeroEvenWhenEmpty)
{
    Fixture f(8);
    f.out->flush();
    ASSERT_EQ(f.destination->blocks().size(), 1u);
    EXPECT_EQ(f.destination->blocks()[0].length, 0u);
    EXPECT_EQ(f.destination->blocks()[0].offset, 0u);
    f.out->write("ab", 2, 0);
    f.out->flush();
    ASSERT_EQ(f.destination->blocks().size(), 2u);
    EXPECT_EQ(f.destination->blocks()[1].length, 2u);
    EXPECT_EQ(f.destination->blocks()[1].offset, 0u);
    f.out->flush();
    EXPECT_EQ(f.destination->blocks().back().length, 0u);
    EXPECT_EQ(f.destination->text(), "ab");
}

TEST(ZnBufferedOutputStreamTest, FlushDoesNotFlushTheDestination)
{
    Fixture f(8);
    f.out->write("ab", 2, 0);
    f.out->flush();
    EXPECT_EQ(f.destination->text(), "ab");
    EXPECT_EQ(f.destination->flushes(), 0);
}

TEST(ZnBufferedOutputStreamTest, EndlPushesTheLineOutAtOnce)
{
    Fixture f(512);
    *f.out << "hello" << 42;
    EXPECT_TRUE(f.destination->text().empty());
    *f.out << endl;
    EXPECT_EQ(f.destination->text(), "hello42\n");
}

TEST(ZnBufferedOutputStreamTest, DestructorDropsWhatIsHeld)
{
    Fixture f(16);
    f.out->write("lost", 4, 0);
    f.out = ZnHandle<ZnBufferedOutputStream>();
    EXPECT_TRUE(f.destination->blocks().empty());
    EXPECT_TRUE(f.destination->text().empty());
}

TEST(ZnBufferedOutputStreamTest, NullBlockWritesNothing)
{
    Fixture f(4);
    f.out->write(static_cast<const void*>(nullptr), 100, 0);
    f.out->flush();
    ASSERT_EQ(f.destination->blocks().size(), 1u);
    EXPECT_EQ(f.destination->blocks()[0].length, 0u);
}

TEST(ZnBufferedOutputStreamTest, DestinationFailurePassesThroughAndKeepsTheBytes)
{
    Fixture f(4);
    f.out->write("ab", 2, 0);
    f.destination->failWrites(true);
    EXPECT_THROW(f.out->flush(), ZnHandle<ZnException>);
    f.destination->failWrites(false);
    f.out->flush();
    EXPECT_EQ(f.destination->text(), "ab");
}

TEST(ZnBufferedOutputStreamTest, WritesAPipeInOrder)
{
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::string expected;
    {
        ZnHandle<ZnBufferedOutputStream> out(
            new ZnBufferedOutputStream(new ZnFileOutputStream(fds[1]), 64));
        for (int i = 0; i < 200; ++i)
        {
            const std::string piece(static_cast<size_t>(i % 97), static_cast<char>('a' + i % 26));
            out->write(piece.data(), static_cast<unsigned int>(piece.size()), 0);
            out->write('0' + i % 10);
            expected += piece;
            expected += static_cast<char>('0' + i % 10);
        }
        out->flush();
    }
    close(fds[1]);
    std::string got;
    char buffer[4096];
    ssize_t n;
    while ((n = read(fds[0], buffer, sizeof buffer)) > 0)
    {
        got.append(buffer, static_cast<size_t>(n));
    }
    close(fds[0]);
    EXPECT_EQ(got.size(), expected.size());
    EXPECT_EQ(got, expected);
}

} // namespace
