#include "ZnUtil/ZnBufferedOutputStream.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnFileOutputStream.h"

ZnBufferedOutputStream::ZnBufferedOutputStream(ZnOutputStream* aDestination, unsigned int aSize)
    : m_count(0), m_destination(aDestination)
{
    if (aSize != 0)
    {
        m_buffer = ZnByteArray::sCreate(aSize, nullptr);
    }
    if (m_buffer.isNil())
    {
        ZnAssertionFailure::sThrow("No buffer in ZnBufferedOutputStream", "ZnBufferedOutputStream",
                                   __LINE__, ZN_COMPILED);
    }
}

namespace
{

/// The buffer size of the default output stream.
const unsigned int kDefaultBufferSize = 512;

/// The default output stream; nil until it is made or set. Never destroyed, so that late
/// destructors may still write to it.
ZnHandle<ZnOutputStream>& defaultOutput()
{
    static ZnHandle<ZnOutputStream>* s_default = new ZnHandle<ZnOutputStream>();
    return *s_default;
}

} // namespace

// What is still held is dropped unwritten, as intended: the owner flushes before letting go.
ZnBufferedOutputStream::~ZnBufferedOutputStream() = default;

void ZnBufferedOutputStream::write(void const* aBuffer, unsigned int aLength, unsigned int aOffset)
{
    if (aBuffer == nullptr)
    {
        return;
    }
    const unsigned int capacity = m_buffer->length();
    if (capacity - m_count < aLength)
    {
        flush();
    }
    if (capacity - m_count < aLength)
    {
        // Too long for the buffer: it follows what was just flushed, so the order is kept.
        m_destination->write(aBuffer, aLength, aOffset);
        return;
    }
    m_buffer->copy(m_count, aBuffer, aLength, aOffset);
    m_count += aLength;
}

void ZnBufferedOutputStream::write(int aByte)
{
    if (m_count == m_buffer->length())
    {
        flush();
    }
    (*m_buffer)[m_count] = static_cast<unsigned char>(aByte);
    ++m_count;
}

void ZnBufferedOutputStream::flush()
{
    // One block write even when nothing is held. The destination is not flushed, as intended.
    m_destination->write(m_buffer->getBytes(), m_count, 0);
    m_count = 0;
}

ZnOutputStream& ZnOutputStream::sGetDefault()
{
    // Made once, when nothing was set before; two first callers racing still make only one.
    static const bool s_made = []
    {
        ZnHandle<ZnOutputStream>& current = defaultOutput();
        if (current.isNil())
        {
            current = new ZnBufferedOutputStream(new ZnFileOutputStream(1), kDefaultBufferSize);
        }
        return true;
    }();
    (void)s_made;
    return defaultOutput();
}

ZnHandle<ZnOutputStream> ZnOutputStream::sSetDefault(ZnOutputStream& aStream)
{
    // Unguarded: a start-up operation.
    ZnHandle<ZnOutputStream>& current = defaultOutput();
    ZnHandle<ZnOutputStream> previous = current;
    current = &aStream;
    return previous;
}
