#include "ZnUtil/ZnBufferedInputStream.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnByteArrayInputStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnFileInputStream.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInputStream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

namespace
{

const unsigned int kEndOfStream = 0xFFFFFFFFu;

/// Byte \p i of the test data: no period of 256, so that a byte taken from the wrong place shows.
unsigned char dataByte(size_t i)
{
    return static_cast<unsigned char>((i * 131u) ^ (i >> 8));
}

std::vector<unsigned char> makeData(size_t length)
{
    std::vector<unsigned char> data(length);
    for (size_t i = 0; i < length; ++i)
    {
        data[i] = dataByte(i);
    }
    return data;
}

/// The array whose payload starts at \p bytes. A ZnByteArray keeps its bytes right behind its
/// header in one allocation, so the array is one header-width in front of them; this lets a test
/// read the capacity of a stream's buffer and hold the buffer as a second owner would.
ZnByteArray* arrayOf(unsigned char* bytes)
{
    return reinterpret_cast<ZnByteArray*>(bytes) - 1;
}

unsigned int capacityOf(const ZnBufferedInputStream& in)
{
    unsigned char* bytes = in.getBuffer();
    return bytes == nullptr ? 0 : arrayOf(bytes)->length();
}

/// A source over fixed bytes that gives at most a set number of bytes per block read, and
/// records every block read and skip it is asked for.
class PieceSource : public ZnInputStream
{
public:
    /// One block read as the source saw it.
    struct Request
    {
        unsigned int length;
        unsigned int offset;
        /// The reference count of the array being filled, when the buffer was an array's start.
        unsigned long arrayCount;
    };

    PieceSource(std::vector<unsigned char> data, unsigned int piece)
        : m_data(std::move(data)), m_piece(piece)
    {
    }

    using ZnInputStream::read;

    unsigned int read(void* aBuffer, unsigned int aLength, unsigned int aOffset) override
    {
        unsigned char* start = static_cast<unsigned char*>(aBuffer);
        m_requests.push_back(
            Request{aLength, aOffset, m_probeArray ? arrayOf(start)->getRefCount() : 0});
        if (m_failNext)
        {
            m_failNext = false;
            ZnException::sThrow("source failed");
        }
        if (m_emptyReads > 0)
        {
            --m_emptyReads;
            return 0;
        }
        if (m_position == m_data.size())
        {
            return kEndOfStream;
        }
        const size_t n = std::min<size_t>({aLength, m_piece, m_data.size() - m_position});
        memcpy(start + aOffset, m_data.data() + m_position, n);
        m_position += n;
        return static_cast<unsigned int>(n);
    }

    int read() override
    {
        ++m_byteReads;
        if (m_position == m_data.size())
        {
            return -1;
        }
        return m_data[m_position++];
    }

    unsigned int skip(unsigned int aCount) override
    {
        m_skips.push_back(aCount);
        const size_t n = std::min<size_t>(aCount, m_data.size() - m_position);
        m_position += n;
        return static_cast<unsigned int>(n);
    }

    const std::vector<Request>& requests() const { return m_requests; }
    const std::vector<unsigned int>& skips() const { return m_skips; }
    int byteReads() const { return m_byteReads; }
    size_t position() const { return m_position; }

    /// The next block read raises a ZnException "source failed".
    void failNext() { m_failNext = true; }
    /// The next \p n block reads give 0 bytes, as a non-blocking source with nothing to give.
    void giveNothing(int n) { m_emptyReads = n; }
    /// Block reads also record the reference count of the array behind their buffer.
    void probeArray() { m_probeArray = true; }

private:
    std::vector<unsigned char> m_data;
    size_t m_position = 0;
    unsigned int m_piece;
    std::vector<Request> m_requests;
    std::vector<unsigned int> m_skips;
    int m_byteReads = 0;
    bool m_failNext = false;
    int m_emptyReads = 0;
    bool m_probeArray = false;
};

/// A stream and its source, both held counted.
struct Fixture
{
    Fixture(size_t dataLength, unsigned int piece, unsigned int bufferSize)
        : source(new PieceSource(makeData(dataLength), piece)),
          in(new ZnBufferedInputStream(source, bufferSize))
    {
    }

    ZnHandle<PieceSource> source;
    ZnHandle<ZnBufferedInputStream> in;
};

const unsigned int kUnlimited = 0xFFFFFFFFu;

/// Reads \p length bytes with block reads and checks them against the data from \p from.
void expectBytes(ZnBufferedInputStream& in, size_t from, size_t length)
{
    std::vector<unsigned char> got(length);
    size_t done = 0;
    while (done < length)
    {
        const unsigned int n = in.read(got.data(), static_cast<unsigned int>(length - done),
                                       static_cast<unsigned>(done));
        ASSERT_NE(n, kEndOfStream) << "end of stream after " << done << " bytes";
        done += n;
    }
    for (size_t i = 0; i < length; ++i)
    {
        ASSERT_EQ(got[i], dataByte(from + i)) << "byte " << from + i;
    }
}

std::string exceptionText(ZnHandle<ZnException>& e)
{
    const char* text = e->getExceptionMessage();
    return text != nullptr ? text : "";
}

TEST(ZnBufferedInputStreamTest, SizeZeroMakesNoBufferUntilTheFirstFill)
{
    Fixture f(100, kUnlimited, 0);
    EXPECT_EQ(f.in->getBuffer(), nullptr);
    EXPECT_EQ(f.in->available(), 0u);
    EXPECT_TRUE(f.source->requests().empty());
}

TEST(ZnBufferedInputStreamTest, SizeMakesTheBufferAtConstruction)
{
    Fixture f(100, kUnlimited, 300);
    ASSERT_NE(f.in->getBuffer(), nullptr);
    EXPECT_EQ(capacityOf(*f.in), 300u);
    EXPECT_EQ(f.in->available(), 0u);
    EXPECT_TRUE(f.source->requests().empty());
}

TEST(ZnBufferedInputStreamTest, GetInputStreamGivesTheSource)
{
    Fixture f(10, kUnlimited, 0);
    ZnHandle<ZnInputStream> source = f.in->getInputStream();
    EXPECT_EQ(static_cast<ZnInputStream*>(source), static_cast<ZnInputStream*>(f.source));
}

TEST(ZnBufferedInputStreamTest, StreamHoldsAReferenceOnItsSource)
{
    ZnHandle<PieceSource> source(new PieceSource(makeData(10), kUnlimited));
    EXPECT_EQ(source->getRefCount(), 1u);
    {
        ZnHandle<ZnBufferedInputStream> in(new ZnBufferedInputStream(source, 0));
        EXPECT_EQ(source->getRefCount(), 2u);
    }
    EXPECT_EQ(source->getRefCount(), 1u);
}

TEST(ZnBufferedInputStreamTest, MarkIsSupported)
{
    Fixture f(10, kUnlimited, 0);
    EXPECT_TRUE(f.in->markSupported());
}

TEST(ZnBufferedInputStreamTest, FirstFillOfANewStreamAllocates8192)
{
    Fixture f(100000, kUnlimited, 0);
    EXPECT_EQ(f.in->readIntoBuffer(0), 8192u);
    EXPECT_EQ(capacityOf(*f.in), 8192u);
    EXPECT_EQ(f.in->available(), 8192u);
    ASSERT_EQ(f.source->requests().size(), 1u);
    EXPECT_EQ(f.source->requests()[0].length, 8192u);
    EXPECT_EQ(f.source->requests()[0].offset, 0u);
}

TEST(ZnBufferedInputStreamTest, Fill8192ThenNextFillFindsNoRoomAndGrowsBy8192)
{
    Fixture f(100000, kUnlimited, 0);
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    ASSERT_EQ(capacityOf(*f.in), 8192u);
    // The step of a 8192-byte buffer is 512; the read size of 8192 is the greater.
    EXPECT_EQ(f.in->readIntoBuffer(0), 8192u);
    EXPECT_EQ(capacityOf(*f.in), 16384u);
    EXPECT_EQ(f.in->available(), 16384u);
    ASSERT_EQ(f.source->requests().size(), 2u);
    EXPECT_EQ(f.source->requests()[1].length, 8192u);
    EXPECT_EQ(f.source->requests()[1].offset, 8192u);
    expectBytes(*f.in, 0, 16384);
}

TEST(ZnBufferedInputStreamTest, ReadOf8192UnderAMarkThenNextFillGrowsBy8192)
{
    Fixture f(100000, kUnlimited, 0);
    f.in->mark(100000);
    std::vector<unsigned char> got(8192);
    ASSERT_EQ(f.in->read(got.data(), 8192, 0), 8192u);
    EXPECT_EQ(capacityOf(*f.in), 8192u);
    EXPECT_EQ(got[8191], dataByte(8191));
    // The mark keeps all 8192 bytes, so the next fill finds the buffer full.
    EXPECT_EQ(f.in->read(), dataByte(8192));
    EXPECT_EQ(capacityOf(*f.in), 16384u);
    f.in->reset();
    expectBytes(*f.in, 0, 16384);
}

TEST(ZnBufferedInputStreamTest, GrowthStepIsASixteenthOfTheCapacity)
{
    Fixture f(400000, kUnlimited, 160000);
    unsigned char* first = f.in->getBuffer();
    ASSERT_EQ(f.in->readIntoBuffer(155000), 155000u);
    EXPECT_EQ(f.in->getBuffer(), first);
    // 5000 bytes free: below the read size of 8192, so the buffer grows by 160000 / 16.
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    EXPECT_EQ(capacityOf(*f.in), 170000u);
    expectBytes(*f.in, 0, 155000 + 8192);
}

TEST(ZnBufferedInputStreamTest, GrowthStepIsAtMost49152)
{
    Fixture f(1100000, kUnlimited, 1000000);
    ASSERT_EQ(f.in->readIntoBuffer(1000000), 1000000u);
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    EXPECT_EQ(capacityOf(*f.in), 1000000u + 49152u);
}

TEST(ZnBufferedInputStreamTest, GrowthIsAtLeastTheReadSize)
{
    Fixture f(400000, kUnlimited, 160000);
    ASSERT_EQ(f.in->readIntoBuffer(155000), 155000u);
    // The step would be 10000; the fill asks for 20000.
    ASSERT_EQ(f.in->readIntoBuffer(20000), 20000u);
    EXPECT_EQ(capacityOf(*f.in), 180000u);
    expectBytes(*f.in, 0, 175000);
}

TEST(ZnBufferedInputStreamTest, SmallBufferGrowsByTheReadSize)
{
    Fixture f(100000, kUnlimited, 100);
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    EXPECT_EQ(capacityOf(*f.in), 100u + 8192u);
}

TEST(ZnBufferedInputStreamTest, FillWithRoomKeepsTheBuffer)
{
    Fixture f(100000, kUnlimited, 16384);
    unsigned char* first = f.in->getBuffer();
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    EXPECT_EQ(f.in->getBuffer(), first);
    EXPECT_EQ(capacityOf(*f.in), 16384u);
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    EXPECT_EQ(f.in->getBuffer(), first);
    EXPECT_EQ(f.in->available(), 16384u);
}

TEST(ZnBufferedInputStreamTest, NewFirstAllocationOfAFillAskingForMore)
{
    Fixture f(100000, kUnlimited, 0);
    std::vector<unsigned char> got(20000);
    ASSERT_EQ(f.in->read(got.data(), 20000, 0), 20000u);
    ASSERT_EQ(f.source->requests().size(), 1u);
    EXPECT_EQ(f.source->requests()[0].length, 20000u);
    EXPECT_EQ(capacityOf(*f.in), 20000u);
    EXPECT_EQ(got[19999], dataByte(19999));
}

TEST(ZnBufferedInputStreamTest, GrownBufferKeepsTheBufferedBytes)
{
    Fixture f(100000, 1000, 0);
    f.in->mark(50000);
    for (int i = 0; i < 20; ++i)
    {
        ASSERT_EQ(f.in->readIntoBuffer(0), 1000u);
    }
    EXPECT_GT(capacityOf(*f.in), 8192u);
    expectBytes(*f.in, 0, 20000);
}

TEST(ZnBufferedInputStreamTest, DeadBytesUpTo8192StayInPlace)
{
    Fixture f(100000, kUnlimited, 65536);
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    ASSERT_EQ(f.in->skip(100), 100u);
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    EXPECT_EQ(f.source->requests()[1].offset, 8192u);
    EXPECT_EQ(f.in->getBuffer()[0], dataByte(0));

    // Exactly 8192 dead bytes are still kept.
    ASSERT_EQ(f.in->skip(8092), 8092u);
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    EXPECT_EQ(f.source->requests()[2].offset, 16384u);
    EXPECT_EQ(f.in->getBuffer()[0], dataByte(0));
    EXPECT_EQ(f.in->available(), 24576u - 8192u);
}

TEST(ZnBufferedInputStreamTest, MoreThan8192DeadBytesAreDroppedAtTheNextFill)
{
    Fixture f(100000, kUnlimited, 65536);
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    ASSERT_EQ(f.in->skip(8193), 8193u);
    unsigned char* before = f.in->getBuffer();
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    // The unread 8191 bytes moved to the start, in the same buffer, and the fill followed them.
    EXPECT_EQ(f.in->getBuffer(), before);
    EXPECT_EQ(f.source->requests()[2].offset, 8191u);
    EXPECT_EQ(f.in->getBuffer()[0], dataByte(8193));
    EXPECT_EQ(f.in->available(), 8191u + 8192u);
    expectBytes(*f.in, 8193, 8191 + 8192);
}

TEST(ZnBufferedInputStreamTest, EverythingConsumedIsDroppedAtTheNextFill)
{
    Fixture f(100000, kUnlimited, 65536);
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    ASSERT_EQ(f.in->skip(10), 10u);
    ASSERT_EQ(f.in->skip(8182), 8182u);
    ASSERT_EQ(f.in->available(), 0u);
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    EXPECT_EQ(f.source->requests()[1].offset, 0u);
    EXPECT_EQ(f.in->getBuffer()[0], dataByte(8192));
    EXPECT_EQ(capacityOf(*f.in), 65536u);
}

TEST(ZnBufferedInputStreamTest, ValidMarkKeepsItsBytesAtAFill)
{
    Fixture f(100000, kUnlimited, 65536);
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    ASSERT_EQ(f.in->skip(10), 10u);
    f.in->mark(100000);
    ASSERT_EQ(f.in->skip(8182), 8182u);
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    // Kept from the mark: nothing was moved.
    EXPECT_EQ(f.source->requests()[1].offset, 8192u);
    f.in->reset();
    EXPECT_EQ(f.in->read(), dataByte(10));
}

TEST(ZnBufferedInputStreamTest, MarkBeyondItsLimitAtAFillIsDropped)
{
    Fixture f(100000, kUnlimited, 65536);
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    f.in->mark(5);
    ASSERT_EQ(f.in->skip(8192), 8192u);
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    EXPECT_EQ(f.source->requests()[1].offset, 0u);
    try
    {
        f.in->reset();
        FAIL() << "reset after the mark limit was passed";
    }
    catch (ZnHandle<ZnException>& e)
    {
        EXPECT_EQ(exceptionText(e), "mark limit exceeded");
    }
    EXPECT_EQ(f.in->read(), dataByte(8192));
}

TEST(ZnBufferedInputStreamTest, MarkLimitIsOnlyCheckedByAFill)
{
    Fixture f(100000, kUnlimited, 0);
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    f.in->mark(1);
    ASSERT_EQ(f.in->skip(100), 100u);
    f.in->reset();
    EXPECT_EQ(f.in->read(), dataByte(0));
}

TEST(ZnBufferedInputStreamTest, MarkAndResetAcrossFills)
{
    Fixture f(100000, 1000, 0);
    expectBytes(*f.in, 0, 500);
    f.in->mark(5000);
    expectBytes(*f.in, 500, 3000);
    EXPECT_GE(f.source->requests().size(), 4u);
    f.in->reset();
    expectBytes(*f.in, 500, 3000);
    for (size_t i = 3500; i < 4500; ++i)
    {
        ASSERT_EQ(f.in->read(), dataByte(i));
    }
}

TEST(ZnBufferedInputStreamTest, ResetWithoutMarkRaisesMarkLimitExceeded)
{
    Fixture f(100, kUnlimited, 0);
    try
    {
        f.in->reset();
        FAIL() << "reset without a mark";
    }
    catch (ZnHandle<ZnException>& e)
    {
        EXPECT_EQ(exceptionText(e), "mark limit exceeded");
    }
}

TEST(ZnBufferedInputStreamTest, MarkWithLimitZeroSetsNoMark)
{
    Fixture f(100, kUnlimited, 0);
    f.in->mark(0);
    EXPECT_THROW(f.in->reset(), ZnHandle<ZnException>);
}

TEST(ZnBufferedInputStreamTest, MarkServesOneReset)
{
    Fixture f(100, kUnlimited, 0);
    f.in->mark(50);
    EXPECT_EQ(f.in->read(), dataByte(0));
    EXPECT_EQ(f.in->read(), dataByte(1));
    f.in->reset();
    EXPECT_EQ(f.in->read(), dataByte(0));
    EXPECT_THROW(f.in->reset(), ZnHandle<ZnException>);
    EXPECT_EQ(f.in->read(), dataByte(1));
}

TEST(ZnBufferedInputStreamTest, ReadGivesEveryByteThenMinusOne)
{
    Fixture f(20000, 700, 0);
    for (size_t i = 0; i < 20000; ++i)
    {
        ASSERT_EQ(f.in->read(), dataByte(i)) << "byte " << i;
    }
    EXPECT_EQ(f.in->read(), -1);
    EXPECT_EQ(f.in->read(), -1);
    EXPECT_EQ(f.source->byteReads(), 0);
}

TEST(ZnBufferedInputStreamTest, ReadOfAByteFillsOnlyWhenNothingIsBuffered)
{
    Fixture f(100, 10, 0);
    EXPECT_EQ(f.in->read(), dataByte(0));
    EXPECT_EQ(f.source->requests().size(), 1u);
    EXPECT_EQ(f.in->available(), 9u);
    for (size_t i = 1; i < 10; ++i)
    {
        ASSERT_EQ(f.in->read(), dataByte(i));
    }
    EXPECT_EQ(f.source->requests().size(), 1u);
    EXPECT_EQ(f.in->read(), dataByte(10));
    EXPECT_EQ(f.source->requests().size(), 2u);
}

TEST(ZnBufferedInputStreamTest, BlockReadFromEmptyBufferAtEndIsEndOfStream)
{
    Fixture f(0, kUnlimited, 0);
    unsigned char buffer[16];
    EXPECT_EQ(f.in->read(buffer, 16, 0), kEndOfStream);
    // Also for a length of 0: the fill comes first.
    EXPECT_EQ(f.in->read(buffer, 0, 0), kEndOfStream);
}

TEST(ZnBufferedInputStreamTest, BlockReadCopiesAtTheOffset)
{
    Fixture f(100, kUnlimited, 0);
    unsigned char buffer[16];
    memset(buffer, 0xAA, sizeof buffer);
    ASSERT_EQ(f.in->read(buffer, 4, 5), 4u);
    EXPECT_EQ(buffer[4], 0xAA);
    for (unsigned int i = 0; i < 4; ++i)
    {
        EXPECT_EQ(buffer[5 + i], dataByte(i));
    }
    EXPECT_EQ(buffer[9], 0xAA);
}

TEST(ZnBufferedInputStreamTest, BlockReadWithEnoughBufferedDoesNotAskTheSource)
{
    Fixture f(100000, kUnlimited, 0);
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    unsigned char buffer[1000];
    EXPECT_EQ(f.in->read(buffer, 1000, 0), 1000u);
    EXPECT_EQ(f.source->requests().size(), 1u);
    EXPECT_EQ(f.in->available(), 7192u);
}

TEST(ZnBufferedInputStreamTest, BlockReadWithFewerBufferedFillsTheMissingBytes)
{
    Fixture f(100000, 10, 0);
    ASSERT_EQ(f.in->read(), dataByte(0));
    std::vector<unsigned char> got(9000);
    // 9 buffered, 8991 missing: the fill asks for those, and the buffer of 8192 grows for them.
    ASSERT_EQ(f.in->read(got.data(), 9000, 0), 19u);
    ASSERT_EQ(f.source->requests().size(), 2u);
    EXPECT_EQ(f.source->requests()[1].length, 8991u);
    EXPECT_EQ(f.source->requests()[1].offset, 10u);
    EXPECT_EQ(capacityOf(*f.in), 8192u + 8991u);
    for (size_t i = 0; i < 19; ++i)
    {
        EXPECT_EQ(got[i], dataByte(1 + i));
    }
}

TEST(ZnBufferedInputStreamTest, BlockReadHandsOutBufferedBytesWhenTheSourceEnds)
{
    Fixture f(5, 100, 0);
    ASSERT_EQ(f.in->read(), dataByte(0));
    unsigned char buffer[10];
    EXPECT_EQ(f.in->read(buffer, 10, 0), 4u);
    EXPECT_EQ(buffer[3], dataByte(4));
    EXPECT_EQ(f.in->read(buffer, 10, 0), kEndOfStream);
}

TEST(ZnBufferedInputStreamTest, EmptyFillIsNotEndOfStream)
{
    Fixture f(100, kUnlimited, 0);
    f.source->giveNothing(2);
    const int first = f.in->read();
    EXPECT_GE(first, 0);
    EXPECT_LE(first, 255);
    EXPECT_EQ(f.in->available(), 0u);
    unsigned char buffer[10];
    EXPECT_EQ(f.in->read(buffer, 10, 0), 0u);
    // The source has bytes again: they come next, in order.
    EXPECT_EQ(f.in->read(), dataByte(0));
    expectBytes(*f.in, 1, 99);
    EXPECT_EQ(f.in->read(), -1);
}

TEST(ZnBufferedInputStreamTest, ReadIntoBufferGivesTheSourcesResult)
{
    Fixture f(3, kUnlimited, 0);
    f.source->giveNothing(1);
    EXPECT_EQ(f.in->readIntoBuffer(0), 0u);
    EXPECT_EQ(f.in->available(), 0u);
    EXPECT_EQ(f.in->readIntoBuffer(0), 3u);
    EXPECT_EQ(f.in->available(), 3u);
    EXPECT_EQ(f.in->readIntoBuffer(0), kEndOfStream);
    EXPECT_EQ(f.in->available(), 3u);
}

TEST(ZnBufferedInputStreamTest, SourceFailurePassesThrough)
{
    Fixture f(100, kUnlimited, 0);
    f.source->failNext();
    try
    {
        f.in->read();
        FAIL() << "no exception";
    }
    catch (ZnHandle<ZnException>& e)
    {
        EXPECT_EQ(exceptionText(e), "source failed");
    }
    EXPECT_EQ(f.in->available(), 0u);
    EXPECT_EQ(f.in->read(), dataByte(0));
}

TEST(ZnBufferedInputStreamTest, SourceFailureDuringTopUpKeepsTheBufferedBytes)
{
    Fixture f(100, 5, 0);
    ASSERT_EQ(f.in->readIntoBuffer(0), 5u);
    f.source->failNext();
    unsigned char buffer[10];
    EXPECT_THROW(f.in->read(buffer, 10, 0), ZnHandle<ZnException>);
    EXPECT_EQ(f.in->available(), 5u);
    expectBytes(*f.in, 0, 5);
}

TEST(ZnBufferedInputStreamTest, FillHoldsAHandleOnTheBufferDuringTheRead)
{
    Fixture f(100, kUnlimited, 0);
    f.source->probeArray();
    ASSERT_EQ(f.in->readIntoBuffer(0), 100u);
    ASSERT_EQ(f.source->requests().size(), 1u);
    EXPECT_GE(f.source->requests()[0].arrayCount, 2u);
    EXPECT_EQ(arrayOf(f.in->getBuffer())->getRefCount(), 1u);
}

TEST(ZnBufferedInputStreamTest, SharedBufferIsNeverFilledAgain)
{
    Fixture f(100000, kUnlimited, 65536);
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    ZnHandle<ZnByteArray> held(arrayOf(f.in->getBuffer()));
    ASSERT_EQ(held->length(), 65536u);
    for (unsigned int i = 8192; i < 16384; ++i)
    {
        (*held)[i] = 0xEE;
    }

    // 57344 bytes would be free, but another holder shares the array: a grown copy is filled.
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    EXPECT_NE(f.in->getBuffer(), held->getBytes());
    EXPECT_EQ(capacityOf(*f.in), 65536u + 8192u);
    EXPECT_EQ(held->getRefCount(), 1u);
    for (unsigned int i = 0; i < 8192; ++i)
    {
        ASSERT_EQ(held->getBytes()[i], dataByte(i));
    }
    for (unsigned int i = 8192; i < 16384; ++i)
    {
        ASSERT_EQ(held->getBytes()[i], 0xEE) << "byte " << i << " of the held array";
    }
    expectBytes(*f.in, 0, 16384);
}

TEST(ZnBufferedInputStreamTest, UnsharedBufferIsFilledInPlaceAgain)
{
    Fixture f(100000, kUnlimited, 65536);
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    {
        ZnHandle<ZnByteArray> held(arrayOf(f.in->getBuffer()));
        ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    }
    unsigned char* copy = f.in->getBuffer();
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    EXPECT_EQ(f.in->getBuffer(), copy);
}

TEST(ZnBufferedInputStreamTest, SkipWithinTheBufferOnlyMovesThePosition)
{
    Fixture f(100000, kUnlimited, 0);
    ASSERT_EQ(f.in->readIntoBuffer(0), 8192u);
    EXPECT_EQ(f.in->skip(100), 100u);
    EXPECT_EQ(f.in->available(), 8092u);
    EXPECT_EQ(f.in->skip(8092), 8092u);
    EXPECT_EQ(f.in->available(), 0u);
    EXPECT_TRUE(f.source->skips().empty());
    EXPECT_EQ(f.source->requests().size(), 1u);
}

TEST(ZnBufferedInputStreamTest, SkipBeyondTheBufferPassesTheRestToTheSource)
{
    Fixture f(1000, 10, 0);
    ASSERT_EQ(f.in->read(), dataByte(0));
    EXPECT_EQ(f.in->skip(50), 50u);
    ASSERT_EQ(f.source->skips().size(), 1u);
    EXPECT_EQ(f.source->skips()[0], 41u);
    EXPECT_EQ(f.in->available(), 0u);
    EXPECT_EQ(f.in->read(), dataByte(51));
}

TEST(ZnBufferedInputStreamTest, SkipCountsWhatTheSourceSkippedPlusTheBufferedBytes)
{
    Fixture f(30, 10, 0);
    ASSERT_EQ(f.in->readIntoBuffer(0), 10u);
    EXPECT_EQ(f.in->skip(100), 30u);
    EXPECT_EQ(f.in->read(), -1);
}

TEST(ZnBufferedInputStreamTest, SkipDoesNotConsiderTheMark)
{
    Fixture f(1000, 10, 0);
    ASSERT_EQ(f.in->readIntoBuffer(0), 10u);
    f.in->mark(1000);
    EXPECT_EQ(f.in->skip(20), 20u);
    f.in->reset();
    // The buffered bytes come back; those the source skipped are gone.
    expectBytes(*f.in, 0, 10);
    EXPECT_EQ(f.in->read(), dataByte(20));
}

TEST(ZnBufferedInputStreamTest, AvailableCountsBufferedBytesOnly)
{
    Fixture f(100000, 1000, 0);
    EXPECT_EQ(f.in->available(), 0u);
    EXPECT_TRUE(f.source->requests().empty());
    ASSERT_EQ(f.in->read(), dataByte(0));
    EXPECT_EQ(f.in->available(), 999u);
}

TEST(ZnBufferedInputStreamTest, ReadsAByteArrayStream)
{
    const std::vector<unsigned char> data = makeData(50000);
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate(50000, data.data());
    ZnHandle<ZnBufferedInputStream> in(
        new ZnBufferedInputStream(new ZnByteArrayInputStream(array, 0, 0), 0));
    expectBytes(*in, 0, 50000);
    EXPECT_EQ(in->read(), -1);
}

TEST(ZnBufferedInputStreamTest, ReadsAPipe)
{
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    // All of it is in the pipe and the writing end is closed before reading starts.
    const std::vector<unsigned char> data = makeData(20000);
    ASSERT_EQ(write(fds[1], data.data(), data.size()), static_cast<ssize_t>(data.size()));
    close(fds[1]);
    {
        ZnHandle<ZnBufferedInputStream> in(
            new ZnBufferedInputStream(new ZnFileInputStream(fds[0]), 0));
        expectBytes(*in, 0, 20000);
        unsigned char buffer[16];
        EXPECT_EQ(in->read(buffer, 16, 0), kEndOfStream);
        EXPECT_EQ(in->read(), -1);
    }
    close(fds[0]);
}

} // namespace
