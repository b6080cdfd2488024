#include "ZnUtil/ZnInputStream.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"

#include "tavoris/LogLevel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/CapturingAppender.h"

namespace
{

const unsigned int kEnd = 0xFFFFFFFFu;

/// An input stream over a string that can fail at a chosen position, and records every call
/// of its byte read and of the block read.
class ScriptedInputStream : public ZnInputStream
{
public:
    enum class Failure
    {
        ZnException,
        Std
    };

    explicit ScriptedInputStream(std::string data) : m_data(std::move(data)) {}

    /// The byte read at \p position fails instead of reading.
    void failAt(size_t position, Failure kind = Failure::ZnException)
    {
        m_failAt = position;
        m_failure = kind;
    }

    int read() override
    {
        ++byteReads;
        if (m_position == m_failAt)
        {
            if (m_failure == Failure::ZnException)
            {
                ZnException::sThrow("device failed");
            }
            throw std::runtime_error("not ours");
        }
        if (m_position == m_data.size())
        {
            return -1;
        }
        return static_cast<unsigned char>(m_data[m_position++]);
    }

    unsigned int read(void* aBuffer, unsigned int aLength, unsigned int aOffset) override
    {
        blockReads.push_back({aLength, aOffset});
        return ZnInputStream::read(aBuffer, aLength, aOffset);
    }
    using ZnInputStream::read;

    struct Block
    {
        unsigned int length;
        unsigned int offset;
    };
    int byteReads = 0;
    std::vector<Block> blockReads;

private:
    std::string m_data;
    size_t m_position = 0;
    size_t m_failAt = std::string::npos;
    Failure m_failure = Failure::ZnException;
};

/// A stream whose block read delivers at most ten bytes a call.
class TrickleInputStream : public ScriptedInputStream
{
public:
    using ScriptedInputStream::ScriptedInputStream;

    unsigned int read(void* aBuffer, unsigned int aLength, unsigned int aOffset) override
    {
        return ScriptedInputStream::read(aBuffer, std::min(aLength, 10u), aOffset);
    }
    using ScriptedInputStream::read;
};

/// A stream that keeps every default but the byte read, which always ends.
class EmptyInputStream : public ZnInputStream
{
public:
    int read() override { return -1; }
    using ZnInputStream::read;
};

std::string repeat(size_t count)
{
    std::string text(count, '\0');
    for (size_t i = 0; i < count; ++i)
    {
        text[i] = static_cast<char>('a' + i % 26);
    }
    return text;
}

std::string bytesOf(const ZnByteArray& array)
{
    return std::string(reinterpret_cast<const char*>(array.getBytes()), array.length());
}

TEST(ZnInputStreamTest, BlockReadStoresBytesAtOffset)
{
    ScriptedInputStream in("abcdef");
    char buffer[8] = {'-', '-', '-', '-', '-', '-', '-', '-'};
    EXPECT_EQ(in.read(buffer, 3, 2), 3u);
    EXPECT_EQ(std::string(buffer, 8), "--abc---");
    EXPECT_EQ(in.byteReads, 3);
}

TEST(ZnInputStreamTest, BlockReadOfZeroReturnsZero)
{
    ScriptedInputStream in("abc");
    char buffer[1] = {'-'};
    EXPECT_EQ(in.read(buffer, 0, 0), 0u);
    EXPECT_EQ(in.byteReads, 0);
    EXPECT_EQ(buffer[0], '-');
}

TEST(ZnInputStreamTest, BlockReadOfZeroAtEndReturnsZero)
{
    ScriptedInputStream in("");
    char buffer[1];
    EXPECT_EQ(in.read(buffer, 0, 0), 0u);
}

TEST(ZnInputStreamTest, BlockReadAtEndReturnsEndOfStream)
{
    ScriptedInputStream in("");
    char buffer[4];
    EXPECT_EQ(in.read(buffer, 4, 0), kEnd);
}

TEST(ZnInputStreamTest, BlockReadShortOfDataReturnsCount)
{
    ScriptedInputStream in("xy");
    char buffer[5] = {};
    EXPECT_EQ(in.read(buffer, 5, 0), 2u);
    EXPECT_EQ(std::string(buffer, 2), "xy");
    EXPECT_EQ(in.read(buffer, 5, 0), kEnd);
}

TEST(ZnInputStreamTest, FailureAfterThreeBytesYieldsThree)
{
    ScriptedInputStream in("abcdef");
    in.failAt(3);
    char buffer[6] = {};
    EXPECT_EQ(in.read(buffer, 6, 0), 3u);
    EXPECT_EQ(std::string(buffer, 3), "abc");
}

TEST(ZnInputStreamTest, FailureBeforeAnyBytePropagates)
{
    ScriptedInputStream in("abcdef");
    in.failAt(0);
    char buffer[6] = {};
    try
    {
        in.read(buffer, 6, 0);
        FAIL() << "nothing thrown";
    }
    catch (ZnHandle<ZnException>& e)
    {
        EXPECT_STREQ(e->getExceptionMessage(), "device failed");
    }
}

TEST(ZnInputStreamTest, OtherFailuresPassThrough)
{
    ScriptedInputStream in("abcdef");
    in.failAt(2, ScriptedInputStream::Failure::Std);
    char buffer[6] = {};
    EXPECT_THROW(in.read(buffer, 6, 0), std::runtime_error);
}

TEST(ZnInputStreamTest, SkipOfZeroReadsNothing)
{
    ScriptedInputStream in("abc");
    EXPECT_EQ(in.skip(0), 0u);
    EXPECT_TRUE(in.blockReads.empty());
    EXPECT_EQ(in.byteReads, 0);
}

TEST(ZnInputStreamTest, SkipReadsInChunksOfSixtyFour)
{
    ScriptedInputStream in(repeat(200));
    EXPECT_EQ(in.skip(150), 150u);
    ASSERT_EQ(in.blockReads.size(), 3u);
    EXPECT_EQ(in.blockReads[0].length, 64u);
    EXPECT_EQ(in.blockReads[1].length, 64u);
    EXPECT_EQ(in.blockReads[2].length, 22u);
    for (const ScriptedInputStream::Block& block : in.blockReads)
    {
        EXPECT_EQ(block.offset, 0u);
    }
    EXPECT_EQ(in.byteReads, 150);
    EXPECT_EQ(in.read(), repeat(200)[150]);
}

TEST(ZnInputStreamTest, SkipStopsAtEndWithCountSkipped)
{
    ScriptedInputStream in(repeat(70));
    EXPECT_EQ(in.skip(100), 70u);
    ASSERT_EQ(in.blockReads.size(), 3u);
    EXPECT_EQ(in.blockReads[0].length, 64u);
    EXPECT_EQ(in.blockReads[1].length, 36u);
    EXPECT_EQ(in.blockReads[2].length, 30u);
}

TEST(ZnInputStreamTest, SkipAtEndIsZero)
{
    ScriptedInputStream in("");
    EXPECT_EQ(in.skip(10), 0u);
    EXPECT_EQ(in.blockReads.size(), 1u);
}

TEST(ZnInputStreamTest, SkipGoesRoundAgainAfterShortRead)
{
    TrickleInputStream in(repeat(40));
    EXPECT_EQ(in.skip(25), 25u);
    ASSERT_EQ(in.blockReads.size(), 3u);
    EXPECT_EQ(in.blockReads[0].length, 10u);
    EXPECT_EQ(in.blockReads[1].length, 10u);
    EXPECT_EQ(in.blockReads[2].length, 5u);
    EXPECT_EQ(in.read(), 'z');
}

TEST(ZnInputStreamTest, AvailableIsZero)
{
    ScriptedInputStream in("abc");
    EXPECT_EQ(in.available(), 0u);
}

TEST(ZnInputStreamTest, MarkIsNotSupported)
{
    EmptyInputStream in;
    EXPECT_FALSE(in.markSupported());
}

TEST(ZnInputStreamTest, MarkDoesNothing)
{
    ScriptedInputStream in("abc");
    EXPECT_EQ(in.read(), 'a');
    in.mark(100);
    EXPECT_EQ(in.read(), 'b');
    EXPECT_EQ(in.byteReads, 2);
}

TEST(ZnInputStreamTest, ResetRaisesAssertionFailure)
{
    ZnTest::LogCapture capture("corvane.core.Assertion", Tavoris::ERROR_LOG_LEVEL);
    ScriptedInputStream in("abc");
    in.mark(10);
    try
    {
        in.reset();
        FAIL() << "nothing thrown";
    }
    catch (ZnHandle<ZnException>& e)
    {
        EXPECT_STREQ(e->getExceptionMessage(), "ZnInputStream::reset()");
        const ZnAssertionFailure* failure = dynamic_cast<const ZnAssertionFailure*>(&*e);
        ASSERT_NE(failure, nullptr);
        EXPECT_STREQ(failure->getFile(), "ZnInputStream");
    }
    EXPECT_EQ(capture.find("ZnInputStream::reset()").size(), 1u);
}

TEST(ZnInputStreamTest, ArrayReadWithZeroLengthFillsTail)
{
    ScriptedInputStream in("ABCDEFGHIJKL");
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate("0123456789");
    EXPECT_EQ(in.read(array, 2, 0), 8u);
    ASSERT_EQ(in.blockReads.size(), 1u);
    EXPECT_EQ(in.blockReads[0].length, 8u);
    EXPECT_EQ(in.blockReads[0].offset, 2u);
    EXPECT_EQ(bytesOf(*array), "01ABCDEFGH");
}

TEST(ZnInputStreamTest, ArrayReadTakesOffsetThenLength)
{
    ScriptedInputStream in("ABCDEFGHIJKL");
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate("0123456789");
    EXPECT_EQ(in.read(array, 1, 3), 3u);
    ASSERT_EQ(in.blockReads.size(), 1u);
    EXPECT_EQ(in.blockReads[0].length, 3u);
    EXPECT_EQ(in.blockReads[0].offset, 1u);
    EXPECT_EQ(bytesOf(*array), "0ABC456789");
}

TEST(ZnInputStreamTest, ArrayReadWithExcessiveLengthFillsTail)
{
    ScriptedInputStream in("ABCDEFGHIJKL");
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate("0123456789");
    EXPECT_EQ(in.read(array, 7, 4), 3u);
    ASSERT_EQ(in.blockReads.size(), 1u);
    EXPECT_EQ(in.blockReads[0].length, 3u);
    EXPECT_EQ(bytesOf(*array), "0123456ABC");
}

TEST(ZnInputStreamTest, ArrayReadReturnsBlockReadResult)
{
    ScriptedInputStream in("AB");
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate("0123456789");
    EXPECT_EQ(in.read(array, 0, 0), 2u);
    EXPECT_EQ(in.read(array, 0, 0), kEnd);
    EXPECT_EQ(bytesOf(*array), "AB23456789");
    EXPECT_EQ(array->getRefCount(), 1u);
}

TEST(ZnInputStreamTest, ArrayReadWithOffsetPastEndReadsNothing)
{
    ScriptedInputStream in("ABC");
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate("0123");
    EXPECT_EQ(in.read(array, 9, 0), 0u);
    EXPECT_EQ(in.byteReads, 0);
    EXPECT_EQ(bytesOf(*array), "0123");
}

} // namespace
