#include "ZnUtil/ZnUDPIDispatcher.h"

#include "ZnUtil/ZnUDPEvent.h"

#include "tavoris/DefaultStaticMemAllocator.h"
#include "tavoris/NoSizeMemAllocator.h"

#include <ace/Object_Manager.h>

#include <atomic>
#include <mutex>

namespace
{

std::atomic<ZnUDPIDispatcher*> s_instance{nullptr};
std::mutex s_instanceCreation;

} // namespace

ZnUDPIDispatcher::ZnUDPIDispatcher()
    : ZnDispatcherThread(this, 10, ZnEventQueue::POLICY_MULTI_PRODUCER)
{
}

ZnUDPIDispatcher::~ZnUDPIDispatcher() = default;

ZnUDPIDispatcher* ZnUDPIDispatcher::getInstance()
{
    ZnUDPIDispatcher* instance = s_instance.load();
    if (instance != nullptr)
    {
        return instance;
    }
    // Every reading socket comes here: two of them meeting on the first datagram must not make
    // two dispatchers.
    std::lock_guard<std::mutex> guard(s_instanceCreation);
    instance = s_instance.load();
    if (instance == nullptr)
    {
        instance = new ZnUDPIDispatcher();
        // One reference is kept until exit, so the queue stays valid for the shutdown walk.
        instance->AddRef();
        s_instance.store(instance);
        try
        {
            instance->fork();
        }
        catch (...)
        {
            s_instance.store(nullptr);
            // The pool's hold on its dispatcher would otherwise keep it alive for good.
            instance->getThreadPool()->setSignalThread(ZnHandle<ZnThread>());
            instance->Release();
            throw;
        }
        ACE_Object_Manager::at_exit(instance, &ZnUDPIDispatcher::sRelease, nullptr,
                                    "ZnUDPIDispatcher");
    }
    return instance;
}

void ZnUDPIDispatcher::sRelease(void* aDispatcher, void*)
{
    ZnUDPIDispatcher* dispatcher = static_cast<ZnUDPIDispatcher*>(aDispatcher);
    // Released at exit only after a completed shutdown: before that, its thread or its pool's
    // workers may still run.
    if (dispatcher->getState() == STATE_DETACHED && sShuttingDown() && sGetThreadTableSize() == 0)
    {
        ZnUDPIDispatcher* self = dispatcher;
        s_instance.compare_exchange_strong(self, nullptr);
        dispatcher->Release();
    }
}

ZnEventQueue* ZnUDPIDispatcher::getUDPEventQueue()
{
    ZnUDPIDispatcher* instance = s_instance.load();
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
    ZnUDPIDispatcher* self = this;
    s_instance.compare_exchange_strong(self, nullptr);
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
