// Tests of ZnHashTableBase: buckets, duplicates, removal with and without a compare function,
// lock stripes, iteration order and removal while iterating, copies, and refused set-ups.
#include "ZnUtil/ZnHashTableBase.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnMutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <set>
#include <string>
#include <thread>
#include <vector>

/// Allocations made through operator new and not yet given back.
std::atomic<long> g_liveAllocations{0};

namespace
{

/// A table whose protected operations the tests call directly.
class TestTable : public ZnHashTableBase
{
public:
    TestTable() = default;
    TestTable(unsigned int itemSize, HashFunc hashFunc, CompFunc compFunc, CopyFunc copyFunc,
              unsigned int tableSize, unsigned int lockCount)
        : ZnHashTableBase(itemSize, hashFunc, compFunc, copyFunc, tableSize, lockCount)
    {
    }
    TestTable(const TestTable& other) : ZnHashTableBase(other) {}

    using ZnHashTableBase::add;
    using ZnHashTableBase::find;
    using ZnHashTableBase::lock;
    using ZnHashTableBase::lockAll;
    using ZnHashTableBase::mAdd;
    using ZnHashTableBase::mFind;
    using ZnHashTableBase::mRemove;
    using ZnHashTableBase::remove;
    using ZnHashTableBase::unlock;
    using ZnHashTableBase::unlockAll;
};

/// A 16-byte item: a key that decides hash and match, and a payload that does not.
struct Item
{
    unsigned int key;
    unsigned int payload;
    uint64_t extra;
};
static_assert(sizeof(Item) == 16, "the items of these tests are 16 bytes");

bool sameKey(const void* a, const void* b)
{
    return static_cast<const Item*>(a)->key == static_cast<const Item*>(b)->key;
}

bool sameInt(const void* a, const void* b)
{
    unsigned int x;
    unsigned int y;
    memcpy(&x, a, sizeof(x));
    memcpy(&y, b, sizeof(y));
    return x == y;
}

std::atomic<int> g_hashCalls{0};

/// The default hash, counting its calls.
unsigned int countingHash(const void* item)
{
    ++g_hashCalls;
    return ZnHashTableBase::sDefaultHashFunc(item);
}

/// Copies an item and marks the copy, so that a test sees the copy function ran.
void markingCopy(void* destination, const void* source)
{
    Item copy = *static_cast<const Item*>(source);
    copy.payload += 1000;
    memcpy(destination, &copy, sizeof(copy));
}

Item makeItem(unsigned int key, unsigned int payload = 0)
{
    Item item;
    item.key = key;
    item.payload = payload;
    item.extra = 0;
    return item;
}

/// A table of 16-byte items keyed by their first 32 bits.
TestTable* newItemTable(unsigned int tableSize = 101, unsigned int lockCount = 1)
{
    return new TestTable(sizeof(Item), ZnHashTableBase::sDefaultHashFunc, sameKey, nullptr,
                         tableSize, lockCount);
}

/// Every key the iterator of \p table yields through next() alone, in order.
std::vector<unsigned int> keysInOrder(ZnHashTableBase& table)
{
    std::vector<unsigned int> keys;
    ZnHashTableBase::Iterator items(table);
    while (void* item = items.next())
    {
        keys.push_back(static_cast<Item*>(item)->key);
    }
    return keys;
}

/// Runs \p action and checks that it throws a ZnAssertionFailure with \p message from
/// ZnHashTableBase.
template <class Action>
void expectAssertionFailure(Action&& action, const char* message)
{
    try
    {
        action();
        ADD_FAILURE() << "nothing thrown, expected " << message;
    }
    catch (const ZnHandle<ZnException>& caught)
    {
        const ZnAssertionFailure* failure =
            dynamic_cast<const ZnAssertionFailure*>(static_cast<const ZnException*>(caught));
        ASSERT_NE(failure, nullptr) << "not an assertion failure";
        EXPECT_STREQ(failure->getExceptionMessage(), message);
        EXPECT_STREQ(failure->getFile(), "ZnHashTableBase");
    }
}

/// What became of an action run on another thread while the calling thread held a lock.
enum class Outcome
{
    Finished, ///< the action ran through while the lock was held
    Blocked   ///< the action went to a blocking wait on a ZnMutex
};

/// Runs \p action on a new thread while the caller holds some lock, and tells whether it ran
/// through or blocked; then calls \p release (on the calling thread, which owns the lock) and
/// waits for the action to end. A blocked thread is seen by ZnMutex::m_lockCount, which counts
/// the locks that gave up spinning; only that thread locks anything meanwhile.
Outcome runWhileHeld(const std::function<void()>& action, const std::function<void()>& release)
{
    const long waitsBefore = ZnMutex::m_lockCount.load();
    std::atomic<bool> done{false};
    std::thread worker(
        [&]
        {
            action();
            done = true;
        });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    Outcome outcome = Outcome::Blocked;
    for (;;)
    {
        if (done.load())
        {
            outcome = Outcome::Finished;
            break;
        }
        if (ZnMutex::m_lockCount.load() != waitsBefore ||
            std::chrono::steady_clock::now() > deadline)
        {
            break;
        }
        std::this_thread::yield();
    }
    release();
    worker.join();
    EXPECT_TRUE(done.load());
    return outcome;
}

TEST(ZnHashTableBaseTest, DefaultFormHasItemSizeFourAndOneHundredOneBuckets)
{
    TestTable table;
    EXPECT_EQ(table.getItemSize(), 4u);
    EXPECT_EQ(table.getTableSize(), 101u);
    EXPECT_EQ(table.getHashFunc(), &ZnHashTableBase::sDefaultHashFunc);
    EXPECT_EQ(table.getCompFunc(), nullptr);
    EXPECT_EQ(table.getCopyFunc(), nullptr);
    EXPECT_EQ(table.size(), 0u);
    EXPECT_TRUE(table.isEmpty());
}

TEST(ZnHashTableBaseTest, AccessorsGiveConstructionArguments)
{
    TestTable table(sizeof(Item), countingHash, sameKey, markingCopy, 7, 3);
    EXPECT_EQ(table.getItemSize(), 16u);
    EXPECT_EQ(table.getTableSize(), 7u);
    EXPECT_EQ(table.getHashFunc(), &countingHash);
    EXPECT_EQ(table.getCompFunc(), &sameKey);
    EXPECT_EQ(table.getCopyFunc(), &markingCopy);
}

TEST(ZnHashTableBaseTest, DefaultHashIsFirst32BitsOfItem)
{
    Item item = makeItem(0x12345678u, 0xFFFFFFFFu);
    EXPECT_EQ(ZnHashTableBase::sDefaultHashFunc(&item), 0x12345678u);
    const unsigned char bytes[8] = {1, 0, 0, 0, 9, 9, 9, 9};
    EXPECT_EQ(ZnHashTableBase::sDefaultHashFunc(bytes), 1u);
}

TEST(ZnHashTableBaseTest, AddStoresACopyThatFindReturns)
{
    TestTable* table = newItemTable();
    ZnHandle<ZnObject> holder(table);
    Item item = makeItem(42, 7);
    EXPECT_EQ(table->add(&item), nullptr);
    EXPECT_EQ(table->size(), 1u);
    EXPECT_FALSE(table->isEmpty());
    item.payload = 8;
    Item* found = static_cast<Item*>(table->find(&item));
    ASSERT_NE(found, nullptr);
    EXPECT_NE(found, &item);
    EXPECT_EQ(found->key, 42u);
    EXPECT_EQ(found->payload, 7u);
    Item missing = makeItem(43);
    EXPECT_EQ(table->find(&missing), nullptr);
}

TEST(ZnHashTableBaseTest, AddingDuplicateReturnsExistingItemAndKeepsCount)
{
    TestTable* table = newItemTable();
    ZnHandle<ZnObject> holder(table);
    Item first = makeItem(5, 1);
    ASSERT_EQ(table->add(&first), nullptr);
    Item* stored = static_cast<Item*>(table->find(&first));
    Item duplicate = makeItem(5, 2);
    EXPECT_EQ(table->add(&duplicate), stored);
    EXPECT_EQ(table->mAdd(&duplicate), stored);
    EXPECT_EQ(table->size(), 1u);
    EXPECT_EQ(stored->payload, 1u) << "a duplicate must not replace the item";
}

TEST(ZnHashTableBaseTest, RemovingMissingItemChangesNothing)
{
    TestTable* table = newItemTable();
    ZnHandle<ZnObject> holder(table);
    for (unsigned int key : {5u, 106u, 9u})
    {
        Item item = makeItem(key);
        table->add(&item);
    }
    Item missing = makeItem(207); // same bucket as 5 and 106
    table->remove(&missing);
    Item elsewhere = makeItem(50);
    table->remove(&elsewhere);
    EXPECT_EQ(table->size(), 3u);
    EXPECT_EQ(keysInOrder(*table), (std::vector<unsigned int>{5, 106, 9}));
}

TEST(ZnHashTableBaseTest, RemoveUnlinksTheMatchingNode)
{
    TestTable* table = newItemTable();
    ZnHandle<ZnObject> holder(table);
    for (unsigned int key : {5u, 106u, 207u})
    {
        Item item = makeItem(key);
        table->add(&item);
    }
    Item middle = makeItem(106);
    table->remove(&middle);
    EXPECT_EQ(table->size(), 2u);
    EXPECT_EQ(keysInOrder(*table), (std::vector<unsigned int>{5, 207}));
    Item head = makeItem(5);
    table->mRemove(&head);
    EXPECT_EQ(keysInOrder(*table), (std::vector<unsigned int>{207}));
    EXPECT_EQ(table->size(), 1u);
}

TEST(ZnHashTableBaseTest, RemoveWithoutCompareFunctionTakesFirstNodeThatDiffers)
{
    TestTable table; // no compare function
    unsigned int five = 5;
    ASSERT_EQ(table.add(&five), nullptr); // an empty bucket needs no comparison
    EXPECT_EQ(table.size(), 1u);

    table.remove(&five); // equal bytes: not the node removed
    EXPECT_EQ(table.size(), 1u);

    unsigned int sameBucket = 106;
    table.remove(&sameBucket); // differing bytes: the node removed
    EXPECT_EQ(table.size(), 0u);
    ZnHashTableBase::Iterator items(table);
    EXPECT_FALSE(items.hasNext());
}

TEST(ZnHashTableBaseTest, FindOrAddInOccupiedBucketWithoutCompareFunctionFailsClearly)
{
    TestTable table;
    unsigned int five = 5;
    unsigned int other = 6;
    ASSERT_EQ(table.add(&five), nullptr);
    EXPECT_EQ(table.find(&other), nullptr) << "an empty bucket is searched without comparing";
    expectAssertionFailure([&] { table.find(&five); }, "ZnHashTableBase: no compare function");
    unsigned int sameBucket = 106;
    expectAssertionFailure([&] { table.add(&sameBucket); }, "ZnHashTableBase: no compare function");
    EXPECT_EQ(table.size(), 1u);
    // The failures gave the lock back: another thread takes it at once.
    const Outcome outcome = runWhileHeld(
        [&]
        {
            table.lock(&five);
            table.unlock(&five);
        },
        [] {});
    EXPECT_EQ(outcome, Outcome::Finished);
}

TEST(ZnHashTableBaseTest, TableSizeZeroIsRefusedAtConstruction)
{
    expectAssertionFailure(
        [] { TestTable table(4, ZnHashTableBase::sDefaultHashFunc, sameInt, nullptr, 0, 1); },
        "ZnHashTableBase: table size 0");
}

TEST(ZnHashTableBaseTest, LockCountZeroIsRefusedAtConstruction)
{
    expectAssertionFailure(
        [] { TestTable table(4, ZnHashTableBase::sDefaultHashFunc, sameInt, nullptr, 101, 0); },
        "ZnHashTableBase: lock count 0");
}

TEST(ZnHashTableBaseTest, MissingHashFunctionIsRefusedAtConstruction)
{
    expectAssertionFailure([] { TestTable table(4, nullptr, sameInt, nullptr, 101, 1); },
                           "ZnHashTableBase: no hash function");
}

TEST(ZnHashTableBaseTest, MoreLocksThanBucketsIsAccepted)
{
    TestTable table(4, ZnHashTableBase::sDefaultHashFunc, sameInt, nullptr, 3, 8);
    unsigned int value = 4;
    EXPECT_EQ(table.add(&value), nullptr);
    EXPECT_NE(table.find(&value), nullptr);
    table.lockAll();
    table.unlockAll();
}

TEST(ZnHashTableBaseTest, SingleLockIsTakenWithoutHashing)
{
    TestTable table(4, countingHash, sameInt, nullptr, 101, 1);
    unsigned int item = 17;
    g_hashCalls = 0;
    table.lock(&item);
    table.unlock(&item);
    EXPECT_EQ(g_hashCalls.load(), 0);

    TestTable striped(4, countingHash, sameInt, nullptr, 101, 4);
    striped.lock(&item);
    striped.unlock(&item);
    EXPECT_EQ(g_hashCalls.load(), 2) << "each of lock and unlock hashes once";
}

TEST(ZnHashTableBaseTest, WithOneLockEveryItemUsesLockZero)
{
    TestTable table(4, ZnHashTableBase::sDefaultHashFunc, sameInt, nullptr, 101, 1);
    unsigned int held = 6;
    for (unsigned int other : {0u, 2u, 3u, 57u, 100u})
    {
        table.lock(&held);
        const Outcome outcome = runWhileHeld(
            [&]
            {
                table.lock(&other);
                table.unlock(&other);
            },
            [&] { table.unlock(&held); });
        EXPECT_EQ(outcome, Outcome::Blocked) << "item " << other;
    }
}

TEST(ZnHashTableBaseTest, WithFourLocksBucketSixUsesLockTwo)
{
    TestTable table(4, ZnHashTableBase::sDefaultHashFunc, sameInt, nullptr, 101, 4);
    unsigned int bucketSix = 6;
    // Buckets 2, 10 and 6 (item 107) share lock 2; buckets 0, 1, 3 and 5 do not.
    for (unsigned int other : {2u, 10u, 107u, 0u, 1u, 3u, 5u})
    {
        const bool sameStripe = (other % 101) % 4 == 2;
        table.lock(&bucketSix);
        const Outcome outcome = runWhileHeld(
            [&]
            {
                table.lock(&other);
                table.unlock(&other);
            },
            [&] { table.unlock(&bucketSix); });
        EXPECT_EQ(outcome, sameStripe ? Outcome::Blocked : Outcome::Finished) << "item " << other;
    }
}

TEST(ZnHashTableBaseTest, LockAllHoldsEveryStripe)
{
    TestTable table(4, ZnHashTableBase::sDefaultHashFunc, sameInt, nullptr, 101, 4);
    for (unsigned int stripe = 0; stripe < 4; ++stripe)
    {
        unsigned int item = stripe;
        table.lockAll();
        const Outcome outcome = runWhileHeld(
            [&]
            {
                table.lock(&item);
                table.unlock(&item);
            },
            [&] { table.unlockAll(); });
        EXPECT_EQ(outcome, Outcome::Blocked) << "stripe " << stripe;
    }
}

TEST(ZnHashTableBaseTest, IteratingEmptyTableYieldsNothing)
{
    TestTable* table = newItemTable();
    ZnHandle<ZnObject> holder(table);
    ZnHashTableBase::Iterator items(*table);
    EXPECT_FALSE(items.hasNext());
    EXPECT_EQ(items.next(), nullptr);
    EXPECT_FALSE(items.hasNext());
    EXPECT_EQ(items.next(), nullptr);
}

TEST(ZnHashTableBaseTest, NextWithoutHasNextWalksEveryItem)
{
    TestTable* table = newItemTable(13);
    ZnHandle<ZnObject> holder(table);
    std::multiset<unsigned int> added;
    for (unsigned int key = 0; key < 60; key += 3)
    {
        Item item = makeItem(key);
        table->add(&item);
        added.insert(key);
    }
    const std::vector<unsigned int> walked = keysInOrder(*table);
    EXPECT_EQ(std::multiset<unsigned int>(walked.begin(), walked.end()), added);
}

TEST(ZnHashTableBaseTest, IterationIsByBucketThenInsertion)
{
    TestTable* table = newItemTable();
    ZnHandle<ZnObject> holder(table);
    // Bucket 5 receives 106, 5 and 207 in that order; bucket 2 receives 2; bucket 100 gets 100.
    for (unsigned int key : {106u, 100u, 5u, 2u, 207u})
    {
        Item item = makeItem(key);
        table->add(&item);
    }
    EXPECT_EQ(keysInOrder(*table), (std::vector<unsigned int>{2, 106, 5, 207, 100}));

    std::vector<unsigned int> withHasNext;
    ZnHashTableBase::Iterator items(*table);
    while (items.hasNext())
    {
        EXPECT_TRUE(items.hasNext()) << "asking twice must not skip an item";
        withHasNext.push_back(static_cast<Item*>(items.next())->key);
    }
    EXPECT_EQ(withHasNext, (std::vector<unsigned int>{2, 106, 5, 207, 100}));
}

TEST(ZnHashTableBaseTest, ChainsKeepInsertionOrder)
{
    TestTable* table = newItemTable(1);
    ZnHandle<ZnObject> holder(table);
    const std::vector<unsigned int> order = {9, 3, 7, 1, 8, 2};
    for (unsigned int key : order)
    {
        Item item = makeItem(key);
        table->add(&item);
    }
    EXPECT_EQ(keysInOrder(*table), order);
    Item three = makeItem(3);
    table->remove(&three);
    Item four = makeItem(4);
    table->add(&four);
    EXPECT_EQ(keysInOrder(*table), (std::vector<unsigned int>{9, 7, 1, 8, 2, 4}));
}

TEST(ZnHashTableBaseTest, RemovingItemJustReturnedVisitsEveryOtherItemOnce)
{
    TestTable* table = newItemTable(7);
    ZnHandle<ZnObject> holder(table);
    for (unsigned int key = 0; key < 50; ++key)
    {
        Item item = makeItem(key);
        table->add(&item);
    }
    std::multiset<unsigned int> visited;
    ZnHashTableBase::Iterator items(*table);
    while (void* item = items.next())
    {
        const unsigned int key = static_cast<Item*>(item)->key;
        visited.insert(key);
        if (key % 2 == 0)
        {
            table->mRemove(item);
        }
    }
    EXPECT_EQ(visited.size(), 50u);
    for (unsigned int key = 0; key < 50; ++key)
    {
        EXPECT_EQ(visited.count(key), 1u) << "key " << key;
    }
    EXPECT_EQ(table->size(), 25u);
    for (unsigned int key : keysInOrder(*table))
    {
        EXPECT_EQ(key % 2, 1u);
    }
}

TEST(ZnHashTableBaseTest, RemovingEveryItemWhileIteratingEmptiesTable)
{
    TestTable* table = newItemTable(3);
    ZnHandle<ZnObject> holder(table);
    for (unsigned int key = 0; key < 20; ++key)
    {
        Item item = makeItem(key);
        table->add(&item);
    }
    unsigned int visits = 0;
    ZnHashTableBase::Iterator items(*table);
    while (items.hasNext())
    {
        table->mRemove(items.next());
        ++visits;
    }
    EXPECT_EQ(visits, 20u);
    EXPECT_TRUE(table->isEmpty());
    EXPECT_TRUE(keysInOrder(*table).empty());
}

TEST(ZnHashTableBaseTest, ExhaustedIteratorStaysExhaustedUntilReset)
{
    TestTable* table = newItemTable(11);
    ZnHandle<ZnObject> holder(table);
    Item ten = makeItem(10);
    table->add(&ten);
    ZnHashTableBase::Iterator items(*table);
    ASSERT_NE(items.next(), nullptr);
    EXPECT_FALSE(items.hasNext());
    Item one = makeItem(1); // an earlier bucket, added after the end was reached
    table->add(&one);
    EXPECT_FALSE(items.hasNext());
    EXPECT_EQ(items.next(), nullptr);
    items.reset();
    std::vector<unsigned int> again;
    while (void* item = items.next())
    {
        again.push_back(static_cast<Item*>(item)->key);
    }
    EXPECT_EQ(again, (std::vector<unsigned int>{1, 10}));
}

TEST(ZnHashTableBaseTest, CopyFunctionFillsNewNodes)
{
    TestTable table(sizeof(Item), ZnHashTableBase::sDefaultHashFunc, sameKey, markingCopy, 101, 1);
    Item item = makeItem(3, 4);
    ASSERT_EQ(table.add(&item), nullptr);
    const Item* stored = static_cast<Item*>(table.find(&item));
    ASSERT_NE(stored, nullptr);
    EXPECT_EQ(stored->payload, 1004u);
    EXPECT_EQ(item.payload, 4u);
}

TEST(ZnHashTableBaseTest, ItemPointersStayValidWhileOthersComeAndGo)
{
    TestTable* table = newItemTable(1);
    ZnHandle<ZnObject> holder(table);
    Item first = makeItem(1, 11);
    table->add(&first);
    Item* stored = static_cast<Item*>(table->find(&first));
    for (unsigned int key = 2; key < 40; ++key)
    {
        Item item = makeItem(key);
        table->add(&item);
    }
    for (unsigned int key = 2; key < 40; key += 2)
    {
        Item item = makeItem(key);
        table->remove(&item);
    }
    EXPECT_EQ(table->find(&first), stored);
    EXPECT_EQ(stored->payload, 11u);
}

TEST(ZnHashTableBaseTest, CopyConstructorCopiesSettingsAndItemsInOrder)
{
    TestTable* source =
        new TestTable(sizeof(Item), ZnHashTableBase::sDefaultHashFunc, sameKey, markingCopy, 7, 3);
    ZnHandle<ZnObject> sourceHolder(source);
    for (unsigned int key : {8u, 1u, 15u, 3u})
    {
        Item item = makeItem(key, key);
        source->add(&item);
    }
    TestTable* copy = new TestTable(*source);
    ZnHandle<ZnObject> copyHolder(copy);
    EXPECT_EQ(copy->getItemSize(), 16u);
    EXPECT_EQ(copy->getTableSize(), 7u);
    EXPECT_EQ(copy->getHashFunc(), source->getHashFunc());
    EXPECT_EQ(copy->getCompFunc(), &sameKey);
    EXPECT_EQ(copy->getCopyFunc(), &markingCopy);
    EXPECT_EQ(copy->size(), 4u);
    EXPECT_EQ(keysInOrder(*copy), keysInOrder(*source));
    EXPECT_EQ(copy->getRefCount(), 1u) << "a copy starts with its own count";

    Item probe = makeItem(15);
    const Item* inSource = static_cast<Item*>(source->find(&probe));
    const Item* inCopy = static_cast<Item*>(copy->find(&probe));
    ASSERT_NE(inCopy, nullptr);
    EXPECT_NE(inCopy, inSource);
    EXPECT_EQ(inSource->payload, 1015u);
    EXPECT_EQ(inCopy->payload, 2015u) << "the copy function fills the copy's nodes";

    copy->remove(&probe);
    EXPECT_EQ(copy->size(), 3u);
    EXPECT_EQ(source->size(), 4u);
    EXPECT_NE(source->find(&probe), nullptr);
}

TEST(ZnHashTableBaseTest, CopyHasLocksOfItsOwn)
{
    TestTable* source = newItemTable(7, 2);
    ZnHandle<ZnObject> sourceHolder(source);
    TestTable* copy = new TestTable(*source);
    ZnHandle<ZnObject> copyHolder(copy);
    source->lockAll();
    const Outcome outcome = runWhileHeld(
        [&]
        {
            copy->lockAll();
            copy->unlockAll();
        },
        [&] { source->unlockAll(); });
    EXPECT_EQ(outcome, Outcome::Finished);
}

TEST(ZnHashTableBaseTest, CopyingTableOfItemsSmallerThanPointerIsRefused)
{
    TestTable source(4, ZnHashTableBase::sDefaultHashFunc, sameInt, nullptr, 101, 1);
    unsigned int value = 1;
    source.add(&value);
    expectAssertionFailure([&] { TestTable copy(source); },
                           "ZnHashTableBase: items too small to copy the table");

    TestTable pointerSized(8, ZnHashTableBase::sDefaultHashFunc, sameInt, nullptr, 101, 1);
    uint64_t wide = 77;
    pointerSized.add(&wide);
    TestTable copy(pointerSized);
    EXPECT_EQ(copy.size(), 1u);
    EXPECT_NE(copy.find(&wide), nullptr);
}

TEST(ZnHashTableBaseTest, DestructionFreesEveryNodeAndArray)
{
    // A first table lets the lock allocator set up its per-thread account, which stays.
    delete newItemTable(5, 2);
    const long liveBefore = g_liveAllocations.load();
    {
        TestTable* table = newItemTable(5, 2);
        ZnHandle<ZnObject> holder(table);
        for (unsigned int key = 0; key < 100; ++key)
        {
            Item item = makeItem(key);
            table->add(&item);
        }
        EXPECT_EQ(table->size(), 100u);
        EXPECT_GE(g_liveAllocations.load() - liveBefore, 100) << "one allocation per node";
    }
    EXPECT_EQ(g_liveAllocations.load(), liveBefore);
}

} // namespace

// Every allocation of this program through the ordinary operator new is counted while alive, so
// a test can see that a table gives back all it took.
void* operator new(size_t size)
{
    void* p = malloc(size == 0 ? 1 : size);
    if (p == nullptr)
    {
        throw std::bad_alloc();
    }
    ++g_liveAllocations;
    return p;
}

void* operator new[](size_t size)
{
    return operator new(size);
}

void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    void* p = malloc(size == 0 ? 1 : size);
    if (p != nullptr)
    {
        ++g_liveAllocations;
    }
    return p;
}

void* operator new[](size_t size, const std::nothrow_t& tag) noexcept
{
    return operator new(size, tag);
}

void operator delete(void* p) noexcept
{
    if (p != nullptr)
    {
        --g_liveAllocations;
        free(p);
    }
}

void operator delete[](void* p) noexcept
{
    operator delete(p);
}

void operator delete(void* p, size_t) noexcept
{
    operator delete(p);
}

void operator delete[](void* p, size_t) noexcept
{
    operator delete(p);
}

void operator delete(void* p, const std::nothrow_t&) noexcept
{
    operator delete(p);
}

void operator delete[](void* p, const std::nothrow_t&) noexcept
{
    operator delete(p);
}
