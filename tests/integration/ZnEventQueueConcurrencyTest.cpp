#include "ZnUtil/ZnBaseEvent.h"
#include "ZnUtil/ZnEventQueue.h"
#include "ZnUtil/ZnThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/IndexTally.h"
#include "support/TaskThread.h"
#include "support/WaitUntil.h"

namespace
{

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;
using ZnTest::LibThread;
using ZnTest::TaskThread;
using ZnTest::waitUntil;

const int kProducers = 4;
const int kTotalEvents = 100000;
const int kPerProducer = kTotalEvents / kProducers;
const int kRing = static_cast<int>(ZnEventQueue::kRingSize);
/// How long the whole transfer may take before the test gives up on it.
const Clock::duration kTransferBound = 120s;
/// Three slices and more of the queue: long enough to see that something does not happen.
const Clock::duration kQuietWindow = 300ms;

/// Counts constructions and destructions of events, and destructions per event number.
class EventLedger
{
public:
    explicit EventLedger(int events) : m_destroyed(events) {}

    void constructed() { m_constructed.fetch_add(1); }
    void destroyed(int index) { m_destroyed.bump(index); }

    int constructedCount() const { return m_constructed.load(); }
    int destroyedCount() const { return m_destroyed.total(); }
    int outOfRange() const { return m_destroyed.outOfRange(); }
    int deletionsOf(int index) const { return m_destroyed.countOf(index); }

    /// Event numbers deleted other than once, at most \p limit of them.
    std::vector<int> notDeletedOnce(size_t limit = 10) const { return m_destroyed.notOnce(limit); }

private:
    std::atomic<int> m_constructed{0};
    ZnTest::IndexTally m_destroyed;
};

/// An event numbered by its producer and by its place in that producer's sequence.
class SequencedEvent : public ZnBaseEvent
{
public:
    SequencedEvent(int producer, int sequence, int index, EventLedger* ledger)
        : m_producer(producer), m_sequence(sequence), m_index(index), m_ledger(ledger)
    {
        m_ledger->constructed();
    }
    ~SequencedEvent() override { m_ledger->destroyed(m_index); }

    int getProducer() const { return m_producer; }
    int getSequence() const { return m_sequence; }

private:
    int m_producer;
    int m_sequence;
    int m_index;
    EventLedger* m_ledger;
};

/// What the consumer found, checked after the transfer.
struct ConsumerReport
{
    std::atomic<int> taken{0};
    int nulls = 0;
    int foreign = 0;
    int badProducer = 0;
    int outOfOrder = 0;
    std::string firstProblem;
};

/// Takes \p count events, checking each producer's sequence; stops early when told to exit.
void consume(ZnEventQueue& queue, int count, int producers, ConsumerReport& report,
             TaskThread& self)
{
    std::vector<int> expected(producers, 0);
    for (int i = 0; i < count && self.getState() != ZnThread::STATE_EXITING; ++i)
    {
        std::unique_ptr<ZnBaseEvent> event(queue.getItem());
        if (event == nullptr)
        {
            ++report.nulls;
            continue;
        }
        const SequencedEvent* sequenced = dynamic_cast<const SequencedEvent*>(event.get());
        if (sequenced == nullptr)
        {
            ++report.foreign;
        }
        else if (sequenced->getProducer() < 0 || sequenced->getProducer() >= producers)
        {
            ++report.badProducer;
        }
        else if (sequenced->getSequence() != expected[sequenced->getProducer()]++)
        {
            if (report.outOfOrder++ == 0)
            {
                report.firstProblem = "producer " + std::to_string(sequenced->getProducer()) +
                                      ": got " + std::to_string(sequenced->getSequence()) +
                                      ", expected " +
                                      std::to_string(expected[sequenced->getProducer()] - 1);
            }
            expected[sequenced->getProducer()] = sequenced->getSequence() + 1;
        }
        report.taken.fetch_add(1);
    }
}

/// Checks that the consumer took all kTotalEvents, each in its producer's order, and nothing else.
void expectEveryEventTakenInOrder(const ConsumerReport& report)
{
    EXPECT_EQ(kTotalEvents, report.taken.load());
    EXPECT_EQ(0, report.nulls);
    EXPECT_EQ(0, report.foreign);
    EXPECT_EQ(0, report.badProducer);
    EXPECT_EQ(0, report.outOfOrder) << report.firstProblem;
}

TEST(ZnEventQueueConcurrencyTest, FourProducersOneConsumerNoEventLostOrDoubled)
{
    EventLedger ledger(kTotalEvents);
    {
        ZnEventQueue queue(ZnEventQueue::POLICY_MULTI_PRODUCER);
        ConsumerReport report;
        std::atomic<int> producersDone{0};
        std::atomic<bool> consumerDone{false};
        LibThread consumer(
            [&](TaskThread& self)
            {
                consume(queue, kTotalEvents, kProducers, report, self);
                consumerDone.store(true);
            });
        std::vector<std::unique_ptr<LibThread>> producers;
        for (int p = 0; p < kProducers; ++p)
        {
            producers.emplace_back(new LibThread(
                [&, p](TaskThread&)
                {
                    for (int s = 0; s < kPerProducer; ++s)
                    {
                        queue.addItem(new SequencedEvent(p, s, p * kPerProducer + s, &ledger));
                    }
                    producersDone.fetch_add(1);
                }));
        }
        ASSERT_TRUE(waitUntil([&] { return consumerDone.load(); }, kTransferBound))
            << "taken " << report.taken.load() << " of " << kTotalEvents;
        EXPECT_EQ(kProducers, producersDone.load());
        for (std::unique_ptr<LibThread>& producer : producers)
        {
            EXPECT_TRUE(producer->finish());
        }
        EXPECT_TRUE(consumer.finish());

        expectEveryEventTakenInOrder(report);
        EXPECT_EQ(0u, queue.getSize());
        EXPECT_EQ(static_cast<unsigned int>(kTotalEvents % kRing), queue.getReadIndex());
        EXPECT_EQ(static_cast<unsigned int>(kTotalEvents % kRing), queue.getWriteIndex());
    }
    EXPECT_EQ(kTotalEvents, ledger.constructedCount());
    EXPECT_EQ(kTotalEvents, ledger.destroyedCount());
    EXPECT_EQ(0, ledger.outOfRange());
    EXPECT_TRUE(ledger.notDeletedOnce().empty())
        << "event " << ledger.notDeletedOnce()[0] << " deleted "
        << ledger.deletionsOf(ledger.notDeletedOnce()[0]) << " times";
}

TEST(ZnEventQueueConcurrencyTest, FourForeignProducersOneConsumerNoEventLostOrDoubled)
{
    EventLedger ledger(kTotalEvents);
    {
        ZnEventQueue queue(ZnEventQueue::POLICY_MULTI_PRODUCER);
        ConsumerReport report;
        std::atomic<bool> consumerDone{false};
        std::atomic<int> producersDone{0};
        LibThread consumer(
            [&](TaskThread& self)
            {
                consume(queue, kTotalEvents, kProducers, report, self);
                consumerDone.store(true);
            });
        std::vector<std::thread> producers;
        for (int p = 0; p < kProducers; ++p)
        {
            producers.emplace_back(
                [&, p]
                {
                    for (int s = 0; s < kPerProducer; ++s)
                    {
                        queue.addItem(new SequencedEvent(p, s, p * kPerProducer + s, &ledger));
                    }
                    producersDone.fetch_add(1);
                });
        }
        const bool transferred = waitUntil([&] { return consumerDone.load(); }, kTransferBound);
        if (!transferred)
        {
            // Threads the library did not start never give up: free slots are made for them
            // until they are through, so that they can be joined.
            consumer->terminate();
            while (producersDone.load() < kProducers)
            {
                queue.WakeUpAll();
                waitUntil([&] { return producersDone.load() == kProducers; }, 100ms);
            }
        }
        for (std::thread& producer : producers)
        {
            producer.join();
        }
        ASSERT_TRUE(transferred) << "taken " << report.taken.load() << " of " << kTotalEvents;
        EXPECT_TRUE(consumer.finish());

        expectEveryEventTakenInOrder(report);
        EXPECT_EQ(0u, queue.getSize());
    }
    EXPECT_EQ(kTotalEvents, ledger.constructedCount());
    EXPECT_EQ(kTotalEvents, ledger.destroyedCount());
    EXPECT_EQ(0, ledger.outOfRange());
    EXPECT_TRUE(ledger.notDeletedOnce().empty());
}

TEST(ZnEventQueueConcurrencyTest, FullQueueHoldsItsProducerUntilTheConsumerTakes)
{
    const int kEvents = kRing + 100;
    EventLedger ledger(kEvents);
    {
        ZnEventQueue queue(ZnEventQueue::POLICY_SINGLE_PRODUCER);
        std::atomic<int> added{0};
        LibThread producer(
            [&](TaskThread&)
            {
                for (int s = 0; s < kEvents; ++s)
                {
                    queue.addItem(new SequencedEvent(0, s, s, &ledger));
                    added.fetch_add(1);
                }
            });
        ASSERT_TRUE(waitUntil([&] { return added.load() >= kRing; }));
        // The ring is full and the next add is under way: the producer makes no progress.
        EXPECT_FALSE(waitUntil([&] { return added.load() > kRing; }, kQuietWindow));
        EXPECT_EQ(kRing, added.load());
        EXPECT_EQ(4096u, queue.getSize());
        EXPECT_EQ(kRing + 1, ledger.constructedCount());

        // One taken, one more in; no further.
        ASSERT_GT(queue.getSize(), 0u);
        std::unique_ptr<ZnBaseEvent> first(queue.getItem());
        ASSERT_NE(nullptr, first);
        EXPECT_EQ(0, dynamic_cast<SequencedEvent&>(*first).getSequence());
        EXPECT_TRUE(waitUntil([&] { return added.load() == kRing + 1; }));
        EXPECT_FALSE(waitUntil([&] { return added.load() > kRing + 1; }, kQuietWindow));
        first.reset();

        // The rest flows as fast as it is taken.
        for (int s = 1; s < kEvents; ++s)
        {
            // This thread is not the library's and would never give up: it takes only what
            // is announced.
            ASSERT_TRUE(waitUntil([&] { return queue.getSize() > 0; })) << "at " << s;
            std::unique_ptr<ZnBaseEvent> event(queue.getItem());
            ASSERT_NE(nullptr, event);
            ASSERT_EQ(s, dynamic_cast<SequencedEvent&>(*event).getSequence());
        }
        EXPECT_EQ(kEvents, added.load());
        EXPECT_TRUE(producer.finish());
    }
    EXPECT_EQ(kEvents, ledger.constructedCount());
    EXPECT_EQ(kEvents, ledger.destroyedCount());
    EXPECT_TRUE(ledger.notDeletedOnce().empty());
}

TEST(ZnEventQueueConcurrencyTest, SingleProducerAndConsumerKeepTheOrder)
{
    EventLedger ledger(kTotalEvents);
    {
        ZnEventQueue queue(ZnEventQueue::POLICY_SINGLE_PRODUCER);
        ConsumerReport report;
        std::atomic<bool> consumerDone{false};
        std::atomic<unsigned int> producerToken{0};
        LibThread consumer(
            [&](TaskThread& self)
            {
                consume(queue, kTotalEvents, 1, report, self);
                consumerDone.store(true);
            });
        LibThread producer(
            [&](TaskThread& self)
            {
                producerToken.store(self.getToken());
                for (int s = 0; s < kTotalEvents; ++s)
                {
                    queue.addItem(new SequencedEvent(0, s, s, &ledger));
                }
            });
        ASSERT_TRUE(waitUntil([&] { return consumerDone.load(); }, kTransferBound))
            << "taken " << report.taken.load() << " of " << kTotalEvents;
        EXPECT_TRUE(producer.finish());
        EXPECT_TRUE(consumer.finish());

        expectEveryEventTakenInOrder(report);
        EXPECT_EQ(0u, queue.getSize());
        // The one producer was recorded.
        EXPECT_NE(0u, producerToken.load());
        EXPECT_EQ(producerToken.load(), queue.getProducerThreadId());
    }
    EXPECT_EQ(kTotalEvents, ledger.constructedCount());
    EXPECT_EQ(kTotalEvents, ledger.destroyedCount());
    EXPECT_TRUE(ledger.notDeletedOnce().empty());
}

} // namespace
