// Tests of ZnTokenTable: tokens as their own hash, exact reference counts, replacement, null
// values, clearing, removal outside the lock, the copy that adds no reference, iterators and the
// printed form.
#include "ZnUtil/ZnTokenTable.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnMutex.h"
#include "ZnUtil/ZnOutputStream.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/RecordingOutputStream.h"

namespace
{

using StringOutputStream = ZnTest::RecordingOutputStream;

/// A value that counts its destructions.
class Value : public ZnObject
{
public:
    explicit Value(std::atomic<int>* destroyed = nullptr) : m_destroyed(destroyed) {}
    ~Value() override
    {
        if (m_destroyed != nullptr)
        {
            ++*m_destroyed;
        }
    }

private:
    std::atomic<int>* m_destroyed;
};

/// Runs \p action and checks that it throws a ZnException with \p message.
template <class Action>
void expectException(Action&& action, const char* message)
{
    try
    {
        action();
        ADD_FAILURE() << "nothing thrown, expected " << message;
    }
    catch (const ZnHandle<ZnException>& caught)
    {
        EXPECT_STREQ(caught->getExceptionMessage(), message);
    }
}

/// Every token of \p table in iteration order.
std::vector<unsigned int> tokensInOrder(ZnTokenTable& table)
{
    std::vector<unsigned int> tokens;
    ZnTokenTable::KeyIterator keys = table.keys();
    while (keys.hasMoreElements())
    {
        tokens.push_back(keys.next());
    }
    return tokens;
}

/// Starts \p action on \p worker and waits until it either ends (\p done) or goes to a blocking
/// wait on a ZnMutex, which ZnMutex::m_lockCount shows; only that thread locks anything
/// meanwhile. The caller joins the worker.
bool finishesWithoutBlocking(std::thread& worker, std::atomic<bool>& done,
                             const std::function<void()>& action)
{
    const long waitsBefore = ZnMutex::m_lockCount.load();
    worker = std::thread(
        [&done, action]
        {
            action();
            done = true;
        });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    for (;;)
    {
        if (done.load())
        {
            return true;
        }
        if (ZnMutex::m_lockCount.load() != waitsBefore ||
            std::chrono::steady_clock::now() > deadline)
        {
            return false;
        }
        std::this_thread::yield();
    }
}

/// A value that, when destroyed, looks whether its table's lock is free: another thread asks
/// the table for a token while the destructor waits.
class LockProbeValue : public ZnObject
{
public:
    LockProbeValue(ZnTokenTable* table, std::thread* watcher, std::atomic<bool>* watcherDone,
                   int* lockFreeAtDestruction)
        : m_table(table), m_watcher(watcher), m_watcherDone(watcherDone),
          m_lockFreeAtDestruction(lockFreeAtDestruction)
    {
    }
    ~LockProbeValue() override
    {
        ZnTokenTable* table = m_table;
        *m_lockFreeAtDestruction =
            finishesWithoutBlocking(*m_watcher, *m_watcherDone, [table] { table->get(999); }) ? 1
                                                                                              : 0;
    }

private:
    ZnTokenTable* m_table;
    std::thread* m_watcher;
    std::atomic<bool>* m_watcherDone;
    int* m_lockFreeAtDestruction;
};

TEST(ZnTokenTableTest, DefaultTableHasSixteenByteEntriesAndOneHundredOneBuckets)
{
    ZnTokenTable table;
    EXPECT_EQ(sizeof(ZnTokenTable::Entry), 16u);
    EXPECT_EQ(table.getItemSize(), 16u);
    EXPECT_EQ(table.getTableSize(), 101u);
    EXPECT_EQ(table.getCopyFunc(), nullptr);
    EXPECT_TRUE(table.isEmpty());
}

TEST(ZnTokenTableTest, SizedTableCutsSizeToThirtyTwoBits)
{
    ZnTokenTable seven(static_cast<size_t>(7));
    EXPECT_EQ(seven.getTableSize(), 7u);
    ZnTokenTable cut(static_cast<size_t>(0x100000007ull));
    EXPECT_EQ(cut.getTableSize(), 7u);
    cut.put(14, nullptr);
    EXPECT_TRUE(cut.containsKey(14));
}

TEST(ZnTokenTableTest, SizeThatCutsToZeroIsRefusedAtConstruction)
{
    try
    {
        ZnTokenTable table(static_cast<size_t>(0x100000000ull));
        ADD_FAILURE() << "a table of 0 buckets was made";
    }
    catch (const ZnHandle<ZnException>& caught)
    {
        const ZnAssertionFailure* failure =
            dynamic_cast<const ZnAssertionFailure*>(static_cast<const ZnException*>(caught));
        ASSERT_NE(failure, nullptr);
        EXPECT_STREQ(failure->getExceptionMessage(), "ZnHashTableBase: table size 0");
    }
}

TEST(ZnTokenTableTest, HashIsTheTokenAndEntriesMatchByToken)
{
    ZnTokenTable table;
    ZnTokenTable::Entry a = {106, nullptr};
    ZnTokenTable::Entry b = {106, reinterpret_cast<ZnObject*>(&a)};
    ZnTokenTable::Entry c = {5, nullptr};
    EXPECT_EQ(table.getHashFunc()(&a), 106u);
    EXPECT_EQ(table.getHashFunc()(&c), 5u);
    EXPECT_TRUE(table.getCompFunc()(&a, &b));
    EXPECT_FALSE(table.getCompFunc()(&a, &c));
}

TEST(ZnTokenTableTest, PutOfNewTokenReturnsNilAndTakesOneReference)
{
    ZnTokenTable table;
    ZnHandle<ZnObject> value(new Value);
    EXPECT_TRUE(table.put(42, value).isNil());
    EXPECT_EQ(table.size(), 1u);
    EXPECT_EQ(value->getRefCount(), 2u);
    ZnHandle<ZnObject> got = table.get(42);
    EXPECT_EQ(static_cast<ZnObject*>(got), static_cast<ZnObject*>(value));
    EXPECT_EQ(value->getRefCount(), 3u);
    EXPECT_TRUE(table.containsKey(42));
    EXPECT_FALSE(table.containsKey(43));
    EXPECT_TRUE(table.get(43).isNil());
}

TEST(ZnTokenTableTest, TokenZeroIsValid)
{
    ZnTokenTable table;
    ZnHandle<ZnObject> value(new Value);
    EXPECT_TRUE(table.put(0, value).isNil());
    EXPECT_TRUE(table.containsKey(0));
    EXPECT_EQ(static_cast<ZnObject*>(table.get(0)), static_cast<ZnObject*>(value));
    EXPECT_TRUE(table.put(0xFFFFFFFFu, nullptr).isNil());
    EXPECT_TRUE(table.containsKey(0xFFFFFFFFu));
    EXPECT_EQ(table.size(), 2u);
    EXPECT_TRUE(table.remove(0));
    EXPECT_EQ(value->getRefCount(), 1u);
}

TEST(ZnTokenTableTest, PutOnPresentTokenReturnsOldValueAndKeepsSize)
{
    std::atomic<int> destroyed{0};
    ZnTokenTable table;
    ZnHandle<ZnObject> first(new Value(&destroyed));
    ZnHandle<ZnObject> second(new Value(&destroyed));
    table.put(7, first);
    table.put(8, nullptr);
    {
        ZnHandle<ZnObject> replaced = table.put(7, second);
        EXPECT_EQ(static_cast<ZnObject*>(replaced), static_cast<ZnObject*>(first));
        EXPECT_EQ(first->getRefCount(), 2u);
    }
    EXPECT_EQ(first->getRefCount(), 1u);
    EXPECT_EQ(second->getRefCount(), 2u);
    EXPECT_EQ(table.size(), 2u);
    EXPECT_EQ(static_cast<ZnObject*>(table.get(7)), static_cast<ZnObject*>(second));
    EXPECT_EQ(destroyed.load(), 0);
}

TEST(ZnTokenTableTest, NullValueIsStoredAndReadsAsNil)
{
    ZnTokenTable table;
    EXPECT_TRUE(table.put(3, nullptr).isNil());
    EXPECT_TRUE(table.containsKey(3));
    EXPECT_TRUE(table.get(3).isNil());
    EXPECT_EQ(table.size(), 1u);
    ZnHandle<ZnObject> value(new Value);
    EXPECT_TRUE(table.put(3, value).isNil()) << "replacing a null value returns nil";
    EXPECT_EQ(value->getRefCount(), 2u);
}

TEST(ZnTokenTableTest, TokensFiveAndOneHundredSixShareABucketInInsertionOrder)
{
    ZnTokenTable table;
    table.put(106, nullptr);
    table.put(3, nullptr);
    table.put(5, nullptr);
    table.put(207, nullptr);
    EXPECT_EQ(tokensInOrder(table), (std::vector<unsigned int>{3, 106, 5, 207}));

    ZnTokenTable other;
    other.put(5, nullptr);
    other.put(106, nullptr);
    EXPECT_EQ(tokensInOrder(other), (std::vector<unsigned int>{5, 106}));
}

TEST(ZnTokenTableTest, RemoveReleasesValueAndMissingTokenChangesNothing)
{
    ZnTokenTable table;
    ZnHandle<ZnObject> value(new Value);
    table.put(11, value);
    table.put(112, nullptr); // same bucket
    EXPECT_FALSE(table.remove(213));
    EXPECT_EQ(table.size(), 2u);
    EXPECT_EQ(value->getRefCount(), 2u);
    EXPECT_TRUE(table.remove(11));
    EXPECT_EQ(value->getRefCount(), 1u);
    EXPECT_FALSE(table.remove(11));
    EXPECT_EQ(tokensInOrder(table), (std::vector<unsigned int>{112}));
}

TEST(ZnTokenTableTest, RemovingValueHeldOnlyByTableDeletesItAfterLockIsReleased)
{
    std::thread watcher;
    std::atomic<bool> watcherDone{false};
    int lockFree = -1;
    ZnTokenTable table;
    table.put(1, new LockProbeValue(&table, &watcher, &watcherDone, &lockFree));
    EXPECT_TRUE(table.remove(1));
    watcher.join();
    EXPECT_EQ(lockFree, 1) << "the value died under the table's lock";
}

TEST(ZnTokenTableTest, ClearEmptiesTableAndDropsExactlyTheTableReference)
{
    std::atomic<int> destroyed{0};
    ZnTokenTable table(static_cast<size_t>(5));
    std::vector<ZnHandle<ZnObject>> held;
    for (unsigned int token = 0; token < 20; ++token)
    {
        held.push_back(ZnHandle<ZnObject>(new Value(&destroyed)));
        table.put(token, held.back());
    }
    table.put(100, new Value(&destroyed));
    table.put(101, nullptr);
    table.clear();
    EXPECT_EQ(table.size(), 0u);
    EXPECT_TRUE(table.isEmpty());
    EXPECT_EQ(destroyed.load(), 1);
    for (const ZnHandle<ZnObject>& value : held)
    {
        EXPECT_EQ(value->getRefCount(), 1u);
    }
    EXPECT_TRUE(tokensInOrder(table).empty());
}

TEST(ZnTokenTableTest, DestructionReleasesValues)
{
    std::atomic<int> destroyed{0};
    ZnHandle<ZnObject> held(new Value(&destroyed));
    {
        ZnTokenTable table;
        table.put(1, held);
        table.put(2, new Value(&destroyed));
    }
    EXPECT_EQ(held->getRefCount(), 1u);
    EXPECT_EQ(destroyed.load(), 1);
}

TEST(ZnTokenTableTest, ContainsThrowsNotImplemented)
{
    ZnTokenTable table;
    ZnHandle<ZnObject> value(new Value);
    table.put(1, value);
    expectException([&] { table.contains(value); }, "Not implemented!");
}

TEST(ZnTokenTableTest, CloneIsNotSupported)
{
    ZnTokenTable table;
    try
    {
        ZnHandle<ZnObject> copy(table.clone());
        ADD_FAILURE() << "clone succeeded";
    }
    catch (const ZnHandle<ZnException>& caught)
    {
        EXPECT_STREQ(caught->getExceptionMessage(), "cloning is not supported");
    }
}

TEST(ZnTokenTableTest, CopyAddsNoReferences)
{
    ZnTokenTable table(static_cast<size_t>(7));
    ZnHandle<ZnObject> a(new Value);
    ZnHandle<ZnObject> b(new Value);
    table.put(1, a);
    table.put(8, b);
    table.put(2, nullptr);
    {
        ZnTokenTable copy(table);
        EXPECT_EQ(copy.size(), 3u);
        EXPECT_EQ(copy.getTableSize(), 7u);
        EXPECT_EQ(tokensInOrder(copy), tokensInOrder(table));
        EXPECT_EQ(a->getRefCount(), 2u) << "the copy took no reference";
        EXPECT_EQ(b->getRefCount(), 2u);
        {
            ZnHandle<ZnObject> got = copy.get(8);
            EXPECT_EQ(static_cast<ZnObject*>(got), static_cast<ZnObject*>(b));
        }
        // The copy's values count as owned twice: give each the reference its destruction takes.
        ZnTokenTable::DataIterator values = copy.elements();
        while (values.hasMoreElements())
        {
            ZnHandle<ZnObject> value = values.next();
            if (!value.isNil())
            {
                value->AddRef();
            }
        }
        EXPECT_EQ(a->getRefCount(), 3u);
    }
    EXPECT_EQ(a->getRefCount(), 2u);
    EXPECT_EQ(b->getRefCount(), 2u);
    EXPECT_EQ(table.size(), 3u);
}

TEST(ZnTokenTableTest, IteratorsGoByBucketThenInsertion)
{
    ZnTokenTable table(static_cast<size_t>(10));
    std::vector<ZnHandle<ZnObject>> values;
    for (unsigned int token : {13u, 2u, 3u, 22u})
    {
        values.push_back(ZnHandle<ZnObject>(new Value));
        table.put(token, values.back());
    }
    EXPECT_EQ(tokensInOrder(table), (std::vector<unsigned int>{2, 22, 13, 3}));
    std::vector<ZnObject*> elements;
    ZnTokenTable::DataIterator data = table.elements();
    while (data.hasMoreElements())
    {
        elements.push_back(data.next());
    }
    EXPECT_EQ(elements, (std::vector<ZnObject*>{values[1], values[3], values[0], values[2]}));
    EXPECT_TRUE(data.next().isNil());
    ZnTokenTable::KeyIterator keys = table.keys();
    while (keys.hasMoreElements())
    {
        keys.next();
    }
    EXPECT_EQ(keys.next(), 0u);
    keys.reset();
    EXPECT_EQ(keys.next(), 2u);
}

TEST(ZnTokenTableTest, RemovingEachTokenJustReturnedVisitsEveryTokenOnce)
{
    std::atomic<int> destroyed{0};
    ZnTokenTable table(static_cast<size_t>(3));
    for (unsigned int token = 0; token < 30; ++token)
    {
        table.put(token * 7, new Value(&destroyed));
    }
    std::multiset<unsigned int> visited;
    ZnTokenTable::KeyIterator keys = table.keys();
    while (keys.hasMoreElements())
    {
        const unsigned int token = keys.next();
        visited.insert(token);
        EXPECT_TRUE(table.remove(token));
    }
    EXPECT_EQ(visited.size(), 30u);
    EXPECT_EQ(std::set<unsigned int>(visited.begin(), visited.end()).size(), 30u);
    EXPECT_TRUE(table.isEmpty());
    EXPECT_EQ(destroyed.load(), 30);
}

TEST(ZnTokenTableTest, DisplayIsClassNameAndNewline)
{
    ZnTokenTable table;
    table.put(1, new ZnException("VALUE-TEXT"));
    StringOutputStream out;
    table.display(out);
    EXPECT_EQ(out.text(), "ZnTokenTable\n");
    EXPECT_EQ(out.flushes(), 1);
}

TEST(ZnTokenTableTest, CollectElementsHandsOutEveryNonNullValueWithAReference)
{
    std::atomic<int> destroyed(0);
    ZnTokenTable table(7);
    Value* first = new Value(&destroyed);
    Value* second = new Value(&destroyed);
    table.put(1, first);
    table.put(8, second); // same bucket as token 1
    table.put(3, nullptr);

    std::vector<ZnHandle<ZnObject>> values;
    table.collectElements(values);

    ASSERT_EQ(values.size(), 2u);
    std::set<ZnObject*> seen;
    for (const ZnHandle<ZnObject>& value : values)
    {
        seen.insert(static_cast<ZnObject*>(value));
    }
    EXPECT_EQ(seen, (std::set<ZnObject*>{first, second}));
    EXPECT_EQ(first->getRefCount(), 2u);

    // The collected handles keep the values alive after the table let them go.
    table.clear();
    EXPECT_EQ(destroyed.load(), 0);
    values.clear();
    EXPECT_EQ(destroyed.load(), 2);
}

TEST(ZnTokenTableTest, CollectElementsWhileOtherThreadsPutAndRemoveSeesWholeValues)
{
    ZnTokenTable table;
    std::atomic<bool> stop(false);
    std::thread writer(
        [&]
        {
            for (unsigned int round = 0; !stop.load(); ++round)
            {
                unsigned int token = round % 64;
                table.put(token, new Value());
                table.remove((token + 32) % 64);
            }
        });
    for (int pass = 0; pass < 2000; ++pass)
    {
        std::vector<ZnHandle<ZnObject>> values;
        table.collectElements(values);
        for (const ZnHandle<ZnObject>& value : values)
        {
            ASSERT_GE(value->getRefCount(), 1u);
        }
    }
    stop.store(true);
    writer.join();
}

} // namespace
