#include "ZnUtil/ZnTimerEvent.h"

ZnTimerEvent::ZnTimerEvent(ZnHandle<ZnObserver> aObserver, ZnHandle<ZnObject> aArgument)
    : m_hObserver(aObserver), m_hArgument(aArgument)
{
}

ZnTimerEvent::~ZnTimerEvent() = default;
