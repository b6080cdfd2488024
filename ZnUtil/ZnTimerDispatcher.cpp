#include "ZnUtil/ZnTimerDispatcher.h"

#include "ZnUtil/ZnDispatcherInstance.h"
#include "ZnUtil/ZnTimerEvent.h"

#include <atomic>

namespace
{

ZnDispatcherInstance<ZnTimerDispatcher> s_instance("ZnTimerDispatcher");

} // namespace

ZnTimerDispatcher::ZnTimerDispatcher()
    : ZnDispatcherThread(this, 10, ZnEventQueue::POLICY_SINGLE_PRODUCER)
{
}

ZnTimerDispatcher::~ZnTimerDispatcher() = default;

ZnTimerDispatcher* ZnTimerDispatcher::getInstance()
{
    return s_instance.getOrMake();
}

ZnEventQueue* ZnTimerDispatcher::getTimerEventQueue()
{
    ZnTimerDispatcher* instance = s_instance.get();
    return instance != nullptr ? instance->getEventQueue() : nullptr;
}

void ZnTimerDispatcher::process(ZnBaseEvent* aEvent)
{
    ZnTimerEvent* timerEvent = static_cast<ZnTimerEvent*>(aEvent);
    getThreadPool()->doObserverNotifications(timerEvent->getObserver(), timerEvent->getArgument());
}

void ZnTimerDispatcher::atExit()
{
    s_instance.forget(this);
}
