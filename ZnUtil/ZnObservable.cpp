#include "ZnUtil/ZnObservable.h"

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnMultiSourceObserver.h"

ZnObservable::ZnObservable() = default;

ZnObservable::~ZnObservable()
{
    if (m_observer.isNil())
    {
        return;
    }
    ZnHandle<ZnObserver> observer = m_observer;
    m_observer = ZnHandle<ZnObserver>();
    ZnHandle<ZnObject> farewell(new ZnException("Disconnecting"));
    // This object is being destroyed: the handle given to the observer must not delete it again.
    AddRef();
    try
    {
        observer->onNotification(ZnHandle<ZnObservable>(this), farewell);
    }
    catch (...)
    {
        Release(false);
        throw;
    }
    Release(false);
}

void ZnObservable::onNotification(ZnHandle<ZnObservable>, ZnHandle<ZnObject> aArgument)
{
    notifyObservers(aArgument);
}

void ZnObservable::attachObserver(ZnHandle<ZnObserver> aObserver)
{
    if (!m_observer.isNil())
    {
        ZnException::sThrow("ZnObservable::attachObserver() ... The current implementation only "
                            "allows a single observer");
    }
    if (aObserver.isNil())
    {
        return;
    }
    if (aObserver->m_source.isNil())
    {
        m_observer = aObserver;
        aObserver->m_source = this;
        return;
    }
    ZnObservable* present = aObserver->m_source;
    if (ZnMultiSourceObserver* fanIn = dynamic_cast<ZnMultiSourceObserver*>(present))
    {
        fanIn->addSource(this);
        return;
    }
    // Nobody keeps the pointer: the new object lives through the observer's source handle.
    new ZnMultiSourceObserver(aObserver, this);
}

void ZnObservable::detachObserver(ZnHandle<ZnObserver> aObserver)
{
    const ZnObject* candidate = static_cast<ZnObserver*>(aObserver);
    const ZnObject* current = static_cast<ZnObserver*>(m_observer);
    if (candidate == nullptr || candidate != current)
    {
        return;
    }
    // Kept alive until both ends are cut.
    ZnHandle<ZnObserver> observer = m_observer;
    m_observer = ZnHandle<ZnObserver>();
    observer->m_source = ZnHandle<ZnObservable>();
}

unsigned int ZnObservable::countObservers() const
{
    return m_observer.isNil() ? 0 : 1;
}

bool ZnObservable::block()
{
    ZnHandle<ZnObservable> source = m_source;
    const bool result = source.isNil() ? true : source->block();
    notifyObservers(ZnHandle<ZnObject>());
    return result;
}

bool ZnObservable::unblock()
{
    ZnHandle<ZnObservable> source = m_source;
    const bool result = source.isNil() ? true : source->unblock();
    notifyObservers(ZnHandle<ZnObject>());
    return result;
}

void ZnObservable::notifyObservers(ZnHandle<ZnObject> aArgument)
{
    ZnHandle<ZnObserver> observer = m_observer;
    if (observer.isNil())
    {
        return;
    }
    observer->onNotification(ZnHandle<ZnObservable>(this), aArgument);
}
