#include "ZnUtil/ZnUDPEvent.h"

#include "tavoris/DefaultStaticMemAllocator.h"
#include "tavoris/NoSizeMemAllocator.h"

ZnUDPEvent::ZnUDPEvent(ZnObserver* aObserver, ZnObject* aData)
    : m_hObserver(aObserver), m_hData(aData)
{
}

ZnUDPEvent::ZnUDPEvent(const ZnUDPEvent& other)
    : ZnBaseEvent(other), m_hObserver(other.m_hObserver), m_hData(other.m_hData)
{
}

ZnUDPEvent& ZnUDPEvent::operator=(const ZnUDPEvent& other)
{
    ZnBaseEvent::operator=(other);
    m_hObserver = other.m_hObserver;
    m_hData = other.m_hData;
    return *this;
}

ZnUDPEvent::~ZnUDPEvent() = default;

void* ZnUDPEvent::operator new(size_t size)
{
    return Tavoris::DefaultStaticMemAllocator::allocate(size, getMemAccountName());
}

void ZnUDPEvent::operator delete(void* p, size_t size)
{
    Tavoris::DefaultStaticMemAllocator::deallocate(p, size, getMemAccountName());
}

void* ZnUDPEvent::operator new[](size_t size)
{
    return Tavoris::NoSizeMemAllocator::allocate(size, getMemAccountName());
}

void ZnUDPEvent::operator delete[](void* p)
{
    Tavoris::NoSizeMemAllocator::deallocate(p, getMemAccountName());
}
