// The event by which a due timer reaches the timer dispatcher.
#ifndef ZNUTIL_ZNTIMEREVENT_H
#define ZNUTIL_ZNTIMEREVENT_H

#include "ZnUtil/ZnBaseEvent.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObserver.h"

/// A due timer: the observer to notify and the argument to give it. Holds both by handles.
class ZnTimerEvent : public ZnBaseEvent
{
public:
    ZnTimerEvent(ZnHandle<ZnObserver> aObserver, ZnHandle<ZnObject> aArgument);
    ZnTimerEvent(const ZnTimerEvent&) = default;
    ZnTimerEvent& operator=(const ZnTimerEvent&) = default;
    ~ZnTimerEvent() override;

    ZnHandle<ZnObserver> getObserver() const { return m_hObserver; }
    ZnHandle<ZnObject> getArgument() const { return m_hArgument; }

private:
    ZnHandle<ZnObserver> m_hObserver;
    ZnHandle<ZnObject> m_hArgument;
};

#endif // ZNUTIL_ZNTIMEREVENT_H
