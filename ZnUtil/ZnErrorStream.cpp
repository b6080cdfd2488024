#include "ZnUtil/ZnErrorStream.h"

#include "ZnUtil/ZnKeyTable.h"
#include "ZnUtil/ZnMutex.h"
#include "ZnUtil/ZnOutputSink.h"

#include "tavoris/DefaultStaticMemAllocator.h"
#include "tavoris/NoSizeMemAllocator.h"

#include <atomic>
#include <cstring>
#include <iostream>

namespace
{

/// The debug level of a new stream.
const unsigned int kInitialDebugLevel = 3;

/// The default instance, null until made or set. Atomic only so that two first users racing make
/// one stream between them; setting it stays a start-up operation.
std::atomic<ZnErrorStream*> s_pDefault(nullptr);

} // namespace

ZnErrorStream::ZnErrorStream(ZnOutputStream* aDestination)
    : m_debugLevel(kInitialDebugLevel), m_debugModes(new ZnKeyTable), m_destination(aDestination),
      m_pMutex(ZnMutex::sAllocate())
{
}

ZnErrorStream::~ZnErrorStream()
{
    ZnMutex::sRecycle(m_pMutex);
}

void ZnErrorStream::write(void const* aBuffer, unsigned int aLength, unsigned int aOffset)
{
    if (!m_destination.isNil())
    {
        m_destination->write(aBuffer, aLength, aOffset);
        return;
    }
    if (aBuffer != nullptr && aLength > 0)
    {
        std::cerr.write(static_cast<const char*>(aBuffer) + aOffset, aLength);
    }
}

void ZnErrorStream::write(int aByte)
{
    if (!m_destination.isNil())
    {
        m_destination->write(aByte);
        return;
    }
    std::cerr.put(static_cast<char>(aByte));
}

void ZnErrorStream::flush()
{
    if (!m_destination.isNil())
    {
        m_destination->flush();
        return;
    }
    std::cerr.flush();
}

void ZnErrorStream::write(char const* aText)
{
    if (aText == nullptr)
    {
        return;
    }
    // The terminating zero byte goes out too, as intended.
    const size_t length = strlen(aText) + 1;
    if (!m_destination.isNil())
    {
        m_destination->write(aText, static_cast<unsigned int>(length), 0);
        return;
    }
    std::cerr.write(aText, static_cast<std::streamsize>(length));
}

ZnErrorStream& ZnErrorStream::sGetDefault()
{
    ZnErrorStream* current = s_pDefault.load(std::memory_order_acquire);
    if (current != nullptr)
    {
        return *current;
    }
    ZnErrorStream* made = new ZnErrorStream;
    if (s_pDefault.compare_exchange_strong(current, made, std::memory_order_acq_rel))
    {
        return *made;
    }
    // Another thread made one first: this one was never seen by anybody.
    delete made;
    return *current;
}

ZnErrorStream* ZnErrorStream::sSetDefault(ZnErrorStream* aStream)
{
    return s_pDefault.exchange(aStream, std::memory_order_acq_rel);
}

bool ZnErrorStream::checkDebugMode(ZnString const& aKey, unsigned int aLevel) const
{
    return checkDebugLevel(aLevel) && m_debugModes->containsKey(aKey);
}

void ZnErrorStream::setDebugMode(ZnString const& aKey)
{
    m_debugModes->put(aKey, nullptr);
}

void ZnErrorStream::clearDebugMode(ZnString const& aKey)
{
    m_debugModes->remove(aKey);
}

ZnOutputStream& ZnErrorStream::getDebugStream(unsigned int aLevel)
{
    if (!checkDebugLevel(aLevel))
    {
        return ZnOutputSink::sGetInstance();
    }
    // The destination itself: synchronize() does not guard those who write to it directly.
    if (!m_destination.isNil())
    {
        return m_destination;
    }
    return *this;
}

ZnOutputStream& ZnErrorStream::getDebugStream(ZnString const& aKey, unsigned int aLevel)
{
    if (!checkDebugMode(aKey, aLevel))
    {
        return ZnOutputSink::sGetInstance();
    }
    return getDebugStream(aLevel);
}

void ZnErrorStream::synchronize()
{
    m_pMutex->lock();
}

void ZnErrorStream::release()
{
    m_pMutex->unlock();
}

void* ZnErrorStream::operator new(size_t size)
{
    return Tavoris::DefaultStaticMemAllocator::allocate(size, getMemAccountName());
}

void ZnErrorStream::operator delete(void* p, size_t size)
{
    Tavoris::DefaultStaticMemAllocator::deallocate(p, size, getMemAccountName());
}

void* ZnErrorStream::operator new[](size_t size)
{
    return Tavoris::NoSizeMemAllocator::allocate(size, getMemAccountName());
}

void ZnErrorStream::operator delete[](void* p)
{
    Tavoris::NoSizeMemAllocator::deallocate(p, getMemAccountName());
}
