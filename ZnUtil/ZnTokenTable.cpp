#include "ZnUtil/ZnTokenTable.h"

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnOutputStream.h"

namespace
{

const unsigned int kDefaultTableSize = 101;

} // namespace

static_assert(sizeof(ZnTokenTable::Entry) == 16, "an entry is a token and a pointer, 16 bytes");

unsigned int ZnTokenTable::KeyIterator::next()
{
    Entry* entry = nextEntry();
    return entry != nullptr ? entry->token : 0;
}

ZnHandle<ZnObject> ZnTokenTable::DataIterator::next()
{
    Entry* entry = nextEntry();
    return entry != nullptr ? ZnHandle<ZnObject>(entry->value) : ZnHandle<ZnObject>();
}

ZnTokenTable::ZnTokenTable()
    : ZnHashTableBase(sizeof(Entry), sHashFunc, sCompFunc, nullptr, kDefaultTableSize, 1)
{
}

ZnTokenTable::ZnTokenTable(size_t tableSize)
    : ZnHashTableBase(sizeof(Entry), sHashFunc, sCompFunc, nullptr,
                      static_cast<unsigned int>(tableSize), 1)
{
}

// No reference is added: the copy shares the source's references, on purpose, and is emptied
// without releasing them.
ZnTokenTable::ZnTokenTable(const ZnTokenTable& other) : ZnHashTableBase(other) {}

ZnTokenTable::~ZnTokenTable()
{
    mClear();
}

ZnHandle<ZnObject> ZnTokenTable::put(unsigned int token, ZnObject* value)
{
    Entry entry = {token, value};
    // This reference goes to the table.
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
        found->value = value;
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
        throw;
    }
    unlock(&entry);
    return ZnHandle<ZnObject>();
}

ZnHandle<ZnObject> ZnTokenTable::get(unsigned int token) const
{
    Entry probe = {token, nullptr};
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

bool ZnTokenTable::remove(unsigned int token)
{
    Entry probe = {token, nullptr};
    lock(&probe);
    Entry* found = static_cast<Entry*>(mFind(&probe));
    if (found == nullptr)
    {
        unlock(&probe);
        return false;
    }
    ZnObject* value = found->value;
    mRemove(&probe);
    unlock(&probe);
    // Released outside the lock: a value's destructor never runs under the table's lock.
    if (value != nullptr)
    {
        value->Release(true);
    }
    return true;
}

bool ZnTokenTable::containsKey(unsigned int token) const
{
    Entry probe = {token, nullptr};
    return find(&probe) != nullptr;
}

bool ZnTokenTable::contains(ZnObject*) const
{
    ZnException::sThrow("Not implemented!");
}

void ZnTokenTable::clear()
{
    AllLocks locks(*this);
    mClear();
}

void ZnTokenTable::collectElements(std::vector<ZnHandle<ZnObject>>& out) const
{
    AllLocks locks(*this);
    ZnHashTableBase::Iterator items(const_cast<ZnTokenTable&>(*this));
    while (void* item = items.next())
    {
        ZnObject* value = static_cast<Entry*>(item)->value;
        if (value != nullptr)
        {
            out.push_back(ZnHandle<ZnObject>(value));
        }
    }
}

void ZnTokenTable::mClear()
{
    ZnHashTableBase::Iterator items(*this);
    while (void* item = items.next())
    {
        Entry removed = *static_cast<Entry*>(item);
        mRemove(&removed);
        if (removed.value != nullptr)
        {
            removed.value->Release(true);
        }
    }
}

void ZnTokenTable::display(ZnOutputStream& out) const
{
    out << getClassName() << endl;
}

unsigned int ZnTokenTable::sHashFunc(const void* entry)
{
    return static_cast<const Entry*>(entry)->token;
}

bool ZnTokenTable::sCompFunc(const void* a, const void* b)
{
    return static_cast<const Entry*>(a)->token == static_cast<const Entry*>(b)->token;
}
