#include "ZnUtil/ZnHashTableBase.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnMutex.h"

#include <cstddef>
#include <cstring>
#include <new>

namespace
{

const char* const kSource = "ZnHashTableBase";

const unsigned int kDefaultItemSize = 4;
const unsigned int kDefaultTableSize = 101;

} // namespace

ZnHashTableBase::Iterator::Iterator(ZnHashTableBase& table)
    : m_index(0), m_pNext(table.m_pBuckets[0]), m_pTable(&table)
{
}

void ZnHashTableBase::Iterator::reset()
{
    m_index = 0;
    m_pNext = m_pTable->m_pBuckets[0];
}

bool ZnHashTableBase::Iterator::advance()
{
    // The index stops at the last bucket, so an exhausted iterator stays exhausted.
    while (m_index + 1 < m_pTable->m_tableSize)
    {
        ++m_index;
        Node* head = m_pTable->m_pBuckets[m_index];
        if (head != nullptr)
        {
            m_pNext = head;
            return true;
        }
    }
    return false;
}

bool ZnHashTableBase::Iterator::hasNext()
{
    return m_pNext != nullptr || advance();
}

void* ZnHashTableBase::Iterator::next()
{
    if (m_pNext == nullptr && !advance())
    {
        return nullptr;
    }
    Node* node = m_pNext;
    // The successor is taken now, so that the caller may remove the item it gets.
    m_pNext = node->m_pNext;
    return sItemOf(node);
}

ZnHashTableBase::ZnHashTableBase()
    : ZnHashTableBase(kDefaultItemSize, sDefaultHashFunc, nullptr, nullptr, kDefaultTableSize, 1)
{
}

ZnHashTableBase::ZnHashTableBase(unsigned int itemSize, HashFunc hashFunc, CompFunc compFunc,
                                 CopyFunc copyFunc, unsigned int tableSize, unsigned int lockCount)
    : m_itemSize(itemSize), m_hashFunc(hashFunc), m_compFunc(compFunc), m_copyFunc(copyFunc),
      m_tableSize(tableSize), m_count(0), m_pBuckets(nullptr), m_pLocks(nullptr),
      m_lockCount(lockCount)
{
    // Refused here rather than left to divide by zero at the first access.
    if (tableSize == 0)
    {
        ZnAssertionFailure::sThrow("ZnHashTableBase: table size 0", kSource, __LINE__, ZN_COMPILED);
    }
    if (lockCount == 0)
    {
        ZnAssertionFailure::sThrow("ZnHashTableBase: lock count 0", kSource, __LINE__, ZN_COMPILED);
    }
    if (hashFunc == nullptr)
    {
        ZnAssertionFailure::sThrow("ZnHashTableBase: no hash function", kSource, __LINE__,
                                   ZN_COMPILED);
    }
    m_pBuckets = static_cast<Node**>(::operator new(sizeof(Node*) * size_t(tableSize)));
    for (unsigned int b = 0; b < tableSize; ++b)
    {
        m_pBuckets[b] = nullptr;
    }
    try
    {
        allocateLocks();
    }
    catch (...)
    {
        freeNodes();
        throw;
    }
}

ZnHashTableBase::ZnHashTableBase(const ZnHashTableBase& other)
    : ZnObject(), m_itemSize(other.m_itemSize), m_hashFunc(other.m_hashFunc),
      m_compFunc(other.m_compFunc), m_copyFunc(other.m_copyFunc), m_tableSize(other.m_tableSize),
      m_count(0), m_pBuckets(nullptr), m_pLocks(nullptr), m_lockCount(0)
{
    // The bucket array of a copy is itemSize * tableSize bytes, a 32-bit product, as it always
    // was: the 16-byte items of the maps leave room for the pointers. Where the product is too
    // small for them the copy is refused instead of writing past the array.
    const unsigned int arrayBytes = m_itemSize * m_tableSize;
    if (size_t(arrayBytes) < sizeof(Node*) * size_t(m_tableSize))
    {
        ZnAssertionFailure::sThrow("ZnHashTableBase: items too small to copy the table", kSource,
                                   __LINE__, ZN_COMPILED);
    }
    m_pBuckets = static_cast<Node**>(::operator new(arrayBytes));
    for (unsigned int b = 0; b < m_tableSize; ++b)
    {
        m_pBuckets[b] = nullptr;
    }
    try
    {
        // The source is not locked: its owner keeps other threads out.
        Iterator items(const_cast<ZnHashTableBase&>(other));
        while (void* item = items.next())
        {
            mAdd(item);
        }
        m_lockCount = other.m_lockCount;
        allocateLocks();
    }
    catch (...)
    {
        freeNodes();
        throw;
    }
}

ZnHashTableBase::~ZnHashTableBase()
{
    freeNodes();
    freeLocks();
}

unsigned int ZnHashTableBase::sDefaultHashFunc(const void* item)
{
    unsigned int first;
    memcpy(&first, item, sizeof(first));
    return first;
}

void* ZnHashTableBase::mFind(void* item) const
{
    Node* node = m_pBuckets[m_hashFunc(item) % m_tableSize];
    if (node != nullptr && m_compFunc == nullptr)
    {
        sNoCompareFunction(__LINE__);
    }
    for (; node != nullptr; node = node->m_pNext)
    {
        if (m_compFunc(sItemOf(node), item))
        {
            return sItemOf(node);
        }
    }
    return nullptr;
}

void* ZnHashTableBase::mAdd(void* item)
{
    Node** link = &m_pBuckets[m_hashFunc(item) % m_tableSize];
    if (*link != nullptr && m_compFunc == nullptr)
    {
        sNoCompareFunction(__LINE__);
    }
    for (; *link != nullptr; link = &(*link)->m_pNext)
    {
        if (m_compFunc(sItemOf(*link), item))
        {
            // A duplicate is neither added nor replaced.
            return sItemOf(*link);
        }
    }
    Node* node = static_cast<Node*>(::operator new(sizeof(Node) + m_itemSize));
    node->m_pNext = nullptr;
    if (m_copyFunc != nullptr)
    {
        try
        {
            m_copyFunc(sItemOf(node), item);
        }
        catch (...)
        {
            ::operator delete(node);
            throw;
        }
    }
    else
    {
        memcpy(sItemOf(node), item, m_itemSize);
    }
    *link = node;
    m_count.fetch_add(1, std::memory_order_relaxed);
    return nullptr;
}

void ZnHashTableBase::mRemove(void* item)
{
    for (Node** link = &m_pBuckets[m_hashFunc(item) % m_tableSize]; *link != nullptr;
         link = &(*link)->m_pNext)
    {
        Node* node = *link;
        // Without a compare function the first node whose bytes differ from the item is the one
        // removed: that is how a table without one has always chosen.
        const bool match = m_compFunc != nullptr ? m_compFunc(sItemOf(node), item)
                                                 : memcmp(sItemOf(node), item, m_itemSize) != 0;
        if (match)
        {
            *link = node->m_pNext;
            ::operator delete(node);
            m_count.fetch_sub(1, std::memory_order_relaxed);
            return;
        }
    }
}

void* ZnHashTableBase::find(void* item) const
{
    lock(item);
    void* found;
    try
    {
        found = mFind(item);
    }
    catch (...)
    {
        unlock(item);
        throw;
    }
    unlock(item);
    return found;
}

void* ZnHashTableBase::add(void* item)
{
    lock(item);
    void* existing;
    try
    {
        existing = mAdd(item);
    }
    catch (...)
    {
        unlock(item);
        throw;
    }
    unlock(item);
    return existing;
}

void ZnHashTableBase::remove(void* item)
{
    lock(item);
    try
    {
        mRemove(item);
    }
    catch (...)
    {
        unlock(item);
        throw;
    }
    unlock(item);
}

ZnMutex* ZnHashTableBase::lockOf(void* item) const
{
    if (m_lockCount == 1)
    {
        return m_pLocks[0];
    }
    return m_pLocks[(m_hashFunc(item) % m_tableSize) % m_lockCount];
}

void ZnHashTableBase::lock(void* item) const
{
    lockOf(item)->lock();
}

void ZnHashTableBase::unlock(void* item) const
{
    lockOf(item)->unlock();
}

void ZnHashTableBase::lockAll() const
{
    for (unsigned int i = 0; i < m_lockCount; ++i)
    {
        m_pLocks[i]->lock();
    }
}

void ZnHashTableBase::unlockAll() const
{
    for (unsigned int i = 0; i < m_lockCount; ++i)
    {
        m_pLocks[i]->unlock();
    }
}

void ZnHashTableBase::allocateLocks()
{
    m_pLocks = static_cast<ZnMutex**>(::operator new(sizeof(ZnMutex*) * size_t(m_lockCount)));
    for (unsigned int i = 0; i < m_lockCount; ++i)
    {
        m_pLocks[i] = nullptr;
    }
    for (unsigned int i = 0; i < m_lockCount; ++i)
    {
        m_pLocks[i] = ZnMutex::sAllocate();
        if (m_pLocks[i] == nullptr)
        {
            freeLocks();
            ZnException::sThrow("ZnHashTableBase: no memory for a lock");
        }
    }
}

void ZnHashTableBase::freeNodes()
{
    if (m_pBuckets == nullptr)
    {
        return;
    }
    for (unsigned int b = m_tableSize; b-- > 0;)
    {
        Node* node = m_pBuckets[b];
        while (node != nullptr)
        {
            Node* following = node->m_pNext;
            ::operator delete(node);
            node = following;
        }
        m_pBuckets[b] = nullptr;
    }
    ::operator delete(m_pBuckets);
    m_pBuckets = nullptr;
    m_count.store(0, std::memory_order_relaxed);
}

void ZnHashTableBase::freeLocks()
{
    if (m_pLocks == nullptr)
    {
        return;
    }
    for (unsigned int i = 0; i < m_lockCount; ++i)
    {
        ZnMutex::sRecycle(m_pLocks[i]);
    }
    ::operator delete(m_pLocks);
    m_pLocks = nullptr;
}

void ZnHashTableBase::sNoCompareFunction(unsigned int line)
{
    ZnAssertionFailure::sThrow("ZnHashTableBase: no compare function", kSource, line, ZN_COMPILED);
}
