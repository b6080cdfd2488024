#include "ZnUtil/ZnObserver.h"

#include "ZnUtil/ZnObservable.h"

ZnObserver::ZnObserver() = default;

ZnObserver::~ZnObserver()
{
    detachWhileDestroying();
    m_source = ZnHandle<ZnObservable>();
}

void ZnObserver::onNotification(ZnHandle<ZnObservable>, ZnHandle<ZnObject>) {}

ZnHandle<ZnObservable> ZnObserver::getSource() const
{
    return m_source;
}

void ZnObserver::detach()
{
    if (m_source.isNil())
    {
        return;
    }
    ZnHandle<ZnObservable> source = m_source;
    source->detachObserver(ZnHandle<ZnObserver>(this));
}

void ZnObserver::detachWhileDestroying()
{
    if (m_source.isNil())
    {
        return;
    }
    ZnHandle<ZnObservable> source = m_source;
    // The handle made for the call counts this object up and down again; the extra reference
    // keeps that from reaching 0 and deleting an object that is already being destroyed.
    AddRef();
    try
    {
        source->detachObserver(ZnHandle<ZnObserver>(this));
    }
    catch (...)
    {
        Release(false);
        throw;
    }
    Release(false);
}
