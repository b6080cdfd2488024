// A bounded ring of events between producers and one consumer.
#ifndef ZNUTIL_ZNEVENTQUEUE_H
#define ZNUTIL_ZNEVENTQUEUE_H

#include "ZnUtil/ZnSemaphore.h"

#include <atomic>

class ZnBaseEvent;
class ZnMutex;

/// A fixed ring of 4096 events with two counting semaphores: free slots and queued items. A
/// producer blocks when 4096 events wait, and the consumer when none does. Every blocking wait is
/// cut into 100 ms slices after five polls; a library thread told to exit gives up at the next
/// slice, and a thread the library did not start never gives up.
///
/// Ownership: the queue owns the events in its ring and deletes what is left when it goes.
/// Thread safety: one consumer; one producer with POLICY_SINGLE_PRODUCER (a second one is a
/// programming error nothing detects), any number with POLICY_MULTI_PRODUCER. WakeUpAll() may be
/// called from any thread.
class ZnEventQueue
{
public:
    /// Who puts events in.
    enum Policy
    {
        POLICY_SINGLE_PRODUCER = 0, ///< one thread; the write index is not locked
        POLICY_MULTI_PRODUCER = 1   ///< a mutex guards the write
    };

    /// Slots in the ring.
    static constexpr unsigned int kRingSize = 4096;
    /// The ceiling of the free-slot semaphore: above the ring, so WakeUpAll can always release.
    static constexpr unsigned int kFreeSlotMaximum = 8192;
    /// Polls of a semaphore before the blocking slices.
    static constexpr int kPollCount = 5;
    /// One blocking slice, in milliseconds.
    static constexpr unsigned int kSliceMilliSeconds = 100;

    explicit ZnEventQueue(Policy aPolicy = POLICY_SINGLE_PRODUCER);
    /// Deletes the events still in the ring.
    ~ZnEventQueue();

    /// Puts \p aEvent in, waiting for a free slot; the queue owns it from now on. A null event
    /// is ignored. When the calling library thread is told to exit while it waits, the event is
    /// deleted and nothing is reported.
    void addItem(ZnBaseEvent* aEvent);

    /// Takes the oldest event, waiting for one; the caller owns it.
    /// \return the event; null when the calling library thread was told to exit, or when a
    /// WakeUpAll() found the queue empty (which trips the assertion "pEvent != 0").
    ZnBaseEvent* getItem();

    /// Releases each semaphore by one: one waiting consumer and one waiting producer wake.
    void WakeUpAll();

    /// The events queued; a statistic, read without a lock.
    unsigned int getSize() const { return m_size.load(std::memory_order_relaxed); }

    Policy getPolicy() const { return m_policy; }
    unsigned int getReadIndex() const { return m_readIndex.load(std::memory_order_relaxed); }
    unsigned int getWriteIndex() const { return m_writeIndex.load(std::memory_order_relaxed); }
    /// With POLICY_SINGLE_PRODUCER, the id of the first thread that called addItem (0 before).
    unsigned int getProducerThreadId() const { return m_producerThreadId.load(); }

private:
    ZnEventQueue(const ZnEventQueue&) = delete;
    ZnEventQueue& operator=(const ZnEventQueue&) = delete;

    /// Takes one unit of \p aSemaphore: five polls, then 100 ms slices that test STATE_EXITING.
    /// \return false when the calling thread gave up because it is exiting.
    static bool sObtain(ZnSemaphore& aSemaphore);

    ZnSemaphore m_freeSlots;
    ZnSemaphore m_items;
    std::atomic<unsigned int> m_size;
    std::atomic<unsigned int> m_readIndex;  // the consumer's alone; atomic only to be read
    std::atomic<unsigned int> m_writeIndex; // the producer's, or guarded by m_pMutex
    ZnBaseEvent* m_ring[kRingSize];
    Policy m_policy;
    ZnMutex* m_pMutex;
    std::atomic<bool> m_bProducerSeen;
    std::atomic<unsigned int> m_producerThreadId;
};

#endif // ZNUTIL_ZNEVENTQUEUE_H
