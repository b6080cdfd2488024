#include "ZnUtil/ZnCppInputStream.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnObserver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <istream>
#include <sstream>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

#include <ext/stdio_sync_filebuf.h>
#include <unistd.h>

namespace
{

const unsigned int kEnd = 0xFFFFFFFFu;

/// A buffer that receives its text in packets of a fixed size, the way a socket buffer does:
/// what it holds is what the last packet brought (in_avail), and the next packet comes only
/// when that is used up. With \p aSaysEnd it answers -1 from showmanyc once nothing is left.
class PacketBuffer : public std::streambuf
{
public:
    PacketBuffer(std::string aText, size_t aPacket, bool aSaysEnd = false)
        : m_text(std::move(aText)), m_packet(aPacket), m_next(0), m_saysEnd(aSaysEnd)
    {
        setg(nullptr, nullptr, nullptr);
    }

    int packetsDelivered() const { return m_delivered; }

protected:
    int_type underflow() override
    {
        if (gptr() != nullptr && gptr() < egptr())
        {
            return traits_type::to_int_type(*gptr());
        }
        if (m_next >= m_text.size())
        {
            return traits_type::eof();
        }
        const size_t size = std::min(m_packet, m_text.size() - m_next);
        char* begin = &m_text[m_next];
        m_next += size;
        ++m_delivered;
        setg(begin, begin, begin + size);
        return traits_type::to_int_type(*gptr());
    }

    std::streamsize showmanyc() override { return (m_saysEnd && m_next >= m_text.size()) ? -1 : 0; }

private:
    std::string m_text;
    size_t m_packet;
    size_t m_next;
    bool m_saysEnd;
    int m_delivered = 0;
};

/// Remembers every notification it gets.
class Recorder : public ZnObserver
{
public:
    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override
    {
        sources.push_back(aSource);
        nilArguments.push_back(aArgument.isNil());
    }

    std::vector<ZnObservable*> sources;
    std::vector<bool> nilArguments;
};

TEST(ZnCppInputStreamTest, ReadGivesCharactersAsUnsignedThenMinusOne)
{
    std::istringstream text(std::string("a\xFF\x00z", 4));
    ZnCppInputStream in(text);
    EXPECT_EQ('a', in.read());
    EXPECT_EQ(255, in.read());
    EXPECT_EQ(0, in.read());
    EXPECT_EQ('z', in.read());
    EXPECT_EQ(-1, in.read());
    EXPECT_EQ(-1, in.read());
}

TEST(ZnCppInputStreamTest, BlockReadOfLengthZeroIsZeroEvenAtTheEnd)
{
    std::istringstream text("");
    ZnCppInputStream in(text);
    char buffer[1] = {};
    EXPECT_EQ(0u, in.read(buffer, 0, 0));
}

TEST(ZnCppInputStreamTest, BlockReadTakesWhatIsBufferedAtTheOffset)
{
    std::istringstream text("hello world");
    ZnCppInputStream in(text);
    char buffer[8] = {'.', '.', '.', '.', '.', '.', '.', '.'};
    EXPECT_EQ(5u, in.read(buffer, 5, 1));
    EXPECT_EQ(".hello..", std::string(buffer, 8));
    EXPECT_EQ(6u, in.read(buffer, 8, 0));
    EXPECT_EQ(" world", std::string(buffer, 6));
    EXPECT_EQ(kEnd, in.read(buffer, 8, 0));
}

TEST(ZnCppInputStreamTest, BlockReadWithNothingBufferedReadsOneByteThenThePacket)
{
    PacketBuffer packets("abcdefghij", 4);
    std::istream stream(&packets);
    ZnCppInputStream in(stream);
    char buffer[16] = {};
    EXPECT_EQ(0u, in.available());
    EXPECT_EQ(4u, in.read(buffer, 16, 0));
    EXPECT_EQ("abcd", std::string(buffer, 4));
    EXPECT_EQ(1, packets.packetsDelivered());
    EXPECT_EQ(4u, in.read(buffer, 16, 0));
    EXPECT_EQ("efgh", std::string(buffer, 4));
    EXPECT_EQ(2u, in.read(buffer, 16, 0));
    EXPECT_EQ("ij", std::string(buffer, 2));
    EXPECT_EQ(kEnd, in.read(buffer, 16, 0));
}

TEST(ZnCppInputStreamTest, BlockReadStopsAtTheLengthAfterTheFirstByte)
{
    PacketBuffer packets("abcdefghij", 4);
    std::istream stream(&packets);
    ZnCppInputStream in(stream);
    char buffer[4] = {};
    EXPECT_EQ(1u, in.read(buffer, 1, 2));
    EXPECT_EQ('a', buffer[2]);
    EXPECT_EQ(3u, in.available());
    EXPECT_EQ(2u, in.read(buffer, 2, 0));
    EXPECT_EQ("bc", std::string(buffer, 2));
}

TEST(ZnCppInputStreamTest, BlockReadNeverWaitsForASecondPacket)
{
    PacketBuffer packets("abcdefghij", 4);
    std::istream stream(&packets);
    ZnCppInputStream in(stream);
    char buffer[16] = {};
    EXPECT_EQ('a', in.read());
    // Three bytes are buffered; the block read takes them and does not ask for more.
    EXPECT_EQ(3u, in.read(buffer, 16, 0));
    EXPECT_EQ("bcd", std::string(buffer, 3));
    EXPECT_EQ(1, packets.packetsDelivered());
}

TEST(ZnCppInputStreamTest, WithoutABufferEachBlockReadTakesOneByte)
{
    // stdio_sync_filebuf keeps no characters of its own: in_avail is always 0.
    FILE* file = tmpfile();
    ASSERT_NE(nullptr, file);
    fputs("xyz", file);
    rewind(file);
    __gnu_cxx::stdio_sync_filebuf<char> unbuffered(file);
    std::istream stream(&unbuffered);
    ZnCppInputStream in(stream);
    char buffer[8] = {};
    EXPECT_EQ(0u, in.available());
    EXPECT_EQ(1u, in.read(buffer, 8, 0));
    EXPECT_EQ('x', buffer[0]);
    EXPECT_EQ(1u, in.read(buffer, 8, 0));
    EXPECT_EQ('y', buffer[0]);
    EXPECT_EQ(1u, in.read(buffer, 8, 0));
    EXPECT_EQ('z', buffer[0]);
    EXPECT_EQ(kEnd, in.read(buffer, 8, 0));
    fclose(file);
}

TEST(ZnCppInputStreamTest, ArrayReadFormFillsTheArray)
{
    std::istringstream text("0123456789");
    ZnCppInputStream in(text);
    ZnHandle<ZnByteArray> target = ZnByteArray::sCreate("....");
    EXPECT_EQ(3u, in.read(target, 1, 0));
    EXPECT_EQ(".012", std::string(reinterpret_cast<const char*>(target->getBytes()), 4));
}

TEST(ZnCppInputStreamTest, SkipReadsAndDiscards)
{
    std::istringstream text("0123456789");
    ZnCppInputStream in(text);
    EXPECT_EQ(4u, in.skip(4));
    EXPECT_EQ('4', in.read());
    EXPECT_EQ(5u, in.skip(100));
    EXPECT_EQ(-1, in.read());
}

TEST(ZnCppInputStreamTest, AvailableIsWhatTheBufferHolds)
{
    std::istringstream text("abc");
    ZnCppInputStream in(text);
    EXPECT_EQ(3u, in.available());
    in.read();
    EXPECT_EQ(2u, in.available());
    in.skip(2);
    EXPECT_EQ(0u, in.available());
}

TEST(ZnCppInputStreamTest, AvailableIsZeroWhenTheBufferSaysNothingMoreWillCome)
{
    PacketBuffer packets("ab", 2, true);
    std::istream stream(&packets);
    ZnCppInputStream in(stream);
    in.skip(2);
    ASSERT_EQ(-1, packets.in_avail());
    EXPECT_EQ(0u, in.available());
    char buffer[4] = {};
    EXPECT_EQ(kEnd, in.read(buffer, 4, 0));
}

TEST(ZnCppInputStreamTest, MarkIsNotSupported)
{
    std::istringstream text("abc");
    ZnCppInputStream in(text);
    EXPECT_FALSE(in.markSupported());
}

TEST(ZnCppInputStreamTest, BlockWithBufferedInputNotifiesAndConsumesNothing)
{
    std::istringstream text("abc");
    ZnHandle<ZnCppInputStream> in(new ZnCppInputStream(text));
    ZnHandle<Recorder> recorder(new Recorder);
    in->attachObserver(recorder);
    EXPECT_TRUE(in->block());
    ASSERT_EQ(1u, recorder->sources.size());
    EXPECT_EQ(static_cast<ZnObservable*>(static_cast<ZnCppInputStream*>(in)), recorder->sources[0]);
    EXPECT_TRUE(recorder->nilArguments[0]);
    EXPECT_EQ('a', in->read());
    in->detachObserver(recorder);
}

TEST(ZnCppInputStreamTest, BlockWaitsForOneCharacterAndPutsItBack)
{
    PacketBuffer packets("xy", 2);
    std::istream stream(&packets);
    ZnHandle<ZnCppInputStream> in(new ZnCppInputStream(stream));
    ZnHandle<Recorder> recorder(new Recorder);
    in->attachObserver(recorder);
    ASSERT_EQ(0u, in->available());
    EXPECT_TRUE(in->block());
    EXPECT_EQ(1, packets.packetsDelivered());
    EXPECT_EQ(1u, recorder->sources.size());
    EXPECT_EQ(2u, in->available());
    EXPECT_EQ('x', in->read());
    EXPECT_EQ('y', in->read());
    in->detachObserver(recorder);
}

TEST(ZnCppInputStreamTest, BlockAtTheEndIsFalseAndStillNotifies)
{
    std::istringstream text("");
    ZnHandle<ZnCppInputStream> in(new ZnCppInputStream(text));
    ZnHandle<Recorder> recorder(new Recorder);
    in->attachObserver(recorder);
    EXPECT_FALSE(in->block());
    ASSERT_EQ(1u, recorder->sources.size());
    EXPECT_TRUE(recorder->nilArguments[0]);
    in->detachObserver(recorder);
}

TEST(ZnCppInputStreamTest, WrappedStreamIsNotOwned)
{
    std::istringstream text("abc");
    {
        ZnCppInputStream in(text);
        EXPECT_EQ('a', in.read());
    }
    EXPECT_EQ('b', text.get());
}

TEST(ZnCppInputStreamTest, ReadsAPipeThroughAFileBuffer)
{
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    ASSERT_EQ(5, write(fds[1], "piped", 5));
    close(fds[1]);
    FILE* file = fdopen(fds[0], "r");
    ASSERT_NE(nullptr, file);
    __gnu_cxx::stdio_sync_filebuf<char> buffer(file);
    std::istream stream(&buffer);
    ZnCppInputStream in(stream);
    std::string text;
    for (int c = in.read(); c != -1; c = in.read())
    {
        text.push_back(static_cast<char>(c));
    }
    EXPECT_EQ("piped", text);
    fclose(file);
}

} // namespace
