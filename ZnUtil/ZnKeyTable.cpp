#include "ZnUtil/ZnKeyTable.h"

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnOutputStream.h"
#include "ZnUtil/ZnStringBuffer.h"

namespace
{

const unsigned int kDefaultTableSize = 101;

} // namespace

static_assert(sizeof(ZnKeyTable::Entry) == 16, "an entry is two pointers, 16 bytes");

ZnString ZnKeyTable::KeyIterator::next()
{
    Entry* entry = nextEntry();
    return entry != nullptr ? ZnString(entry->key) : ZnString();
}

ZnHandle<ZnObject> ZnKeyTable::DataIterator::next()
{
    Entry* entry = nextEntry();
    return entry != nullptr ? ZnHandle<ZnObject>(entry->value) : ZnHandle<ZnObject>();
}

ZnKeyTable::ZnKeyTable() : ZnKeyTable(kDefaultTableSize, 1) {}

ZnKeyTable::ZnKeyTable(unsigned int tableSize, unsigned int lockCount)
    : ZnHashTableBase(sizeof(Entry), sHashFunc, sCompFunc, nullptr, tableSize, lockCount)
{
}

ZnKeyTable::ZnKeyTable(const ZnKeyTable& other) : ZnHashTableBase(other)
{
    // The base copied the pointers; the copy owns its own reference on each.
    ZnHashTableBase::Iterator items(*this);
    while (void* item = items.next())
    {
        Entry* entry = static_cast<Entry*>(item);
        entry->key->AddRef();
        if (entry->value != nullptr)
        {
            entry->value->AddRef();
        }
    }
}

ZnKeyTable::~ZnKeyTable()
{
    mClear();
}

ZnObject* ZnKeyTable::clone() const
{
    return new ZnKeyTable(*this);
}

ZnHandle<ZnObject> ZnKeyTable::put(const ZnString& key, ZnObject* value)
{
    if (key.empty())
    {
        ZnException::sThrow("NULL key value (ZnStringBuffer*)");
    }
    Entry entry = {key.buffer(), value};
    // These references go to the table.
    entry.key->AddRef();
    if (value != nullptr)
    {
        value->AddRef();
    }
    lock(&entry);
    Entry* found = static_cast<Entry*>(mFind(&entry));
    if (found != nullptr)
    {
        ZnHandle<ZnObject> replaced(found->value);
        if (found->value != nullptr)
        {
            found->value->Release(true);
        }
        found->key->Release(true);
        // The entry takes the new key's buffer too, not only the new value.
        *found = entry;
        unlock(&entry);
        return replaced;
    }
    try
    {
        mAdd(&entry);
    }
    catch (...)
    {
        unlock(&entry);
        if (value != nullptr)
        {
            value->Release(true);
        }
        entry.key->Release(true);
        throw;
    }
    unlock(&entry);
    return ZnHandle<ZnObject>();
}

ZnHandle<ZnObject> ZnKeyTable::get(const ZnString& key) const
{
    if (key.empty())
    {
        return ZnHandle<ZnObject>();
    }
    Entry probe = {key.buffer(), nullptr};
    ZnHandle<ZnObject> result;
    lock(&probe);
    const Entry* found = static_cast<const Entry*>(mFind(&probe));
    if (found != nullptr)
    {
        // Taken under the lock, so the value cannot die before it is returned.
        result = found->value;
    }
    unlock(&probe);
    return result;
}

ZnHandle<ZnObject> ZnKeyTable::asynGet(const ZnString& key) const
{
    if (key.empty())
    {
        return ZnHandle<ZnObject>();
    }
    Entry probe = {key.buffer(), nullptr};
    const Entry* found = static_cast<const Entry*>(mFind(&probe));
    return found != nullptr ? ZnHandle<ZnObject>(found->value) : ZnHandle<ZnObject>();
}

bool ZnKeyTable::remove(const ZnString& key)
{
    if (key.empty())
    {
        return false;
    }
    Entry probe = {key.buffer(), nullptr};
    lock(&probe);
    Entry* found = static_cast<Entry*>(mFind(&probe));
    if (found == nullptr)
    {
        unlock(&probe);
        return false;
    }
    const Entry removed = *found;
    mRemove(&probe);
    unlock(&probe);
    // Released outside the lock: a value's destructor never runs under the table's lock.
    if (removed.value != nullptr)
    {
        removed.value->Release(true);
    }
    removed.key->Release(true);
    return true;
}

bool ZnKeyTable::containsKey(const ZnString& key) const
{
    if (key.empty())
    {
        return false;
    }
    Entry probe = {key.buffer(), nullptr};
    return find(&probe) != nullptr;
}

bool ZnKeyTable::contains(ZnObject*) const
{
    ZnException::sThrow("Not implemented!");
}

void ZnKeyTable::clear()
{
    AllLocks locks(*this);
    mClear();
}

void ZnKeyTable::mClear()
{
    ZnHashTableBase::Iterator items(*this);
    while (void* item = items.next())
    {
        Entry removed = *static_cast<Entry*>(item);
        mRemove(&removed);
        // Key before value here, value before key in remove: either order is harmless.
        removed.key->Release(true);
        if (removed.value != nullptr)
        {
            removed.value->Release(true);
        }
    }
}

void ZnKeyTable::display(ZnOutputStream& out) const
{
    out << getClassName();
    ZnHashTableBase::Iterator items(const_cast<ZnKeyTable&>(*this));
    while (void* item = items.next())
    {
        const Entry* entry = static_cast<const Entry*>(item);
        out << "\n " << entry->key->c_str() << "\t";
        // The listing shows each key with its buffer's own form; values are not printed.
        entry->key->display(out);
    }
    out << endl;
}

unsigned int ZnKeyTable::sHashFunc(const void* entry)
{
    return static_cast<const Entry*>(entry)->key->hashCode();
}

bool ZnKeyTable::sCompFunc(const void* a, const void* b)
{
    return static_cast<const Entry*>(a)->key->compareWith(static_cast<const Entry*>(b)->key) == 0;
}
