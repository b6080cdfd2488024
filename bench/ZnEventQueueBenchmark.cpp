// Events through ZnEventQueue and ZnDispatcherThread, and the timers of ZnScheduler and
// ZnMonitorThread, against baselines doing the same work in the same run:
//
// - Throughput of a queue, one consumer thread, one producer (POLICY_SINGLE_PRODUCER) or two
//   (POLICY_MULTI_PRODUCER): ZnEventQueue, ACE_Message_Queue<ACE_MT_SYNCH> bounded at 4096
//   blocks, and a ring of 4096 behind a std::mutex with two std::condition_variables.
// - Throughput of a dispatcher to its pool: producers, a ZnDispatcherThread whose process() hands
//   each event to ZnThreadPool::doObserverNotifications, and a counting observer; against the
//   same shape made of either baseline queue, a consumer thread and a pool of the same design
//   built on the standard library (the idle worker that went idle last, or the caller itself).
// - Latency of one event from addEvent to process(), one event at a time, against the mutex
//   ring and a consumer thread.
// - Lateness of 10 000 timers spread over 2 s through ZnMonitorThread::sMonitorTime, against a
//   std::thread sleeping on a std::priority_queue of deadlines.
// - Cost of a schedule and a cancel on ZnScheduler, against a std::multimap behind a std::mutex.
//
// Every event is made with new by its producer and deleted by its consumer, on all sides, as
// ZnEventQueue takes ownership of what it is given. Throughput runs move rounds of 8192 events;
// a round ends when the consumer (or the observer) has counted all of them, so that what is
// timed is the whole trip. All threads of a run are ended before the run returns: consumers by a
// stop event, dispatchers by terminate() and WakeUpAll(), pool workers by terminate(). The
// process-wide monitor thread and timer dispatcher are ended by main() after the last run.
#include "ZnUtil/ZnEventQueue.h"

#include "ZnUtil/ZnBaseEvent.h"
#include "ZnUtil/ZnDispatcherThread.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnMonitorThread.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnObserver.h"
#include "ZnUtil/ZnPlatform.h"
#include "ZnUtil/ZnProcess.h"
#include "ZnUtil/ZnScheduler.h"
#include "ZnUtil/ZnThread.h"
#include "ZnUtil/ZnThreadPool.h"
#include "ZnUtil/ZnTime.h"
#include "ZnUtil/ZnTimer.h"
#include "ZnUtil/ZnTimerDispatcher.h"
#include "ZnUtil/ZnWorkerThread.h"

#include <ace/Condition_Thread_Mutex.h>
#include <ace/Message_Block.h>
#include <ace/Message_Queue_T.h>
#include <ace/Synch_Traits.h>
#include <ace/Thread_Mutex.h>
#include <benchmark/benchmark.h>
#include <log4cplus/logger.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <queue>
#include <random>
#include <thread>
#include <utility>
#include <vector>

namespace
{

/// Events in one round of a throughput run; a multiple of the producer counts.
const unsigned int kBatch = 8192;
/// Slots of every bounded queue, ZnEventQueue's ring size.
const unsigned int kCapacity = ZnEventQueue::kRingSize;
/// Workers of every pool, as the library's timer and input dispatchers have.
const unsigned int kPoolMaximum = 10;
/// The sequence of the event that tells a consumer to end.
const uint64_t kStopSequence = std::numeric_limits<uint64_t>::max();
/// How long anything is waited for before a run gives up.
const std::chrono::seconds kPatience(30);

const unsigned int kTimerCount = 10000;
const unsigned int kTimerSpreadMilliSeconds = 2000;
/// Timers held by the scheduler while schedule and cancel are timed, as a busy stack has them.
const unsigned int kStandingTimers = 1000;
const unsigned int kCancelDelayMilliSeconds = 60000;

/// The event of every run: a sequence number, a time stamp for latency runs, and for dispatcher
/// runs a counted argument that the observer reads on a pool worker.
class BenchEvent : public ZnBaseEvent
{
public:
    explicit BenchEvent(uint64_t aSequence, ZnObject* aArgument = nullptr)
        : sequence(aSequence), stampNs(0), argument(aArgument)
    {
    }

    uint64_t sequence;
    uint64_t stampNs;
    ZnHandle<ZnObject> argument;
};

/// The argument of a dispatcher run's notifications.
class Payload : public ZnObject
{
public:
    explicit Payload(uint64_t aSequence) : sequence(aSequence) {}

    uint64_t sequence;
};

/// The sum 0 + 1 + ... + (n - 1), what a tally of n events from sequence 0 adds up to.
uint64_t sumBelow(uint64_t n)
{
    return n * (n - 1) / 2;
}

/// Waits up to kPatience, in 1 ms steps, until \p aPredicate holds.
bool waitUntil(const std::function<bool()>& aPredicate)
{
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!aPredicate())
    {
        if (std::chrono::steady_clock::now() > end)
        {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// Tells \p aThread to end, wakes the taker of \p aQueue if one is given, and waits until the
/// thread has left its main().
bool endThread(ZnThread* aThread, ZnEventQueue* aQueue = nullptr)
{
    aThread->terminate();
    if (aQueue != nullptr)
    {
        aQueue->WakeUpAll();
    }
    return waitUntil([aThread] { return aThread->getState() == ZnThread::STATE_DETACHED; });
}

/// Counts the events a consumer or an observer got, with the sum of their sequence numbers, and
/// wakes the benchmark's thread whenever a whole round has arrived.
class Tally
{
public:
    void add(uint64_t aSequence)
    {
        m_sum.fetch_add(aSequence, std::memory_order_relaxed);
        const uint64_t count = m_count.fetch_add(1, std::memory_order_acq_rel) + 1;
        if (count % kBatch == 0)
        {
            // Through the mutex, so that a waiter between its test and its wait is not missed.
            {
                std::lock_guard<std::mutex> guard(m_mutex);
            }
            m_arrived.notify_all();
        }
    }

    /// Waits until \p aCount events have been counted in all.
    bool waitFor(uint64_t aCount)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_arrived.wait_for(lock, kPatience, [this, aCount] { return count() >= aCount; });
    }

    uint64_t count() const { return m_count.load(std::memory_order_acquire); }
    uint64_t sum() const { return m_sum.load(std::memory_order_relaxed); }

private:
    std::atomic<uint64_t> m_count{0};
    std::atomic<uint64_t> m_sum{0};
    std::mutex m_mutex;
    std::condition_variable m_arrived;
};

/// Producer threads: at each round the benchmark's thread starts, each puts its share of kBatch
/// events in, with consecutive sequence numbers. At the end the first of them puts the stop
/// event in, where the consumer needs one.
class Producers
{
public:
    using Put = std::function<void(uint64_t)>;

    Producers(unsigned int aCount, Put aPut, bool aSendStop)
        : m_put(std::move(aPut)), m_count(aCount), m_bSendStop(aSendStop)
    {
        for (unsigned int i = 0; i < aCount; ++i)
        {
            m_threads.emplace_back([this, i] { produce(i); });
        }
    }

    ~Producers()
    {
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            m_bStop = true;
        }
        m_start.notify_all();
        for (std::thread& thread : m_threads)
        {
            thread.join();
        }
    }

    /// Starts round \p aRound, of the sequence numbers from aRound * kBatch; returns at once.
    void startRound(uint64_t aRound)
    {
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            m_round = aRound + 1;
        }
        m_start.notify_all();
    }

private:
    void produce(unsigned int aIndex)
    {
        uint64_t done = 0;
        const unsigned int share = kBatch / m_count;
        for (;;)
        {
            uint64_t round;
            {
                std::unique_lock<std::mutex> lock(m_mutex);
                m_start.wait(lock, [this, done] { return m_bStop || m_round != done; });
                if (m_round == done)
                {
                    break;
                }
                round = m_round;
            }
            const uint64_t first = (round - 1) * kBatch + aIndex * share;
            for (uint64_t sequence = first; sequence < first + share; ++sequence)
            {
                m_put(sequence);
            }
            done = round;
        }
        if (aIndex == 0 && m_bSendStop)
        {
            m_put(kStopSequence);
        }
    }

    Put m_put;
    unsigned int m_count;
    bool m_bSendStop;
    std::mutex m_mutex;
    std::condition_variable m_start;
    uint64_t m_round = 0; // rounds started
    bool m_bStop = false;
    std::vector<std::thread> m_threads;
};

/// Runs the rounds of a throughput benchmark: one round before the loop, checked against
/// \p aTally, then one round per iteration.
void runRounds(benchmark::State& state, Producers& aProducers, Tally& aTally)
{
    aProducers.startRound(0);
    if (!aTally.waitFor(kBatch) || aTally.count() != kBatch || aTally.sum() != sumBelow(kBatch))
    {
        state.SkipWithError("the events of a round did not all arrive");
        return;
    }
    uint64_t round = 1;
    for (auto _ : state)
    {
        aProducers.startRound(round);
        ++round;
        if (!aTally.waitFor(round * kBatch))
        {
            state.SkipWithError("a round did not arrive");
            break;
        }
    }
    benchmark::DoNotOptimize(aTally.sum());
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kBatch);
}

// ---- the queues ----

/// ZnEventQueue as the runs use a queue.
class ZnQueue
{
public:
    explicit ZnQueue(unsigned int aProducers)
        : m_queue(aProducers > 1 ? ZnEventQueue::POLICY_MULTI_PRODUCER
                                 : ZnEventQueue::POLICY_SINGLE_PRODUCER)
    {
    }

    void put(ZnBaseEvent* aEvent) { m_queue.addItem(aEvent); }
    ZnBaseEvent* take() { return m_queue.getItem(); }

private:
    ZnEventQueue m_queue;
};

/// ACE_Message_Queue<ACE_MT_SYNCH>, bounded at 4096 blocks: each block wraps the event itself
/// (its base is the event, 8 bytes counted), and the high water mark is 4096 such blocks.
class AceQueue
{
public:
    explicit AceQueue(unsigned int = 1) : m_queue(kHighWaterMark, kHighWaterMark) {}

    ~AceQueue()
    {
        ACE_Message_Block* block = nullptr;
        while (m_queue.dequeue_head(block, &m_noWait) != -1)
        {
            delete reinterpret_cast<ZnBaseEvent*>(block->base());
            block->release();
        }
    }

    void put(ZnBaseEvent* aEvent)
    {
        ACE_Message_Block* block =
            new ACE_Message_Block(reinterpret_cast<const char*>(aEvent), sizeof(aEvent));
        if (m_queue.enqueue_tail(block) == -1)
        {
            block->release();
            delete aEvent;
        }
    }

    ZnBaseEvent* take()
    {
        ACE_Message_Block* block = nullptr;
        if (m_queue.dequeue_head(block) == -1)
        {
            return nullptr;
        }
        ZnBaseEvent* event = reinterpret_cast<ZnBaseEvent*>(block->base());
        block->release();
        return event;
    }

    /// Puts without waiting; false when the queue is full.
    bool tryPut(ZnBaseEvent* aEvent)
    {
        ACE_Message_Block* block =
            new ACE_Message_Block(reinterpret_cast<const char*>(aEvent), sizeof(aEvent));
        if (m_queue.enqueue_tail(block, &m_noWait) == -1)
        {
            block->release();
            return false;
        }
        return true;
    }

private:
    static const size_t kHighWaterMark = kCapacity * sizeof(ZnBaseEvent*);

    ACE_Message_Queue<ACE_MT_SYNCH> m_queue;
    ACE_Time_Value m_noWait{ACE_Time_Value::zero};
};

/// The standard baseline: a ring of 4096 events behind one std::mutex, with a condition for
/// each direction.
class MutexCondvarQueue
{
public:
    explicit MutexCondvarQueue(unsigned int = 1) {}

    ~MutexCondvarQueue()
    {
        for (; m_size > 0; --m_size)
        {
            delete m_ring[m_head];
            m_head = (m_head + 1) % kCapacity;
        }
    }

    void put(ZnBaseEvent* aEvent)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_notFull.wait(lock, [this] { return m_size < kCapacity; });
        m_ring[(m_head + m_size) % kCapacity] = aEvent;
        ++m_size;
        lock.unlock();
        m_notEmpty.notify_one();
    }

    ZnBaseEvent* take()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_notEmpty.wait(lock, [this] { return m_size > 0; });
        ZnBaseEvent* event = m_ring[m_head];
        m_head = (m_head + 1) % kCapacity;
        --m_size;
        lock.unlock();
        m_notFull.notify_one();
        return event;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_notFull;
    std::condition_variable m_notEmpty;
    ZnBaseEvent* m_ring[kCapacity] = {};
    unsigned int m_head = 0;
    unsigned int m_size = 0;
};

/// Takes events off \p aQueue and counts them until the stop event.
template <typename Queue>
void consumeAndCount(Queue& aQueue, Tally& aTally)
{
    for (;;)
    {
        BenchEvent* event = static_cast<BenchEvent*>(aQueue.take());
        if (event == nullptr || event->sequence == kStopSequence)
        {
            delete event;
            return;
        }
        aTally.add(event->sequence);
        delete event;
    }
}

// ---- 1. queue throughput: producers, one queue, one consumer thread ----

template <typename Queue>
void queueThroughput(benchmark::State& state, unsigned int aProducers)
{
    std::unique_ptr<Queue> queue(new Queue(aProducers));
    Tally tally;
    std::thread consumer([&queue, &tally] { consumeAndCount(*queue, tally); });
    {
        Producers producers(
            aProducers, [&queue](uint64_t aSequence) { queue->put(new BenchEvent(aSequence)); },
            true);
        runRounds(state, producers, tally);
    }
    consumer.join();
}

void BM_ZnEventQueue_OneProducer(benchmark::State& state)
{
    queueThroughput<ZnQueue>(state, 1);
}
BENCHMARK(BM_ZnEventQueue_OneProducer)->UseRealTime();

void BM_AceMessageQueue_OneProducer(benchmark::State& state)
{
    // The high water mark bounds the queue at exactly as many events as ZnEventQueue's ring.
    {
        AceQueue bounded;
        unsigned int accepted = 0;
        while (accepted <= kCapacity)
        {
            BenchEvent* event = new BenchEvent(accepted);
            if (!bounded.tryPut(event))
            {
                delete event;
                break;
            }
            ++accepted;
        }
        if (accepted != kCapacity)
        {
            state.SkipWithError("the ACE queue does not hold exactly 4096 events");
            return;
        }
    }
    queueThroughput<AceQueue>(state, 1);
}
BENCHMARK(BM_AceMessageQueue_OneProducer)->UseRealTime();

void BM_MutexCondvarQueue_OneProducer(benchmark::State& state)
{
    queueThroughput<MutexCondvarQueue>(state, 1);
}
BENCHMARK(BM_MutexCondvarQueue_OneProducer)->UseRealTime();

void BM_ZnEventQueue_TwoProducers(benchmark::State& state)
{
    queueThroughput<ZnQueue>(state, 2);
}
BENCHMARK(BM_ZnEventQueue_TwoProducers)->UseRealTime();

void BM_AceMessageQueue_TwoProducers(benchmark::State& state)
{
    queueThroughput<AceQueue>(state, 2);
}
BENCHMARK(BM_AceMessageQueue_TwoProducers)->UseRealTime();

void BM_MutexCondvarQueue_TwoProducers(benchmark::State& state)
{
    queueThroughput<MutexCondvarQueue>(state, 2);
}
BENCHMARK(BM_MutexCondvarQueue_TwoProducers)->UseRealTime();

// ---- 2. dispatcher throughput: producers, a dispatcher, its pool, a counting observer ----

/// The library threads that ran notifications of a run, so that the run can end them.
class WorkerRegistry
{
public:
    /// Notes the calling thread, once, if it is a pool worker.
    void noteCallingThread()
    {
        thread_local const WorkerRegistry* t_noted = nullptr;
        if (t_noted == this)
        {
            return;
        }
        t_noted = this;
        ZnWorkerThread* worker = dynamic_cast<ZnWorkerThread*>(ZnThread::sGetCurrent());
        if (worker != nullptr)
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            m_workers.push_back(ZnHandle<ZnThread>(worker));
        }
    }

    /// Ends every worker noted, and forgets them.
    bool endAll()
    {
        std::vector<ZnHandle<ZnThread>> workers;
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            workers.swap(m_workers);
        }
        bool ended = true;
        for (ZnHandle<ZnThread>& worker : workers)
        {
            ended = endThread(worker) && ended;
        }
        return ended;
    }

private:
    std::mutex m_mutex;
    std::vector<ZnHandle<ZnThread>> m_workers;
};

/// Counts the payloads it is notified of, on whatever thread the pool chose.
class CountingObserver : public ZnObserver
{
public:
    void onNotification(ZnHandle<ZnObservable>, ZnHandle<ZnObject> aArgument) override
    {
        workers.noteCallingThread();
        tally.add(static_cast<Payload*>(static_cast<ZnObject*>(aArgument))->sequence);
    }

    Tally tally;
    WorkerRegistry workers;
};

/// A dispatcher that hands each event's argument to its pool for one observer.
class PoolDispatcher : public ZnDispatcherThread
{
public:
    PoolDispatcher(ZnEventQueue::Policy aPolicy, ZnObserver* aObserver)
        : ZnDispatcherThread(nullptr, kPoolMaximum, aPolicy), m_pObserver(aObserver)
    {
    }

    void process(ZnBaseEvent* aEvent) override
    {
        getThreadPool()->doObserverNotifications(m_pObserver,
                                                 static_cast<BenchEvent*>(aEvent)->argument);
    }

private:
    ZnObserver* m_pObserver;
};

/// The pool of the baselines, of ZnThreadPool's design on std::thread: workers made on demand
/// up to a maximum, each with its own job slot and condition; a job goes to the worker that went
/// idle last, or runs on the caller's thread when none is idle and no more may be made.
class StdPool
{
public:
    explicit StdPool(unsigned int aMaximum) : m_maximum(aMaximum) {}

    ~StdPool()
    {
        for (std::unique_ptr<Worker>& worker : m_workers)
        {
            {
                std::lock_guard<std::mutex> guard(worker->mutex);
                worker->bStop = true;
            }
            worker->wake.notify_one();
            worker->thread.join();
        }
    }

    void doObserverNotifications(ZnObserver* aObserver, ZnObject* aArgument)
    {
        Worker* worker = getAvailable();
        if (worker == nullptr)
        {
            aObserver->onNotification(ZnHandle<ZnObservable>(), ZnHandle<ZnObject>(aArgument));
            return;
        }
        {
            std::lock_guard<std::mutex> guard(worker->mutex);
            worker->observer = aObserver;
            worker->argument = aArgument;
            worker->bJob = true;
        }
        worker->wake.notify_one();
    }

private:
    struct Worker
    {
        std::mutex mutex;
        std::condition_variable wake;
        bool bJob = false;
        bool bStop = false;
        ZnHandle<ZnObserver> observer;
        ZnHandle<ZnObject> argument;
        std::thread thread;
    };

    Worker* getAvailable()
    {
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            if (!m_idle.empty())
            {
                Worker* worker = m_idle.back();
                m_idle.pop_back();
                return worker;
            }
        }
        // Only the one consumer thread makes workers, so the list needs no lock of its own.
        if (m_workers.size() >= m_maximum)
        {
            return nullptr;
        }
        m_workers.emplace_back(new Worker);
        Worker* worker = m_workers.back().get();
        worker->thread = std::thread([this, worker] { work(*worker); });
        return worker;
    }

    void work(Worker& aWorker)
    {
        for (;;)
        {
            ZnHandle<ZnObserver> observer;
            ZnHandle<ZnObject> argument;
            {
                std::unique_lock<std::mutex> lock(aWorker.mutex);
                aWorker.wake.wait(lock, [&aWorker] { return aWorker.bJob || aWorker.bStop; });
                if (!aWorker.bJob)
                {
                    return;
                }
                aWorker.bJob = false;
                observer = std::move(aWorker.observer);
                argument = std::move(aWorker.argument);
            }
            observer->onNotification(ZnHandle<ZnObservable>(), argument);
            observer = ZnHandle<ZnObserver>();
            argument = ZnHandle<ZnObject>();
            std::lock_guard<std::mutex> guard(m_mutex);
            m_idle.push_back(&aWorker);
        }
    }

    unsigned int m_maximum;
    std::vector<std::unique_ptr<Worker>> m_workers; // the consumer thread's alone
    std::mutex m_mutex;
    std::vector<Worker*> m_idle; // guarded by m_mutex
};

void putNotifyEvent(ZnDispatcherThread& aDispatcher, uint64_t aSequence)
{
    aDispatcher.addEvent(new BenchEvent(aSequence, new Payload(aSequence)));
}

void dispatcherThroughput(benchmark::State& state, unsigned int aProducers)
{
    ZnHandle<CountingObserver> observer(new CountingObserver);
    ZnHandle<PoolDispatcher> dispatcher(new PoolDispatcher(
        aProducers > 1 ? ZnEventQueue::POLICY_MULTI_PRODUCER : ZnEventQueue::POLICY_SINGLE_PRODUCER,
        observer));
    dispatcher->fork();
    {
        PoolDispatcher* target = dispatcher;
        Producers producers(
            aProducers, [target](uint64_t aSequence) { putNotifyEvent(*target, aSequence); },
            false);
        runRounds(state, producers, observer->tally);
    }
    // The workers first, while their pool, inside the dispatcher, is still there.
    if (!observer->workers.endAll() || !endThread(dispatcher, dispatcher->getEventQueue()))
    {
        state.SkipWithError("a thread of the dispatcher did not end");
    }
}

/// The baselines' dispatcher: a consumer thread that hands each event's argument to a StdPool.
template <typename Queue>
void queuePoolThroughput(benchmark::State& state, unsigned int aProducers)
{
    ZnHandle<CountingObserver> observer(new CountingObserver);
    std::unique_ptr<Queue> queue(new Queue(aProducers));
    StdPool pool(kPoolMaximum);
    ZnObserver* target = observer;
    std::thread consumer(
        [&queue, &pool, target]
        {
            for (;;)
            {
                BenchEvent* event = static_cast<BenchEvent*>(queue->take());
                if (event == nullptr || event->sequence == kStopSequence)
                {
                    delete event;
                    return;
                }
                pool.doObserverNotifications(target, event->argument);
                delete event;
            }
        });
    {
        Producers producers(
            aProducers,
            [&queue](uint64_t aSequence)
            {
                queue->put(new BenchEvent(
                    aSequence, aSequence == kStopSequence ? nullptr : new Payload(aSequence)));
            },
            true);
        runRounds(state, producers, observer->tally);
    }
    consumer.join();
}

void BM_ZnDispatcherThread_PoolOneProducer(benchmark::State& state)
{
    dispatcherThroughput(state, 1);
}
BENCHMARK(BM_ZnDispatcherThread_PoolOneProducer)->UseRealTime();

void BM_AceMessageQueue_PoolOneProducer(benchmark::State& state)
{
    queuePoolThroughput<AceQueue>(state, 1);
}
BENCHMARK(BM_AceMessageQueue_PoolOneProducer)->UseRealTime();

void BM_MutexCondvarQueue_PoolOneProducer(benchmark::State& state)
{
    queuePoolThroughput<MutexCondvarQueue>(state, 1);
}
BENCHMARK(BM_MutexCondvarQueue_PoolOneProducer)->UseRealTime();

void BM_ZnDispatcherThread_PoolTwoProducers(benchmark::State& state)
{
    dispatcherThroughput(state, 2);
}
BENCHMARK(BM_ZnDispatcherThread_PoolTwoProducers)->UseRealTime();

void BM_AceMessageQueue_PoolTwoProducers(benchmark::State& state)
{
    queuePoolThroughput<AceQueue>(state, 2);
}
BENCHMARK(BM_AceMessageQueue_PoolTwoProducers)->UseRealTime();

void BM_MutexCondvarQueue_PoolTwoProducers(benchmark::State& state)
{
    queuePoolThroughput<MutexCondvarQueue>(state, 2);
}
BENCHMARK(BM_MutexCondvarQueue_PoolTwoProducers)->UseRealTime();

// ---- 3. latency of one event, from the put to its processing ----

/// The delays of a latency run, in ns, and the answer to the producer after each event.
class LatencyLog
{
public:
    explicit LatencyLog(size_t aExpected) { m_delays.reserve(aExpected); }

    /// On the consumer: notes the event's delay and tells the producer.
    void arrived(const BenchEvent& aEvent)
    {
        const uint64_t now = ZnPlatform::sGetMonotonicNs();
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            m_delays.push_back(now - aEvent.stampNs);
        }
        m_answered.notify_one();
    }

    /// On the producer: waits until \p aCount events have arrived in all.
    bool waitFor(size_t aCount)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_answered.wait_for(lock, kPatience,
                                   [this, aCount] { return m_delays.size() >= aCount; });
    }

    std::vector<uint64_t> take()
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        std::vector<uint64_t> delays;
        delays.swap(m_delays);
        return delays;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_answered;
    std::vector<uint64_t> m_delays; // guarded by m_mutex
};

/// Sets the counters p50_<unit> and p99_<unit> of \p aSamples.
template <typename T>
void reportPercentiles(benchmark::State& state, std::vector<T> aSamples, const char* aUnit)
{
    if (aSamples.empty())
    {
        return;
    }
    std::sort(aSamples.begin(), aSamples.end());
    const size_t last = aSamples.size() - 1;
    state.counters[std::string("p50_") + aUnit] = static_cast<double>(aSamples[last / 2]);
    state.counters[std::string("p99_") + aUnit] =
        static_cast<double>(aSamples[std::min(last, aSamples.size() * 99 / 100)]);
}

/// Puts one event at a time through \p aPut and waits for its answer: one event before the loop
/// to check the path, one per iteration after it.
void runPings(benchmark::State& state, LatencyLog& aLog,
              const std::function<void(BenchEvent*)>& aPut)
{
    BenchEvent* probe = new BenchEvent(0);
    probe->stampNs = ZnPlatform::sGetMonotonicNs();
    aPut(probe);
    const std::vector<uint64_t> first = aLog.waitFor(1) ? aLog.take() : std::vector<uint64_t>();
    if (first.size() != 1 || first[0] > 1000000000)
    {
        state.SkipWithError("one event did not arrive in time");
        return;
    }
    size_t sent = 0;
    for (auto _ : state)
    {
        BenchEvent* event = new BenchEvent(++sent);
        event->stampNs = ZnPlatform::sGetMonotonicNs();
        aPut(event);
        if (!aLog.waitFor(sent))
        {
            state.SkipWithError("an event did not arrive");
            break;
        }
    }
    std::vector<uint64_t> delays = aLog.take();
    benchmark::DoNotOptimize(delays.data());
    state.SetItemsProcessed(state.iterations());
    reportPercentiles(state, std::move(delays), "ns");
}

/// A dispatcher whose process() notes the delay of each event itself.
class LatencyDispatcher : public ZnDispatcherThread
{
public:
    explicit LatencyDispatcher(LatencyLog& aLog)
        : ZnDispatcherThread(nullptr, 0, ZnEventQueue::POLICY_SINGLE_PRODUCER), m_log(aLog)
    {
    }

    void process(ZnBaseEvent* aEvent) override { m_log.arrived(*static_cast<BenchEvent*>(aEvent)); }

private:
    LatencyLog& m_log;
};

void BM_ZnDispatcherThread_Latency(benchmark::State& state)
{
    LatencyLog log(state.max_iterations + 1);
    ZnHandle<LatencyDispatcher> dispatcher(new LatencyDispatcher(log));
    dispatcher->fork();
    LatencyDispatcher* target = dispatcher;
    runPings(state, log, [target](BenchEvent* aEvent) { target->addEvent(aEvent); });
    if (!endThread(dispatcher, dispatcher->getEventQueue()))
    {
        state.SkipWithError("the dispatcher did not end");
    }
}
BENCHMARK(BM_ZnDispatcherThread_Latency)->UseRealTime();

void BM_MutexCondvarQueue_Latency(benchmark::State& state)
{
    LatencyLog log(state.max_iterations + 1);
    MutexCondvarQueue queue;
    std::thread consumer(
        [&queue, &log]
        {
            for (;;)
            {
                BenchEvent* event = static_cast<BenchEvent*>(queue.take());
                if (event->sequence == kStopSequence)
                {
                    delete event;
                    return;
                }
                log.arrived(*event);
                delete event;
            }
        });
    runPings(state, log, [&queue](BenchEvent* aEvent) { queue.put(aEvent); });
    queue.put(new BenchEvent(kStopSequence));
    consumer.join();
}
BENCHMARK(BM_MutexCondvarQueue_Latency)->UseRealTime();

// ---- 4. timer lateness: 10 000 timers over 2 s ----

/// The delays of the timers of a lateness run, in the order the timers are set: a fixed shuffle
/// of 10 000 delays spread evenly over 2 s, the same on both sides.
const std::vector<unsigned int>& timerDelays()
{
    static const std::vector<unsigned int> s_delays = []
    {
        std::vector<unsigned int> delays;
        for (unsigned int i = 0; i < kTimerCount; ++i)
        {
            delays.push_back(i * kTimerSpreadMilliSeconds / kTimerCount);
        }
        std::shuffle(delays.begin(), delays.end(), std::mt19937(20240229));
        return delays;
    }();
    return s_delays;
}

/// The lateness of fired timers, in µs, noted by any thread; wakes the benchmark's thread when
/// the number expected has fired.
class LatenessLog
{
public:
    explicit LatenessLog(unsigned int aExpected) : m_lateness(aExpected), m_expected(aExpected) {}

    void fired(int64_t aLateness)
    {
        const unsigned int index = m_fired.fetch_add(1);
        if (index < m_expected)
        {
            m_lateness[index] = aLateness;
        }
        if (index + 1 == m_expected)
        {
            {
                std::lock_guard<std::mutex> guard(m_mutex);
            }
            m_done.notify_all();
        }
    }

    bool waitForAll()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_done.wait_for(lock, kPatience, [this] { return m_fired.load() >= m_expected; });
    }

    unsigned int count() const { return m_fired.load(); }
    const std::vector<int64_t>& lateness() const { return m_lateness; }

private:
    std::vector<int64_t> m_lateness;
    unsigned int m_expected;
    std::atomic<unsigned int> m_fired{0};
    std::mutex m_mutex;
    std::condition_variable m_done;
};

/// The pool workers of the timer dispatcher, kept for main() to end.
WorkerRegistry& timerWorkers()
{
    static WorkerRegistry s_workers;
    return s_workers;
}

/// Whether the process-wide monitor thread was started by a run.
std::atomic<bool> g_bMonitorStarted{false};

/// Notes the lateness of each timer it gets: the time now against the timer's key, which is the
/// due time that ZnScheduler hands over as a ZnTimer when the user gave no argument.
class LatenessObserver : public ZnObserver
{
public:
    explicit LatenessObserver(unsigned int aExpected) : log(aExpected) {}

    void onNotification(ZnHandle<ZnObservable>, ZnHandle<ZnObject> aArgument) override
    {
        const int64_t now = ZnTime::sGetCurrentTime().getAsLong();
        timerWorkers().noteCallingThread();
        ZnTimer* timer = dynamic_cast<ZnTimer*>(static_cast<ZnObject*>(aArgument));
        log.fired(timer != nullptr ? now - static_cast<int64_t>(*timer)
                                   : std::numeric_limits<int64_t>::max());
    }

    LatenessLog log;
};

void BM_ZnMonitorThread_TimerLateness(benchmark::State& state)
{
    g_bMonitorStarted = true;
    {
        ZnHandle<LatenessObserver> probe(new LatenessObserver(1));
        const int64_t key = ZnMonitorThread::sMonitorTime(10, probe, nullptr);
        if (key == 0 || !probe->log.waitForAll() || probe->log.lateness()[0] > 1000000)
        {
            state.SkipWithError("a timer did not fire in time with its key");
            return;
        }
    }
    std::vector<int64_t> lateness;
    for (auto _ : state)
    {
        ZnHandle<LatenessObserver> observer(new LatenessObserver(kTimerCount));
        for (unsigned int delay : timerDelays())
        {
            ZnMonitorThread::sMonitorTime(delay, observer, nullptr);
        }
        if (!observer->log.waitForAll())
        {
            state.SkipWithError("the timers did not all fire");
            break;
        }
        lateness.insert(lateness.end(), observer->log.lateness().begin(),
                        observer->log.lateness().end());
    }
    benchmark::DoNotOptimize(lateness.data());
    reportPercentiles(state, std::move(lateness), "us");
}
BENCHMARK(BM_ZnMonitorThread_TimerLateness)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

/// The simplest timer thread: a std::priority_queue of deadlines on the steady clock, and a
/// std::thread that sleeps on a std::condition_variable until the earliest is due, then fires
/// it on itself.
class SleepingTimerThread
{
public:
    using Clock = std::chrono::steady_clock;

    explicit SleepingTimerThread(std::function<void(Clock::time_point)> aFire)
        : m_fire(std::move(aFire)), m_thread([this] { run(); })
    {
    }

    ~SleepingTimerThread()
    {
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            m_bStop = true;
        }
        m_changed.notify_one();
        m_thread.join();
    }

    void schedule(unsigned int aMilliSeconds)
    {
        const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(aMilliSeconds);
        bool earliest;
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            earliest = m_deadlines.empty() || deadline < m_deadlines.top();
            m_deadlines.push(deadline);
        }
        // As ZnScheduler: only a new earliest deadline wakes the thread.
        if (earliest)
        {
            m_changed.notify_one();
        }
    }

private:
    void run()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!m_bStop)
        {
            if (m_deadlines.empty())
            {
                m_changed.wait(lock);
                continue;
            }
            const Clock::time_point deadline = m_deadlines.top();
            if (Clock::now() < deadline)
            {
                m_changed.wait_until(lock, deadline);
                continue;
            }
            m_deadlines.pop();
            lock.unlock();
            m_fire(deadline);
            lock.lock();
        }
    }

    std::function<void(Clock::time_point)> m_fire;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::priority_queue<Clock::time_point, std::vector<Clock::time_point>,
                        std::greater<Clock::time_point>>
        m_deadlines; // guarded by m_mutex
    bool m_bStop = false;
    std::thread m_thread;
};

void BM_PriorityQueueThread_TimerLateness(benchmark::State& state)
{
    using Clock = SleepingTimerThread::Clock;
    std::unique_ptr<LatenessLog> log;
    std::mutex logMutex;
    SleepingTimerThread timers(
        [&log, &logMutex](Clock::time_point aDeadline)
        {
            const Clock::time_point now = Clock::now();
            std::lock_guard<std::mutex> guard(logMutex);
            log->fired(
                std::chrono::duration_cast<std::chrono::microseconds>(now - aDeadline).count());
        });
    {
        std::lock_guard<std::mutex> guard(logMutex);
        log.reset(new LatenessLog(1));
    }
    timers.schedule(10);
    if (!log->waitForAll() || log->lateness()[0] > 1000000)
    {
        state.SkipWithError("a deadline did not fire in time");
        return;
    }
    std::vector<int64_t> lateness;
    for (auto _ : state)
    {
        {
            std::lock_guard<std::mutex> guard(logMutex);
            log.reset(new LatenessLog(kTimerCount));
        }
        for (unsigned int delay : timerDelays())
        {
            timers.schedule(delay);
        }
        if (!log->waitForAll())
        {
            state.SkipWithError("the deadlines did not all fire");
            break;
        }
        lateness.insert(lateness.end(), log->lateness().begin(), log->lateness().end());
    }
    benchmark::DoNotOptimize(lateness.data());
    reportPercentiles(state, std::move(lateness), "us");
}
BENCHMARK(BM_PriorityQueueThread_TimerLateness)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// ---- 5. schedule and cancel ----

void BM_ZnScheduler_ScheduleCancel(benchmark::State& state)
{
    // A monitor thread that is never forked: its scheduler stores and removes timers, and
    // nothing fires.
    ZnHandle<ZnMonitorThread> monitor(new ZnMonitorThread);
    ZnScheduler& scheduler = monitor->getScheduler();
    ZnHandle<ZnObserver> standing(new ZnObserver);
    for (unsigned int i = 0; i < kStandingTimers; ++i)
    {
        scheduler.schedule(1000 + i * 120, standing, nullptr);
    }
    ZnHandle<ZnObserver> observer(new ZnObserver);
    ZnHandle<ZnObject> argument(new Payload(1));
    {
        const int64_t key = scheduler.schedule(kCancelDelayMilliSeconds, observer, argument);
        const bool held = scheduler.getSize() == kStandingTimers + 1;
        const bool cancelled = scheduler.cancel(observer, key);
        const bool again = scheduler.cancel(observer, key);
        if (key == 0 || !held || !cancelled || again || scheduler.getSize() != kStandingTimers)
        {
            state.SkipWithError("cancel does not remove exactly the timer scheduled");
            return;
        }
    }
    for (auto _ : state)
    {
        const int64_t key = scheduler.schedule(kCancelDelayMilliSeconds, observer, argument);
        bool cancelled = scheduler.cancel(observer, key);
        benchmark::DoNotOptimize(cancelled);
    }
    state.SetItemsProcessed(state.iterations());
    if (scheduler.getSize() != kStandingTimers)
    {
        state.SkipWithError("timers were left behind");
    }
}
BENCHMARK(BM_ZnScheduler_ScheduleCancel);

/// The baseline of schedule and cancel: a std::multimap from the due time in µs to the
/// observer and the argument, behind one std::mutex.
class StdTimerMap
{
public:
    int64_t schedule(unsigned int aMilliSeconds, const std::shared_ptr<Payload>& aObserver,
                     const std::shared_ptr<Payload>& aArgument)
    {
        const int64_t key = std::chrono::duration_cast<std::chrono::microseconds>(
                                std::chrono::system_clock::now().time_since_epoch())
                                .count() +
                            static_cast<int64_t>(aMilliSeconds) * 1000;
        std::lock_guard<std::mutex> guard(m_mutex);
        m_entries.emplace_hint(m_entries.upper_bound(key), key, Entry{aObserver, aArgument});
        return key;
    }

    bool cancel(const Payload* aObserver, int64_t aKey)
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        const auto range = m_entries.equal_range(aKey);
        for (auto it = range.first; it != range.second; ++it)
        {
            if (it->second.observer.get() == aObserver)
            {
                m_entries.erase(it);
                return true;
            }
        }
        return false;
    }

    size_t size()
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        return m_entries.size();
    }

private:
    struct Entry
    {
        std::shared_ptr<Payload> observer;
        std::shared_ptr<Payload> argument;
    };

    std::mutex m_mutex;
    std::multimap<int64_t, Entry> m_entries; // guarded by m_mutex
};

void BM_StdMultimap_ScheduleCancel(benchmark::State& state)
{
    StdTimerMap timers;
    const auto standing = std::make_shared<Payload>(0);
    for (unsigned int i = 0; i < kStandingTimers; ++i)
    {
        timers.schedule(1000 + i * 120, standing, nullptr);
    }
    const auto observer = std::make_shared<Payload>(0);
    const auto argument = std::make_shared<Payload>(1);
    {
        const int64_t key = timers.schedule(kCancelDelayMilliSeconds, observer, argument);
        const bool held = timers.size() == kStandingTimers + 1;
        const bool cancelled = timers.cancel(observer.get(), key);
        const bool again = timers.cancel(observer.get(), key);
        if (!held || !cancelled || again || timers.size() != kStandingTimers)
        {
            state.SkipWithError("cancel does not remove exactly the timer scheduled");
            return;
        }
    }
    for (auto _ : state)
    {
        const int64_t key = timers.schedule(kCancelDelayMilliSeconds, observer, argument);
        bool cancelled = timers.cancel(observer.get(), key);
        benchmark::DoNotOptimize(cancelled);
    }
    state.SetItemsProcessed(state.iterations());
    if (timers.size() != kStandingTimers)
    {
        state.SkipWithError("timers were left behind");
    }
}
BENCHMARK(BM_StdMultimap_ScheduleCancel);

/// Ends the process-wide monitor thread, the timer dispatcher and its workers, if a run started
/// them: the monitor first, so that nothing more is posted.
bool endTimerThreads()
{
    if (!g_bMonitorStarted)
    {
        return true;
    }
    bool ended = endThread(ZnMonitorThread::sGetCurrent());
    ended = timerWorkers().endAll() && ended;
    ZnTimerDispatcher* dispatcher = ZnTimerDispatcher::getInstance();
    ended = endThread(dispatcher, dispatcher->getEventQueue()) && ended;
    return ended;
}

} // namespace

int main(int argc, char** argv)
{
    // Leave single-threaded mode for good, so that shared_ptr counts atomically as handles do.
    std::thread([] {}).join();
    // The process object belongs to the main thread, as in a host, and not to whichever thread
    // of a run first looks for its own thread object.
    ZnProcess::sGetCurrent();
    // The runs end their threads without a process shutdown, which these loggers warn of.
    log4cplus::Logger::getInstance("corvane.zn.ZnThread").setLogLevel(log4cplus::ERROR_LOG_LEVEL);
    log4cplus::Logger::getInstance("corvane.zn.ZnDispatcherThread")
        .setLogLevel(log4cplus::ERROR_LOG_LEVEL);
    timerDelays();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
    {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    // Every library thread a run started has ended by now: the table of threads empties.
    if (!endTimerThreads() || !waitUntil([] { return ZnThread::sGetThreadTableSize() == 0; }))
    {
        std::fprintf(stderr, "threads of the runs are still running: %u\n",
                     ZnThread::sGetThreadTableSize());
        return 1;
    }
    return 0;
}
