#include "ZnUtil/ZnAggregatedObserver.h"

#include "ZnUtil/ZnObservable.h"

ZnAggregatedObserver::ZnAggregatedObserver(ZnObserver* aOwner) : m_pOwner(aOwner) {}

ZnAggregatedObserver::~ZnAggregatedObserver()
{
    detachWhileDestroying();
}

unsigned long ZnAggregatedObserver::AddRef()
{
    return m_pOwner->AddRef();
}

unsigned long ZnAggregatedObserver::Release(bool deleteAtZero)
{
    return m_pOwner->Release(deleteAtZero);
}

void ZnAggregatedObserver::onNotification(ZnHandle<ZnObservable> aSource,
                                          ZnHandle<ZnObject> aArgument)
{
    m_pOwner->onNotification(aSource, aArgument);
}
