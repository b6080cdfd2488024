#include "ZnUtil/ZnEventQueue.h"

#include "ZnUtil/ZnBaseEvent.h"
#include "ZnUtil/ZnPlatform.h"

#include "tavoris/LogLevel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "support/CapturingAppender.h"
#include "support/CountedEvent.h"
#include "support/TaskThread.h"
#include "support/WaitUntil.h"

namespace
{

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;
using ZnTest::CountedEvent;
using ZnTest::DestructionLog;
using ZnTest::kLimit;
using ZnTest::LibThread;
using ZnTest::TaskThread;
using ZnTest::waitUntil;

const int kRing = static_cast<int>(ZnEventQueue::kRingSize);
/// Three slices and more: a thread still blocked after it is blocked for good.
const Clock::duration kBlockedWindow = 300ms;
/// One blocking slice of the queue.
const Clock::duration kSlice = std::chrono::milliseconds(ZnEventQueue::kSliceMilliSeconds);

const char* const kQueueLogger = "corvane.zn.ZnEventQueue";
const char* const kNullEventAssertion = "Assertion failed: pEvent != 0";

const int kNullItem = -1;
const int kForeignItem = -2;

/// Takes one item and deletes it. \return its number, kNullItem for null.
int takeId(ZnEventQueue& queue)
{
    std::unique_ptr<ZnBaseEvent> event(queue.getItem());
    if (event == nullptr)
    {
        return kNullItem;
    }
    const CountedEvent* test = dynamic_cast<const CountedEvent*>(event.get());
    return test == nullptr ? kForeignItem : test->getId();
}

/// Adds events numbered \p first to \p first + \p count - 1.
void fill(ZnEventQueue& queue, int count, DestructionLog* log, int first = 0)
{
    for (int id = first; id < first + count; ++id)
    {
        queue.addItem(new CountedEvent(id, log));
    }
}

/// Runs \p body, which adds to \p queue, on a thread the library did not start, and waits up to
/// \p bound for it to end. Such a thread never gives up on a full queue: should it be stuck,
/// free slots are made with WakeUpAll until it is through, so that it can be joined.
/// \return true when it ended within the bound.
bool runsToEnd(ZnEventQueue& queue, const std::function<void()>& body,
               Clock::duration bound = kLimit)
{
    std::atomic<bool> done{false};
    std::thread thread(
        [&]
        {
            body();
            done.store(true);
        });
    const bool inTime = waitUntil([&] { return done.load(); }, bound);
    while (!done.load())
    {
        queue.WakeUpAll();
        waitUntil([&] { return done.load(); }, 100ms);
    }
    thread.join();
    return inTime;
}

/// A thread the library did not start, which adds one event to a queue or takes one item from
/// it: such a thread never gives up. Should the test stop early, the queue is woken with
/// WakeUpAll until the thread is through, so that it can be joined.
class ForeignCaller
{
public:
    /// Adds \p event to \p queue.
    ForeignCaller(ZnEventQueue& queue, ZnBaseEvent* event)
        : ForeignCaller(queue, [&queue, event] { queue.addItem(event); })
    {
    }

    /// Takes one item from \p queue and stores its number, as takeId() gives it, in \p taken,
    /// which is to outlive this object.
    ForeignCaller(ZnEventQueue& queue, std::atomic<int>& taken)
        : ForeignCaller(queue, [&queue, &taken] { taken.store(takeId(queue)); })
    {
    }

    ~ForeignCaller()
    {
        while (!m_done.load())
        {
            m_queue.WakeUpAll();
            waitUntil([this] { return m_done.load(); }, 1s);
        }
        join();
    }

    ForeignCaller(const ForeignCaller&) = delete;
    ForeignCaller& operator=(const ForeignCaller&) = delete;

    bool entered() const { return m_entered.load(); }
    bool done() const { return m_done.load(); }
    void join()
    {
        if (m_thread.joinable())
        {
            m_thread.join();
        }
    }

private:
    ForeignCaller(ZnEventQueue& queue, std::function<void()> call) : m_queue(queue)
    {
        m_thread = std::thread(
            [this, call]
            {
                m_entered.store(true);
                call();
                m_done.store(true);
            });
    }

    ZnEventQueue& m_queue;
    std::atomic<bool> m_entered{false};
    std::atomic<bool> m_done{false};
    std::thread m_thread;
};

// ---------------------------------------------------------------------------------------------
// Plain use on one thread

TEST(ZnEventQueueTest, NewQueueIsEmpty)
{
    ZnEventQueue queue;
    EXPECT_EQ(ZnEventQueue::POLICY_SINGLE_PRODUCER, queue.getPolicy());
    EXPECT_EQ(0u, queue.getSize());
    EXPECT_EQ(0u, queue.getReadIndex());
    EXPECT_EQ(0u, queue.getWriteIndex());
    EXPECT_EQ(0u, queue.getProducerThreadId());
}

TEST(ZnEventQueueTest, RingHas4096Slots)
{
    EXPECT_EQ(4096u, ZnEventQueue::kRingSize);
    EXPECT_EQ(8192u, ZnEventQueue::kFreeSlotMaximum);
    EXPECT_EQ(5, ZnEventQueue::kPollCount);
    EXPECT_EQ(100u, ZnEventQueue::kSliceMilliSeconds);
}

TEST(ZnEventQueueTest, ItemsComeOutInTheOrderTheyWentIn)
{
    ZnEventQueue queue(ZnEventQueue::POLICY_MULTI_PRODUCER);
    EXPECT_EQ(ZnEventQueue::POLICY_MULTI_PRODUCER, queue.getPolicy());
    DestructionLog log;
    fill(queue, 10, &log);
    for (int id = 0; id < 10; ++id)
    {
        EXPECT_EQ(id, takeId(queue));
    }
    EXPECT_EQ(10u, log.count());
}

TEST(ZnEventQueueTest, TakenItemBelongsToTheTaker)
{
    DestructionLog log;
    ZnEventQueue queue;
    CountedEvent* event = new CountedEvent(3, &log);
    queue.addItem(event);
    ZnBaseEvent* taken = queue.getItem();
    EXPECT_EQ(event, taken);
    EXPECT_EQ(0u, log.count());
    delete taken;
    EXPECT_EQ(1u, log.count());
}

TEST(ZnEventQueueTest, SizeFollowsAddsAndTakes)
{
    ZnEventQueue queue;
    fill(queue, 3, nullptr);
    EXPECT_EQ(3u, queue.getSize());
    EXPECT_EQ(0, takeId(queue));
    EXPECT_EQ(2u, queue.getSize());
    fill(queue, 2, nullptr, 3);
    EXPECT_EQ(4u, queue.getSize());
    for (int id = 1; id < 5; ++id)
    {
        EXPECT_EQ(id, takeId(queue));
    }
    EXPECT_EQ(0u, queue.getSize());
}

TEST(ZnEventQueueTest, NullItemIsIgnored)
{
    for (ZnEventQueue::Policy policy :
         {ZnEventQueue::POLICY_SINGLE_PRODUCER, ZnEventQueue::POLICY_MULTI_PRODUCER})
    {
        ZnEventQueue queue(policy);
        queue.addItem(nullptr);
        EXPECT_EQ(0u, queue.getSize());
        EXPECT_EQ(0u, queue.getWriteIndex());
        queue.addItem(new CountedEvent(1));
        queue.addItem(nullptr);
        queue.addItem(new CountedEvent(2));
        EXPECT_EQ(2u, queue.getSize());
        EXPECT_EQ(2u, queue.getWriteIndex());
        EXPECT_EQ(1, takeId(queue));
        EXPECT_EQ(2, takeId(queue));
        EXPECT_EQ(0u, queue.getSize());
    }
}

TEST(ZnEventQueueTest, FullRingTakesExactly4096ItemsWithoutWaiting)
{
    DestructionLog log;
    ZnEventQueue queue;
    // With nobody taking, every one of them found a free slot.
    ASSERT_TRUE(runsToEnd(queue, [&] { fill(queue, kRing, &log); }));
    EXPECT_EQ(4096u, queue.getSize());
    EXPECT_EQ(0u, log.count());
    for (int id = 0; id < kRing; ++id)
    {
        ASSERT_EQ(id, takeId(queue));
    }
    EXPECT_EQ(0u, queue.getSize());
}

TEST(ZnEventQueueTest, IndexesWrapToZeroAfter4096AddsAndTakes)
{
    ZnEventQueue queue;
    fill(queue, kRing, nullptr);
    EXPECT_EQ(0u, queue.getWriteIndex());
    EXPECT_EQ(0u, queue.getReadIndex());
    for (int id = 0; id < kRing - 1; ++id)
    {
        ASSERT_EQ(id, takeId(queue));
    }
    EXPECT_EQ(4095u, queue.getReadIndex());
    EXPECT_EQ(kRing - 1, takeId(queue));
    EXPECT_EQ(0u, queue.getReadIndex());
    EXPECT_EQ(0u, queue.getWriteIndex());
    EXPECT_EQ(0u, queue.getSize());

    // And on, past the seam.
    queue.addItem(new CountedEvent(9));
    EXPECT_EQ(1u, queue.getWriteIndex());
    EXPECT_EQ(9, takeId(queue));
    EXPECT_EQ(1u, queue.getReadIndex());
}

TEST(ZnEventQueueTest, IndexesWrapWhenAddsAndTakesAlternate)
{
    ZnEventQueue queue;
    for (int id = 0; id < kRing; ++id)
    {
        queue.addItem(new CountedEvent(id));
        EXPECT_EQ(static_cast<unsigned int>((id + 1) % kRing), queue.getWriteIndex());
        ASSERT_EQ(id, takeId(queue));
        EXPECT_EQ(static_cast<unsigned int>((id + 1) % kRing), queue.getReadIndex());
    }
    EXPECT_EQ(0u, queue.getReadIndex());
    EXPECT_EQ(0u, queue.getWriteIndex());
    queue.addItem(new CountedEvent(kRing));
    EXPECT_EQ(kRing, takeId(queue));
    EXPECT_EQ(1u, queue.getReadIndex());
    EXPECT_EQ(1u, queue.getWriteIndex());
}

TEST(ZnEventQueueTest, DestructorDeletesWhatIsLeftInTheRing)
{
    DestructionLog log;
    {
        ZnEventQueue queue(ZnEventQueue::POLICY_MULTI_PRODUCER);
        fill(queue, 5, &log);
        EXPECT_EQ(0, takeId(queue));
        EXPECT_EQ(1, takeId(queue));
        EXPECT_EQ(2u, log.count());
    }
    std::vector<int> ids = log.ids();
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 4}), ids);
}

TEST(ZnEventQueueTest, DestructorDeletesAFullRing)
{
    DestructionLog log;
    {
        ZnEventQueue queue;
        fill(queue, kRing, &log);
    }
    EXPECT_EQ(static_cast<size_t>(kRing), log.count());
}

// ---------------------------------------------------------------------------------------------
// Producer thread id

TEST(ZnEventQueueTest, SingleProducerPolicyRecordsTheFirstProducer)
{
    ZnEventQueue queue(ZnEventQueue::POLICY_SINGLE_PRODUCER);
    unsigned int producerId = 0;
    std::thread producer(
        [&]
        {
            producerId = ZnPlatform::sGetCurrentThreadId();
            queue.addItem(new CountedEvent(1));
        });
    producer.join();
    ASSERT_NE(0u, producerId);
    EXPECT_NE(ZnPlatform::sGetCurrentThreadId(), producerId);
    EXPECT_EQ(producerId, queue.getProducerThreadId());

    // Later producers change nothing; nothing compares them either.
    queue.addItem(new CountedEvent(2));
    EXPECT_EQ(producerId, queue.getProducerThreadId());
    EXPECT_EQ(1, takeId(queue));
    EXPECT_EQ(2, takeId(queue));
}

TEST(ZnEventQueueTest, SingleProducerPolicyRecordsTheCallerOfAFirstNullItem)
{
    ZnEventQueue queue;
    queue.addItem(nullptr);
    EXPECT_EQ(ZnPlatform::sGetCurrentThreadId(), queue.getProducerThreadId());
    EXPECT_EQ(0u, queue.getSize());
}

TEST(ZnEventQueueTest, MultiProducerPolicyRecordsNoProducer)
{
    ZnEventQueue queue(ZnEventQueue::POLICY_MULTI_PRODUCER);
    std::thread producer([&] { queue.addItem(new CountedEvent(1)); });
    producer.join();
    queue.addItem(new CountedEvent(2));
    EXPECT_EQ(0u, queue.getProducerThreadId());
    EXPECT_EQ(1, takeId(queue));
    EXPECT_EQ(2, takeId(queue));
}

// ---------------------------------------------------------------------------------------------
// Blocking

TEST(ZnEventQueueTest, ProducerOfThe4097thItemBlocksUntilAnItemIsTaken)
{
    DestructionLog log;
    ZnEventQueue queue(ZnEventQueue::POLICY_MULTI_PRODUCER);
    fill(queue, kRing, &log);
    ForeignCaller producer(queue, new CountedEvent(kRing, &log));
    ASSERT_TRUE(waitUntil([&] { return producer.entered(); }));
    EXPECT_FALSE(waitUntil([&] { return producer.done(); }, kBlockedWindow));
    EXPECT_EQ(4096u, queue.getSize());

    EXPECT_EQ(0, takeId(queue));
    EXPECT_TRUE(waitUntil([&] { return producer.done(); }));
    producer.join();
    EXPECT_EQ(4096u, queue.getSize());
    for (int id = 1; id <= kRing; ++id)
    {
        ASSERT_EQ(id, takeId(queue));
    }
    EXPECT_EQ(static_cast<size_t>(kRing + 1), log.count());
}

TEST(ZnEventQueueTest, ConsumerBlocksUntilAnItemIsAdded)
{
    ZnEventQueue queue;
    std::atomic<int> taken{kForeignItem - 1};
    ForeignCaller consumer(queue, taken);
    ASSERT_TRUE(waitUntil([&] { return consumer.entered(); }));
    EXPECT_FALSE(waitUntil([&] { return consumer.done(); }, kBlockedWindow));
    queue.addItem(new CountedEvent(42));
    EXPECT_TRUE(waitUntil([&] { return taken.load() == 42; }));
    consumer.join();
    EXPECT_EQ(0u, queue.getSize());
}

TEST(ZnEventQueueTest, BlockedProducerThatIsTerminatedGivesUpAndItsEventIsDeleted)
{
    DestructionLog log;
    ZnEventQueue queue(ZnEventQueue::POLICY_MULTI_PRODUCER);
    fill(queue, kRing, &log);
    std::atomic<bool> entered{false};
    std::atomic<bool> returned{false};
    Clock::time_point enteredAt;
    Clock::time_point returnedAt;
    LibThread producer(
        [&](TaskThread&)
        {
            enteredAt = Clock::now();
            entered.store(true);
            queue.addItem(new CountedEvent(9999, &log));
            returnedAt = Clock::now();
            returned.store(true);
        });
    ASSERT_TRUE(waitUntil([&] { return entered.load(); }));
    EXPECT_FALSE(waitUntil([&] { return returned.load(); }, kBlockedWindow));
    EXPECT_FALSE(log.has(9999));

    const Clock::time_point terminatedAt = Clock::now();
    producer->terminate();
    ASSERT_TRUE(waitUntil([&] { return returned.load(); }, 5s));
    // It found out at the end of a slice: about 100 ms, never much more.
    EXPECT_LT(returnedAt - terminatedAt, 5s);
    EXPECT_GE(returnedAt - enteredAt, kSlice);
    EXPECT_TRUE(producer.finish());

    // The event went away silently, and the queue is as it was.
    EXPECT_EQ((std::vector<int>{9999}), log.ids());
    EXPECT_EQ(4096u, queue.getSize());
    EXPECT_EQ(0u, queue.getWriteIndex());
    for (int id = 0; id < kRing; ++id)
    {
        ASSERT_EQ(id, takeId(queue));
    }
}

TEST(ZnEventQueueTest, ExitingProducerOnAFullQueueWaitsOneSliceAndDropsItsEvent)
{
    DestructionLog log;
    ZnEventQueue queue(ZnEventQueue::POLICY_MULTI_PRODUCER);
    fill(queue, kRing, &log);
    std::atomic<bool> returned{false};
    Clock::duration took{};
    LibThread producer(
        [&](TaskThread& self)
        {
            self.terminate();
            const Clock::time_point start = Clock::now();
            queue.addItem(new CountedEvent(7777, &log));
            took = Clock::now() - start;
            returned.store(true);
        });
    ASSERT_TRUE(waitUntil([&] { return returned.load(); }, 5s));
    EXPECT_TRUE(producer.finish());
    // The polls don't look at the state: the exit is noticed after the first slice.
    EXPECT_GE(took, kSlice);
    EXPECT_LT(took, 5s);
    EXPECT_EQ((std::vector<int>{7777}), log.ids());
    EXPECT_EQ(4096u, queue.getSize());
}

TEST(ZnEventQueueTest, ExitingProducerStillAddsWhenASlotIsFree)
{
    DestructionLog log;
    ZnEventQueue queue(ZnEventQueue::POLICY_MULTI_PRODUCER);
    LibThread producer(
        [&](TaskThread& self)
        {
            self.terminate();
            queue.addItem(new CountedEvent(5, &log));
        });
    EXPECT_TRUE(producer.finish());
    EXPECT_EQ(0u, log.count());
    EXPECT_EQ(1u, queue.getSize());
    EXPECT_EQ(5, takeId(queue));
}

TEST(ZnEventQueueTest, ExitingConsumerGetsNullFromAnEmptyQueue)
{
    ZnTest::LogCapture cap(kQueueLogger, Tavoris::TRACE_LOG_LEVEL);
    ZnEventQueue queue;
    std::atomic<bool> returned{false};
    std::atomic<bool> gotNull{false};
    Clock::duration took{};
    LibThread consumer(
        [&](TaskThread& self)
        {
            self.terminate();
            const Clock::time_point start = Clock::now();
            ZnBaseEvent* event = queue.getItem();
            took = Clock::now() - start;
            gotNull.store(event == nullptr);
            delete event;
            returned.store(true);
        });
    ASSERT_TRUE(waitUntil([&] { return returned.load(); }, 5s));
    EXPECT_TRUE(consumer.finish());
    EXPECT_TRUE(gotNull.load());
    EXPECT_GE(took, kSlice);
    // Giving up takes nothing from the ring, and trips no assertion.
    EXPECT_EQ(0u, queue.getReadIndex());
    EXPECT_EQ(0u, queue.getSize());
    EXPECT_TRUE(cap.find("Assertion failed").empty());
}

TEST(ZnEventQueueTest, BlockedConsumerThatIsTerminatedGetsNull)
{
    ZnEventQueue queue;
    std::atomic<bool> entered{false};
    std::atomic<bool> returned{false};
    std::atomic<bool> gotNull{false};
    LibThread consumer(
        [&](TaskThread&)
        {
            entered.store(true);
            ZnBaseEvent* event = queue.getItem();
            gotNull.store(event == nullptr);
            delete event;
            returned.store(true);
        });
    ASSERT_TRUE(waitUntil([&] { return entered.load(); }));
    EXPECT_FALSE(waitUntil([&] { return returned.load(); }, kBlockedWindow));
    consumer->terminate();
    ASSERT_TRUE(waitUntil([&] { return returned.load(); }, 5s));
    EXPECT_TRUE(consumer.finish());
    EXPECT_TRUE(gotNull.load());
    EXPECT_EQ(0u, queue.getReadIndex());

    // The queue works on for the next consumer.
    queue.addItem(new CountedEvent(1));
    EXPECT_EQ(1, takeId(queue));
}

TEST(ZnEventQueueTest, ExitingConsumerStillTakesAnItemThatIsThere)
{
    DestructionLog log;
    ZnEventQueue queue;
    queue.addItem(new CountedEvent(11, &log));
    std::atomic<int> taken{kForeignItem - 1};
    LibThread consumer(
        [&](TaskThread& self)
        {
            self.terminate();
            taken.store(takeId(queue));
        });
    EXPECT_TRUE(consumer.finish());
    EXPECT_EQ(11, taken.load());
    EXPECT_EQ(0u, queue.getSize());
    EXPECT_EQ(1u, queue.getReadIndex());
}

TEST(ZnEventQueueTest, ForeignProducerStaysBlockedUntilASlotIsFree)
{
    DestructionLog log;
    ZnEventQueue queue(ZnEventQueue::POLICY_MULTI_PRODUCER);
    fill(queue, kRing, &log);
    ForeignCaller foreign(queue, new CountedEvent(5000, &log));
    std::atomic<bool> libraryEntered{false};
    std::atomic<bool> libraryReturned{false};
    LibThread library(
        [&](TaskThread&)
        {
            libraryEntered.store(true);
            queue.addItem(new CountedEvent(6000, &log));
            libraryReturned.store(true);
        });
    ASSERT_TRUE(waitUntil([&] { return foreign.entered() && libraryEntered.load(); }));
    EXPECT_FALSE(
        waitUntil([&] { return foreign.done() || libraryReturned.load(); }, kBlockedWindow));

    // The library's thread gives up when told to exit...
    library->terminate();
    ASSERT_TRUE(waitUntil([&] { return libraryReturned.load(); }, 5s));
    EXPECT_TRUE(library.finish());
    EXPECT_TRUE(log.has(6000));
    // ...the foreign one, told nothing and known to nobody, waits on through its slices.
    EXPECT_FALSE(waitUntil([&] { return foreign.done(); }, kBlockedWindow));
    EXPECT_FALSE(log.has(5000));
    EXPECT_EQ(4096u, queue.getSize());

    EXPECT_EQ(0, takeId(queue));
    ASSERT_TRUE(waitUntil([&] { return foreign.done(); }));
    foreign.join();
    for (int id = 1; id < kRing; ++id)
    {
        ASSERT_EQ(id, takeId(queue));
    }
    EXPECT_EQ(5000, takeId(queue));
    EXPECT_EQ(0u, queue.getSize());
}

// ---------------------------------------------------------------------------------------------
// WakeUpAll

TEST(ZnEventQueueTest, WakeUpAllOnAnEmptyQueueMakesTheNextTakeReturnNull)
{
    ZnTest::LogCapture cap(kQueueLogger, Tavoris::TRACE_LOG_LEVEL);
    ZnEventQueue queue;
    queue.WakeUpAll();
    EXPECT_TRUE(cap.find("Assertion failed").empty());
    EXPECT_EQ(kNullItem, takeId(queue));

    const auto events = cap.find("Assertion failed");
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ(kNullEventAssertion, events[0].message);
    EXPECT_EQ(kQueueLogger, events[0].logger);
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, events[0].level);
    // The index handling goes on as for an event.
    EXPECT_EQ(1u, queue.getReadIndex());
    EXPECT_EQ(0u, queue.getWriteIndex());
}

TEST(ZnEventQueueTest, WakeUpAllReleasesABlockedForeignConsumer)
{
    ZnTest::LogCapture cap(kQueueLogger, Tavoris::TRACE_LOG_LEVEL);
    ZnEventQueue queue;
    std::atomic<int> taken{kForeignItem - 1};
    ForeignCaller consumer(queue, taken);
    ASSERT_TRUE(waitUntil([&] { return consumer.entered(); }));
    EXPECT_FALSE(waitUntil([&] { return consumer.done(); }, kBlockedWindow));
    queue.WakeUpAll();
    EXPECT_TRUE(waitUntil([&] { return taken.load() == kNullItem; }));
    consumer.join();
    ASSERT_EQ(1u, cap.find(kNullEventAssertion).size());
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, cap.find(kNullEventAssertion)[0].level);
}

TEST(ZnEventQueueTest, WakeUpAllOnAFullQueueLetsAProducerOverwriteTheOldestEvent)
{
    DestructionLog log;
    ZnEventQueue queue;
    fill(queue, kRing, &log);
    // The free-slot count goes above what the ring has: one add finds its slot taken.
    queue.WakeUpAll();
    ASSERT_TRUE(runsToEnd(queue, [&] { queue.addItem(new CountedEvent(7000, &log)); }));
    EXPECT_EQ((std::vector<int>{0}), log.ids());
    EXPECT_EQ(4097u, queue.getSize());
    EXPECT_EQ(1u, queue.getWriteIndex());

    // The item count stood at its ceiling: the ring holds 4096 events, the newest first.
    EXPECT_EQ(7000, takeId(queue));
    for (int id = 1; id < kRing; ++id)
    {
        ASSERT_EQ(id, takeId(queue));
    }
    EXPECT_EQ(0u, queue.getReadIndex());
    const std::vector<int> ids = log.ids();
    ASSERT_EQ(static_cast<size_t>(kRing + 1), ids.size());
    EXPECT_EQ(0, ids[0]);
    EXPECT_EQ(7000, ids[1]);
}

TEST(ZnEventQueueTest, WakeUpAllReleasesABlockedProducerIntoAnOccupiedSlot)
{
    DestructionLog log;
    ZnEventQueue queue(ZnEventQueue::POLICY_MULTI_PRODUCER);
    fill(queue, kRing, &log);
    ForeignCaller producer(queue, new CountedEvent(8000, &log));
    ASSERT_TRUE(waitUntil([&] { return producer.entered(); }));
    EXPECT_FALSE(waitUntil([&] { return producer.done(); }, kBlockedWindow));
    EXPECT_EQ(0u, log.count());

    queue.WakeUpAll();
    ASSERT_TRUE(waitUntil([&] { return producer.done(); }));
    producer.join();
    // The oldest event was deleted without ever being taken.
    EXPECT_EQ((std::vector<int>{0}), log.ids());
    EXPECT_EQ(8000, takeId(queue));
    EXPECT_EQ(1, takeId(queue));
}

TEST(ZnEventQueueTest, AfterAWakeUpOnAnEmptyQueueTheProducerRunsAheadAndOverwrites)
{
    DestructionLog log;
    ZnEventQueue queue;
    queue.WakeUpAll();
    EXPECT_EQ(kNullItem, takeId(queue));
    // The read index is now one ahead of the write index, and two free slots too many exist:
    // 4097 adds go through without a consumer, and the last finds the first still in its slot.
    ASSERT_TRUE(runsToEnd(queue, [&] { fill(queue, kRing + 1, &log); }));
    EXPECT_EQ((std::vector<int>{0}), log.ids());
    EXPECT_EQ(1u, queue.getWriteIndex());
    EXPECT_EQ(1u, queue.getReadIndex());
    EXPECT_EQ(1, takeId(queue));
}

} // namespace
