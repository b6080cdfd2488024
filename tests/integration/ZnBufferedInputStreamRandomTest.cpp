#include "ZnUtil/ZnBufferedInputStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInputStream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

namespace
{

const unsigned int kEndOfStream = 0xFFFFFFFFu;

std::vector<unsigned char> randomBytes(size_t length, unsigned int seed)
{
    std::mt19937 random(seed);
    std::vector<unsigned char> data(length);
    for (unsigned char& byte : data)
    {
        byte = static_cast<unsigned char>(random());
    }
    return data;
}

/// Hands out its bytes in pieces of 1 to a set number of bytes, chosen at random, whatever the
/// length asked for; skip goes through the block read of the base class.
class RandomPieceSource : public ZnInputStream
{
public:
    RandomPieceSource(const std::vector<unsigned char>& data, unsigned int maxPiece,
                      unsigned int seed)
        : m_data(data), m_random(seed), m_piece(1, maxPiece)
    {
    }

    using ZnInputStream::read;

    unsigned int read(void* aBuffer, unsigned int aLength, unsigned int aOffset) override
    {
        if (m_position == m_data.size())
        {
            return kEndOfStream;
        }
        const size_t n = std::min<size_t>(
            {aLength, static_cast<size_t>(m_piece(m_random)), m_data.size() - m_position});
        memcpy(static_cast<unsigned char*>(aBuffer) + aOffset, m_data.data() + m_position, n);
        m_position += n;
        return static_cast<unsigned int>(n);
    }

    int read() override { return m_position == m_data.size() ? -1 : m_data[m_position++]; }

private:
    const std::vector<unsigned char>& m_data;
    size_t m_position = 0;
    std::mt19937 m_random;
    std::uniform_int_distribution<unsigned int> m_piece;
};

/// Reads a pipe with plain read(2), one call per block read. The library's file stream is not
/// used here: by its contract it raises on a read that gives exactly one byte, and a pipe fed by
/// another thread may give one at any time.
class PipeSource : public ZnInputStream
{
public:
    explicit PipeSource(int aDescriptor) : m_fd(aDescriptor) {}

    using ZnInputStream::read;

    unsigned int read(void* aBuffer, unsigned int aLength, unsigned int aOffset) override
    {
        ssize_t n;
        do
        {
            n = ::read(m_fd, static_cast<unsigned char*>(aBuffer) + aOffset, aLength);
        } while (n < 0 && errno == EINTR);
        if (n < 0)
        {
            ZnException::sThrow("PipeSource::read");
        }
        return n == 0 ? kEndOfStream : static_cast<unsigned int>(n);
    }

    int read() override
    {
        unsigned char byte;
        return read(&byte, 1, 0) == kEndOfStream ? -1 : byte;
    }

private:
    int m_fd;
};

/// Drives a stream with a random mix of operations and checks every byte against \p data:
/// single reads, block reads of random sizes, skips, and mark and reset. A reset is only asked
/// for where the mark is sure to hold, that is when no more than its limit was consumed since,
/// and no skip went past the buffer; the mark is then used up.
void readRandomly(ZnBufferedInputStream& in, const std::vector<unsigned char>& data,
                  unsigned int seed)
{
    std::mt19937 random(seed);
    size_t position = 0;
    bool marked = false;
    size_t markPosition = 0;
    size_t markLimit = 0;
    std::vector<unsigned char> block;
    // How often each kind of operation ran: reads, block reads, skips within the buffer, skips
    // past it, marks, resets.
    unsigned long counts[6] = {};

    while (position < data.size())
    {
        const unsigned int choice = random() % 100;
        if (choice < 40)
        {
            const int byte = in.read();
            ASSERT_NE(byte, -1) << "end of stream at " << position;
            ASSERT_EQ(byte, data[position]) << "read() at " << position;
            ++position;
            ++counts[0];
        }
        else if (choice < 75)
        {
            const unsigned int length = 1 + random() % (choice < 70 ? 300 : 20000);
            const unsigned int offset = random() % 8;
            block.assign(offset + length, 0);
            const unsigned int n = in.read(block.data(), length, offset);
            ASSERT_NE(n, kEndOfStream) << "end of stream at " << position;
            ASSERT_GE(n, 1u);
            ASSERT_LE(n, length);
            ASSERT_LE(position + n, data.size());
            ASSERT_EQ(memcmp(block.data() + offset, data.data() + position, n), 0)
                << "block of " << n << " at " << position;
            position += n;
            ++counts[1];
        }
        else if (choice < 85)
        {
            // Half of the skips stay within what is buffered, if anything is.
            const unsigned int buffered = in.available();
            const unsigned int count =
                1 + random() % (choice < 80 && buffered > 0 ? buffered : 20000);
            const unsigned int skipped = in.skip(count);
            ASSERT_EQ(skipped, std::min<size_t>(count, data.size() - position))
                << "skip at " << position;
            position += skipped;
            if (count > buffered)
            {
                // The skipped bytes never entered the buffer: a reset could not bring them back.
                marked = false;
                ++counts[3];
            }
            else
            {
                ++counts[2];
            }
        }
        else if (choice < 92)
        {
            markLimit = 1 + random() % 40000;
            markPosition = position;
            marked = true;
            in.mark(static_cast<unsigned int>(markLimit));
            ++counts[4];
        }
        else if (marked && position - markPosition <= markLimit)
        {
            in.reset();
            position = markPosition;
            marked = false;
            ASSERT_THROW(in.reset(), ZnHandle<ZnException>);
            ++counts[5];
        }
    }
    EXPECT_EQ(in.read(), -1);
    unsigned char tail[4];
    EXPECT_EQ(in.read(tail, 4, 0), kEndOfStream);
    EXPECT_EQ(in.available(), 0u);
    for (int kind = 0; kind < 6; ++kind)
    {
        EXPECT_GE(counts[kind], 20u) << "operation kind " << kind;
    }
}

TEST(ZnBufferedInputStreamRandomTest, RandomPiecesComeBackExactly)
{
    for (unsigned int seed = 1; seed <= 6; ++seed)
    {
        SCOPED_TRACE(seed);
        const std::vector<unsigned char> data = randomBytes(1 << 20, seed);
        const unsigned int maxPiece = seed % 2 == 0 ? 17 : 3000;
        ZnHandle<ZnBufferedInputStream> in(
            new ZnBufferedInputStream(new RandomPieceSource(data, maxPiece, seed * 7), 0));
        readRandomly(*in, data, seed * 13);
    }
}

TEST(ZnBufferedInputStreamRandomTest, RandomPiecesIntoAnInitialBuffer)
{
    const std::vector<unsigned char> data = randomBytes(1 << 20, 99);
    ZnHandle<ZnBufferedInputStream> in(
        new ZnBufferedInputStream(new RandomPieceSource(data, 500, 5), 1000));
    readRandomly(*in, data, 17);
}

TEST(ZnBufferedInputStreamRandomTest, PipeFedByAWriterThread)
{
    const std::vector<unsigned char> data = randomBytes(4 << 20, 42);
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::thread writer(
        [&data, fd = fds[1]]
        {
            // Should the reader stop early, a write fails with EPIPE instead of ending the
            // process.
            sigset_t pipeSignal;
            sigemptyset(&pipeSignal);
            sigaddset(&pipeSignal, SIGPIPE);
            pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);
            std::mt19937 random(4242);
            size_t done = 0;
            while (done < data.size())
            {
                const size_t piece = std::min<size_t>(1 + random() % 5000, data.size() - done);
                const ssize_t n = write(fd, data.data() + done, piece);
                if (n < 0)
                {
                    if (errno == EINTR)
                    {
                        continue;
                    }
                    break;
                }
                done += static_cast<size_t>(n);
            }
            close(fd);
        });
    {
        ZnHandle<ZnBufferedInputStream> in(new ZnBufferedInputStream(new PipeSource(fds[0]), 0));
        readRandomly(*in, data, 7);
    }
    // A failed check leaves bytes unread: closing the reading end lets the writer finish.
    close(fds[0]);
    writer.join();
}

} // namespace
