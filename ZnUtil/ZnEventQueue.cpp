#include "ZnUtil/ZnEventQueue.h"

#include "ZnUtil/ZnBaseEvent.h"
#include "ZnUtil/ZnMutex.h"
#include "ZnUtil/ZnPlatform.h"
#include "ZnUtil/ZnThread.h"

#include "tavoris/Assertion.h"
#include "tavoris/LogSite.h"

namespace
{

TAVORIS_DEFINE_STATIC_LOGGER(queueLogger, "corvane.zn.ZnEventQueue")

const unsigned int kIndexMask = ZnEventQueue::kRingSize - 1;

} // namespace

ZnEventQueue::ZnEventQueue(Policy aPolicy)
    : m_freeSlots(kRingSize, kFreeSlotMaximum), m_items(0, kRingSize), m_size(0), m_readIndex(0),
      m_writeIndex(0), m_ring(), m_policy(aPolicy),
      m_pMutex(aPolicy == POLICY_MULTI_PRODUCER ? ZnMutex::sAllocate() : nullptr),
      m_bProducerSeen(false), m_producerThreadId(0)
{
    // The logger is made here, on the owner's thread, and not first on the consumer's thread,
    // which nothing orders against its release at exit.
    queueLogger();
}

ZnEventQueue::~ZnEventQueue()
{
    ZnMutex::sRecycle(m_pMutex);
    for (ZnBaseEvent*& event : m_ring)
    {
        delete event;
        event = nullptr;
    }
}

bool ZnEventQueue::sObtain(ZnSemaphore& aSemaphore)
{
    // The polls take the common, uncontended case past the thread lookup; what they obtain is
    // always used.
    for (int poll = 0; poll < kPollCount; ++poll)
    {
        if (aSemaphore.tryAcquire())
        {
            return true;
        }
    }
    // A thread the library did not start is not in the table, and never gives up.
    ZnThread* self = ZnThread::sGetByToken(ZnPlatform::sGetCurrentThreadId());
    bool obtained = aSemaphore.acquire(kSliceMilliSeconds);
    while (!obtained)
    {
        if (self != nullptr && self->getState() == ZnThread::STATE_EXITING)
        {
            return false;
        }
        obtained = aSemaphore.acquire(kSliceMilliSeconds);
    }
    if (self != nullptr && self->getState() == ZnThread::STATE_EXITING)
    {
        // An exiting thread gives up even with the unit in hand; the unit is not given back.
        return false;
    }
    return true;
}

void ZnEventQueue::addItem(ZnBaseEvent* aEvent)
{
    if (m_policy == POLICY_SINGLE_PRODUCER && !m_bProducerSeen.load(std::memory_order_relaxed))
    {
        // Recorded for inspection only; nothing compares it.
        m_producerThreadId.store(ZnPlatform::sGetCurrentThreadId());
        m_bProducerSeen.store(true, std::memory_order_relaxed);
    }
    if (aEvent == nullptr)
    {
        return;
    }
    if (!sObtain(m_freeSlots))
    {
        // An exiting producer's event disappears without a report.
        delete aEvent;
        return;
    }
    if (m_pMutex != nullptr)
    {
        m_pMutex->lock();
    }
    const unsigned int writeIndex = m_writeIndex.load(std::memory_order_relaxed);
    ZnBaseEvent*& slot = m_ring[writeIndex];
    // A slot still taken (after a WakeUpAll released a free slot that was not there) loses its
    // event.
    delete slot;
    slot = aEvent;
    m_size.fetch_add(1, std::memory_order_relaxed);
    m_writeIndex.store((writeIndex + 1) & kIndexMask, std::memory_order_relaxed);
    if (m_pMutex != nullptr)
    {
        m_pMutex->unlock();
    }
    // Released after the slot is written: the one consumer reads the ring unguarded.
    m_items.release();
}

ZnBaseEvent* ZnEventQueue::getItem()
{
    if (!sObtain(m_items))
    {
        return nullptr;
    }
    const unsigned int readIndex = m_readIndex.load(std::memory_order_relaxed);
    ZnBaseEvent*& slot = m_ring[readIndex];
    ZnBaseEvent* event = slot;
    slot = nullptr;
    // A WakeUpAll on an empty queue lets the consumer find an empty slot here.
    Tavoris::Assertion(event != nullptr, "pEvent != 0", queueLogger(), TAVORIS_SOURCE_NAME,
                       __LINE__);
    m_size.fetch_sub(1, std::memory_order_relaxed);
    m_readIndex.store((readIndex + 1) & kIndexMask, std::memory_order_relaxed);
    m_freeSlots.release();
    return event;
}

void ZnEventQueue::WakeUpAll()
{
    // One waiter of each kind: each queue has one consumer, and exiting producers find out by
    // their 100 ms slices.
    m_items.release();
    m_freeSlots.release();
}
