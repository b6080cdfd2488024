#include "ZnUtil/ZnAggregatedObserver.h"

#include "ZnUtil/ZnObservable.h"

ZnAggregatedObserver::ZnAggregatedObserver(ZnObserver* aOwner)
    : m_pOwner(aOwner), m_pins(1), m_retired(false)
{
}

ZnAggregatedObserver::~ZnAggregatedObserver()
{
    detachWhileDestroying();
}

unsigned long ZnAggregatedObserver::AddRef()
{
    m_pins.fetch_add(1, std::memory_order_relaxed);
    return m_pOwner->AddRef();
}

unsigned long ZnAggregatedObserver::Release(bool deleteAtZero)
{
    // The owner outlives this call: the reference being dropped is one on the owner too.
    ZnObserver* owner = m_pOwner;
    if (m_pins.fetch_sub(1, std::memory_order_acq_rel) == 1 && deleteAtZero &&
        m_retired.load(std::memory_order_acquire))
    {
        // Let go by the owner earlier, while a notification was passing through.
        delete this;
    }
    return owner->Release(deleteAtZero);
}

void ZnAggregatedObserver::retire()
{
    // Detaching neither deletes this object nor the owner, whose count may be 0 here.
    detachWhileDestroying();
    m_retired.store(true, std::memory_order_release);
    if (m_pins.fetch_sub(1, std::memory_order_acq_rel) == 1)
    {
        delete this;
    }
}

void ZnAggregatedObserver::onNotification(ZnHandle<ZnObservable> aSource,
                                          ZnHandle<ZnObject> aArgument)
{
    m_pOwner->onNotification(aSource, aArgument);
}
