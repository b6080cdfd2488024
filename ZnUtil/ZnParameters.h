// The key=value parameters of a SIP header value: a small list, its parser and its printer.
#ifndef ZNUTIL_ZNPARAMETERS_H
#define ZNUTIL_ZNPARAMETERS_H

#include "ZnUtil/ZnConstString.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnString.h"

#include <atomic>
#include <cstddef>

class ZnInputStream;
class ZnMutex;
class ZnOutputStream;

/// The parameters of one SIP header value ("branch=z9hG4bK776;rport;ttl=1"), as a singly linked
/// list of key and value texts with the newest item at the head.
///
/// Keys are compared without regard to ASCII case and after trimming the caller's key; stored
/// keys keep the case they came in. setValue() keeps keys unique, but parse() never looks for an
/// earlier key, so a parsed list can hold duplicates. getString() prints from the head, so a
/// parsed text comes back in reverse order ("a=1;b=2" prints "b=2;a=1"), and a copy reverses
/// the order once more.
///
/// The parser is strict and reads a stream up to the end of the header value: the end of the
/// stream, a line end that is not folded, or a comma, which it leaves in the stream so that a
/// header parser can call it in a loop over comma-separated values.
///
/// Ownership: an object with count 0 when made with new; the list owns its items and texts.
/// Thread safety: setValue, getValue, isPresent, removeValue, clear, getString, serialize and the
/// copy hold the list's own mutex. parse, size, empty, setSeparator and ParIterator do not: a
/// caller that shares the list brackets them with lock() and unlock().
class ZnParameters : public ZnObject
{
public:
    /// One parameter of the list. Texts are private copies; an item without a value has a null
    /// value text.
    class Item
    {
    public:
        /// A copy of \p keyLength bytes of \p key and \p valueLength bytes of \p value, linked
        /// in front of \p next. A value length of 0 stores a null value text.
        Item(const char* key, size_t keyLength, const char* value, size_t valueLength, Item* next);

        /// "ZnParameters::Item".
        static const char* getMemAccountName() { return "ZnParameters::Item"; }

        static void* operator new(size_t size);
        static void operator delete(void* p);
        static void* operator new[](size_t size);
        static void operator delete[](void* p);

        ZnConstString m_key;   // never null; empty for an item parsed without a key
        ZnConstString m_value; // null when the item has no value
        Item* m_pNext;         // the older item, null at the tail

    private:
        Item(const Item&) = delete;
        Item& operator=(const Item&) = delete;
    };

    /// Walks a list from the newest item to the oldest. It takes no lock: a caller that shares
    /// the list holds lock() for the walk. It does not own the list, which must outlive it.
    class ParIterator
    {
    public:
        /// Starts at the head of \p parameters; a null list gives an iterator at the end.
        explicit ParIterator(const ZnParameters* parameters);

        /// True while an item is current.
        explicit operator bool() const { return m_pItem != nullptr; }

        /// Moves to the next item; at the end it stays there.
        /// \return this iterator.
        ParIterator& next();

        /// \return the current item's key, or null at the end.
        const char* key() const;

        /// \return the current item's value, or null at the end or when the item has no value.
        const char* value() const;

    private:
        const Item* m_pItem;
    };

    /// An empty list with the separator ";".
    /// \throws std::bad_alloc when no mutex can be had.
    ZnParameters();

    /// A list with the separator characters \p separators, filled by parse(\p text).
    /// \throws ZnHandle<ZnException> as parse() does; nothing is left allocated then.
    ZnParameters(const char* text, const char* separators);

    /// A copy of \p other's separator and items. The items come out in reverse order.
    ZnParameters(const ZnParameters& other);

    /// Frees the items, the mutex and the separator.
    ~ZnParameters() override;

    /// \return a new copy made as by the copy constructor, with count 0: wrap it in a ZnHandle
    /// at once.
    ZnObject* clone() const override;

    /// Replaces the separator text. Each of its characters ends a parameter when parsing; the
    /// whole text is written between parameters when printing. Not locked.
    void setSeparator(const char* separators);

    /// Sets the value of \p key: the first item whose key matches gets the new value and keeps
    /// its key as stored; with none, a new item is added at the head. Key and value are trimmed.
    /// A null \p value, a null or an empty \p key does nothing.
    void setValue(const char* key, const char* value);

    /// \return a copy of the value of the first item whose key matches \p key; a nil string when
    /// none matches, for a null key, or when the value is empty.
    ZnString getValue(const char* key) const;

    /// \return true when some item's key matches \p key; false for a null or empty key.
    bool isPresent(const char* key) const;

    /// Removes the first item whose key matches \p key; a null or empty key does nothing.
    void removeValue(const char* key);

    /// Removes all items.
    void clear();

    /// Adds the parameters read from \p in to the list, without clearing it and without lock.
    /// Reads up to the end of the stream, a line end not followed by space or tab (the line end
    /// is consumed), or a comma, which stays in the stream. The stream must support mark().
    /// \throws ZnHandle<ZnException> "Parameters: Double quote mismatch",
    /// "Invalid Parameter\n", "Parameter doesn't have Key/Value pair\n" or
    /// "Invalid Character (c) in SIP parameter\n"; the items added before stay in the list.
    void parse(ZnInputStream& in);

    /// parse() of the characters of \p text; a null text is read as an empty stream.
    /// \throws ZnHandle<ZnException> as parse(ZnInputStream&).
    void parse(const char* text);

    /// \return the items from the head, as "key" or "key=value", joined by the separator text;
    /// an empty list gives an empty string (not nil).
    ZnString getString() const;

    /// Writes the characters of getString() to \p out.
    void serialize(ZnOutputStream& out) const;

    /// True when the list has no item. Not locked.
    bool empty() const { return size() == 0; }

    /// \return the number of items. Not locked.
    unsigned int size() const { return m_count.load(std::memory_order_relaxed); }

    /// Takes the list's mutex, for a walk with ParIterator. Recursive.
    void lock() const;

    /// Releases the list's mutex.
    void unlock() const;

    /// "ZnParameters".
    static const char* getMemAccountName() { return "ZnParameters"; }

    static void* operator new(size_t size);
    static void operator delete(void* p);
    static void* operator new[](size_t size);
    static void operator delete[](void* p);

private:
    /// Replaces this list by a copy of \p other, locking this list before \p other.
    ZnParameters& operator=(const ZnParameters& other);

    /// True for the characters a parameter may hold outside quotes: ASCII letters and digits and
    /// [ ] / : & + $ - _ . ! ~ * ' ) ( % and the back-quote.
    bool isLegalParamValChar(char c) const;

    /// Caller holds the lock. The first item whose key matches the \p keyLength bytes of \p key.
    /// \return the item, or null; \p previous receives the item before it, null at the head.
    Item* mFind(const char* key, size_t keyLength, Item** previous) const;

    /// Caller holds the lock, or parses. Links a new item at the head and counts it.
    void mAdd(const char* key, size_t keyLength, const char* value, size_t valueLength);

    /// Caller holds the lock of \p other. Adds copies of \p other's items at the head, in
    /// \p other's order, and counts them.
    void mCopyItems(const ZnParameters& other);

    /// Caller holds the lock. Frees all items and sets the count to 0.
    void mClear();

    Item* m_pHead;                     // newest item; guarded by m_pMutex
    ZnMutex* m_pMutex;                 // from ZnMutex::sAllocate, recycled by the destructor
    std::atomic<unsigned int> m_count; // written under m_pMutex, or by parse
    ZnConstString m_separator;         // ";" unless set
};

#endif // ZNUTIL_ZNPARAMETERS_H
