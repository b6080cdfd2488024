#include "ZnUtil/ZnMultiSourceObserver.h"

#include "ZnUtil/ZnAggregatedObserver.h"
#include "ZnUtil/ZnMutex.h"

#include "tavoris/Assertion.h"

ZnMultiSourceObserver::ZnMultiSourceObserver(ZnObserver* aObserver, ZnObservable* aSecondSource)
    : m_pMutex(nullptr)
{
    ZnHandle<ZnObservable> present = aObserver->m_source;
    m_observer = aObserver;
    aObserver->m_source = this;
    m_pMutex = ZnMutex::sAllocate();
    if (!present.isNil())
    {
        // The present source now reports through an aggregated observer of this object.
        present->m_observer = ZnHandle<ZnObserver>();
        addSource(present);
    }
    addSource(aSecondSource);
}

ZnMultiSourceObserver::~ZnMultiSourceObserver()
{
    detachAll();
    ZnMutex::sRecycle(m_pMutex);
}

void ZnMultiSourceObserver::addSource(ZnObservable* aSource)
{
    ZnMutexGuard guard(m_pMutex);
    ZnAggregatedObserver* link = new ZnAggregatedObserver(this);
    try
    {
        aSource->attachObserver(ZnHandle<ZnObserver>(link));
    }
    catch (...)
    {
        link->retire();
        throw;
    }
    m_sources.push_back(link);
}

void ZnMultiSourceObserver::removeSource(ZnObservable* aSource)
{
    ZnMutexGuard guard(m_pMutex);
    for (auto it = m_sources.begin(); it != m_sources.end(); ++it)
    {
        ZnObservable* linked = (*it)->m_source;
        if (linked == aSource)
        {
            ZnAggregatedObserver* link = *it;
            m_sources.erase(it);
            // Not deleted outright: a notification may be passing through it right now, when an
            // observer removes its source from inside onNotification.
            link->retire();
            return;
        }
    }
}

void ZnMultiSourceObserver::detachAll()
{
    ZnMutexGuard guard(m_pMutex);
    std::vector<ZnAggregatedObserver*> links;
    links.swap(m_sources);
    for (ZnAggregatedObserver* link : links)
    {
        link->retire();
    }
}

unsigned int ZnMultiSourceObserver::countSources() const
{
    ZnMutexGuard guard(m_pMutex);
    return static_cast<unsigned int>(m_sources.size());
}

void ZnMultiSourceObserver::onNotification(ZnHandle<ZnObservable> aSource,
                                           ZnHandle<ZnObject> aArgument)
{
    ZnHandle<ZnObserver> observer = m_observer;
    if (observer.isNil())
    {
        Tavoris::Assertion(false, "ZnMultiSourceObserver::onNotification without observer",
                           "ZnMultiSourceObserver", __LINE__);
        return;
    }
    // The source goes on unchanged, so the observer can tell its sources apart.
    observer->onNotification(aSource, aArgument);
}

void ZnMultiSourceObserver::detachObserver(ZnHandle<ZnObserver> aObserver)
{
    const ZnObject* candidate = static_cast<ZnObserver*>(aObserver);
    const ZnObject* current = static_cast<ZnObserver*>(m_observer);
    if (candidate != nullptr && candidate == current)
    {
        // This object may lose its last reference below: a local handle keeps it to the end.
        ZnHandle<ZnObservable> self(this);
        detachAll();
        ZnObservable::detachObserver(aObserver);
        return;
    }
    ZnObservable::detachObserver(aObserver);
}
