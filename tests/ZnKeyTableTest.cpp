// Tests of ZnKeyTable: keys and values with exact reference counts, replacement, empty keys,
// null values, clearing, removal outside the lock, copies, iterators and the printed form.
#include "ZnUtil/ZnKeyTable.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnMutex.h"
#include "ZnUtil/ZnOutputStream.h"
#include "ZnUtil/ZnString.h"
#include "ZnUtil/ZnStringBuffer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <utility>
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

/// The count of the buffer of \p key.
unsigned long keyCount(const ZnString& key)
{
    return key.buffer()->getRefCount();
}

/// The address as ZnOutputStream prints pointers: eight upper-case hex digits of the low 32
/// bits.
std::string printedAddress(const void* p)
{
    char text[32];
    snprintf(text, sizeof(text), "%08lX",
             static_cast<unsigned long>(reinterpret_cast<uintptr_t>(p) & 0xFFFFFFFFu));
    return text;
}

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

/// What became of an action run on another thread while the calling thread held a lock.
enum class Outcome
{
    Finished, ///< the action ran through while the lock was held
    Blocked   ///< the action went to a blocking wait on a ZnMutex
};

/// Starts \p action on \p worker and waits until it either ends (\p done) or goes to a blocking
/// wait on a ZnMutex, which ZnMutex::m_lockCount shows; only that thread locks anything
/// meanwhile. The worker is left running: the caller joins it after releasing its lock.
Outcome startAndObserve(std::thread& worker, std::atomic<bool>& done,
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
            return Outcome::Finished;
        }
        if (ZnMutex::m_lockCount.load() != waitsBefore ||
            std::chrono::steady_clock::now() > deadline)
        {
            return Outcome::Blocked;
        }
        std::this_thread::yield();
    }
}

/// Runs \p action on a new thread while the caller holds a lock, then calls \p release and joins.
Outcome runWhileHeld(const std::function<void()>& action, const std::function<void()>& release)
{
    std::thread worker;
    std::atomic<bool> done{false};
    const Outcome outcome = startAndObserve(worker, done, action);
    release();
    worker.join();
    EXPECT_TRUE(done.load());
    return outcome;
}

/// A value that, when destroyed, looks whether its table's lock is free: another thread asks
/// the table for a key while the destructor waits.
class LockProbeValue : public ZnObject
{
public:
    LockProbeValue(ZnKeyTable* table, std::thread* watcher, std::atomic<bool>* watcherDone,
                   int* lockFreeAtDestruction)
        : m_table(table), m_watcher(watcher), m_watcherDone(watcherDone),
          m_lockFreeAtDestruction(lockFreeAtDestruction)
    {
    }
    ~LockProbeValue() override
    {
        ZnKeyTable* table = m_table;
        const Outcome outcome = startAndObserve(*m_watcher, *m_watcherDone,
                                                [table] { table->containsKey("elsewhere"); });
        *m_lockFreeAtDestruction = outcome == Outcome::Finished ? 1 : 0;
    }

private:
    ZnKeyTable* m_table;
    std::thread* m_watcher;
    std::atomic<bool>* m_watcherDone;
    int* m_lockFreeAtDestruction;
};

TEST(ZnKeyTableTest, DefaultTableHasSixteenByteEntriesAndOneHundredOneBuckets)
{
    ZnKeyTable table;
    EXPECT_EQ(sizeof(ZnKeyTable::Entry), 16u);
    EXPECT_EQ(table.getItemSize(), 16u);
    EXPECT_EQ(table.getTableSize(), 101u);
    EXPECT_NE(table.getHashFunc(), nullptr);
    EXPECT_NE(table.getCompFunc(), nullptr);
    EXPECT_EQ(table.getCopyFunc(), nullptr);
    EXPECT_TRUE(table.isEmpty());

    ZnKeyTable sized(7, 3);
    EXPECT_EQ(sized.getTableSize(), 7u);
    EXPECT_EQ(sized.getItemSize(), 16u);
}

TEST(ZnKeyTableTest, InvalidSizesAreRefusedAtConstruction)
{
    const std::vector<std::pair<unsigned int, unsigned int>> invalid = {{0, 1}, {101, 0}};
    for (const auto& sizes : invalid)
    {
        try
        {
            ZnKeyTable table(sizes.first, sizes.second);
            ADD_FAILURE() << "table accepted " << sizes.first << " buckets, " << sizes.second
                          << " locks";
        }
        catch (const ZnHandle<ZnException>& caught)
        {
            EXPECT_NE(
                dynamic_cast<const ZnAssertionFailure*>(static_cast<const ZnException*>(caught)),
                nullptr);
        }
    }
}

TEST(ZnKeyTableTest, HashIsKeyHashCodeAndKeysMatchByBytes)
{
    ZnKeyTable table;
    ZnString ab("ab");
    ZnString otherAb("ab");
    ZnString upper("AB");
    ZnKeyTable::Entry a = {ab.buffer(), nullptr};
    ZnKeyTable::Entry b = {otherAb.buffer(), nullptr};
    ZnKeyTable::Entry c = {upper.buffer(), nullptr};
    EXPECT_EQ(table.getHashFunc()(&a), 583u); // 97 * 5 + 98
    EXPECT_TRUE(table.getCompFunc()(&a, &b));
    EXPECT_FALSE(table.getCompFunc()(&a, &c));
}

TEST(ZnKeyTableTest, PutOfNewKeyReturnsNilAndTakesOneReferenceOnKeyAndValue)
{
    ZnKeyTable table;
    ZnString key("alpha");
    ZnHandle<ZnObject> value(new Value);
    ASSERT_EQ(keyCount(key), 1u);
    ASSERT_EQ(value->getRefCount(), 1u);

    ZnHandle<ZnObject> previous = table.put(key, value);
    EXPECT_TRUE(previous.isNil());
    EXPECT_EQ(table.size(), 1u);
    EXPECT_EQ(keyCount(key), 2u);
    EXPECT_EQ(value->getRefCount(), 2u);

    ZnHandle<ZnObject> got = table.get(key);
    EXPECT_EQ(static_cast<ZnObject*>(got), static_cast<ZnObject*>(value));
    EXPECT_EQ(value->getRefCount(), 3u);
    EXPECT_EQ(static_cast<ZnObject*>(table.get(ZnString("alpha"))), static_cast<ZnObject*>(value));
    EXPECT_TRUE(table.containsKey(ZnString("alpha")));
}

TEST(ZnKeyTableTest, PutWithEmptyKeyThrowsAndTakesNoReference)
{
    ZnKeyTable table;
    ZnHandle<ZnObject> value(new Value);
    const ZnString nilKey;
    const ZnString emptyNil("");
    const ZnString emptyBuffer(ZnStringBuffer::sCreate("", 0, 16));
    ASSERT_FALSE(emptyBuffer.isNil());
    for (const ZnString* key : {&nilKey, &emptyNil, &emptyBuffer})
    {
        expectException([&] { table.put(*key, value); }, "NULL key value (ZnStringBuffer*)");
    }
    EXPECT_EQ(value->getRefCount(), 1u);
    EXPECT_EQ(emptyBuffer.buffer()->getRefCount(), 1u);
    EXPECT_TRUE(table.isEmpty());
}

TEST(ZnKeyTableTest, EmptyKeyAnswersNilFalseAndFalseWithoutException)
{
    ZnKeyTable table;
    table.put("present", new Value);
    const ZnString nilKey;
    const ZnString emptyBuffer(ZnStringBuffer::sCreate("", 0, 4));
    for (const ZnString* key : {&nilKey, &emptyBuffer})
    {
        EXPECT_TRUE(table.get(*key).isNil());
        EXPECT_TRUE(table.asynGet(*key).isNil());
        EXPECT_FALSE(table.remove(*key));
        EXPECT_FALSE(table.containsKey(*key));
    }
    EXPECT_EQ(table.size(), 1u);
}

TEST(ZnKeyTableTest, PutOnPresentKeyReturnsOldValueAndKeepsSize)
{
    std::atomic<int> destroyed{0};
    ZnKeyTable table;
    ZnString firstKey("k");
    ZnString secondKey("k"); // equal characters, another buffer
    ZnHandle<ZnObject> first(new Value(&destroyed));
    ZnHandle<ZnObject> second(new Value(&destroyed));
    table.put(firstKey, first);
    table.put("other", nullptr);
    ASSERT_EQ(table.size(), 2u);
    {
        ZnHandle<ZnObject> replaced = table.put(secondKey, second);
        EXPECT_EQ(static_cast<ZnObject*>(replaced), static_cast<ZnObject*>(first));
        EXPECT_EQ(first->getRefCount(), 2u); // the test's handle and the returned one
    }
    EXPECT_EQ(first->getRefCount(), 1u);
    EXPECT_EQ(second->getRefCount(), 2u);
    EXPECT_EQ(table.size(), 2u);
    // The entry took the new key's buffer and gave back the old one.
    EXPECT_EQ(keyCount(firstKey), 1u);
    EXPECT_EQ(keyCount(secondKey), 2u);
    std::set<const ZnStringBuffer*> buffers;
    ZnKeyTable::KeyIterator keys = table.keys();
    while (keys.hasMoreElements())
    {
        buffers.insert(keys.next().buffer());
    }
    EXPECT_EQ(buffers.count(secondKey.buffer()), 1u);
    EXPECT_EQ(buffers.count(firstKey.buffer()), 0u);
    EXPECT_EQ(static_cast<ZnObject*>(table.get("k")), static_cast<ZnObject*>(second));
    EXPECT_EQ(destroyed.load(), 0);
}

TEST(ZnKeyTableTest, ReplacingValueHeldOnlyByTableHandsItToCaller)
{
    std::atomic<int> destroyed{0};
    ZnKeyTable table;
    table.put("k", new Value(&destroyed));
    ZnHandle<ZnObject> replaced = table.put("k", new Value(&destroyed));
    ASSERT_FALSE(replaced.isNil());
    EXPECT_EQ(replaced->getRefCount(), 1u);
    EXPECT_EQ(destroyed.load(), 0);
    replaced = nullptr;
    EXPECT_EQ(destroyed.load(), 1);
}

TEST(ZnKeyTableTest, PuttingSameValueAgainKeepsOneTableReference)
{
    ZnKeyTable table;
    ZnString key("same");
    ZnHandle<ZnObject> value(new Value);
    table.put(key, value);
    ZnHandle<ZnObject> replaced = table.put(key, value);
    EXPECT_EQ(static_cast<ZnObject*>(replaced), static_cast<ZnObject*>(value));
    replaced = nullptr;
    EXPECT_EQ(value->getRefCount(), 2u);
    EXPECT_EQ(keyCount(key), 2u);
}

TEST(ZnKeyTableTest, NullValueIsStoredAndReadsAsNil)
{
    ZnKeyTable table;
    ZnString key("nothing");
    EXPECT_TRUE(table.put(key, nullptr).isNil());
    EXPECT_TRUE(table.containsKey(key));
    EXPECT_TRUE(table.get(key).isNil());
    EXPECT_EQ(table.size(), 1u);
    EXPECT_EQ(keyCount(key), 2u);
    ZnHandle<ZnObject> value(new Value);
    EXPECT_TRUE(table.put(key, value).isNil()) << "replacing a null value returns nil";
    EXPECT_EQ(value->getRefCount(), 2u);
    EXPECT_TRUE(table.remove(key));
    EXPECT_EQ(keyCount(key), 1u);
}

TEST(ZnKeyTableTest, KeysDifferingOnlyInCaseAreDifferent)
{
    ZnKeyTable table;
    ZnHandle<ZnObject> lower(new Value);
    ZnHandle<ZnObject> upper(new Value);
    table.put("abc", lower);
    table.put("ABC", upper);
    EXPECT_EQ(table.size(), 2u);
    EXPECT_EQ(static_cast<ZnObject*>(table.get("abc")), static_cast<ZnObject*>(lower));
    EXPECT_EQ(static_cast<ZnObject*>(table.get("ABC")), static_cast<ZnObject*>(upper));
    EXPECT_FALSE(table.containsKey("Abc"));
    EXPECT_FALSE(table.containsKey(" abc"));
}

TEST(ZnKeyTableTest, RemoveReleasesKeyAndValue)
{
    ZnKeyTable table;
    ZnString key("gone");
    ZnHandle<ZnObject> value(new Value);
    table.put(key, value);
    EXPECT_TRUE(table.remove(ZnString("gone")));
    EXPECT_EQ(table.size(), 0u);
    EXPECT_EQ(keyCount(key), 1u);
    EXPECT_EQ(value->getRefCount(), 1u);
    EXPECT_FALSE(table.remove(key));
    EXPECT_FALSE(table.containsKey(key));
    EXPECT_TRUE(table.get(key).isNil());
}

TEST(ZnKeyTableTest, RemovingMissingKeyChangesNothing)
{
    ZnKeyTable table(1, 1);
    ZnHandle<ZnObject> value(new Value);
    table.put("here", value);
    EXPECT_FALSE(table.remove("there"));
    EXPECT_EQ(table.size(), 1u);
    EXPECT_EQ(value->getRefCount(), 2u);
}

TEST(ZnKeyTableTest, RemovingValueHeldOnlyByTableDeletesItAfterLockIsReleased)
{
    std::thread watcher;
    std::atomic<bool> watcherDone{false};
    int lockFree = -1;
    ZnKeyTable table;
    table.put("probe", new LockProbeValue(&table, &watcher, &watcherDone, &lockFree));
    EXPECT_TRUE(table.remove("probe"));
    watcher.join();
    EXPECT_EQ(lockFree, 1) << "the value died under the table's lock";
    EXPECT_TRUE(table.isEmpty());
}

TEST(ZnKeyTableTest, ClearReleasesValuesUnderTheLocks)
{
    // clear excludes every other caller while it releases, values included.
    std::thread watcher;
    std::atomic<bool> watcherDone{false};
    int lockFree = -1;
    ZnKeyTable table(101, 4);
    table.put("probe", new LockProbeValue(&table, &watcher, &watcherDone, &lockFree));
    table.clear();
    watcher.join();
    EXPECT_EQ(lockFree, 0);
    EXPECT_TRUE(table.isEmpty());
}

TEST(ZnKeyTableTest, ClearEmptiesTableAndDropsExactlyTheTableReference)
{
    std::atomic<int> destroyed{0};
    ZnKeyTable table(13, 4);
    std::vector<ZnString> keys;
    std::vector<ZnHandle<ZnObject>> held;
    for (int i = 0; i < 30; ++i)
    {
        keys.push_back(ZnString(("key" + std::to_string(i)).c_str()));
        held.push_back(ZnHandle<ZnObject>(new Value(&destroyed)));
        table.put(keys.back(), held.back());
    }
    table.put("unheld", new Value(&destroyed));
    table.put("null", nullptr);
    ASSERT_EQ(table.size(), 32u);
    table.clear();
    EXPECT_EQ(table.size(), 0u);
    EXPECT_TRUE(table.isEmpty());
    EXPECT_EQ(destroyed.load(), 1) << "only the value held by the table alone dies";
    for (size_t i = 0; i < keys.size(); ++i)
    {
        EXPECT_EQ(held[i]->getRefCount(), 1u);
        EXPECT_EQ(keyCount(keys[i]), 1u);
    }
    ZnKeyTable::KeyIterator rest = table.keys();
    EXPECT_FALSE(rest.hasMoreElements());
    // The table is usable again.
    table.put(keys[0], held[0]);
    EXPECT_EQ(held[0]->getRefCount(), 2u);
}

TEST(ZnKeyTableTest, DestructionReleasesKeysAndValues)
{
    std::atomic<int> destroyed{0};
    ZnString key("kept");
    ZnHandle<ZnObject> held(new Value(&destroyed));
    {
        ZnKeyTable table(5, 2);
        table.put(key, held);
        table.put("alone", new Value(&destroyed));
        EXPECT_EQ(keyCount(key), 2u);
        EXPECT_EQ(held->getRefCount(), 2u);
    }
    EXPECT_EQ(keyCount(key), 1u);
    EXPECT_EQ(held->getRefCount(), 1u);
    EXPECT_EQ(destroyed.load(), 1);
}

TEST(ZnKeyTableTest, ContainsThrowsNotImplemented)
{
    ZnKeyTable table;
    ZnHandle<ZnObject> value(new Value);
    table.put("v", value);
    expectException([&] { table.contains(value); }, "Not implemented!");
    expectException([&] { table.contains(nullptr); }, "Not implemented!");
}

TEST(ZnKeyTableTest, CopySharesBuffersAndAddsReferences)
{
    ZnKeyTable* source = new ZnKeyTable(7, 2);
    ZnHandle<ZnObject> sourceHolder(source);
    ZnString a("a");
    ZnString b("b");
    ZnHandle<ZnObject> value(new Value);
    source->put(a, value);
    source->put(b, nullptr);
    {
        ZnKeyTable copy(*source);
        EXPECT_EQ(copy.size(), 2u);
        EXPECT_EQ(copy.getTableSize(), 7u);
        EXPECT_EQ(keyCount(a), 3u);
        EXPECT_EQ(keyCount(b), 3u);
        EXPECT_EQ(value->getRefCount(), 3u);
        std::set<const ZnStringBuffer*> copied;
        ZnKeyTable::KeyIterator keys = copy.keys();
        while (keys.hasMoreElements())
        {
            copied.insert(keys.next().buffer());
        }
        EXPECT_EQ(copied, (std::set<const ZnStringBuffer*>{a.buffer(), b.buffer()}));
        EXPECT_EQ(static_cast<ZnObject*>(copy.get(a)), static_cast<ZnObject*>(value));

        EXPECT_TRUE(copy.remove(a));
        EXPECT_EQ(keyCount(a), 2u);
        EXPECT_EQ(value->getRefCount(), 2u);
        EXPECT_TRUE(source->containsKey(a));
    }
    EXPECT_EQ(keyCount(a), 2u);
    EXPECT_EQ(keyCount(b), 2u);
    EXPECT_EQ(value->getRefCount(), 2u);
}

TEST(ZnKeyTableTest, CloneIsACopyWithCountZero)
{
    ZnKeyTable table;
    ZnString key("c");
    ZnHandle<ZnObject> value(new Value);
    table.put(key, value);
    ZnObject* clone = table.clone();
    EXPECT_EQ(clone->getRefCount(), 0u);
    ZnHandle<ZnObject> held(clone);
    ZnKeyTable* copy = dynamic_cast<ZnKeyTable*>(clone);
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy->getClassName(), "ZnKeyTable");
    EXPECT_EQ(static_cast<ZnObject*>(copy->get(key)), static_cast<ZnObject*>(value));
    EXPECT_EQ(value->getRefCount(), 3u);
    EXPECT_EQ(keyCount(key), 3u);
    held = nullptr;
    EXPECT_EQ(value->getRefCount(), 2u);
    EXPECT_EQ(keyCount(key), 2u);
}

TEST(ZnKeyTableTest, IteratorsGoByBucketThenInsertion)
{
    // With 7 buckets: "b" (98) is in bucket 0, "c" (99) in 1, "a" (97) and "h" (104) in 6.
    ZnKeyTable table(7, 1);
    std::vector<ZnHandle<ZnObject>> values;
    for (const char* key : {"a", "b", "h", "c"})
    {
        values.push_back(ZnHandle<ZnObject>(new Value));
        table.put(key, values.back());
    }
    std::vector<std::string> keys;
    ZnKeyTable::KeyIterator keyIterator = table.keys();
    while (keyIterator.hasMoreElements())
    {
        keys.push_back(keyIterator.next().c_str());
    }
    EXPECT_EQ(keys, (std::vector<std::string>{"b", "c", "a", "h"}));
    EXPECT_TRUE(keyIterator.next().isNil());

    std::vector<ZnObject*> elements;
    ZnKeyTable::DataIterator dataIterator = table.elements();
    while (dataIterator.hasMoreElements())
    {
        elements.push_back(dataIterator.next());
    }
    EXPECT_EQ(elements, (std::vector<ZnObject*>{values[1], values[3], values[0], values[2]}));
    EXPECT_TRUE(dataIterator.next().isNil());

    dataIterator.reset();
    EXPECT_TRUE(dataIterator.hasMoreElements());
    EXPECT_EQ(static_cast<ZnObject*>(dataIterator.next()), static_cast<ZnObject*>(values[1]));
}

TEST(ZnKeyTableTest, KeyIteratorSharesTheTableBuffer)
{
    ZnKeyTable table;
    ZnString key("shared");
    table.put(key, nullptr);
    ZnKeyTable::KeyIterator keys = table.keys();
    ZnString yielded = keys.next();
    EXPECT_EQ(yielded.buffer(), key.buffer());
    EXPECT_EQ(keyCount(key), 3u);
}

TEST(ZnKeyTableTest, DataIteratorYieldsNilForNullValue)
{
    ZnKeyTable table;
    table.put("empty", nullptr);
    ZnKeyTable::DataIterator elements = table.elements();
    ASSERT_TRUE(elements.hasMoreElements());
    EXPECT_TRUE(elements.next().isNil());
    EXPECT_FALSE(elements.hasMoreElements());
}

TEST(ZnKeyTableTest, RemovingEachKeyJustReturnedVisitsEveryKeyOnce)
{
    std::atomic<int> destroyed{0};
    ZnKeyTable table(5, 2);
    for (int i = 0; i < 40; ++i)
    {
        table.put(("k" + std::to_string(i)).c_str(), new Value(&destroyed));
    }
    std::multiset<std::string> visited;
    ZnKeyTable::KeyIterator keys = table.keys();
    while (keys.hasMoreElements())
    {
        ZnString key = keys.next();
        visited.insert(key.c_str());
        EXPECT_TRUE(table.remove(key));
    }
    EXPECT_EQ(visited.size(), 40u);
    EXPECT_EQ(std::set<std::string>(visited.begin(), visited.end()).size(), 40u);
    EXPECT_TRUE(table.isEmpty());
    EXPECT_EQ(destroyed.load(), 40);
}

TEST(ZnKeyTableTest, AsynGetTakesNoLock)
{
    ZnKeyTable table(101, 4);
    ZnHandle<ZnObject> value(new Value);
    table.put("k", value);
    ZnHandle<ZnObject> seen;
    table.lockTable();
    const Outcome outcome =
        runWhileHeld([&] { seen = table.asynGet("k"); }, [&] { table.unlockTable(); });
    EXPECT_EQ(outcome, Outcome::Finished);
    EXPECT_EQ(static_cast<ZnObject*>(seen), static_cast<ZnObject*>(value));
    EXPECT_TRUE(table.asynGet("absent").isNil());
}

TEST(ZnKeyTableTest, LockTableExcludesGetPutRemoveAndContainsKey)
{
    ZnKeyTable table(101, 4);
    table.put("k", new Value);
    const std::vector<std::function<void()>> actions = {
        [&] { table.get("k"); },    [&] { table.put("new", nullptr); },
        [&] { table.remove("k"); }, [&] { table.containsKey("x"); },
        [&] { table.clear(); },
    };
    for (size_t i = 0; i < actions.size(); ++i)
    {
        table.lockTable();
        EXPECT_EQ(runWhileHeld(actions[i], [&] { table.unlockTable(); }), Outcome::Blocked)
            << "action " << i;
    }
    EXPECT_TRUE(table.isEmpty());
}

TEST(ZnKeyTableTest, DisplayListsEachKeyWithItsBufferForm)
{
    ZnKeyTable table(7, 1);
    ZnString abc("abc"); // 'a' * 25 + 'b' * 5 + 'c' = 3014: bucket 4
    table.put(abc, new ZnException("VALUE-TEXT"));
    table.put("b", nullptr); // bucket 0
    StringOutputStream out;
    table.display(out);
    const ZnStringBuffer* b = nullptr;
    ZnKeyTable::KeyIterator keys = table.keys();
    ZnString first = keys.next();
    b = first.buffer();
    const std::string expected = "ZnKeyTable"
                                 "\n b\t1 \t(" +
                                 printedAddress(b) +
                                 ")\tZnStringBufferb"
                                 "\n abc\t2 \t(" +
                                 printedAddress(abc.buffer()) +
                                 ")\tZnStringBufferabc"
                                 "\n";
    // The count of "b" was read while only the table held it.
    EXPECT_EQ(out.text(), expected);
    EXPECT_EQ(out.flushes(), 1);
    EXPECT_EQ(out.text().find("VALUE-TEXT"), std::string::npos) << "values are not printed";
}

TEST(ZnKeyTableTest, DisplayOfEmptyTableIsClassNameAndNewline)
{
    ZnKeyTable table;
    StringOutputStream out;
    table.display(out);
    EXPECT_EQ(out.text(), "ZnKeyTable\n");
    EXPECT_EQ(out.flushes(), 1);
}

TEST(ZnKeyTableTest, StripedTableKeepsEveryKey)
{
    ZnKeyTable table(31, 4);
    std::vector<ZnHandle<ZnObject>> values;
    for (int i = 0; i < 200; ++i)
    {
        values.push_back(ZnHandle<ZnObject>(new Value));
        EXPECT_TRUE(table.put(("key-" + std::to_string(i)).c_str(), values.back()).isNil());
    }
    EXPECT_EQ(table.size(), 200u);
    for (int i = 0; i < 200; ++i)
    {
        EXPECT_EQ(static_cast<ZnObject*>(table.get(("key-" + std::to_string(i)).c_str())),
                  static_cast<ZnObject*>(values[static_cast<size_t>(i)]));
    }
    for (int i = 0; i < 200; i += 2)
    {
        EXPECT_TRUE(table.remove(("key-" + std::to_string(i)).c_str()));
    }
    EXPECT_EQ(table.size(), 100u);
    for (int i = 0; i < 200; ++i)
    {
        EXPECT_EQ(table.containsKey(("key-" + std::to_string(i)).c_str()), i % 2 == 1);
        EXPECT_EQ(values[static_cast<size_t>(i)]->getRefCount(), i % 2 == 1 ? 2u : 1u);
    }
}

} // namespace
