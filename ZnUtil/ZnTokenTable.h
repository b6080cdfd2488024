// A map from 32-bit tokens to counted objects, on the striped hash table of the library.
#ifndef ZNUTIL_ZNTOKENTABLE_H
#define ZNUTIL_ZNTOKENTABLE_H

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnHashTableBase.h"

#include <cstddef>
#include <vector>

class ZnOutputStream;

/// Maps 32-bit unsigned tokens to ZnObject values; the thread registry lives in one.
///
/// Every token is valid, 0 included. A token is its own hash, so tokens that differ by a
/// multiple of the table size share a bucket. The table has a fixed number of buckets and never
/// grows.
///
/// Ownership: the table holds one reference on every non-null value. Values released by remove
/// are released after the table's lock was given back, so their destructors never run under it.
/// The copy constructor adds no reference (see there).
///
/// Thread safety: put, get, remove and containsKey may be called from any thread; each takes
/// the lock of its token's stripe. clear excludes all of them. keys, elements and display take
/// no lock: whoever uses them on a table that other threads write keeps those threads out.
class ZnTokenTable : public ZnHashTableBase
{
public:
    /// One item: the token and the value, possibly null, which owns one reference. 16 bytes.
    struct Entry
    {
        unsigned int token;
        ZnObject* value;
    };

    /// Walks the entries of a table by bucket, then in insertion order. Takes no lock.
    class Iterator
    {
    public:
        /// An iterator at the first entry of \p table; the table must outlive it.
        explicit Iterator(ZnTokenTable& table) : m_items(table) {}

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

    /// Yields the tokens of a table.
    class KeyIterator : public Iterator
    {
    public:
        explicit KeyIterator(ZnTokenTable& table) : Iterator(table) {}

        /// The next token.
        /// \return the token, or 0 once the table is exhausted (0 is also a valid token: ask
        /// hasMoreElements first).
        unsigned int next();
    };

    /// Yields the values of a table.
    class DataIterator : public Iterator
    {
    public:
        explicit DataIterator(ZnTokenTable& table) : Iterator(table) {}

        /// The next value.
        /// \return a handle on the value, nil for a null value or once the table is exhausted.
        ZnHandle<ZnObject> next();
    };

    /// An empty table of 101 buckets with one lock.
    ZnTokenTable();

    /// An empty table of \p tableSize buckets, cut to 32 bits, with one lock.
    /// \throws ZnHandle<ZnException> (a ZnAssertionFailure) when the size cut to 32 bits is 0.
    explicit ZnTokenTable(size_t tableSize);

    /// A table with the entries of \p other, sharing its values without adding references: each
    /// value is then owned twice over by one reference. Such a copy must be emptied by a path
    /// that does not release (or its values given a reference each) before it is destroyed.
    ZnTokenTable(const ZnTokenTable& other);

    /// Releases every value.
    ~ZnTokenTable() override;

    /// Maps \p token to \p value. The table takes a reference on \p value (which may be null).
    /// \return the value that was replaced, nil when the token was new or its value null.
    ZnHandle<ZnObject> put(unsigned int token, ZnObject* value);

    /// The value of \p token, taken under the token's lock.
    /// \return a handle on the value; nil when the token is absent or its value null.
    ZnHandle<ZnObject> get(unsigned int token) const;

    /// Removes the entry of \p token, releasing its value after the lock was given back.
    /// \return true when an entry was removed, false when there was none.
    bool remove(unsigned int token);

    /// \return true when the table holds \p token (also with a null value).
    bool containsKey(unsigned int token) const;

    /// A search by value, which the table does not offer.
    /// \throws ZnHandle<ZnException> "Not implemented!" always.
    bool contains(ZnObject* value) const;

    /// Removes every entry under all the locks, releasing each value.
    void clear();

    /// Appends a handle on every non-null value to \p out, taken under all the locks: a safe
    /// walk of a table that other threads change meanwhile.
    void collectElements(std::vector<ZnHandle<ZnObject>>& out) const;

    /// An iterator over the tokens. Takes no lock.
    KeyIterator keys() { return KeyIterator(*this); }
    /// An iterator over the values. Takes no lock.
    DataIterator elements() { return DataIterator(*this); }

    using ZnHashTableBase::display;
    /// Prints the class name and a newline, and flushes \p out.
    virtual void display(ZnOutputStream& out) const;

protected:
    /// Does nothing: the table keeps its size.
    void rehash() {}

    /// The hash of an Entry: its first 32 bits, the token.
    static unsigned int sHashFunc(const void* entry);
    /// True when two Entries have the same token.
    static bool sCompFunc(const void* a, const void* b);

private:
    ZnTokenTable& operator=(const ZnTokenTable&) = delete;

    /// Caller holds the lock: every one of them (or is the destructor). Removes every entry,
    /// releasing the value of each.
    void mClear();
};

#endif // ZNUTIL_ZNTOKENTABLE_H
