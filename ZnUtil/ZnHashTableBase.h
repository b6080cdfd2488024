// A chained hash table of fixed-size items with pluggable functions and striped locks.
#ifndef ZNUTIL_ZNHASHTABLEBASE_H
#define ZNUTIL_ZNHASHTABLEBASE_H

#include "ZnUtil/ZnObject.h"

#include <atomic>

class ZnMutex;

/// The storage under the library's maps: a fixed number of buckets, each a chain of nodes, each
/// node holding one item of itemSize bytes.
///
/// The table knows nothing of what an item means. A hash function places it in a bucket, a
/// compare function finds it again and an optional copy function fills a new node (without one
/// the bytes are copied). The table never grows and never rehashes: a caller expecting many items
/// passes a large table size, since chains grow without limit.
///
/// Ownership: the table owns its nodes and nothing else. Pointers to items stay valid until the
/// item is removed; whatever an item refers to is the derived table's business.
///
/// Thread safety: a table has lockCount recursive locks, each guarding whole buckets (the lock of
/// bucket b is b % lockCount). find, add and remove take the lock of their item, so they are safe
/// against each other, and items in different stripes are worked on in parallel. The m-forms
/// (mFind, mAdd, mRemove) take no lock: their caller holds the item's lock. A pointer returned by
/// find refers into a node that another thread may free once the lock is given back: derived
/// tables that need more than yes or no take lock, mFind, copy, unlock. The iterator takes no
/// lock and does not detect changes: iterate under lockAll when other threads write.
/// size() and isEmpty() read the count without a lock.
class ZnHashTableBase : public ZnObject
{
private:
    /// The link at the head of every node; the item's bytes follow it in the same allocation.
    struct Node
    {
        Node* m_pNext;
    };

public:
    /// The hash of an item.
    typedef unsigned int (*HashFunc)(const void* item);
    /// True when two items match.
    typedef bool (*CompFunc)(const void* a, const void* b);
    /// Fills \p destination (itemSize bytes) from \p source.
    typedef void (*CopyFunc)(void* destination, const void* source);

    /// Walks the items by bucket, and in a bucket in insertion order.
    ///
    /// The successor of an item is taken before the item is handed out, so the caller may
    /// remove (mRemove) the item just returned and go on. Takes no lock and does not detect
    /// changes: a caller iterating a table that other threads write holds lockAll.
    class Iterator
    {
    public:
        /// An iterator at the first item of \p table; the table must outlive it.
        explicit Iterator(ZnHashTableBase& table);

        /// Goes back to the first item.
        void reset();

        /// \return true when another item is left; false once the buckets are exhausted, and
        /// from then on.
        bool hasNext();

        /// The next item, also when hasNext() was not asked first.
        /// \return a pointer to the item inside its node, or null when the buckets are exhausted.
        void* next();

    private:
        /// Holds the head of the next non-empty bucket after m_index, if any.
        bool advance();

        unsigned int m_index;
        Node* m_pNext; // the node to hand out next, null if none held
        ZnHashTableBase* m_pTable;
    };

    ~ZnHashTableBase() override;

    /// The hash of the default table: the first 32 bits of the item.
    static unsigned int sDefaultHashFunc(const void* item);

    /// The number of items, read without a lock.
    unsigned int size() const { return m_count.load(std::memory_order_relaxed); }
    /// True when the table holds no item; read without a lock.
    bool isEmpty() const { return size() == 0; }

    unsigned int getItemSize() const { return m_itemSize; }
    unsigned int getTableSize() const { return m_tableSize; }
    HashFunc getHashFunc() const { return m_hashFunc; }
    CompFunc getCompFunc() const { return m_compFunc; }
    CopyFunc getCopyFunc() const { return m_copyFunc; }

protected:
    /// A table of 101 buckets with one lock, for items of 4 bytes hashed by sDefaultHashFunc,
    /// with no compare and no copy function.
    ZnHashTableBase();

    /// A table for items of \p itemSize bytes.
    /// \param compFunc may be null; such a table can add an item only to an empty bucket, and
    /// find nothing in a bucket that holds one.
    /// \param copyFunc may be null: items are then copied byte by byte.
    /// \throws ZnHandle<ZnException> (a ZnAssertionFailure) when \p tableSize or \p lockCount is
    /// 0, or \p hashFunc is null; a ZnException when no lock could be allocated.
    ZnHashTableBase(unsigned int itemSize, HashFunc hashFunc, CompFunc compFunc, CopyFunc copyFunc,
                    unsigned int tableSize, unsigned int lockCount);

    /// A table with the same item size, functions, table size and number of locks, and a copy of
    /// every item of \p other, added in iteration order. \p other is not locked. The new table
    /// has locks of its own.
    /// \throws ZnHandle<ZnException> (a ZnAssertionFailure) when the items of \p other are too
    /// small for the table to be copied (itemSize * tableSize bytes must hold the bucket array).
    ZnHashTableBase(const ZnHashTableBase& other);

    /// Caller holds the lock.
    /// \return the first item of the bucket that compFunc matches with \p item, or null.
    /// \throws ZnHandle<ZnException> (a ZnAssertionFailure) when the bucket holds an item and
    /// there is no compare function.
    void* mFind(void* item) const;

    /// Caller holds the lock. Adds a copy of \p item at the tail of its bucket unless the bucket
    /// already holds a matching item, which is then left as it is.
    /// \return null when the item was added; else the matching item already present.
    /// \throws ZnHandle<ZnException> (a ZnAssertionFailure) when the bucket holds an item and
    /// there is no compare function.
    void* mAdd(void* item);

    /// Caller holds the lock. Unlinks and frees the first node of the bucket that matches
    /// \p item; does nothing when none matches. Only the node is freed.
    void mRemove(void* item);

    /// mFind under the item's lock. The result points into a node that another thread may free
    /// as soon as this returns.
    void* find(void* item) const;
    /// mAdd under the item's lock.
    void* add(void* item);
    /// mRemove under the item's lock.
    void remove(void* item);

    /// Takes the lock of \p item's stripe (lock 0 with a single lock, no hash computed).
    void lock(void* item) const;
    /// Gives back the lock of \p item's stripe. \p item must hash as it did in lock().
    void unlock(void* item) const;
    /// Takes every lock, in ascending order.
    void lockAll() const;
    /// Gives back every lock, in ascending order.
    void unlockAll() const;

    /// Holds every lock of a table for the length of a scope, however the scope ends.
    class AllLocks
    {
    public:
        explicit AllLocks(const ZnHashTableBase& table) : m_table(table) { m_table.lockAll(); }
        ~AllLocks() { m_table.unlockAll(); }
        AllLocks(const AllLocks&) = delete;
        AllLocks& operator=(const AllLocks&) = delete;

    private:
        const ZnHashTableBase& m_table;
    };

private:
    static char* sItemOf(Node* node) { return reinterpret_cast<char*>(node) + sizeof(Node); }
    static Node* sNodeOf(void* item)
    {
        return reinterpret_cast<Node*>(static_cast<char*>(item) - sizeof(Node));
    }

    /// The lock of \p item's stripe.
    ZnMutex* lockOf(void* item) const;
    /// Frees every node (last bucket first) and the bucket array.
    void freeNodes();
    /// Recycles every lock and frees the lock array.
    void freeLocks();
    /// Allocates m_lockCount locks.
    void allocateLocks();

    [[noreturn]] static void sNoCompareFunction(unsigned int line);

    ZnHashTableBase& operator=(const ZnHashTableBase&) = delete;

    unsigned int m_itemSize;
    HashFunc m_hashFunc;
    CompFunc m_compFunc;
    CopyFunc m_copyFunc;
    unsigned int m_tableSize;
    // Changed under the lock of the item's stripe only, so tables with several stripes change it
    // from several threads at once: atomic.
    std::atomic<unsigned int> m_count;
    Node** m_pBuckets; // bucket b guarded by m_pLocks[b % m_lockCount]
    ZnMutex** m_pLocks;
    unsigned int m_lockCount;
};

#endif // ZNUTIL_ZNHASHTABLEBASE_H
