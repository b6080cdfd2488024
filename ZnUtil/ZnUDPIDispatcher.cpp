#include "ZnUtil/ZnUDPIDispatcher.h"

#include "ZnUtil/ZnDispatcherInstance.h"
#include "ZnUtil/ZnUDPEvent.h"

#include "tavoris/DefaultStaticMemAllocator.h"
#include "tavoris/NoSizeMemAllocator.h"

#include <atomic>
#include <mutex>

namespace
{

ZnDispatcherInstance<ZnUDPIDispatcher> s_instance("ZnUDPIDispatcher");

} // namespace

ZnUDPIDispatcher::ZnUDPIDispatcher()
    : ZnDispatcherThread(this, 10, ZnEventQueue::POLICY_MULTI_PRODUCER)
{
}

ZnUDPIDispatcher::~ZnUDPIDispatcher() = default;

ZnUDPIDispatcher* ZnUDPIDispatcher::getInstance()
{
    return s_instance.getOrMake();
}

ZnEventQueue* ZnUDPIDispatcher::getUDPEventQueue()
{
    ZnUDPIDispatcher* instance = s_instance.get();
    return instance != nullptr ? instance->getEventQueue() : nullptr;
}

void ZnUDPIDispatcher::process(ZnBaseEvent* aEvent)
{
    ZnUDPEvent* event = static_cast<ZnUDPEvent*>(aEvent);
    // The worker calls onNotification(nil, data) on the socket, whose forwarding notifies the
    // socket's observer with the socket as the source.
    getThreadPool()->doObserverNotifications(event->getObserver(), event->getData());
}

void ZnUDPIDispatcher::atExit()
{
    s_instance.forget(this);
}

void* ZnUDPIDispatcher::operator new(size_t size)
{
    return Tavoris::DefaultStaticMemAllocator::allocate(size, getMemAccountName());
}

void ZnUDPIDispatcher::operator delete(void* p, size_t size)
{
    Tavoris::DefaultStaticMemAllocator::deallocate(p, size, getMemAccountName());
}

void* ZnUDPIDispatcher::operator new[](size_t size)
{
    return Tavoris::NoSizeMemAllocator::allocate(size, getMemAccountName());
}

void ZnUDPIDispatcher::operator delete[](void* p)
{
    Tavoris::NoSizeMemAllocator::deallocate(p, getMemAccountName());
}
