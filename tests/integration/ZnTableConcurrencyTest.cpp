// ZnKeyTable (with several lock stripes) and ZnTokenTable used by four threads at once: put,
// get, remove and clear race on shared keys while each thread also keeps keys of its own whose
// state it can predict. At the end every value is either in the table with exactly the table's
// reference, or destroyed exactly once.
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnKeyTable.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnString.h"
#include "ZnUtil/ZnTokenTable.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace
{

const int kThreads = 4;
const int kOpsPerThread = 50000;
const unsigned int kSharedKeys = 40;
const unsigned int kOwnKeys = 12;
const unsigned int kAllKeys = kSharedKeys + kThreads * kOwnKeys;

/// What became of every value a run made: whether it was made, and how often it was destroyed.
/// Value ids are thread * kOpsPerThread + operation, so no two threads share a slot.
struct Ledger
{
    Ledger()
        : made(new std::atomic<bool>[kThreads * kOpsPerThread]),
          destroyed(new std::atomic<int>[kThreads * kOpsPerThread])
    {
        for (size_t id = 0; id < kThreads * kOpsPerThread; ++id)
        {
            made[id] = false;
            destroyed[id] = 0;
        }
    }

    std::unique_ptr<std::atomic<bool>[]> made;
    std::unique_ptr<std::atomic<int>[]> destroyed;
};

/// A value that knows its key and its id, and records its destruction.
class Tracked : public ZnObject
{
public:
    Tracked(Ledger* ledger, size_t id, unsigned int key) : m_ledger(ledger), m_id(id), m_key(key)
    {
        m_ledger->made[id] = true;
    }
    ~Tracked() override { ++m_ledger->destroyed[m_id]; }

    size_t id() const { return m_id; }
    unsigned int key() const { return m_key; }

private:
    Ledger* m_ledger;
    size_t m_id;
    unsigned int m_key;
};

/// The key of the value in \p handle, or kAllKeys for nil.
unsigned int keyOf(const ZnHandle<ZnObject>& handle)
{
    if (handle.isNil())
    {
        return kAllKeys;
    }
    const Tracked* tracked = dynamic_cast<const Tracked*>(static_cast<ZnObject*>(handle));
    return tracked != nullptr ? tracked->key() : kAllKeys + 1;
}

/// A ZnKeyTable of 101 buckets and 4 stripes, with keys made (and hashed) before the threads
/// start.
class KeyTableUnderTest
{
public:
    KeyTableUnderTest() : m_table(101, 4)
    {
        for (unsigned int k = 0; k < kAllKeys; ++k)
        {
            m_keys.push_back(ZnString(("key-" + std::to_string(k)).c_str()));
            m_keys.back().hashCode();
        }
    }

    ZnHandle<ZnObject> put(unsigned int k, ZnObject* value)
    {
        return m_table.put(m_keys[k], value);
    }
    ZnHandle<ZnObject> get(unsigned int k) const { return m_table.get(m_keys[k]); }
    bool remove(unsigned int k) { return m_table.remove(m_keys[k]); }
    bool containsKey(unsigned int k) const { return m_table.containsKey(m_keys[k]); }
    void clear() { m_table.clear(); }
    unsigned int size() const { return m_table.size(); }

    /// Every (key index, value) pair, through the iterators.
    std::vector<std::pair<unsigned int, ZnHandle<ZnObject>>> entries()
    {
        std::map<std::string, unsigned int> index;
        for (unsigned int k = 0; k < kAllKeys; ++k)
        {
            index[m_keys[k].c_str()] = k;
        }
        std::vector<std::pair<unsigned int, ZnHandle<ZnObject>>> result;
        ZnKeyTable::KeyIterator keys = m_table.keys();
        ZnKeyTable::DataIterator values = m_table.elements();
        while (keys.hasMoreElements())
        {
            const ZnString key = keys.next();
            result.emplace_back(index.count(key.c_str()) != 0 ? index[key.c_str()] : kAllKeys + 2,
                                values.next());
        }
        return result;
    }

    /// The counts every key buffer must have at rest: the test's string, plus the table.
    void checkKeyCounts()
    {
        for (unsigned int k = 0; k < kAllKeys; ++k)
        {
            const unsigned long expected = m_table.containsKey(m_keys[k]) ? 2u : 1u;
            EXPECT_EQ(m_keys[k].buffer()->getRefCount(), expected) << "key " << k;
        }
    }

private:
    ZnKeyTable m_table;
    std::vector<ZnString> m_keys;
};

/// A ZnTokenTable of 31 buckets; tokens spread so that several share a bucket.
class TokenTableUnderTest
{
public:
    TokenTableUnderTest() : m_table(static_cast<size_t>(31)) {}

    static unsigned int token(unsigned int k) { return k * 7u + (k % 3u) * 31u; }

    ZnHandle<ZnObject> put(unsigned int k, ZnObject* value) { return m_table.put(token(k), value); }
    ZnHandle<ZnObject> get(unsigned int k) const { return m_table.get(token(k)); }
    bool remove(unsigned int k) { return m_table.remove(token(k)); }
    bool containsKey(unsigned int k) const { return m_table.containsKey(token(k)); }
    void clear() { m_table.clear(); }
    unsigned int size() const { return m_table.size(); }

    std::vector<std::pair<unsigned int, ZnHandle<ZnObject>>> entries()
    {
        std::map<unsigned int, unsigned int> index;
        for (unsigned int k = 0; k < kAllKeys; ++k)
        {
            index[token(k)] = k;
        }
        std::vector<std::pair<unsigned int, ZnHandle<ZnObject>>> result;
        ZnTokenTable::KeyIterator keys = m_table.keys();
        ZnTokenTable::DataIterator values = m_table.elements();
        while (keys.hasMoreElements())
        {
            const unsigned int t = keys.next();
            result.emplace_back(index.count(t) != 0 ? index[t] : kAllKeys + 2, values.next());
        }
        return result;
    }

    void checkKeyCounts() {}

private:
    ZnTokenTable m_table;
};

/// What one worker thread saw go wrong, and what it expects of its own keys at the end.
struct WorkerReport
{
    int wrongKey = 0;    ///< a value came back under a key it was not put with
    int ownMismatch = 0; ///< an own key did not behave as the thread's model said
    int wrongOwnersAtEnd = 0;
    std::map<unsigned int, ZnObject*> ownModel; ///< own key -> value (null value allowed)
};

/// Starts all workers at once.
class StartLine
{
public:
    void arriveAndWait()
    {
        ++m_arrived;
        while (m_arrived.load() < kThreads)
        {
            std::this_thread::yield();
        }
    }

private:
    std::atomic<int> m_arrived{0};
};

template <class Table>
void work(Table& table, Ledger& ledger, StartLine& start, int thread, bool withClear,
          WorkerReport& report)
{
    std::minstd_rand random(static_cast<unsigned int>(thread) * 7919u + 1u);
    const unsigned int firstOwn = kSharedKeys + static_cast<unsigned int>(thread) * kOwnKeys;
    start.arriveAndWait();
    for (int op = 0; op < kOpsPerThread; ++op)
    {
        const size_t id = static_cast<size_t>(thread) * kOpsPerThread + static_cast<size_t>(op);
        const unsigned int choice = random() % 100;
        if (withClear && choice == 0)
        {
            table.clear();
        }
        else if (!withClear && choice < 20)
        {
            // An own key: nobody else touches it, so every answer is known in advance.
            const unsigned int k = firstOwn + static_cast<unsigned int>(random() % kOwnKeys);
            const auto known = report.ownModel.find(k);
            const bool present = known != report.ownModel.end();
            ZnObject* expected = present ? known->second : nullptr;
            switch (random() % 4)
            {
            case 0:
            {
                ZnObject* value = random() % 5 == 0 ? nullptr : new Tracked(&ledger, id, k);
                ZnHandle<ZnObject> old = table.put(k, value);
                report.ownMismatch += static_cast<ZnObject*>(old) != expected;
                report.ownModel[k] = value;
                break;
            }
            case 1:
                report.ownMismatch += static_cast<ZnObject*>(table.get(k)) != expected;
                break;
            case 2:
                report.ownMismatch += table.remove(k) != present;
                report.ownModel.erase(k);
                break;
            default:
                report.ownMismatch += table.containsKey(k) != present;
                break;
            }
        }
        else
        {
            const unsigned int k = static_cast<unsigned int>(random() % kSharedKeys);
            if (choice < 55)
            {
                ZnHandle<ZnObject> old = table.put(k, new Tracked(&ledger, id, k));
                report.wrongKey += !old.isNil() && keyOf(old) != k;
            }
            else if (choice < 80)
            {
                ZnHandle<ZnObject> got = table.get(k);
                report.wrongKey += !got.isNil() && keyOf(got) != k;
            }
            else
            {
                table.remove(k);
            }
        }
    }
}

template <class Table>
void runAndCheck(bool withClear)
{
    Ledger ledger;
    std::vector<WorkerReport> reports(kThreads);
    {
        Table table;
        StartLine start;
        std::vector<std::thread> workers;
        for (int t = 0; t < kThreads; ++t)
        {
            workers.emplace_back(
                [&, t]
                { work(table, ledger, start, t, withClear, reports[static_cast<size_t>(t)]); });
        }
        for (std::thread& worker : workers)
        {
            worker.join();
        }

        for (size_t t = 0; t < reports.size(); ++t)
        {
            EXPECT_EQ(reports[t].wrongKey, 0) << "thread " << t;
            EXPECT_EQ(reports[t].ownMismatch, 0) << "thread " << t;
        }

        // Every entry once, with its own key's value, held by the table alone.
        const auto entries = table.entries();
        EXPECT_EQ(entries.size(), table.size());
        std::vector<int> seen(kAllKeys, 0);
        size_t liveInTable = 0;
        for (const auto& entry : entries)
        {
            ASSERT_LT(entry.first, kAllKeys);
            ++seen[entry.first];
            if (entry.second.isNil())
            {
                continue;
            }
            ++liveInTable;
            EXPECT_EQ(keyOf(entry.second), entry.first);
            // The table's reference and the iterator's handle.
            EXPECT_EQ(entry.second->getRefCount(), 2u);
            const Tracked* tracked =
                dynamic_cast<const Tracked*>(static_cast<ZnObject*>(entry.second));
            ASSERT_NE(tracked, nullptr);
            EXPECT_EQ(ledger.destroyed[tracked->id()].load(), 0);
        }
        for (unsigned int k = 0; k < kAllKeys; ++k)
        {
            EXPECT_LE(seen[k], 1) << "key " << k;
        }
        if (!withClear)
        {
            for (size_t t = 0; t < reports.size(); ++t)
            {
                for (unsigned int i = 0; i < kOwnKeys; ++i)
                {
                    const unsigned int k =
                        kSharedKeys + static_cast<unsigned int>(t) * kOwnKeys + i;
                    const auto known = reports[t].ownModel.find(k);
                    EXPECT_EQ(table.containsKey(k), known != reports[t].ownModel.end());
                    if (known != reports[t].ownModel.end())
                    {
                        EXPECT_EQ(static_cast<ZnObject*>(table.get(k)), known->second);
                    }
                }
            }
        }

        // Nothing lost: what is not in the table died, exactly once.
        size_t made = 0;
        size_t alive = 0;
        for (size_t id = 0; id < kThreads * kOpsPerThread; ++id)
        {
            if (!ledger.made[id].load())
            {
                continue;
            }
            ++made;
            const int destructions = ledger.destroyed[id].load();
            EXPECT_LE(destructions, 1) << "value " << id;
            alive += destructions == 0;
        }
        EXPECT_GT(made, static_cast<size_t>(kThreads * kOpsPerThread / 3));
        EXPECT_EQ(alive, liveInTable);
        table.checkKeyCounts();
    }

    // The table's destruction released the rest: every value died exactly once.
    for (size_t id = 0; id < kThreads * kOpsPerThread; ++id)
    {
        if (ledger.made[id].load())
        {
            EXPECT_EQ(ledger.destroyed[id].load(), 1) << "value " << id;
        }
    }
}

TEST(ZnTableConcurrencyTest, KeyTablePutGetRemoveFromFourThreads)
{
    runAndCheck<KeyTableUnderTest>(false);
}

TEST(ZnTableConcurrencyTest, KeyTablePutGetRemoveAndClearFromFourThreads)
{
    runAndCheck<KeyTableUnderTest>(true);
}

TEST(ZnTableConcurrencyTest, TokenTablePutGetRemoveFromFourThreads)
{
    runAndCheck<TokenTableUnderTest>(false);
}

TEST(ZnTableConcurrencyTest, TokenTablePutGetRemoveAndClearFromFourThreads)
{
    runAndCheck<TokenTableUnderTest>(true);
}

TEST(ZnTableConcurrencyTest, CountStaysExactWhileStripesAddAndRemoveAtOnce)
{
    // Each thread adds and removes keys of its own, all the time, so that adds and removes in
    // different stripes change the count at the same moment. Each thread ends with the keys of
    // odd index present.
    KeyTableUnderTest table;
    StartLine start;
    std::vector<std::thread> workers;
    const unsigned int perThread = kAllKeys / kThreads;
    std::atomic<int> failures{0};
    for (int t = 0; t < kThreads; ++t)
    {
        workers.emplace_back(
            [&, t]
            {
                const unsigned int first = static_cast<unsigned int>(t) * perThread;
                start.arriveAndWait();
                for (int round = 0; round < kOpsPerThread / static_cast<int>(perThread); ++round)
                {
                    for (unsigned int k = first; k < first + perThread; ++k)
                    {
                        failures += !table.put(k, nullptr).isNil();
                    }
                    for (unsigned int k = first; k < first + perThread; k += 2)
                    {
                        failures += !table.remove(k);
                    }
                    for (unsigned int k = first + 1; k < first + perThread; k += 2)
                    {
                        failures += !table.remove(k);
                    }
                }
                for (unsigned int k = first + 1; k < first + perThread; k += 2)
                {
                    failures += !table.put(k, nullptr).isNil();
                }
            });
    }
    for (std::thread& worker : workers)
    {
        worker.join();
    }
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(table.size(), kThreads * (perThread / 2));
    EXPECT_EQ(table.entries().size(), table.size());
    table.checkKeyCounts();
}

TEST(ZnTableConcurrencyTest, KeyTableClearWhileOthersPutKeepsCountExact)
{
    // Two threads fill disjoint keys while two others clear: afterwards the count is exactly
    // what the iterators find, and every key buffer has exactly the table's reference or none.
    Ledger ledger;
    KeyTableUnderTest table;
    StartLine start;
    std::vector<std::thread> workers;
    for (int t = 0; t < kThreads; ++t)
    {
        workers.emplace_back(
            [&, t]
            {
                start.arriveAndWait();
                for (int op = 0; op < kOpsPerThread / 4; ++op)
                {
                    if (t < 2)
                    {
                        const unsigned int k = static_cast<unsigned int>(t) * (kAllKeys / 2) +
                                               static_cast<unsigned int>(op) % (kAllKeys / 2);
                        const size_t id =
                            static_cast<size_t>(t) * kOpsPerThread + static_cast<size_t>(op);
                        table.put(k, new Tracked(&ledger, id, k));
                    }
                    else if (op % 16 == 0)
                    {
                        table.clear();
                    }
                    else
                    {
                        table.get(static_cast<unsigned int>(op) % kAllKeys);
                    }
                }
            });
    }
    for (std::thread& worker : workers)
    {
        worker.join();
    }
    EXPECT_EQ(table.entries().size(), table.size());
    table.checkKeyCounts();
    table.clear();
    EXPECT_EQ(table.size(), 0u);
    table.checkKeyCounts();
    for (size_t id = 0; id < kThreads * kOpsPerThread; ++id)
    {
        if (ledger.made[id].load())
        {
            EXPECT_EQ(ledger.destroyed[id].load(), 1) << "value " << id;
        }
    }
}

} // namespace
