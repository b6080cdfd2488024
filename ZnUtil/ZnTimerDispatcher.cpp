#include "ZnUtil/ZnTimerDispatcher.h"

#include "ZnUtil/ZnTimerEvent.h"

#include <ace/Object_Manager.h>

#include <atomic>

namespace
{

std::atomic<ZnTimerDispatcher*> s_instance{nullptr};

} // namespace

ZnTimerDispatcher::ZnTimerDispatcher()
    : ZnDispatcherThread(this, 10, ZnEventQueue::POLICY_SINGLE_PRODUCER)
{
}

ZnTimerDispatcher::~ZnTimerDispatcher() = default;

ZnTimerDispatcher* ZnTimerDispatcher::getInstance()
{
    ZnTimerDispatcher* instance = s_instance.load();
    if (instance == nullptr)
    {
        // Not guarded against a concurrent first use: only the monitor threads come here.
        instance = new ZnTimerDispatcher();
        // One reference is kept until exit, so the queue stays valid for the shutdown walk.
        instance->AddRef();
        s_instance.store(instance);
        ACE_Object_Manager::at_exit(instance, &ZnTimerDispatcher::sRelease, nullptr,
                                    "ZnTimerDispatcher");
        instance->fork();
    }
    return instance;
}

void ZnTimerDispatcher::sRelease(void* aDispatcher, void*)
{
    ZnTimerDispatcher* dispatcher = static_cast<ZnTimerDispatcher*>(aDispatcher);
    // A dispatcher is released at exit only after a completed shutdown: before that, its
    // thread or its pool's workers may still run, and waking them now would have them log
    // through loggers that exit is taking down.
    if (dispatcher->getState() == STATE_DETACHED && sShuttingDown() && sGetThreadTableSize() == 0)
    {
        ZnTimerDispatcher* self = dispatcher;
        s_instance.compare_exchange_strong(self, nullptr);
        dispatcher->Release();
    }
}

ZnEventQueue* ZnTimerDispatcher::getTimerEventQueue()
{
    ZnTimerDispatcher* instance = s_instance.load();
    return instance != nullptr ? instance->getEventQueue() : nullptr;
}

void ZnTimerDispatcher::process(ZnBaseEvent* aEvent)
{
    ZnTimerEvent* timerEvent = static_cast<ZnTimerEvent*>(aEvent);
    getThreadPool()->doObserverNotifications(timerEvent->getObserver(), timerEvent->getArgument());
}

void ZnTimerDispatcher::atExit()
{
    ZnTimerDispatcher* self = this;
    s_instance.compare_exchange_strong(self, nullptr);
}
