// A map from string keys to counted objects, on the striped hash table of the library.
#ifndef ZNUTIL_ZNKEYTABLE_H
#define ZNUTIL_ZNKEYTABLE_H

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnHashTableBase.h"
#include "ZnUtil/ZnString.h"

class ZnOutputStream;
class ZnStringBuffer;

/// Maps ZnString keys to ZnObject values; the debug modes of ZnErrorStream live in one.
///
/// Keys are used exactly as given: no case folding, no trimming. Two keys match when their
/// characters are equal byte by byte. A key's hash is cached in its buffer, so a key must not be
/// changed once it is in the table. The table has a fixed number of buckets and never grows.
///
/// Ownership: the table holds one reference on the buffer of every key (buffers are shared, not
/// copied) and one on every non-null value. Values released by remove are released after the
/// table's lock was given back, so their destructors never run under it.
///
/// Thread safety: put, get, remove and containsKey may be called from any thread; each takes
/// the lock of its key's stripe. clear, and anyone holding lockTable, exclude all of them. keys,
/// elements, asynGet and display take no lock: whoever uses them on a table that other threads
/// write holds lockTable around the use.
class ZnKeyTable : public ZnHashTableBase
{
public:
    /// One item: the key's buffer, never null, and the value, possibly null. Each owns one
    /// reference.
    struct Entry
    {
        ZnStringBuffer* key;
        ZnObject* value;
    };

    /// Walks the entries of a table by bucket, then in insertion order. Takes no lock.
    class Iterator
    {
    public:
        /// An iterator at the first entry of \p table; the table must outlive it.
        explicit Iterator(ZnKeyTable& table) : m_items(table) {}

        /// \return true when another entry is left.
        bool hasMoreElements() { return m_items.hasNext(); }

        /// Goes back to the first entry.
        void reset() { m_items.reset(); }

    protected:
        /// The next entry, or null once the table is exhausted.
        Entry* nextEntry() { return static_cast<Entry*>(m_items.next()); }

    private:
        ZnHashTableBase::Iterator m_items;
    };

    /// Yields the keys of a table.
    class KeyIterator : public Iterator
    {
    public:
        explicit KeyIterator(ZnKeyTable& table) : Iterator(table) {}

        /// The next key, sharing the table's buffer.
        /// \return the key, or a nil string once the table is exhausted.
        ZnString next();
    };

    /// Yields the values of a table.
    class DataIterator : public Iterator
    {
    public:
        explicit DataIterator(ZnKeyTable& table) : Iterator(table) {}

        /// The next value.
        /// \return a handle on the value, nil for a null value or once the table is exhausted.
        ZnHandle<ZnObject> next();
    };

    /// An empty table of 101 buckets with one lock.
    ZnKeyTable();

    /// An empty table of \p tableSize buckets and \p lockCount lock stripes.
    /// \throws ZnHandle<ZnException> (a ZnAssertionFailure) when either is 0.
    ZnKeyTable(unsigned int tableSize, unsigned int lockCount);

    /// A table with the entries of \p other. The key buffers and values are shared, each gaining
    /// one reference for the copy. \p other is not locked.
    ZnKeyTable(const ZnKeyTable& other);

    /// Releases every key and value.
    ~ZnKeyTable() override;

    /// A copy of the table, as the copy constructor makes it.
    /// \return a new table with count 0: wrap it in a ZnHandle at once.
    ZnObject* clone() const override;

    /// Maps \p key to \p value. The table takes a reference on the key's buffer and on
    /// \p value (which may be null). A present key is replaced, its buffer by that of \p key.
    /// \return the value that was replaced, nil when the key was new or its value null.
    /// \throws ZnHandle<ZnException> "NULL key value (ZnStringBuffer*)" when \p key is nil or
    /// empty.
    ZnHandle<ZnObject> put(const ZnString& key, ZnObject* value);

    /// The value of \p key, taken under the key's lock.
    /// \return a handle on the value; nil when the key is absent, nil or empty, or its value null.
    ZnHandle<ZnObject> get(const ZnString& key) const;

    /// get without any lock, for a caller that holds lockTable or knows that no other thread
    /// writes the table.
    /// \return as get.
    ZnHandle<ZnObject> asynGet(const ZnString& key) const;

    /// Removes the entry of \p key, releasing its value and key after the lock was given back.
    /// \return true when an entry was removed; false when there was none or the key is nil or
    /// empty.
    bool remove(const ZnString& key);

    /// \return true when the table holds \p key (also with a null value); false for a nil or
    /// empty key.
    bool containsKey(const ZnString& key) const;

    /// A search by value, which the table does not offer.
    /// \throws ZnHandle<ZnException> "Not implemented!" always.
    bool contains(ZnObject* value) const;

    /// Removes every entry under all the locks, releasing each key and value.
    void clear();

    /// Takes every lock of the table, in ascending order: the table is then the caller's alone.
    void lockTable() const { lockAll(); }
    /// Gives back every lock of the table.
    void unlockTable() const { unlockAll(); }

    /// An iterator over the keys. Takes no lock.
    KeyIterator keys() { return KeyIterator(*this); }
    /// An iterator over the values. Takes no lock.
    DataIterator elements() { return DataIterator(*this); }

    using ZnHashTableBase::display;
    /// Prints the class name, then for each entry a line with the key and the key buffer's own
    /// printed form, then a newline, and flushes \p out. Takes no lock.
    virtual void display(ZnOutputStream& out) const;

protected:
    /// Does nothing: the table keeps its size.
    void rehash() {}

    /// The hash of an Entry: the hash code of its key.
    static unsigned int sHashFunc(const void* entry);
    /// True when the keys of two Entries compare equal.
    static bool sCompFunc(const void* a, const void* b);

private:
    ZnKeyTable& operator=(const ZnKeyTable&) = delete;

    /// Caller holds the lock: every one of them (or is the destructor). Removes every entry,
    /// releasing the key and then the value of each.
    void mClear();
};

#endif // ZNUTIL_ZNKEYTABLE_H
