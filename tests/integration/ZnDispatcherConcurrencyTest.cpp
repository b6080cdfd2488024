#include "ZnUtil/ZnBaseEvent.h"
#include "ZnUtil/ZnDispatcherThread.h"
#include "ZnUtil/ZnEventQueue.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnMutex.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnObserver.h"
#include "ZnUtil/ZnThread.h"
#include "ZnUtil/ZnThreadPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <vector>

#include "support/IndexTally.h"
#include "support/TaskThread.h"
#include "support/WaitUntil.h"

namespace
{

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;
using ZnTest::IndexTally;
using ZnTest::LibThread;
using ZnTest::TaskThread;
using ZnTest::waitUntil;

const int kProducers = 4;
const int kTotalEvents = 100000;
const int kPerProducer = kTotalEvents / kProducers;
const unsigned int kPoolThreads = 4;
/// How long the whole run may take before the test gives up on it.
const Clock::duration kTransferBound = 120s;

/// The work an event carries: a counted object that tells its destruction.
class Payload : public ZnObject
{
public:
    Payload(int index, IndexTally* destroyed) : m_index(index), m_destroyed(destroyed) {}
    ~Payload() override { m_destroyed->bump(m_index); }

    int getIndex() const { return m_index; }

private:
    int m_index;
    IndexTally* m_destroyed;
};

/// An event that holds its payload; tells its own destruction.
class PayloadEvent : public ZnBaseEvent
{
public:
    PayloadEvent(Payload* payload, IndexTally* destroyed)
        : m_payload(payload), m_index(payload->getIndex()), m_destroyed(destroyed)
    {
    }
    ~PayloadEvent() override { m_destroyed->bump(m_index); }

    Payload* getPayload() const { return m_payload; }

private:
    ZnHandle<Payload> m_payload;
    int m_index;
    IndexTally* m_destroyed;
};

/// Counts each payload it is told of, and keeps the threads that told it.
class CountingObserver : public ZnObserver
{
public:
    explicit CountingObserver(IndexTally* processed)
        : m_processed(processed), m_pMutex(ZnMutex::sAllocate())
    {
    }
    ~CountingObserver() override { ZnMutex::sRecycle(m_pMutex); }

    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override
    {
        if (!aSource.isNil())
        {
            m_withSource.fetch_add(1);
        }
        const Payload* payload = dynamic_cast<const Payload*>(static_cast<ZnObject*>(aArgument));
        m_processed->bump(payload == nullptr ? -1 : payload->getIndex());
        ZnThread* current = ZnThread::sGetCurrent();
        ZnMutexGuard guard(m_pMutex);
        bool known = false;
        for (const ZnHandle<ZnThread>& thread : m_threads)
        {
            known = known || static_cast<ZnThread*>(thread) == current;
        }
        if (!known && current != nullptr)
        {
            m_threads.push_back(current);
        }
    }

    /// The library threads that ran notifications.
    std::vector<ZnHandle<ZnThread>> takeThreads()
    {
        ZnMutexGuard guard(m_pMutex);
        std::vector<ZnHandle<ZnThread>> threads;
        threads.swap(m_threads);
        return threads;
    }

    int withSource() const { return m_withSource.load(); }

private:
    IndexTally* m_processed;
    ZnMutex* m_pMutex;
    std::vector<ZnHandle<ZnThread>> m_threads; // guarded by m_pMutex
    std::atomic<int> m_withSource{0};
};

/// Hands each event's payload to its pool, for the observer.
class PoolDispatcher : public ZnDispatcherThread
{
public:
    PoolDispatcher(ZnObserver* observer, std::atomic<bool>* destroyed)
        : ZnDispatcherThread(nullptr, kPoolThreads, ZnEventQueue::POLICY_MULTI_PRODUCER),
          m_observer(observer), m_destroyed(destroyed)
    {
    }
    ~PoolDispatcher() override { m_destroyed->store(true); }

    void process(ZnBaseEvent* aEvent) override
    {
        PayloadEvent* event = dynamic_cast<PayloadEvent*>(aEvent);
        if (event == nullptr)
        {
            m_foreign.fetch_add(1);
            return;
        }
        getThreadPool()->doObserverNotifications(m_observer, event->getPayload());
    }

    int foreign() const { return m_foreign.load(); }

private:
    ZnHandle<ZnObserver> m_observer;
    std::atomic<bool>* m_destroyed;
    std::atomic<int> m_foreign{0};
};

/// Ends a running dispatcher when the test leaves, however it leaves: terminate, then a wake-up
/// for the consumer blocked in the queue.
class DispatcherEnder
{
public:
    explicit DispatcherEnder(ZnDispatcherThread* dispatcher) : m_dispatcher(dispatcher) {}
    ~DispatcherEnder() { end(); }

    DispatcherEnder(const DispatcherEnder&) = delete;
    DispatcherEnder& operator=(const DispatcherEnder&) = delete;

    /// \return true once the dispatcher is detached.
    bool end()
    {
        if (m_dispatcher->getState() != ZnThread::STATE_DETACHED)
        {
            m_dispatcher->terminate();
            m_dispatcher->getEventQueue()->WakeUpAll();
        }
        return waitUntil([this] { return m_dispatcher->getState() == ZnThread::STATE_DETACHED; });
    }

private:
    ZnHandle<ZnDispatcherThread> m_dispatcher;
};

/// Ends the pool's workers: they run until told to exit, which only shutdown does otherwise.
/// \return true when every one has left its run loop.
bool endWorkers(std::vector<ZnHandle<ZnThread>>& workers)
{
    for (ZnHandle<ZnThread>& worker : workers)
    {
        worker->terminate();
    }
    bool allDetached = true;
    for (ZnHandle<ZnThread>& worker : workers)
    {
        allDetached = waitUntil([&] { return worker->getState() == ZnThread::STATE_DETACHED; }) &&
                      allDetached;
    }
    workers.clear();
    return allDetached;
}

TEST(ZnDispatcherConcurrencyTest, FourProducersEveryEventProcessedAndDeletedOnce)
{
    IndexTally processed(kTotalEvents);
    IndexTally eventsDestroyed(kTotalEvents);
    IndexTally payloadsDestroyed(kTotalEvents);
    std::atomic<bool> dispatcherDestroyed{false};
    const unsigned int tableBefore = ZnThread::sGetThreadTableSize();
    {
        ZnHandle<CountingObserver> observer(new CountingObserver(&processed));
        ZnHandle<PoolDispatcher> dispatcher(new PoolDispatcher(observer, &dispatcherDestroyed));
        dispatcher->fork();
        DispatcherEnder ender(dispatcher);
        {
            std::vector<std::unique_ptr<LibThread>> producers;
            std::atomic<int> producersDone{0};
            for (int p = 0; p < kProducers; ++p)
            {
                producers.emplace_back(new LibThread(
                    [&, p](TaskThread&)
                    {
                        for (int s = 0; s < kPerProducer; ++s)
                        {
                            const int index = p * kPerProducer + s;
                            dispatcher->addEvent(new PayloadEvent(
                                new Payload(index, &payloadsDestroyed), &eventsDestroyed));
                        }
                        producersDone.fetch_add(1);
                    }));
            }
            EXPECT_TRUE(
                waitUntil([&] { return processed.total() >= kTotalEvents; }, kTransferBound))
                << "processed " << processed.total() << " of " << kTotalEvents;
            EXPECT_EQ(kProducers, producersDone.load());
            for (std::unique_ptr<LibThread>& producer : producers)
            {
                EXPECT_TRUE(producer->finish());
            }
        }

        // The pool really was used, within its bound.
        // (When every worker was busy, the dispatcher's own thread did the job.)
        std::vector<ZnHandle<ZnThread>> workers = observer->takeThreads();
        workers.erase(std::remove_if(workers.begin(), workers.end(),
                                     [&](const ZnHandle<ZnThread>& thread) {
                                         return static_cast<ZnThread*>(thread) ==
                                                static_cast<ZnThread*>(dispatcher);
                                     }),
                      workers.end());
        ZnThreadPool* pool = dispatcher->getThreadPool();
        EXPECT_GE(workers.size(), 1u);
        EXPECT_LE(workers.size(), static_cast<size_t>(kPoolThreads));
        EXPECT_EQ(workers.size(), static_cast<size_t>(pool->getThreadCount()));
        EXPECT_EQ(0, observer->withSource());
        EXPECT_EQ(0, dispatcher->foreign());
        EXPECT_TRUE(endWorkers(workers));
        EXPECT_TRUE(waitUntil([&] { return pool->getThreadCount() == 0u; }));

        // Every event but the current one is gone; so is every payload, its job done.
        EXPECT_TRUE(waitUntil([&] { return payloadsDestroyed.total() >= kTotalEvents - 1; }));
        EXPECT_EQ(kTotalEvents - 1, eventsDestroyed.total());

        EXPECT_TRUE(ender.end());
        EXPECT_EQ(0u, dispatcher->getEventQueue()->getSize());
    }
    EXPECT_TRUE(waitUntil([&] { return dispatcherDestroyed.load(); }));
    EXPECT_TRUE(waitUntil([&] { return ZnThread::sGetThreadTableSize() == tableBefore; }));

    EXPECT_EQ(kTotalEvents, processed.total());
    EXPECT_EQ(0, processed.outOfRange());
    const int notProcessedOnce = processed.firstNotOnce();
    EXPECT_EQ(-1, notProcessedOnce) << "payload " << notProcessedOnce << " processed "
                                    << processed.countOf(notProcessedOnce) << " times";

    EXPECT_EQ(kTotalEvents, eventsDestroyed.total());
    const int eventNotOnce = eventsDestroyed.firstNotOnce();
    EXPECT_EQ(-1, eventNotOnce) << "event " << eventNotOnce << " deleted "
                                << eventsDestroyed.countOf(eventNotOnce) << " times";

    EXPECT_TRUE(waitUntil([&] { return payloadsDestroyed.total() >= kTotalEvents; }));
    EXPECT_EQ(kTotalEvents, payloadsDestroyed.total());
    EXPECT_EQ(-1, payloadsDestroyed.firstNotOnce());
}

} // namespace
