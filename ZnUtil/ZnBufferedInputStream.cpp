#include "ZnUtil/ZnBufferedInputStream.h"

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnFileInputStream.h"

#include <algorithm>
#include <cstring>

namespace
{

const unsigned int kEndOfStream = 0xFFFFFFFFu;
/// Every fill asks the source for at least this much.
const unsigned int kMinimumReadSize = 8192;
/// More dead bytes than this in front of the keep point are dropped at the next fill.
const unsigned int kCompactionThreshold = 8192;
/// The growth step of a stream that has no buffer yet.
const unsigned int kFirstAllocation = 8192;
/// The largest growth step; below it the step is a sixteenth of the capacity.
const unsigned int kLargestGrowthStep = 49152;

/// The default input stream; nil until it is made or set. Never destroyed, so that late
/// destructors may still read it.
ZnHandle<ZnInputStream>& defaultInput()
{
    static ZnHandle<ZnInputStream>* s_default = new ZnHandle<ZnInputStream>();
    return *s_default;
}

} // namespace

ZnBufferedInputStream::ZnBufferedInputStream(ZnInputStream* aSource, unsigned int aSize)
    : m_position(0), m_count(0), m_markPosition(0), m_markLimit(0), m_source(aSource),
      m_bodyStart(0), m_contentLength(0), m_bContentLengthFound(false)
{
    if (aSize != 0)
    {
        m_buffer = ZnByteArray::sCreate(aSize, nullptr);
    }
}

ZnBufferedInputStream::~ZnBufferedInputStream() = default;

unsigned int ZnBufferedInputStream::readIntoBuffer(unsigned int aMinimum)
{
    if (m_position > 0)
    {
        if (m_markLimit != 0 && m_position - m_markPosition > m_markLimit)
        {
            m_markLimit = 0;
        }
        const unsigned int keep = m_markLimit != 0 ? m_markPosition : m_position;
        // Dead bytes stay in place until everything is consumed or there are more than 8192.
        if (keep == m_count || keep > kCompactionThreshold)
        {
            m_count -= keep;
            m_position -= keep;
            // A mark that is no longer valid has no position to keep.
            m_markPosition = m_markPosition >= keep ? m_markPosition - keep : 0;
            if (m_count > 0)
            {
                unsigned char* bytes = m_buffer->rawBytes();
                memmove(bytes, bytes + keep, m_count);
            }
        }
    }

    const unsigned int readSize = std::max(aMinimum, kMinimumReadSize);
    const unsigned int capacity = m_buffer.isNil() ? 0 : m_buffer->length();
    // A buffer that someone else holds too has no room: it is never written again.
    const unsigned int freeSpace =
        !m_buffer.isNil() && m_buffer->getRefCount() < 2 ? capacity - m_count : 0;
    if (freeSpace < readSize)
    {
        const unsigned int step =
            m_buffer.isNil() ? kFirstAllocation : std::min(capacity / 16, kLargestGrowthStep);
        const unsigned int growth = std::max(step, readSize);
        // Past 4 GiB the capacity stops at the largest length an array can have.
        const unsigned int newCapacity =
            growth > 0xFFFFFFFFu - capacity ? 0xFFFFFFFFu : capacity + growth;
        m_buffer = ZnByteArray::sCreate(m_buffer, newCapacity, 0);
    }

    // The handle passed on keeps the buffer alive for the whole read.
    const unsigned int result = m_source->read(m_buffer, m_count, readSize);
    if (result != kEndOfStream)
    {
        m_count += result;
    }
    return result;
}

int ZnBufferedInputStream::read()
{
    if (m_position >= m_count)
    {
        if (readIntoBuffer(0) == kEndOfStream)
        {
            return -1;
        }
        if (m_position >= m_count)
        {
            // An empty fill is not the end here: the byte handed out is whatever the buffer
            // holds at that place, as intended. It counts as buffered, so that position never
            // passes count.
            m_count = m_position + 1;
        }
    }
    return m_buffer->rawBytes()[m_position++];
}

unsigned int ZnBufferedInputStream::read(void* aBuffer, unsigned int aLength, unsigned int aOffset)
{
    const unsigned int unread = m_count - m_position;
    if (unread == 0)
    {
        const unsigned int result = readIntoBuffer(aLength);
        if (result == kEndOfStream)
        {
            return kEndOfStream;
        }
    }
    else if (unread < aLength)
    {
        // Whatever the source gives now is handed out with the bytes already here.
        (void)readIntoBuffer(aLength - unread);
    }
    const unsigned int n = std::min(aLength, m_count - m_position);
    if (n > 0)
    {
        memcpy(static_cast<unsigned char*>(aBuffer) + aOffset, m_buffer->rawBytes() + m_position,
               n);
        m_position += n;
    }
    return n;
}

unsigned int ZnBufferedInputStream::skip(unsigned int aCount)
{
    const unsigned int unread = m_count - m_position;
    if (aCount <= unread)
    {
        m_position += aCount;
        return aCount;
    }
    m_position = m_count;
    return m_source->skip(aCount - unread) + unread;
}

unsigned int ZnBufferedInputStream::available()
{
    return m_count - m_position;
}

bool ZnBufferedInputStream::markSupported()
{
    return true;
}

void ZnBufferedInputStream::mark(unsigned int aLimit)
{
    m_markPosition = m_position;
    m_markLimit = aLimit;
}

void ZnBufferedInputStream::reset()
{
    if (m_markLimit == 0)
    {
        ZnException::sThrow("mark limit exceeded");
    }
    m_position = m_markPosition;
    // A mark serves one reset, as intended.
    m_markLimit = 0;
}

unsigned char* ZnBufferedInputStream::getBuffer() const
{
    return m_buffer.isNil() ? nullptr : m_buffer->rawBytes();
}

ZnInputStream& ZnInputStream::sGetDefault()
{
    // Made once, when nothing was set before; two first callers racing still make only one.
    static const bool s_made = []
    {
        ZnHandle<ZnInputStream>& current = defaultInput();
        if (current.isNil())
        {
            current = new ZnBufferedInputStream(new ZnFileInputStream(0), 0);
        }
        return true;
    }();
    (void)s_made;
    return defaultInput();
}

ZnHandle<ZnInputStream> ZnInputStream::sSetDefault(ZnInputStream& aStream)
{
    // Unguarded: a start-up operation.
    ZnHandle<ZnInputStream>& current = defaultInput();
    ZnHandle<ZnInputStream> previous = current;
    current = &aStream;
    return previous;
}
