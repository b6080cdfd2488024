// An output stream that keeps what it is given, for tests to read back.
#ifndef ZNUTIL_TESTS_RECORDINGOUTPUTSTREAM_H
#define ZNUTIL_TESTS_RECORDINGOUTPUTSTREAM_H

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnOutputStream.h"

#include <string>
#include <vector>

namespace ZnTest
{

/// Keeps the bytes written, each block write's length and offset, and the number of byte writes
/// and flushes. Block writes can be made to fail.
class RecordingOutputStream : public ZnOutputStream
{
public:
    /// One block write as the stream saw it.
    struct Block
    {
        unsigned int length;
        unsigned int offset;
    };

    using ZnOutputStream::write;

    void write(void const* aBuffer, unsigned int aLength, unsigned int aOffset) override
    {
        if (m_fail)
        {
            ZnException::sThrow("destination failed");
        }
        m_blocks.push_back(Block{aLength, aOffset});
        if (aBuffer != nullptr)
        {
            m_text.append(static_cast<const char*>(aBuffer) + aOffset, aLength);
        }
    }

    void write(int aByte) override
    {
        ++m_byteWrites;
        m_text.push_back(static_cast<char>(aByte));
    }

    void flush() override { ++m_flushes; }

    const std::string& text() const { return m_text; }
    const std::vector<Block>& blocks() const { return m_blocks; }
    int byteWrites() const { return m_byteWrites; }
    int flushes() const { return m_flushes; }
    /// Block writes raise a ZnException while \p fail is true.
    void failWrites(bool fail) { m_fail = fail; }

private:
    std::string m_text;
    std::vector<Block> m_blocks;
    int m_byteWrites = 0;
    int m_flushes = 0;
    bool m_fail = false;
};

} // namespace ZnTest

#endif // ZNUTIL_TESTS_RECORDINGOUTPUTSTREAM_H
