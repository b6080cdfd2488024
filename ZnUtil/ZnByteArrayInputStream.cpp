#include "ZnUtil/ZnByteArrayInputStream.h"

#include <algorithm>
#include <cstring>

namespace
{

const unsigned int kEndOfStream = 0xFFFFFFFFu;

} // namespace

ZnByteArrayInputStream::ZnByteArrayInputStream(ZnByteArray const* aArray, unsigned int aOffset,
                                               unsigned int aLength)
    : m_array(const_cast<ZnByteArray*>(aArray)), m_position(aOffset), m_end(0), m_mark(0)
{
    if (aArray == nullptr)
    {
        return;
    }
    const unsigned int arrayLength = aArray->length();
    // Tested without forming aOffset + aLength, which could wrap past 32 bits.
    if (aLength == 0 || aOffset > arrayLength || aLength > arrayLength - aOffset)
    {
        m_end = arrayLength;
    }
    else
    {
        m_end = aOffset + aLength;
    }
}

ZnByteArrayInputStream::~ZnByteArrayInputStream() = default;

unsigned int ZnByteArrayInputStream::read(void* aBuffer, unsigned int aLength, unsigned int aOffset)
{
    if (m_position >= m_end)
    {
        return kEndOfStream;
    }
    const unsigned int count = std::min(aLength, m_end - m_position);
    if (count > 0)
    {
        memcpy(static_cast<unsigned char*>(aBuffer) + aOffset, m_array->getBytes() + m_position,
               count);
        m_position += count;
    }
    return count;
}

int ZnByteArrayInputStream::read()
{
    if (m_position >= m_end)
    {
        return -1;
    }
    return m_array->getBytes()[m_position++];
}

unsigned int ZnByteArrayInputStream::skip(unsigned int aCount)
{
    if (m_position >= m_end)
    {
        return 0;
    }
    const unsigned int count = std::min(aCount, m_end - m_position);
    m_position += count;
    return count;
}

unsigned int ZnByteArrayInputStream::available()
{
    return m_position < m_end ? m_end - m_position : 0;
}

bool ZnByteArrayInputStream::markSupported()
{
    return true;
}

void ZnByteArrayInputStream::mark(unsigned int)
{
    m_mark = m_position;
}

void ZnByteArrayInputStream::reset()
{
    // Intended: without a mark this goes to index 0, even when the stream began further on.
    m_position = m_mark;
}
