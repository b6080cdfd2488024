#include "ZnUtil/ZnDatagramPacket.h"

#include "tavoris/DefaultStaticMemAllocator.h"
#include "tavoris/NoSizeMemAllocator.h"

#include <algorithm>

ZnDatagramPacket::ZnDatagramPacket(ZnByteArray* data, unsigned int offset, unsigned int length,
                                   ZnInetAddress address, unsigned int port,
                                   ZnInetAddress localAddress, unsigned int localPort)
    : m_address(address), m_localAddress(localAddress), m_port(port), m_localPort(localPort),
      m_offset(0), m_length(0)
{
    setData(data, offset, length);
}

ZnDatagramPacket::~ZnDatagramPacket() = default;

void ZnDatagramPacket::setData(ZnByteArray* data, unsigned int offset, unsigned int length)
{
    m_hData = data;
    const unsigned int size = data != nullptr ? data->length() : 0;
    m_offset = std::min(offset, size);
    setLength(length);
}

void ZnDatagramPacket::setLength(unsigned int length)
{
    const ZnByteArray* data = m_hData;
    const unsigned int size = data != nullptr ? data->length() : 0;
    const unsigned int wanted = length != 0 ? length : size;
    m_length = std::min(size - m_offset, wanted);
}

unsigned char* ZnDatagramPacket::payload() const
{
    // The array is the packet's buffer, written in place by a receive.
    const ZnByteArray* data = m_hData;
    if (data == nullptr)
    {
        return nullptr;
    }
    return const_cast<unsigned char*>(data->getBytes()) + m_offset;
}

void* ZnDatagramPacket::operator new(size_t size)
{
    return Tavoris::DefaultStaticMemAllocator::allocate(size, getMemAccountName());
}

void ZnDatagramPacket::operator delete(void* p, size_t size)
{
    Tavoris::DefaultStaticMemAllocator::deallocate(p, size, getMemAccountName());
}

void* ZnDatagramPacket::operator new[](size_t size)
{
    return Tavoris::NoSizeMemAllocator::allocate(size, getMemAccountName());
}

void ZnDatagramPacket::operator delete[](void* p)
{
    Tavoris::NoSizeMemAllocator::deallocate(p, getMemAccountName());
}
