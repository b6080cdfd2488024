#include "ZnUtil/ZnByteArrayOutputStream.h"

#include "tavoris/LogSite.h"
#include "tavoris/TraceScope.h"

namespace
{

TAVORIS_DEFINE_STATIC_LOGGER(logger, "corvane.zn.ZnByteArrayOutputStream")

const char kWriteScope[] = "ZnByteArrayOutputStream::write";

} // namespace

ZnByteArrayOutputStream::ZnByteArrayOutputStream(unsigned int aCapacity) : m_count(0)
{
    if (aCapacity != 0)
    {
        m_store = ZnByteArray::sCreate(aCapacity, nullptr);
    }
}

ZnByteArrayOutputStream::~ZnByteArrayOutputStream() = default;

void ZnByteArrayOutputStream::write(void const* aBuffer, unsigned int aLength, unsigned int aOffset)
{
    TAVORIS_TRACE_SCOPE(logger(), kWriteScope);
    // A null buffer writes nothing, as with the contract's default block write.
    if (aLength == 0 || aBuffer == nullptr)
    {
        return;
    }

    // A store that someone else also holds has no room at all: it is copied, never written.
    const unsigned int capacityLeft =
        (!m_store.isNil() && m_store->getRefCount() < 2) ? m_store->length() - m_count : 0;
    TAVORIS_LOG_DEBUG(logger(), kWriteScope << " : : Capacity left in buffer = " << capacityLeft);

    if (capacityLeft < aLength)
    {
        const unsigned int extra = ((aLength >> 8) + 1) << 8;
        const unsigned int currentLength = m_store.isNil() ? 0 : m_store->length();
        // Intended: the figure told as the new capacity is the extra size alone.
        TAVORIS_LOG_DEBUG(logger(), kWriteScope << " : : length to write (" << aLength
                                                << ") more than remaining capacity of current "
                                                   "buffer. New capacity for buffer = "
                                                << extra);
        TAVORIS_LOG_DEBUG(logger(),
                          kWriteScope << " : : length of current buffer = " << currentLength);
        m_store = ZnByteArray::sCreate(m_store, currentLength + extra, 0);
    }

    m_store->copy(m_count, aBuffer, aLength, aOffset);
    m_count += aLength;
}

void ZnByteArrayOutputStream::write(int aByte)
{
    const unsigned char byte = static_cast<unsigned char>(aByte);
    write(&byte, 1, 0);
}

void ZnByteArrayOutputStream::reset()
{
    m_count = 0;
}

unsigned int ZnByteArrayOutputStream::size() const
{
    return m_count;
}

void ZnByteArrayOutputStream::writeTo(ZnOutputStream* aOut)
{
    if (m_count > 0)
    {
        aOut->write(static_cast<ZnByteArray*>(m_store), 0, m_count);
    }
}

ZnHandle<ZnByteArray> ZnByteArrayOutputStream::toByteArray() const
{
    // Intended: sCreate reads a length of 0 as "the whole array", so an emptied stream that
    // still has its store hands out a copy at the full capacity.
    return ZnByteArray::sCreate(m_store, m_count, 0);
}
